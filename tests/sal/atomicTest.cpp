// Atomic integers and their lock pool.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <quorel/quorel.h>
#include <quorel/sal/sys/atomic.h>

namespace quorel {
namespace {

namespace atomic = sal::atomic;

TEST(AtomicArithmetic, ReturnsTheNewValueAndConcurrentIncrementsAreNotLost) {
  int v = 2;
  EXPECT_EQ(atomic::add(v, -7), -5);
  EXPECT_EQ(v, -5);
  v = 1;
  EXPECT_EQ(atomic::decrement(v), 0);
  EXPECT_EQ(atomic::increment(v), 1);
  EXPECT_TRUE(sal::sys::atomic::threadLibraryActive());
  // Concurrent increments are not lost.
  int counter = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 100000; ++i) atomic::increment(counter);
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(counter, 400000);
}

TEST(AtomicCompareAndSwap, SwapsOnlyOnEqualityAndConcurrentSwapLoopsCountExactly) {
  int v = 3;
  EXPECT_TRUE(atomic::tryCompareAndSwap(v, 3, 4));
  EXPECT_EQ(v, 4);
  v = 5;
  EXPECT_FALSE(atomic::tryCompareAndSwap(v, 3, 4));
  EXPECT_EQ(v, 5);
  // Concurrent swap loops count exactly.
  int counter = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 20000; ++i) {
        int seen;
        do {
          atomic::lock(counter);
          seen = counter;
          atomic::unlock(counter);
        } while (!atomic::tryCompareAndSwap(counter, seen, seen + 1));
      }
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(counter, 80000);
}

TEST(AtomicCompareAndSwap, BlockingFormWaitsForTheExpectedValue) {
  int v = 0;
  std::thread setter([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    atomic::compareAndSwap(v, 0, 1);
  });
  atomic::compareAndSwap(v, 1, 2);  // spins until the setter has stored 1
  setter.join();
  EXPECT_TRUE(atomic::tryCompareAndSwap(v, 2, 2));
}

TEST(AtomicLockPool, NeighbouringIntegersSpreadOverFourMutexes) {
  int cells[4];
  std::vector<int> seen;
  for (int& c : cells) seen.push_back(sal::sys::atomic::poolIndexOf(c));
  std::sort(seen.begin(), seen.end());
  EXPECT_EQ(seen, (std::vector<int>{0, 1, 2, 3}));
}

TEST(AtomicLockPool, TryLockFailsWhileAnotherThreadHoldsThePoolMutex) {
  int cells[8] = {};
  int& held = cells[0];
  int& sameEntry = cells[4];  // 16 bytes on: the same pool mutex
  int& otherEntry = cells[1];
  ASSERT_EQ(sal::sys::atomic::poolIndexOf(held), sal::sys::atomic::poolIndexOf(sameEntry));
  std::atomic<int> stage{0};
  std::thread holder([&] {
    atomic::lock(held);
    stage = 1;
    while (stage.load() != 2) {
    }
    atomic::unlock(held);
    stage = 3;
  });
  while (stage.load() != 1) {
  }
  EXPECT_FALSE(atomic::tryLock(held));
  EXPECT_FALSE(atomic::tryLock(sameEntry));
  ASSERT_TRUE(atomic::tryLock(otherEntry));
  atomic::unlock(otherEntry);
  stage = 2;
  while (stage.load() != 3) {
  }
  ASSERT_TRUE(atomic::tryLock(held));
  atomic::unlock(held);
  holder.join();
  EXPECT_EQ(cells[0], 0);  // locking never touches the value
}

TEST(SpinLock, ExcludesOtherThreads) {
  sal::exec::SpinLock lock;
  long long plain = 0;  // unsynchronised but for the lock
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 20000; ++i) {
        util::ALockLatchFor<sal::exec::SpinLock> latch(lock);
        ++plain;
      }
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(plain, 80000);
  ASSERT_TRUE(lock.tryLock());
  std::thread other([&] { EXPECT_FALSE(lock.tryLock()); });
  other.join();
  lock.unlock();
}

}  // namespace
}  // namespace quorel
