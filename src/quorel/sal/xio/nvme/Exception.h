/// \file
/// Exceptions of NVMe pass-through: nvme::Exception for admin commands and
/// the rest, nvme::ReadException and nvme::WriteException for the commands
/// that read and change the media, so that a dispatcher hands them to its
/// handler's read-failed and write-failed slots.
///
/// Every message begins with the command: "NVMe <command> failed: " followed
/// by "::ioctl(<request>) failed" (domain 2, errno) or by the decoded status
/// (domain 0, the status as code; see nvme::status::asString), or "NVMe
/// <command> refused: " followed by why nothing was sent (domain 0, an errno
/// value as code).
#ifndef QUOREL_SAL_XIO_NVME_EXCEPTION_H
#define QUOREL_SAL_XIO_NVME_EXCEPTION_H

#include <quorel/sal/xio/Exception.h>

namespace quorel {
namespace sal {
namespace xio {
namespace nvme {

/// An NVMe command or node that failed: Identify, Get Log Page, Flush, raw
/// commands, the namespace identifier.
class Exception : public xio::Exception {
 public:
  using xio::Exception::Exception;
  ~Exception() override;
};

/// An NVMe Read.
class ReadException : public xio::ReadException {
 public:
  using xio::ReadException::ReadException;
  ~ReadException() override;
};

/// An NVMe Write, Write Zeroes or Dataset Management (deallocate).
class WriteException : public xio::WriteException {
 public:
  using xio::WriteException::WriteException;
  ~WriteException() override;
};

}  // namespace nvme
}  // namespace xio
}  // namespace sal
}  // namespace quorel

#endif
