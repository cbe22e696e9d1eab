// Requests cost no heap allocation once they exist, also when handlers
// throw: counted by replacing the global operator new of this test program
// (plain builds only; the sanitizers bring their own).
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

#include "support/fault.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define QUOREL_COUNTS_ALLOCATIONS 0
#else
#define QUOREL_COUNTS_ALLOCATIONS 1

namespace {
std::atomic<long> allocations(0);
quorel::test::fault::Point allocationPoint(quorel::test::fault::kOperatorNew);
quorel::test::fault::Registration allocationRegistration(allocationPoint);
}  // namespace

void* operator new(std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  int error = 0;
  if (allocationPoint.fires(__builtin_return_address(0), error)) throw std::bad_alloc();  // a test's injection
  if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}
__attribute__((noinline)) void operator delete(void* memory) noexcept { std::free(memory); }
__attribute__((noinline)) void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
#endif

namespace quorel {
namespace {

using namespace sal::xio;

struct Thrown {};

// Counts completions and re-submits nothing: the loop below does. Throws
// after counting while throwing is set.
class Quiet : public AHandler {
 public:
  void on(i::op::Read, int result, Request&) override { count(result); }
  void on(i::op::Write, int result, Request&) override { count(result); }
  void on(AIOCompletionException&, Request&) override { ++failures; }
  void on(AIORequestException&, Request&) override { ++failures; }
  void on(AIOCancellationException&, Request&) override { ++failures; }
  void on(ReadException&, Request&) override { ++failures; }
  void on(WriteException&, Request&) override { ++failures; }
  long bytes = 0;
  int failures = 0;
  bool throwing = false;

 private:
  void count(int result) {
    bytes += result;
    if (throwing) throw Thrown();
  }
};

TEST(DispatcherAllocations, SubmittingAndCompletingRequestsAllocatesNothing) {
#if !QUOREL_COUNTS_ALLOCATIONS
  GTEST_SKIP() << "the sanitizer runtime owns operator new in this build; the plain build counts allocations";
#else
  const std::string path = "/tmp/quorel-alloc-" + std::to_string(::getpid());
  fopen::Spec spec;
  spec.set<i::fopen::read::Enabled>().set<i::fopen::write::Enabled>().set<i::fopen::write::create::Enabled>();
  Endpoint endpoint = Endpoint::open(path, spec);
  ::unlink(path.c_str());
  char block[4096] = {};
  File(endpoint).write(block, 4096, 0);

  for (int type : {2, 3, 4}) {  // Sync, Async, io_uring (last: see DispatcherTest.cpp)
    SCOPED_TRACE(type);
    mux::Spec mux;
    if (type == 2) mux.set<i::mux::type::Sync>(); else mux.set<i::mux::type::Async>();
    Dispatcher dispatcher;
    try {
      dispatcher = type == 4 ? Dispatcher::createURing(8) : Dispatcher::create(mux, 8);
    } catch (const AIOException&) {
      continue;  // no io_uring for this process
    }
    Quiet handler;
    std::unique_ptr<Request> reader(dispatcher.newRequestFor(&handler, endpoint));
    std::unique_ptr<Request> held(dispatcher.newRequestFor(&handler, endpoint));
    // One round to warm up (the held list reserves its room once).
    reader->submit(i::op::Read(), block, 4096, 0);
    dispatcher.wait();
    const long before = allocations.load();
    for (int n = 0; n < 1000; ++n) {
      reader->submit(i::op::Read(), block, 4096, 0);
      dispatcher.wait();
      reader->submit(i::op::Write(), block, 4096, 0);
      dispatcher.wait();
      held->submit(i::op::Read(), nullptr, -1, 0);
      dispatcher.wait();
    }
    EXPECT_EQ(allocations.load() - before, 0);
    EXPECT_EQ(handler.failures, 0);
    EXPECT_EQ(handler.bytes, 4096 + 2000L * 4096 - 1000L * 666);

    // Handlers that throw: each exception leaves wait(), the rest completes
    // in the next one, and none of it allocates.
    handler.throwing = true;
    handler.bytes = 0;
    int thrown = 0;
    const long beforeThrowing = allocations.load();
    for (int n = 0; n < 1000; ++n) {
      reader->submit(i::op::Read(), block, 4096, 0);
      if (type != 2) held->submit(i::op::Read(), nullptr, -1, 0);
      while (dispatcher.pending() > 0) {
        try {
          dispatcher.wait();
        } catch (const Thrown&) {
          ++thrown;
        }
      }
    }
    EXPECT_EQ(allocations.load() - beforeThrowing, 0);
    EXPECT_EQ(thrown, type != 2 ? 2000 : 1000);
    EXPECT_EQ(handler.bytes, type != 2 ? 1000L * (4096 - 666) : 1000L * 4096);
    if (type != 4) continue;

    // io_uring: rounds of five times its depth, the rest waiting for room
    // (their queue grows in the first round only).
    handler.throwing = false;
    std::vector<std::unique_ptr<Request>> many;
    for (int n = 0; n < 40; ++n) many.emplace_back(dispatcher.newRequestFor(&handler, endpoint));
    long beforeMany = 0;
    for (int round = 0; round < 100; ++round) {
      if (round == 1) beforeMany = allocations.load();
      for (std::unique_ptr<Request>& request : many) request->submit(i::op::Read(), block, 4096, 0);
      dispatcher.wait();
    }
    EXPECT_EQ(allocations.load() - beforeMany, 0);
  }
#endif
}

}  // namespace
}  // namespace quorel
