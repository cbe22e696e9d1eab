/// \file
/// Exceptions of execution: threads, processes, applications and synchronisation.
#ifndef QUOREL_SAL_EXEC_EXCEPTION_H
#define QUOREL_SAL_EXEC_EXCEPTION_H

#include <quorel/sal/Exception.h>

namespace quorel {
namespace sal {
namespace exec {

/// Execution: threads, processes, applications. Every class of this family
/// can also be made from a caught platform failure, copying all its fields.
class Exception : public sal::Exception {
 public:
  using sal::Exception::Exception;
  explicit Exception(const sys::Exception& cause) : sal::Exception(cause) {}
  ~Exception() override;
};

/// Synchronisation objects.
class SyncException : public exec::Exception {
 public:
  using exec::Exception::Exception;
  ~SyncException() override;
};

/// A lock that could not be acquired.
class SyncAcquireException : public SyncException {
 public:
  using SyncException::SyncException;
  ~SyncAcquireException() override;
};

/// A lock that could not be released.
class SyncReleaseException : public SyncException {
 public:
  using SyncException::SyncException;
  ~SyncReleaseException() override;
};

}  // namespace exec
}  // namespace sal
}  // namespace quorel

#endif
