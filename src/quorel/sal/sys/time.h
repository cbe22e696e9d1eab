/// \file
/// Platform layer of the clocks: gettimeofday, the monotonic clock and
/// timespec conversions.
#ifndef QUOREL_SAL_SYS_TIME_H
#define QUOREL_SAL_SYS_TIME_H

#include <time.h>

#include <atomic>

#include <quorel/sal/time.h>
#include <quorel/util/pod.h>

namespace quorel {
namespace sal {
namespace sys {
namespace time {

sal::time::absolute now();

namespace micro {
sal::time::absolute now();
}  // namespace micro

namespace milli {
sal::time::absolute now();
/// ts = ms as seconds and nanoseconds (signed, truncating toward zero).
void to(timespec& ts, long long ms);
}  // namespace milli

namespace nano {
/// ts.tv_sec = ns / 1e9 and ts.tv_nsec = ns % 1e9 (signed, truncating).
void to(timespec& ts, long long ns);
}  // namespace nano

namespace tick {

/// The last tick read by now(), the floor of the next reading. Read and
/// written without a lock (concurrent callers may overwrite each other's
/// value); atomic so that a 64-bit value is never torn on 32-bit x86.
extern std::atomic<pod::uint64> lastTick;

pod::uint64 now();

namespace as {
/// Unused; kept for the interface's sake.
extern int cheese;

pod::uint64 nano(pod::uint64 t);
pod::uint64 micro(pod::uint64 t);
pod::uint64 milli(pod::uint64 t);
pod::uint64 sec(pod::uint64 t);
pod::uint64 nano(pod::uint64 from, pod::uint64 to);
pod::uint64 micro(pod::uint64 from, pod::uint64 to);
pod::uint64 milli(pod::uint64 from, pod::uint64 to);
pod::uint64 sec(pod::uint64 from, pod::uint64 to);
}  // namespace as

}  // namespace tick
}  // namespace time
}  // namespace sys
}  // namespace sal
}  // namespace quorel

#endif
