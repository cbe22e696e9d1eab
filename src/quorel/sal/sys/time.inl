// Platform half of the clocks: gettimeofday and clock_gettime(CLOCK_MONOTONIC).
#include <quorel/sal/sys/time.h>

#include <errno.h>
#include <sys/time.h>

#include <quorel/sal/Exception.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace sys {
namespace time {

namespace micro {

sal::time::absolute now() {
  timeval tv;
  if (::gettimeofday(&tv, nullptr) != 0) {
    const int error = errno;
    QUOREL_THROW(sys::Exception)("::gettimeofday() failed", i::err::domain::kSystemCall, error);
  }
  return static_cast<sal::time::absolute>(tv.tv_sec) * 1000000 + tv.tv_usec;
}

}  // namespace micro

namespace milli {

sal::time::absolute now() { return micro::now() / 1000; }

void to(timespec& ts, long long ms) { nano::to(ts, ms * 1000000); }

}  // namespace milli

sal::time::absolute now() { return milli::now() / 1000; }

namespace nano {

void to(timespec& ts, long long ns) {
  ts.tv_sec = static_cast<time_t>(ns / 1000000000);
  ts.tv_nsec = static_cast<long>(ns % 1000000000);
}

}  // namespace nano

namespace tick {

std::atomic<pod::uint64> lastTick(0);

pod::uint64 now() {
  const pod::uint64 floor = lastTick.load(std::memory_order_relaxed);
  pod::uint64 result;
  do {
    timespec ts;
    // Not checked: CLOCK_MONOTONIC with a valid buffer cannot fail.
    ::clock_gettime(CLOCK_MONOTONIC, &ts);
    // The seconds are taken as a signed 32-bit value, as the 32-bit ABI's
    // time_t holds them.
    result = static_cast<pod::uint64>(static_cast<pod::int64>(static_cast<pod::integer>(ts.tv_sec))) *
                 1000000000u +
             static_cast<pod::uint64>(ts.tv_nsec);
    lastTick.store(result, std::memory_order_relaxed);
  } while (result < floor);
  return result;
}

namespace as {

int cheese = 0;

pod::uint64 nano(pod::uint64 t) { return t; }
pod::uint64 micro(pod::uint64 t) { return t / 1000u; }
pod::uint64 milli(pod::uint64 t) { return t / 1000000u; }
pod::uint64 sec(pod::uint64 t) { return t / 1000000000u; }
pod::uint64 nano(pod::uint64 from, pod::uint64 to) { return nano(to - from); }
pod::uint64 micro(pod::uint64 from, pod::uint64 to) { return micro(to - from); }
pod::uint64 milli(pod::uint64 from, pod::uint64 to) { return milli(to - from); }
pod::uint64 sec(pod::uint64 from, pod::uint64 to) { return sec(to - from); }

}  // namespace as
}  // namespace tick
}  // namespace time
}  // namespace sys
}  // namespace sal
}  // namespace quorel
