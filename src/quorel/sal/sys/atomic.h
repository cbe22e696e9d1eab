/// \file
/// Platform layer of the atomic integer operations.
#ifndef QUOREL_SAL_SYS_ATOMIC_H
#define QUOREL_SAL_SYS_ATOMIC_H

namespace quorel {
namespace sal {
namespace sys {
namespace atomic {

/// Index of the pool mutex that serves the integer at this address.
int poolIndexOf(const int& v);

void lock(int& v);
void unlock(int& v);
bool tryLock(int& v);
bool tryCompareAndSwap(int& v, int expected, int desired);
void compareAndSwap(int& v, int expected, int desired);
int add(int& v, int delta);

/// True when the thread library is present in the running program, which
/// decides whether add() needs a locked instruction.
bool threadLibraryActive();

}  // namespace atomic
}  // namespace sys
}  // namespace sal
}  // namespace quorel

#endif
