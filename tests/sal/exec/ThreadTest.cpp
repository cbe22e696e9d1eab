// Threads: the parked start, waits, exits and exceptions, stack size,
// scheduling, processor binding and the failures of thread creation.
#include <linux/capability.h>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <functional>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

#include "support/expect.h"
#include "support/fault.h"
#include "support/process.h"

namespace quorel {
namespace {

using sal::exec::CVOneShot;
using sal::exec::TaskHandle;
using sal::exec::Thread;

// A task that runs a function.
struct Lambda : sal::exec::i::Task {
  explicit Lambda(std::function<int()> function) : f(std::move(function)) {}
  int run() override { return f(); }
  std::function<int()> f;
};

TaskHandle task(std::function<int()> f) { return TaskHandle(new Lambda(std::move(f))); }

// Runs f on a new thread with that stack size and waits for it.
void onThread(const std::function<void()>& f, unsigned int stackSize = 0) {
  Thread(task([&f] { return f(), 0; }), stackSize, 0).start().wait();
}

TEST(Thread, ParkedThreadRunsItsTaskOnlyAfterStartAndWaitsTimeOut) {
  std::atomic<bool> ran{false};
  CVOneShot gate;
  Thread thread = Thread::wire(task([&ran, gate]() mutable { ran = true; return gate.wait(), 0; }), 0, 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_FALSE(ran);
  thread.start();
  std::thread waiter([thread, gate]() mutable {  // long asleep when the task ends
    thread.wait();
    EXPECT_TRUE(gate.waitFor(0));
  });
  EXPECT_FALSE(thread.waitFor(20));
  gate.trigger();
  EXPECT_TRUE(thread.waitUntil(sal::time::milli::now() + 10000));
  waiter.join();
  EXPECT_TRUE(ran);
}

// A pthread_create whose threads come up only after 30 ms.
std::atomic<bool> lateThreadUp{false};

void* lateEntry(void* argument) {
  std::unique_ptr<std::pair<void* (*)(void*), void*>> entry(static_cast<std::pair<void* (*)(void*), void*>*>(argument));
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
  lateThreadUp = true;
  return entry->first(entry->second);
}

int createLate(pthread_t* thread, const pthread_attr_t* attr, void* (*entry)(void*), void* argument) noexcept {
  auto* late = new std::pair<void* (*)(void*), void*>(entry, argument);
  const int error = ::pthread_create(thread, attr, lateEntry, late);
  if (error != 0) delete late;
  return error;
}

TEST(Thread, TheConstructorWaitsForAThreadThatComesUpLate) {
  QUOREL_REQUIRE_FAULT_POINT("pthread_create");
  test::fault::StandIn late("pthread_create", reinterpret_cast<void*>(createLate));
  Thread thread(task([] { return 0; }), 0, 0);
  EXPECT_TRUE(lateThreadUp);
  EXPECT_TRUE(thread.start().waitFor(10000));
}

TEST(Thread, FinishesAndWakesEveryWaiterHoweverTheTaskEnds) {
  const std::vector<std::function<int()>> endings{
      [] { return 1; },
      [] () -> int { throw std::runtime_error("task failed"); },
      [] () -> int { Thread::exit(); },
      [] () -> int { ::pthread_exit(nullptr); },  // unwinds through the thread's frames
  };
  for (size_t i = 0; i < endings.size(); ++i) {
    CVOneShot gate;
    const std::function<int()> ending = endings[i];
    std::shared_ptr<int> alive = std::make_shared<int>(0);  // held by the task
    const std::weak_ptr<int> watch(alive);
    {
      Thread thread(task([gate, ending, alive]() mutable { gate.wait(); return ending(); }), 0, 0);
      alive.reset();
      Thread copy(thread);
      std::atomic<int> woken{0};
      std::vector<std::thread> waiters;
      for (int w = 0; w < 3; ++w) waiters.emplace_back([copy, &woken]() mutable { copy.wait(), ++woken; });
      thread.start();
      gate.trigger();
      for (auto& w : waiters) w.join();
      EXPECT_EQ(woken, 3) << i;
      EXPECT_TRUE(thread.waitFor(0)) << i;
    }
    // The thread let go of its state and its task when it ended.
    EXPECT_TRUE(test::eventually([&] { return watch.expired(); })) << i;
  }
}

TEST(Thread, SmallStacksAreRaisedTo16KiB) {
  for (unsigned int requested : {100u, 1u << 20}) {
    size_t size = 0;
    onThread(
        [&] {
          pthread_attr_t attr;
          ::pthread_getattr_np(::pthread_self(), &attr);
          ::pthread_attr_getstacksize(&attr, &size);
          ::pthread_attr_destroy(&attr);
        },
        requested);
    const size_t expected = requested < 16384 ? 16384u : requested;
#ifdef __SANITIZE_THREAD__
    EXPECT_GE(size, expected) << requested;  // ThreadSanitizer enlarges small stacks itself
#else
    EXPECT_EQ(size, expected) << requested;
#endif
  }
}

// Gives up what lets a process choose real-time scheduling: CAP_SYS_NICE and
// any RLIMIT_RTPRIO allowance. False when that cannot be done.
bool dropRealTimePrivileges() {
  const rlimit none = {0, 0};
  if (::setrlimit(RLIMIT_RTPRIO, &none) != 0) return false;
  __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct caps[2] = {};
  if (::syscall(SYS_capget, &header, caps) != 0) return false;
  const unsigned int nice = 1u << (CAP_SYS_NICE % 32);
  caps[CAP_SYS_NICE / 32].effective &= ~nice;
  caps[CAP_SYS_NICE / 32].permitted &= ~nice;
  caps[CAP_SYS_NICE / 32].inheritable &= ~nice;
  return ::syscall(SYS_capset, &header, caps) == 0;
}

TEST(Thread, PrioritiesAboveTheProcessAreRoundRobinAndNeedPrivileges) {
  if (!sal::sys::exec::thr::init || sal::sys::exec::thr::policy != SCHED_OTHER) {
    GTEST_SKIP() << "the process is not an ordinary SCHED_OTHER process";
  }
  // Without the privileges the system refuses the thread itself.
  std::fflush(stdout);
  const pid_t child = ::fork();
  if (child == 0) {
    if (!dropRealTimePrivileges()) ::_exit(3);
    QUOREL_EXPECT_THROW(Thread(task([] { return 0; }), 0, 1), sal::sys::Exception, "::pthread_create() failed", 2,
                        EPERM);
    onThread([] {});
    std::fflush(stdout);
    ::_exit(::testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status)) << status;
  EXPECT_NE(WEXITSTATUS(status), 1) << "the unprivileged child's checks failed (above)";
  // With them: round robin, here at the policy's highest priority.
  int policy = -1;
  sched_param param{};
  try {
    Thread(task([&] { return ::pthread_getschedparam(::pthread_self(), &policy, &param); }), 0, 2).start().wait();
  } catch (const sal::sys::Exception& e) {
    if (e.code() == EPERM) GTEST_SKIP() << "this process has no real-time privileges: " << e.asSimpleString();
    throw;
  }
  EXPECT_EQ(policy, SCHED_RR);
  EXPECT_EQ(param.sched_priority, ::sched_get_priority_max(SCHED_RR));
  if (WEXITSTATUS(status) == 3) GTEST_SKIP() << "the child could not give up its real-time privileges";
}

TEST(Thread, BindsTheCallingThreadToOneProcessor) {
  cpu_set_t before, after, outOfRange;
  onThread([&] {
    ::sched_getaffinity(0, sizeof before, &before);
    Thread::bindToCPU(1024);  // no effect, no error
    ::sched_getaffinity(0, sizeof outOfRange, &outOfRange);
    Thread::bindToCPU(0);
    ::sched_getaffinity(0, sizeof after, &after);
  });
  EXPECT_TRUE(CPU_EQUAL(&before, &outOfRange));
  EXPECT_EQ(CPU_COUNT(&after), 1);
  EXPECT_TRUE(CPU_ISSET(0, &after));
}

TEST(Thread, SetPriorityMovesTheCallingThread) {
  if (!sal::sys::exec::thr::init || sal::sys::exec::thr::policy != SCHED_OTHER) {
    GTEST_SKIP() << "the process is not an ordinary SCHED_OTHER process";
  }
  int raised = -1, lowered = -1;
  sched_param param{};
  onThread([&] {
    Thread::setPriority(1);
    ::pthread_getschedparam(::pthread_self(), &raised, &param);
    Thread::setPriority(0);
    ::pthread_getschedparam(::pthread_self(), &lowered, &param);
  });
  EXPECT_EQ(lowered, SCHED_OTHER);
  if (raised == SCHED_OTHER) GTEST_SKIP() << "real-time scheduling is refused here (setPriority ignores that)";
  EXPECT_EQ(raised, SCHED_RR);
}

TEST(Thread, FailingSchedulingAttributesAreIgnored) {
  QUOREL_REQUIRE_FAULT_POINT("pthread_attr_setschedparam");
  if (!sal::sys::exec::thr::init) GTEST_SKIP() << "no scheduling snapshot: threads get no scheduling attribute";
  for (const char* call : {"pthread_attr_setinheritsched", "pthread_attr_setschedpolicy", "pthread_attr_setschedparam"}) {
    SCOPED_TRACE(call);
    test::fault::Injection fail(call, ENOTSUP);
    bool ran = false;
    onThread([&] { ran = true; });
    EXPECT_TRUE(ran);
    EXPECT_EQ(test::fault::calls(call), 1);
  }
}

TEST(ThreadFailures, CreationCallsThrowAndLeaveNothingBehind) {
  QUOREL_EXPECT_THROW(Thread().start(), NULLDereferenceException, "this handle does not contain a valid object", 0, 0);
  QUOREL_REQUIRE_FAULT_POINT("pthread_create");
  const char* kWhere = "void quorel::sal::sys::exec::thr::boot(void (*)(void*), void*, size_t, int)";
  const struct {
    const char* call;
    int error;
    const char* why;
  } rows[] = {
      {"pthread_attr_init", ENOMEM, "::pthread_attr_init() failed"},
      {"pthread_attr_setdetachstate", EINVAL, "::pthread_attr_setdetachstate() failed"},
      {"pthread_attr_setstacksize", EINVAL, "::pthread_attr_setstacksize() failed"},
      {"pthread_create", EAGAIN, "::pthread_create() failed"},
  };
  ASSERT_TRUE(test::eventually([] { return test::threadCount() == 1; })) << "other threads are still running";
  std::atomic<bool> ran{false};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.call);
    test::fault::Injection fail(row.call, row.error);
    auto e = QUOREL_EXPECT_THROW(Thread(task([&] { ran = true; return 0; }), 0, 0), sal::sys::Exception, row.why,
                                 2, row.error);
    ASSERT_TRUE(e);
    EXPECT_STREQ(e->where(), kWhere);
    EXPECT_EQ(test::threadCount(), 1);
  }
  EXPECT_FALSE(ran);
}

}  // namespace
}  // namespace quorel
