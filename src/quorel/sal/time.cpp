// Public clocks, forwarding to the platform layer.
#include <quorel/sal/time.h>

#include <quorel/sal/sys/time.inl>

namespace quorel {
namespace sal {
namespace time {

absolute now() { return sys::time::now(); }

namespace micro {
absolute now() { return sys::time::micro::now(); }
}  // namespace micro

namespace milli {
absolute now() { return sys::time::milli::now(); }
}  // namespace milli

namespace tick {

pod::uint64 now() { return sys::time::tick::now(); }

namespace as {
pod::uint64 nano(pod::uint64 t) { return sys::time::tick::as::nano(t); }
pod::uint64 micro(pod::uint64 t) { return sys::time::tick::as::micro(t); }
pod::uint64 milli(pod::uint64 t) { return sys::time::tick::as::milli(t); }
pod::uint64 sec(pod::uint64 t) { return sys::time::tick::as::sec(t); }
pod::uint64 nano(pod::uint64 from, pod::uint64 to) { return sys::time::tick::as::nano(from, to); }
pod::uint64 micro(pod::uint64 from, pod::uint64 to) { return sys::time::tick::as::micro(from, to); }
pod::uint64 milli(pod::uint64 from, pod::uint64 to) { return sys::time::tick::as::milli(from, to); }
pod::uint64 sec(pod::uint64 from, pod::uint64 to) { return sys::time::tick::as::sec(from, to); }
}  // namespace as

}  // namespace tick
}  // namespace time
}  // namespace sal
}  // namespace quorel
