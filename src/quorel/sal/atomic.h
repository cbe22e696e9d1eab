/// \file
/// Integer operations that are safe between threads.
///
/// lock/unlock/tryLock and the compare-and-swap operations serialise on a pool
/// of four process-wide mutexes, chosen by the integer's address, so any int
/// can serve as a lock name. The mutexes are not recursive: a thread holding
/// lock(a) that calls tryCompareAndSwap(b, ...) on an integer b sharing a's
/// pool entry deadlocks. add/increment/decrement do not use the pool and are not
/// serialised with the compare-and-swap operations on the same integer.
#ifndef QUOREL_SAL_ATOMIC_H
#define QUOREL_SAL_ATOMIC_H

namespace quorel {
namespace sal {
namespace atomic {

/// Locks the pool mutex of v's address (blocks). v's value is not touched.
void lock(int& v);
/// Unlocks that mutex.
void unlock(int& v);
/// Takes that mutex if it is free; false at once if another thread holds it.
bool tryLock(int& v);

/// Under the pool mutex: if v == expected, v becomes desired and the result is
/// true; otherwise v is unchanged and the result is false.
bool tryCompareAndSwap(int& v, int expected, int desired);
/// Retries tryCompareAndSwap without pause until it succeeds: spins for as
/// long as another thread keeps v at a value other than expected.
void compareAndSwap(int& v, int expected, int desired);

/// Adds delta and returns the new value.
int add(int& v, int delta);
int increment(int& v);  // add(v, 1)
int decrement(int& v);  // add(v, -1)

}  // namespace atomic
}  // namespace sal
}  // namespace quorel

#endif
