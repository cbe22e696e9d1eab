/// \file
/// Exceptions of the file system area.
#ifndef QUOREL_SAL_FS_EXCEPTION_H
#define QUOREL_SAL_FS_EXCEPTION_H

#include <quorel/sal/Exception.h>

namespace quorel {
namespace sal {
namespace fs {

/// File system.
class Exception : public sal::Exception {
 public:
  using sal::Exception::Exception;
  ~Exception() override;
};

/// A device control request that failed.
class IOCTLException : public fs::Exception {
 public:
  using fs::Exception::Exception;
  ~IOCTLException() override;
};

/// An unusable path name.
class PathNameException : public fs::Exception {
 public:
  using fs::Exception::Exception;
  ~PathNameException() override;
};

/// File characteristics that could not be determined.
class StatException : public fs::Exception {
 public:
  using fs::Exception::Exception;
  ~StatException() override;
};

}  // namespace fs
}  // namespace sal
}  // namespace quorel

#endif
