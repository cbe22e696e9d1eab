/// \file
/// scsi::IOControl: SCSI commands to a device node through SG_IO.
#ifndef QUOREL_SAL_XIO_SCSI_IOCONTROL_H
#define QUOREL_SAL_XIO_SCSI_IOCONTROL_H

#include <quorel/sal/xio/impl/scsi/IOControl.h>
#include <quorel/util/AHandleTo.h>

namespace quorel {
namespace sal {
namespace xio {
namespace scsi {

/// Write a command block into cdb(), then executeFor(). A device that answers
/// with CHECK CONDITION, or a host or driver error, is reported through the
/// status and sense length outputs (see err::asString for the status texts
/// and scsi::sense for the sense bytes); only a failed ioctl throws. Copies
/// share the buffers; one thread at a time.
///
///   scsi::IOControl io(false);
///   io.cdb()[0] = 0x25;  // READ CAPACITY (10)
///   int length = 8, status, senseLength;
///   io.executeFor(0, endpoint.id(), 10, 60, data, length, status, senseLength);
class IOControl {
 public:
  /// extended: the version-4 header instead of the version-3 one.
  explicit IOControl(bool extended);

  unsigned char* cdb();
  const char* senseData() const;
  /// See impl::scsi::IOControl::executeFor.
  int executeFor(int direction, i::id::type id, int cdbLength, int timeout, void* data, int& length, int& status,
                 int& senseLength);

  impl::scsi::IOControl& impl() { return *handle_.operator->(); }

 private:
  util::AHandleTo<impl::scsi::IOControl> handle_;
};

}  // namespace scsi
}  // namespace xio
}  // namespace sal
}  // namespace quorel

#endif
