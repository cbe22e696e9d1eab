/// \file
/// CondVar: a condition variable that is itself the mutex it waits with.
#ifndef QUOREL_SAL_EXEC_CONDVAR_H
#define QUOREL_SAL_EXEC_CONDVAR_H

#include <quorel/sal/exec/Mutex.h>
#include <quorel/sal/time.h>

namespace quorel {
namespace sal {
namespace exec {

/// The Mutex base is the mutex the condition waits with. Several conditions
/// can share one mutex (CondVar(mutex), newSibling()): locking any of them
/// locks them all. Copies share both the mutex and the condition.
///
/// Waits require the caller to hold the mutex (lock() or an
/// ALockLatchFor<Mutex> on this object) and may wake spuriously: callers test
/// their own predicate in a loop. Timed waits return false on time-out; other
/// failures throw sys::Exception naming the pthread call.
class CondVar : public Mutex {
 public:
  /// A new mutex and a new condition.
  CondVar();
  /// A new condition waiting with mutex's POSIX mutex.
  explicit CondVar(const Mutex& mutex);
  CondVar(const CondVar& other);
  CondVar& operator=(const CondVar& other);
  ~CondVar() override;

  /// A new condition on the same mutex as this one.
  CondVar newSibling() const;

  void wait();
  /// Waits until now + milliseconds (the wall clock): true when woken, false
  /// at the time-out. A wait beyond the platform's time range waits until its
  /// end. Throws the clock's sys::Exception if gettimeofday fails.
  bool waitFor(unsigned long long milliseconds);
  /// deadline: milliseconds since the epoch (time::milli::now()).
  bool waitUntil(time::absolute deadline);
  /// Wake one or all waiters; the caller need not hold the mutex.
  void signalOne();
  void signalAll();

 private:
  util::AHandleTo<impl::CondVar> cond_;
};

}  // namespace exec
}  // namespace sal
}  // namespace quorel

#endif
