// Platform half of Mutex: pthread_mutex_init, _lock, _unlock, _trylock and
// _destroy.
#include <quorel/sal/sys/exec/Mutex.h>

#include <errno.h>

#include <quorel/sal/Exception.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace sys {
namespace exec {

Mutex::Mutex() {
  const int error = ::pthread_mutex_init(&mutex_, nullptr);
  if (error != 0) {
    QUOREL_THROW(sys::Exception)("::pthread_mutex_init() failed", i::err::domain::kSystemCall, error);
  }
}

Mutex::~Mutex() { ::pthread_mutex_destroy(&mutex_); }

void Mutex::lock() {
  const int error = ::pthread_mutex_lock(&mutex_);
  if (error != 0) {
    QUOREL_THROW(sys::Exception)("::pthread_mutex_lock() failed", i::err::domain::kSystemCall, error);
  }
}

void Mutex::unlock() {
  const int error = ::pthread_mutex_unlock(&mutex_);
  if (error != 0) {
    QUOREL_THROW(sys::Exception)("::pthread_mutex_unlock() failed", i::err::domain::kSystemCall, error);
  }
}

bool Mutex::tryLock() {
  const int error = ::pthread_mutex_trylock(&mutex_);
  if (error == 0) return true;
  if (error == EBUSY) return false;
  QUOREL_THROW(sys::Exception)("::pthread_mutex_trylock() failed", i::err::domain::kSystemCall, error);
}

}  // namespace exec
}  // namespace sys
}  // namespace sal
}  // namespace quorel
