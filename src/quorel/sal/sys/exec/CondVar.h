/// \file
/// The platform's condition variable: one pthread_cond_t.
#ifndef QUOREL_SAL_SYS_EXEC_CONDVAR_H
#define QUOREL_SAL_SYS_EXEC_CONDVAR_H

#include <pthread.h>

#include <quorel/sal/sys/exec/Mutex.h>
#include <quorel/sal/time.h>

namespace quorel {
namespace sal {
namespace sys {
namespace exec {

/// A POSIX condition with default attributes (waits use the wall clock).
/// Failures throw sys::Exception "::pthread_cond_...() failed", domain 2,
/// with the error number the call returned.
class CondVar {
 public:
  CondVar();
  CondVar(const CondVar&) = delete;
  CondVar& operator=(const CondVar&) = delete;
  /// Destroys the condition; never throws.
  ~CondVar();

  /// Waits with mutex, which the caller holds. May wake spuriously.
  void wait(Mutex& mutex);
  /// Waits until deadline (milliseconds since the epoch): true when woken
  /// (possibly spuriously), false when the deadline passed. Deadlines beyond
  /// what the platform's time_t holds wait until its last second.
  bool waitUntil(sal::time::absolute deadline, Mutex& mutex);
  void signalOne();
  void signalAll();

 private:
  pthread_cond_t cond_;
};

}  // namespace exec
}  // namespace sys
}  // namespace sal
}  // namespace quorel

#endif
