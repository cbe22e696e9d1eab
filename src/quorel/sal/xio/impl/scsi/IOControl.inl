// Platform half of SCSI pass-through: ioctl(SG_IO).
#include <quorel/sal/xio/impl/scsi/IOControl.h>

#include <errno.h>
#include <sys/ioctl.h>

#include <cstring>

#include <quorel/sal/xio/Exception.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace xio {
namespace impl {
namespace scsi {

IOControl::IOControl(bool extended) : extended_(extended) {
  std::memset(&header_, 0, sizeof header_);
  std::memset(cdb_, 0, sizeof cdb_);
  std::memset(sense_, 0, sizeof sense_);
  if (!extended) {
    header_.v3.interface_id = 'S';
    header_.v3.cmdp = cdb_;
    header_.v3.sbp = reinterpret_cast<unsigned char*>(sense_);
    header_.v3.mx_sb_len = 255;
    header_.v3.flags = SG_FLAG_DIRECT_IO;
  } else {
    header_.v4.guard = 'Q';
    header_.v4.protocol = BSG_PROTOCOL_SCSI;
    header_.v4.subprotocol = BSG_SUB_PROTOCOL_SCSI_CMD;
    header_.v4.request = reinterpret_cast<pod::uintptr>(cdb_);
    header_.v4.response = reinterpret_cast<pod::uintptr>(sense_);
    header_.v4.max_response_len = 255;
  }
}

int IOControl::execute(int direction, i::id::type id, int cdbLength, int timeout, void* data, int& length, int& status,
                       int& senseLength) {
  const int fd = static_cast<int>(id);
  if (!extended_) {
    sg_io_hdr& h = header_.v3;
    h.status = 0;
    h.sb_len_wr = 0;
    h.cmd_len = static_cast<unsigned char>(cdbLength);
    h.dxfer_direction = direction != 0 ? SG_DXFER_TO_DEV : SG_DXFER_FROM_DEV;
    h.dxferp = data;
    h.timeout = static_cast<unsigned int>(timeout) * 1000;
    h.dxfer_len = static_cast<unsigned int>(length);
    if (::ioctl(fd, SG_IO, &h) == -1) return 0;
    status = h.status;
    if (status == 0 && h.host_status != 0) status = (h.host_status & 0xff) << 16;
    if (status == 0 && (h.driver_status & 0x0f) != 0) status = (h.driver_status & 0x0f) << 24;
    senseLength = h.sb_len_wr;
    length -= h.resid;
    return 1;
  }
  sg_io_v4& h = header_.v4;
  h.request_len = static_cast<pod::uint32>(cdbLength);
  h.timeout = static_cast<pod::uint32>(timeout) * 1000;
  const pod::uint64 pointer = reinterpret_cast<pod::uintptr>(data);
  if (direction != 0) {
    h.dout_xferp = pointer;
    h.dout_xfer_len = static_cast<pod::uint32>(length);
    h.din_xferp = 0;
    h.din_xfer_len = 0;
  } else {
    h.din_xferp = pointer;
    h.din_xfer_len = static_cast<pod::uint32>(length);
    h.dout_xferp = 0;
    h.dout_xfer_len = 0;
  }
  if (::ioctl(fd, SG_IO, &h) == -1) return 0;
  // The device status only: host and driver status are not folded in here.
  status = static_cast<int>(h.device_status);
  senseLength = static_cast<int>(h.response_len);
  length -= direction != 0 ? h.dout_resid : h.din_resid;
  return 1;
}

int IOControl::executeFor(int direction, i::id::type id, int cdbLength, int timeout, void* data, int& length,
                          int& status, int& senseLength) {
  const int done = execute(direction, id, cdbLength, timeout, data, length, status, senseLength);
  if (done == 0) {
    const int error = errno;
    QUOREL_THROW(xio::Exception)("device I/O control failed while attempting to send a SCSI CDB to device",
                                 sal::i::err::domain::kSystemCall, error);
  }
  return done;
}

}  // namespace scsi
}  // namespace impl
}  // namespace xio
}  // namespace sal
}  // namespace quorel
