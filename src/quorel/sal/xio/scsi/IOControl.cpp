// scsi::IOControl, forwarding to its implementation.
#include <quorel/sal/xio/scsi/IOControl.h>

namespace quorel {
namespace sal {
namespace xio {
namespace scsi {

IOControl::IOControl(bool extended) : handle_(new impl::scsi::IOControl(extended)) {}
unsigned char* IOControl::cdb() { return handle_->cdb(); }
const char* IOControl::senseData() const { return handle_->senseData(); }
int IOControl::executeFor(int direction, i::id::type id, int cdbLength, int timeout, void* data, int& length,
                          int& status, int& senseLength) {
  return handle_->executeFor(direction, id, cdbLength, timeout, data, length, status, senseLength);
}

}  // namespace scsi
}  // namespace xio
}  // namespace sal
}  // namespace quorel
