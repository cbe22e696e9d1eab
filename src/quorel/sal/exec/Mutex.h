/// \file
/// Mutex: a plain, non-recursive mutual exclusion lock.
#ifndef QUOREL_SAL_EXEC_MUTEX_H
#define QUOREL_SAL_EXEC_MUTEX_H

#include <quorel/sal/exec/impl/Sync.h>
#include <quorel/util/AHandleTo.h>

namespace quorel {
namespace sal {
namespace exec {

/// Copies share one POSIX mutex (never a new one); it is destroyed with the
/// last copy. The mutex is of the default kind: relocking it from the thread
/// that holds it is undefined. Any thread may lock; only the holder unlocks.
/// Failures throw sys::Exception naming the pthread call, with the error
/// number it returned. Lock for a scope with util::ALockLatchFor<Mutex>.
class Mutex {
 public:
  typedef util::AHandleTo<impl::Mutex> Handle;

  /// A new POSIX mutex.
  Mutex();
  /// Shares other's mutex.
  Mutex(const Mutex& other);
  Mutex& operator=(const Mutex& other);
  virtual ~Mutex();

  /// Blocks until the mutex is taken.
  void lock() { handle_->lock(); }
  void unlock() { handle_->unlock(); }
  /// True when taken; false, without blocking or throwing, when another thread
  /// holds it.
  bool tryLock() { return handle_->tryLock(); }

  /// The shared implementation (the conditions built on this mutex wait with it).
  Handle& impl() { return handle_; }
  const Handle& impl() const { return handle_; }

 private:
  Handle handle_;
};

}  // namespace exec
}  // namespace sal
}  // namespace quorel

#endif
