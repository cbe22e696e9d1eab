/// \file
/// SpinLock: a small lock named by its own integer, on the atomic lock pool.
#ifndef QUOREL_SAL_EXEC_SPINLOCK_H
#define QUOREL_SAL_EXEC_SPINLOCK_H

namespace quorel {
namespace sal {
namespace exec {

/// Locks through atomic::lock/unlock on its integer, so it shares the pool
/// mutex of its address with other atomic users: keep the locked region short
/// and never call atomic compare-and-swap from inside it. Not recursive, not
/// copyable. Usable before static initialisation has run.
class SpinLock {
 public:
  constexpr SpinLock() : name_(0) {}
  SpinLock(const SpinLock&) = delete;
  SpinLock& operator=(const SpinLock&) = delete;

  void lock();
  void unlock();
  /// False at once if another thread holds the lock.
  bool tryLock();

 private:
  int name_;
};

}  // namespace exec
}  // namespace sal
}  // namespace quorel

#endif
