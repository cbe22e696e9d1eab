/// \file
/// The system abstraction layer's root exception and the classes of its diagnostics, platform and memory areas.
#ifndef QUOREL_SAL_EXCEPTION_H
#define QUOREL_SAL_EXCEPTION_H

#include <quorel/util/Exception.h>

namespace quorel {
namespace sal {

/// Root of the system abstraction layer's exceptions.
class Exception : public quorel::Exception {
 public:
  using quorel::Exception::Exception;
  ~Exception() override;
};

namespace diag {
/// Declared for diagnostics; the library itself does not throw it.
class Exception : public sal::Exception {
 public:
  using sal::Exception::Exception;
  ~Exception() override;
};
}  // namespace diag

namespace sys {
/// A failure of the platform layer: the usual class for a failed POSIX call.
class Exception : public sal::Exception {
 public:
  using sal::Exception::Exception;
  ~Exception() override;
};
}  // namespace sys

namespace vm {
/// A memory allocation that failed.
class Exception : public sal::Exception {
 public:
  using sal::Exception::Exception;
  ~Exception() override;
};
}  // namespace vm

}  // namespace sal
}  // namespace quorel

#endif
