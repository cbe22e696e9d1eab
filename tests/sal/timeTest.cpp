// Clocks and their conversions.
#include <sys/time.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include <quorel/quorel.h>
#include <quorel/sal/sys/time.h>

#include "support/expect.h"
#include "support/fault.h"

namespace quorel {
namespace {

namespace as = sal::time::tick::as;

TEST(TickAndTimespecConversion, TicksTruncateAndWrapInUnsigned64TimespecsTruncateTowardZero) {
  EXPECT_EQ(as::micro(1999u), 1u);
  EXPECT_EQ(as::sec(999999999u), 0u);
  EXPECT_EQ(as::micro(1000u, 4500u), 3u);
  // (2,000,000 - 5,000,000) wraps around before the division.
  EXPECT_EQ(as::milli(5000000u, 2000000u), 18446744073706u);
  EXPECT_EQ(as::nano(1u, 0u), 18446744073709551615u);
  // timespec conversions split signed values, truncating toward zero.
  timespec ts;
  sal::sys::time::nano::to(ts, 3500000001LL);
  EXPECT_EQ(ts.tv_sec, 3);
  EXPECT_EQ(ts.tv_nsec, 500000001);
  sal::sys::time::milli::to(ts, -1500);
  EXPECT_EQ(ts.tv_sec, -1);
  EXPECT_EQ(ts.tv_nsec, -500000000);
  sal::sys::time::milli::to(ts, 0);
  EXPECT_EQ(ts.tv_sec, 0);
  EXPECT_EQ(ts.tv_nsec, 0);
}

TEST(WallClock, AgreesWithTheSystemClock) {
  using namespace std::chrono;
  const long long before = duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
  const long long micro = sal::time::micro::now();
  const long long after = duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
  EXPECT_LE(before, micro);
  EXPECT_LE(micro, after);
  EXPECT_NEAR(static_cast<double>(sal::time::milli::now()), micro / 1000.0, 1000.0);
  EXPECT_NEAR(static_cast<double>(sal::time::now()), micro / 1000000.0, 2.0);
}

// A clock 1.5 seconds before the epoch.
int beforeEpoch(struct timeval* tv, void*) noexcept {
  tv->tv_sec = -2;
  tv->tv_usec = 500000;
  return 0;
}

TEST(WallClock, UnitsTruncateTowardZeroBeforeTheEpoch) {
  test::fault::StandIn clock("gettimeofday", reinterpret_cast<void*>(&beforeEpoch));
  EXPECT_EQ(sal::time::micro::now(), -1500000);
  EXPECT_EQ(sal::time::milli::now(), -1500);
  EXPECT_EQ(sal::time::now(), -1);
}

TEST(WallClock, FailedGettimeofdayThrowsSystemCallError) {
  for (auto call : {&sal::time::micro::now, &sal::time::milli::now, &sal::time::now}) {
    auto e = QUOREL_EXPECT_FAULT("gettimeofday", EFAULT, call(), sal::sys::Exception, "::gettimeofday() failed", 2,
                                 EFAULT);
    ASSERT_TRUE(e);
    EXPECT_STREQ(e->where(), "quorel::sal::time::absolute quorel::sal::sys::time::micro::now()");
    EXPECT_STREQ(e->file(), "sal/sys/time.inl");
  }
  EXPECT_GT(sal::time::micro::now(), 0);  // the injection is gone
}

TEST(Tick, NeverRunsBackwards) {
  pod::uint64 last = 0;
  for (int i = 0; i < 10000; ++i) {
    const auto now = sal::time::tick::now();
    ASSERT_GE(now, last);
    last = now;
  }
  EXPECT_EQ(sal::sys::time::tick::lastTick.load(), last);
}

TEST(Tick, WaitsForTheClockToPassTheFloorAndMeasuresElapsedTime) {
  const auto floor = sal::time::tick::now() + 20000000u;  // 20 ms ahead
  sal::sys::time::tick::lastTick = floor;
  EXPECT_GE(sal::time::tick::now(), floor);
  EXPECT_EQ(sal::sys::time::tick::as::cheese, 0);
  const auto start = sal::time::tick::now();
  std::this_thread::sleep_for(std::chrono::milliseconds(5));
  EXPECT_GE(as::milli(start, sal::time::tick::now()), 5u);
}

}  // namespace
}  // namespace quorel
