/// \file
/// TSDPair: a slot holding one pointer per thread.
#ifndef QUOREL_SAL_EXEC_TSDPAIR_H
#define QUOREL_SAL_EXEC_TSDPAIR_H

#include <quorel/sal/exec/impl/Sync.h>
#include <quorel/util/AHandleTo.h>

namespace quorel {
namespace sal {
namespace exec {

/// Copies share one key, deleted with the last copy. The values are the
/// caller's: the slot never frees them, not even when a thread ends.
class TSDPair {
 public:
  /// Throws sys::Exception "::pthread_key_create() failed".
  TSDPair();

  /// The calling thread's value; null in a thread that never set one.
  void* value();
  void* value() const;
  /// Throws sys::Exception "::pthread_setspecific() failed".
  void setValue(void* value);

 private:
  util::AHandleTo<impl::TSDPair> handle_;
};

}  // namespace exec
}  // namespace sal
}  // namespace quorel

#endif
