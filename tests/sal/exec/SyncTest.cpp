// Mutex, CondVar, CVOneShot and TSDPair: cross-thread behaviour and every
// failure of the pthread calls beneath them.
#include <atomic>
#include <functional>
#include <cerrno>
#include <thread>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

#include "support/expect.h"
#include "support/fault.h"

namespace quorel {
namespace {

using sal::exec::CondVar;
using sal::exec::CVOneShot;
using sal::exec::Mutex;
using sal::exec::TSDPair;
typedef util::ALockLatchFor<Mutex> Latch;

// True if another thread can take the lock right now.
template <class Lock>
bool freeForOthers(Lock& lock) {
  bool taken = false;
  std::thread other([&] {
    taken = lock.tryLock();
    if (taken) lock.unlock();
  });
  other.join();
  return taken;
}

TEST(Mutex, CopiesShareOneMutexThatOutlivesTheOriginal) {
  Mutex* original = new Mutex;
  Mutex copy(*original);
  Mutex assigned;
  assigned = copy;
  original->lock();
  EXPECT_FALSE(freeForOthers(copy));
  original->unlock();
  delete original;
  assigned.lock();
  EXPECT_FALSE(freeForOthers(copy));
  assigned.unlock();
  EXPECT_TRUE(freeForOthers(copy));
}

TEST(CondVar, SiblingsShareTheMutexAndTimedWaitsReturnFalseOnTimeOut) {
  Mutex mutex;
  CondVar a(mutex);
  CondVar b = a.newSibling();
  CondVar own;
  Latch latch(a);
  EXPECT_FALSE(freeForOthers(b));
  EXPECT_TRUE(freeForOthers(own));
  EXPECT_FALSE(a.waitFor(0));
  EXPECT_FALSE(a.waitUntil(-1500));  // before the epoch: at once
}

TEST(CondVar, SignalWakesAWaiterAndVeryLongWaitsDoNotOverflowIntoThePast) {
  CondVar cv;
  std::atomic<int> result{-1};
  std::thread waiter([&] {
    Latch latch(cv);
    result = cv.waitFor(~0ULL);  // "forever": woken by the signal below
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(result, -1);
  while (result == -1) {
    cv.signalOne();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  waiter.join();
  EXPECT_EQ(result, 1);
}

TEST(CVOneShot, TriggerWakesWaitersOnOtherThreadsAndStaysTriggered) {
  CVOneShot event;
  CVOneShot copy(event);
  EXPECT_FALSE(event.waitFor(10));
  std::atomic<int> woken{0};
  std::thread a([&] { event.wait(), ++woken; });
  std::thread b([&] { while (!copy.waitFor(10000)) {} ++woken; });
  copy.trigger();
  a.join();
  b.join();
  EXPECT_EQ(woken, 2);
  event.trigger();  // harmless
  EXPECT_TRUE(event.waitUntil(0));
}

TEST(TSDPair, ValuesArePerThread) {
  TSDPair slot;
  int mine = 1, theirs = 2;
  EXPECT_EQ(slot.value(), nullptr);
  slot.setValue(&mine);
  const TSDPair shared(slot);
  void* seenByOther = &mine;
  std::thread other([&] {
    seenByOther = shared.value();
    slot.setValue(&theirs);
  });
  other.join();
  EXPECT_EQ(seenByOther, nullptr);
  EXPECT_EQ(shared.value(), &mine);
}

// Makes call fail with an error number it can really return; "::call() failed"
// is expected from where. The mutex calls are inlined into the caller, so they
// are injected for any caller; nothing else runs while they are armed.
void expectFailure(const std::string& call, int error, const char* where, const std::function<void()>& operation) {
  SCOPED_TRACE(call);
  const bool inlined = call.rfind("pthread_mutex_", 0) == 0;
  test::fault::Injection fail(call.c_str(), error, 1, 1,
                              inlined ? test::fault::Caller::kAny : test::fault::Caller::kLibrary);
  auto e = QUOREL_EXPECT_THROW(operation(), sal::sys::Exception, "::" + call + "() failed", 2, error);
  ASSERT_TRUE(e);
  EXPECT_STREQ(e->where(), where);
}

TEST(SyncFailures, MutexCallsThrowWithTheReturnedErrorNumber) {
  QUOREL_REQUIRE_FAULT_POINT("pthread_mutex_lock");
  expectFailure("pthread_mutex_init", EAGAIN, "quorel::sal::sys::exec::Mutex::Mutex()", [] { Mutex m; });
  Mutex m;
  expectFailure("pthread_mutex_lock", EDEADLK, "void quorel::sal::sys::exec::Mutex::lock()", [&] { m.lock(); });
  expectFailure("pthread_mutex_trylock", EINVAL, "bool quorel::sal::sys::exec::Mutex::tryLock()",
                [&] { m.tryLock(); });
  m.lock();
  expectFailure("pthread_mutex_unlock", EPERM, "void quorel::sal::sys::exec::Mutex::unlock()", [&] { m.unlock(); });
  m.unlock();
  test::fault::Injection busy("pthread_mutex_trylock", EBUSY, 1, 1, test::fault::Caller::kAny);
  EXPECT_FALSE(m.tryLock());
}

TEST(SyncFailures, ConditionCallsThrowWithTheReturnedErrorNumber) {
  QUOREL_REQUIRE_FAULT_POINT("pthread_cond_wait");
  expectFailure("pthread_cond_init", ENOMEM, "quorel::sal::sys::exec::CondVar::CondVar()", [] { CondVar cv; });
  CondVar cv;
  expectFailure("pthread_cond_wait", EINVAL,
                "void quorel::sal::sys::exec::CondVar::wait(quorel::sal::sys::exec::Mutex&)", [&] {
                  Latch latch(cv);
                  cv.wait();
                });
  EXPECT_TRUE(freeForOthers(cv));  // the latch let go when the wait threw
  expectFailure("pthread_cond_timedwait", EINVAL,
                "bool quorel::sal::sys::exec::CondVar::waitUntil(quorel::sal::time::absolute, "
                "quorel::sal::sys::exec::Mutex&)",
                [&] {
                  Latch latch(cv);
                  cv.waitFor(1000);
                });
  expectFailure("pthread_cond_signal", EINVAL, "void quorel::sal::sys::exec::CondVar::signalOne()",
                [&] { cv.signalOne(); });
  expectFailure("pthread_cond_broadcast", EINVAL, "void quorel::sal::sys::exec::CondVar::signalAll()",
                [&] { cv.signalAll(); });
}

TEST(SyncFailures, KeyCallsThrowWithTheReturnedErrorNumber) {
  QUOREL_REQUIRE_FAULT_POINT("pthread_key_create");
  expectFailure("pthread_key_create", EAGAIN, "quorel::sal::sys::exec::TSDPair::TSDPair()", [] { TSDPair slot; });
  TSDPair slot;
  int value = 0;
  expectFailure("pthread_setspecific", ENOMEM, "void quorel::sal::sys::exec::TSDPair::setValue(void*)",
                [&] { slot.setValue(&value); });
}

}  // namespace
}  // namespace quorel
