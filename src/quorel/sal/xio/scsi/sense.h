// Rendering of SCSI sense data for exception texts.
#ifndef QUOREL_SAL_XIO_SCSI_SENSE_H
#define QUOREL_SAL_XIO_SCSI_SENSE_H

#include <string>

namespace quorel {
namespace sal {
namespace xio {
namespace scsi {
namespace sense {

namespace kcq {
// Key/ASC/ASCQ of raw sense data (fixed or descriptor format). Reads up to
// 14 bytes of senseData.
std::string descriptionFrom(const char* senseData);
}  // namespace kcq

// Two hexadecimal digits per byte, in groups of four bytes separated by spaces.
std::string hexStringFrom(const char* data, int length);

}  // namespace sense
}  // namespace scsi
}  // namespace xio
}  // namespace sal
}  // namespace quorel

#endif
