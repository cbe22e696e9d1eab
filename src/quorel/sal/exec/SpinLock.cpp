// SpinLock over the atomic lock pool.
#include <quorel/sal/exec/SpinLock.h>

#include <quorel/sal/atomic.h>

namespace quorel {
namespace sal {
namespace exec {

void SpinLock::lock() { atomic::lock(name_); }
void SpinLock::unlock() { atomic::unlock(name_); }
bool SpinLock::tryLock() { return atomic::tryLock(name_); }

}  // namespace exec
}  // namespace sal
}  // namespace quorel
