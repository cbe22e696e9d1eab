// Reference-counted handles, the scoped lock and the scoped finalizer.
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <stdexcept>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

#include "support/expect.h"

namespace quorel {
namespace {

// Counts live objects and destructions.
struct Tracked {
  static std::atomic<int> destroyed;
  int value;
  explicit Tracked(int v) : value(v) {}
  ~Tracked() { destroyed.fetch_add(1); }
};
std::atomic<int> Tracked::destroyed{0};

typedef util::AHandleTo<Tracked, sal::AtomicCounter> Handle;
typedef util::AHandleTo<Tracked, int> LocalHandle;

class AHandleTo : public ::testing::Test {
 protected:
  void SetUp() override { Tracked::destroyed = 0; }
};

TEST_F(AHandleTo, EmptyHandleCopiesWithoutHolderAndThrowsOnUse) {
  const Handle empty(nullptr);
  Handle copy(empty);
  EXPECT_FALSE(copy);
  EXPECT_EQ(copy.useCount(), 0);
  auto e = QUOREL_EXPECT_THROW(copy->value, NULLDereferenceException,
                               "this handle does not contain a valid object", 0, 0);
  ASSERT_TRUE(e);
  EXPECT_NE(std::string(e->where()).find("operator->() [with T = quorel::{anonymous}::Tracked; "
                                         "Counter = quorel::sal::AtomicCounter;"),
            std::string::npos)
      << e->where();
  auto r = QUOREL_EXPECT_THROW(empty.reference(), NULLDereferenceException,
                               "this handle does not contain a valid object", 0, 0);
  ASSERT_TRUE(r);
  EXPECT_NE(std::string(r->where()).find("::reference() const [with T = "), std::string::npos);
}

TEST_F(AHandleTo, AssignmentBetweenSharersOrToSelfKeepsCountAndReleasesThePreviousObject) {
  {
    Handle a(new Tracked(1));
    Handle b(a);
    b = a;
    Handle& self = a;
    a = self;
    EXPECT_EQ(a.useCount(), 2);
    EXPECT_EQ(Tracked::destroyed, 0);
    b = Handle(new Tracked(2));
    a = b;
    EXPECT_EQ(Tracked::destroyed, 1);
    EXPECT_EQ(a->value, 2);
    a = Handle(nullptr);
    EXPECT_EQ(b.useCount(), 1);
  }
  EXPECT_EQ(Tracked::destroyed, 2);  // with the last sharer
}

// A list cell: a value and a handle to the next cell.
struct Cell;
typedef util::AHandleTo<Cell, sal::AtomicCounter> CellHandle;
struct Cell {
  Cell(int v, const CellHandle& n) : value(v), next(n) {}
  Tracked value;
  CellHandle next;
};

TEST_F(AHandleTo, AssignmentFromAHandleInsideTheReleasedObject) {
  CellHandle list(new Cell(1, CellHandle(new Cell(2, CellHandle(nullptr)))));
  list = list->next;  // frees the first cell, which holds the source
  EXPECT_EQ(Tracked::destroyed, 1);
  ASSERT_TRUE(list);
  EXPECT_EQ(list->value.value, 2);
  EXPECT_EQ(list.useCount(), 1);
  list = list->next;  // to the empty end
  EXPECT_FALSE(list);
  EXPECT_EQ(Tracked::destroyed, 2);
}

struct CountingDeallocator {
  static int freed;
  static void free(Tracked* t) {
    ++freed;
    delete t;
  }
};
int CountingDeallocator::freed = 0;

TEST_F(AHandleTo, IntCounterAndDeallocatorPolicies) {
  { LocalHandle a(new Tracked(3)), b(a); }
  EXPECT_EQ(Tracked::destroyed, 1);
  CountingDeallocator::freed = 0;
  { util::AHandleTo<Tracked, int, CountingDeallocator> h(new Tracked(0)); }
  EXPECT_EQ(CountingDeallocator::freed, 1);
}

TEST_F(AHandleTo, CopiesOnManyThreadsKeepTheCountExactAndDestroyTheObjectOnce) {
  constexpr int kThreads = 8, kRounds = 50, kCopies = 2000;
  for (int round = 0; round < kRounds; ++round) {
    Handle kept(new Tracked(round));
    std::vector<Handle> copies(kThreads, kept);
    std::atomic<int> phase{0}, copied{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        while (phase.load() == 0) std::this_thread::yield();
        std::vector<Handle> local(kCopies, copies[t]);  // attaches on the shared holder
        local.clear();                                 // and detaches
        ++copied;
        while (phase.load() == 1) std::this_thread::yield();
        copies[t] = Handle(nullptr);  // the last of these drops destroys the object
      });
    }
    phase = 1;
    while (copied.load() < kThreads) std::this_thread::yield();
    EXPECT_EQ(kept.useCount(), kThreads + 1) << round;  // no increment or decrement lost
    kept = Handle(nullptr);
    phase = 2;
    for (auto& t : threads) t.join();
    ASSERT_EQ(Tracked::destroyed, round + 1);
  }
}

// A lock that records its calls.
struct RecordingLock {
  int locks = 0;
  int unlocks = 0;
  void lock() { ++locks; }
  void unlock() { ++unlocks; }
};

TEST(ALockLatchFor, UnlocksWhenScopeIsLeftByAnException) {
  RecordingLock lock;
  try {
    util::ALockLatchFor<RecordingLock> latch(lock);
    EXPECT_EQ(lock.locks, 1);
    EXPECT_EQ(lock.unlocks, 0);
    throw std::runtime_error("leave");
  } catch (const std::runtime_error&) {
  }
  EXPECT_EQ(lock.unlocks, 1);
}

TEST(ASimpleFinalizerOf, ClosesTheDescriptorAndIgnoresTheResult) {
  int fds[2];
  ASSERT_EQ(::pipe(fds), 0);
  {
    util::ASimpleFinalizerOf<int, int (*)(int)> closeRead(fds[0], ::close);
    util::ASimpleFinalizerOf<int, int (*)(int)> closeWrite(fds[1], ::close);
    util::ASimpleFinalizerOf<int, int (*)(int)> closeBad(-1, ::close);  // fails silently
  }
  EXPECT_EQ(::fcntl(fds[0], F_GETFD), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(::fcntl(fds[1], F_GETFD), -1);
}

}  // namespace
}  // namespace quorel
