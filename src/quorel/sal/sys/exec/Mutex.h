/// \file
/// The platform's mutex: one pthread_mutex_t.
#ifndef QUOREL_SAL_SYS_EXEC_MUTEX_H
#define QUOREL_SAL_SYS_EXEC_MUTEX_H

#include <pthread.h>

namespace quorel {
namespace sal {
namespace sys {
namespace exec {

/// A default (neither recursive nor error-checking) POSIX mutex. Failures
/// throw sys::Exception "::pthread_mutex_...() failed", domain 2, with the
/// error number the call returned.
class Mutex {
 public:
  Mutex();
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;
  /// Destroys the mutex; never throws.
  ~Mutex();

  void lock();
  void unlock();
  /// False when another thread holds the mutex.
  bool tryLock();

  pthread_mutex_t* native() { return &mutex_; }

 private:
  pthread_mutex_t mutex_;
};

}  // namespace exec
}  // namespace sys
}  // namespace sal
}  // namespace quorel

#include <quorel/sal/sys/exec/Mutex.inl>

#endif
