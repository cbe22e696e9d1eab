// Platform half of Mutex: pthread_mutex_init, _lock, _unlock, _trylock and
// _destroy. Inline, included by Mutex.h: locking costs what the pthread call
// costs.
#include <errno.h>

#include <quorel/sal/Exception.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace sys {
namespace exec {

inline Mutex::Mutex() {
  const int error = ::pthread_mutex_init(&mutex_, nullptr);
  if (error != 0) {
    QUOREL_THROW(sys::Exception)("::pthread_mutex_init() failed", i::err::domain::kSystemCall, error);
  }
}

inline Mutex::~Mutex() { ::pthread_mutex_destroy(&mutex_); }

inline void Mutex::lock() {
  const int error = ::pthread_mutex_lock(&mutex_);
  if (__builtin_expect(error != 0, 0)) {
    QUOREL_THROW(sys::Exception)("::pthread_mutex_lock() failed", i::err::domain::kSystemCall, error);
  }
}

inline void Mutex::unlock() {
  const int error = ::pthread_mutex_unlock(&mutex_);
  if (__builtin_expect(error != 0, 0)) {
    QUOREL_THROW(sys::Exception)("::pthread_mutex_unlock() failed", i::err::domain::kSystemCall, error);
  }
}

inline bool Mutex::tryLock() {
  const int error = ::pthread_mutex_trylock(&mutex_);
  if (error == 0) return true;
  if (error == EBUSY) return false;
  QUOREL_THROW(sys::Exception)("::pthread_mutex_trylock() failed", i::err::domain::kSystemCall, error);
}

}  // namespace exec
}  // namespace sys
}  // namespace sal
}  // namespace quorel
