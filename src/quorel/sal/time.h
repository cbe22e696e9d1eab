/// \file
/// Wall-clock and monotonic time with unit conversions.
///
/// time::absolute counts time since the Unix epoch in the unit of the clock
/// that produced it: micro::now() gives microseconds, milli::now()
/// milliseconds, now() seconds. A tick is an unsigned 64-bit count of
/// nanoseconds of the monotonic clock, from an origin fixed at system start.
#ifndef QUOREL_SAL_TIME_H
#define QUOREL_SAL_TIME_H

#include <quorel/util/pod.h>

namespace quorel {
namespace sal {
namespace time {

typedef long long absolute;

/// Seconds since the epoch: milli::now() / 1000, truncated toward zero.
/// Throws sys::Exception "::gettimeofday() failed" (domain 2, errno).
absolute now();

namespace micro {
/// Microseconds since the epoch, from gettimeofday.
/// Throws sys::Exception "::gettimeofday() failed" (domain 2, errno).
absolute now();
}  // namespace micro

namespace milli {
/// Milliseconds since the epoch: micro::now() / 1000, truncated toward zero.
absolute now();
}  // namespace milli

namespace tick {

/// Nanoseconds of the monotonic clock, never below the last tick this process
/// had read when the call began. Does not throw.
pod::uint64 now();

namespace as {
/// Conversions of a tick or of a tick difference (to - from, computed in
/// unsigned 64-bit arithmetic: a 'to' before 'from' wraps to a huge value).
/// All divisions truncate.
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
}  // namespace sal
}  // namespace quorel

#endif
