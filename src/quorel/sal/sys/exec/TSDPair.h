/// \file
/// The platform's thread-specific data key: one pthread_key_t.
#ifndef QUOREL_SAL_SYS_EXEC_TSDPAIR_H
#define QUOREL_SAL_SYS_EXEC_TSDPAIR_H

#include <pthread.h>

namespace quorel {
namespace sal {
namespace sys {
namespace exec {

/// A key with no destructor function: values stored under it are never freed
/// by the key. Failures throw sys::Exception, domain 2, with the error number
/// the call returned.
class TSDPair {
 public:
  TSDPair();
  TSDPair(const TSDPair&) = delete;
  TSDPair& operator=(const TSDPair&) = delete;
  /// Deletes the key; never throws.
  ~TSDPair();

  /// The calling thread's value; null if it never set one.
  void* value() const;
  void setValue(void* value);

 private:
  pthread_key_t key_;
};

}  // namespace exec
}  // namespace sys
}  // namespace sal
}  // namespace quorel

#endif
