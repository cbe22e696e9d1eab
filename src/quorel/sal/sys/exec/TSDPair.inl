// Platform half of TSDPair: pthread_key_create, _getspecific, _setspecific
// and pthread_key_delete.
#include <quorel/sal/sys/exec/TSDPair.h>

#include <quorel/sal/Exception.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace sys {
namespace exec {

TSDPair::TSDPair() {
  const int error = ::pthread_key_create(&key_, nullptr);
  if (error != 0) {
    QUOREL_THROW(sys::Exception)("::pthread_key_create() failed", i::err::domain::kSystemCall, error);
  }
}

TSDPair::~TSDPair() { ::pthread_key_delete(key_); }

void* TSDPair::value() const { return ::pthread_getspecific(key_); }

void TSDPair::setValue(void* value) {
  const int error = ::pthread_setspecific(key_, value);
  if (error != 0) {
    QUOREL_THROW(sys::Exception)("::pthread_setspecific() failed", i::err::domain::kSystemCall, error);
  }
}

}  // namespace exec
}  // namespace sys
}  // namespace sal
}  // namespace quorel
