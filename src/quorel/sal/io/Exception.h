/// \file
/// Exceptions of socket I/O.
#ifndef QUOREL_SAL_IO_EXCEPTION_H
#define QUOREL_SAL_IO_EXCEPTION_H

#include <quorel/sal/Exception.h>

namespace quorel {
namespace sal {
namespace io {

/// Socket I/O.
class Exception : public sal::Exception {
 public:
  using sal::Exception::Exception;
  ~Exception() override;
};

/// A socket wait that timed out. Derives from sal::Exception, not from io::Exception.
class TimeoutException : public sal::Exception {
 public:
  using sal::Exception::Exception;
  ~TimeoutException() override;
};

}  // namespace io
}  // namespace sal
}  // namespace quorel

#endif
