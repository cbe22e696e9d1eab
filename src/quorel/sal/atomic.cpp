// Public atomic integer operations, forwarding to the platform layer.
#include <quorel/sal/atomic.h>

#include <quorel/sal/sys/atomic.inl>

namespace quorel {
namespace sal {
namespace atomic {

void lock(int& v) { sys::atomic::lock(v); }
void unlock(int& v) { sys::atomic::unlock(v); }
bool tryLock(int& v) { return sys::atomic::tryLock(v); }
bool tryCompareAndSwap(int& v, int expected, int desired) {
  return sys::atomic::tryCompareAndSwap(v, expected, desired);
}
void compareAndSwap(int& v, int expected, int desired) {
  sys::atomic::compareAndSwap(v, expected, desired);
}
int add(int& v, int delta) { return sys::atomic::add(v, delta); }
int increment(int& v) { return sys::atomic::add(v, 1); }
int decrement(int& v) { return sys::atomic::add(v, -1); }

}  // namespace atomic
}  // namespace sal
}  // namespace quorel
