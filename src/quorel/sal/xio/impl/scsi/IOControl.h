/// \file
/// One SCSI command's buffers and its SG_IO request header.
#ifndef QUOREL_SAL_XIO_IMPL_SCSI_IOCONTROL_H
#define QUOREL_SAL_XIO_IMPL_SCSI_IOCONTROL_H

#include <linux/bsg.h>
#include <scsi/sg.h>

#include <quorel/sal/xio/i/types.h>
#include <quorel/util/pod.h>

namespace quorel {
namespace sal {
namespace xio {
namespace impl {
namespace scsi {

/// The header is the version-3 SCSI generic one ('S') or, extended, the
/// version-4 block-layer one ('Q'). One thread at a time.
class IOControl {
 public:
  explicit IOControl(bool extended);
  IOControl(const IOControl&) = delete;
  IOControl& operator=(const IOControl&) = delete;

  /// The 32-byte command block the caller fills before executing.
  unsigned char* cdb() { return cdb_; }
  /// The sense bytes of the last command (256-byte buffer).
  const char* senseData() const { return sense_; }
  bool extended() const { return extended_; }

  /// Sends the first cdbLength bytes of cdb() to the device id: direction
  /// non-zero writes data to the device. length is the bytes to move in and
  /// the bytes moved out; status packs the SCSI status, or the host status
  /// << 16, or the driver status (low four bits) << 24 (the extended header
  /// reports the device status only); senseLength is the sense bytes written.
  /// Returns 0 if the ioctl itself failed (errno tells why), else non-zero.
  int execute(int direction, i::id::type id, int cdbLength, int timeout, void* data, int& length, int& status,
              int& senseLength);
  /// The same, throwing xio::Exception "device I/O control failed while
  /// attempting to send a SCSI CDB to device" (domain 2, errno) when the
  /// ioctl fails.
  int executeFor(int direction, i::id::type id, int cdbLength, int timeout, void* data, int& length, int& status,
                 int& senseLength);

 private:
  union {
    sg_io_hdr v3;
    sg_io_v4 v4;
  } header_;
  unsigned char cdb_[32];
  char sense_[256];
  bool extended_;
};

}  // namespace scsi
}  // namespace impl
}  // namespace xio
}  // namespace sal
}  // namespace quorel

#endif
