/// \file
/// SCSI sense data as text: sense keys, additional sense codes and
/// qualifiers, and hexadecimal dumps.
#ifndef QUOREL_SAL_XIO_SCSI_SENSE_H
#define QUOREL_SAL_XIO_SCSI_SENSE_H

#include <string>

namespace quorel {
namespace sal {
namespace xio {
namespace scsi {
namespace sense {

namespace key {
/// "NO SENSE" ... "COMPLETED" for 0-15 (12 is "reserved"); "" above 15.
const char* descriptionFor(unsigned char key);
}  // namespace key

namespace acq {
/// The standard's description of an additional sense code and qualifier
/// ("INVALID FIELD IN CDB"); the range rules for ASC 0x40 (ASCQ 0x80-0xFF),
/// 0x4D and 0x70; "VENDOR SPECIFIC" for codes or qualifiers from 0x80 that the
/// standard does not list, else "UNKNOWN ADDITIONAL SENSE CODE".
const char* descriptionFor(unsigned char asc, unsigned char ascq);
}  // namespace acq

namespace kcq {
/// "05/24/00 (ILLEGAL REQUEST / INVALID FIELD IN CDB)".
std::string descriptionFor(unsigned char key, unsigned char asc, unsigned char ascq);
/// The same from raw sense data in fixed (0x70/0x71: key at byte 2, codes at
/// 12 and 13) or descriptor format (0x72/0x73: bytes 1, 2 and 3); vendor
/// format (0x7F) gives "(vendor-specific sense data format)". Reads up to 14
/// bytes.
std::string descriptionFrom(const char* senseData);
}  // namespace kcq

/// Two upper-case hexadecimal digits per byte, in groups of four bytes
/// separated by spaces: "70000500 00000000".
std::string hexStringFrom(const char* data, int length);

}  // namespace sense
}  // namespace scsi
}  // namespace xio
}  // namespace sal
}  // namespace quorel

#endif
