/// \file
/// NVMe completion status as text: the status code type, the status code and
/// the retry bits of the status a command completed with.
#ifndef QUOREL_SAL_XIO_NVME_STATUS_H
#define QUOREL_SAL_XIO_NVME_STATUS_H

#include <string>

namespace quorel {
namespace sal {
namespace xio {
namespace nvme {
namespace status {

/// A status as the kernel's pass-through ioctls return it (a positive
/// result): the completion's status field without its phase bit. Bits 7:0
/// status code, 10:8 status code type, 12:11 command retry delay, 13 more
/// (the Error Information log has more), 14 do not retry.
inline int typeOf(int status) { return (status >> 8) & 0x7; }
inline int codeOf(int status) { return status & 0xff; }
inline int retryDelayOf(int status) { return (status >> 11) & 0x3; }
inline bool more(int status) { return (status & 0x2000) != 0; }
inline bool doNotRetry(int status) { return (status & 0x4000) != 0; }

/// The status code type: "Generic Command Status", "Command Specific Status",
/// "Media and Data Integrity Errors", "Path Related Status", "Vendor
/// Specific"; "Reserved" for 4 to 6.
const char* typeDescriptionFor(int type);

/// The status code's name in the standard's words for its type ("Invalid
/// Field in Command", "LBA Out of Range", "Unrecovered Read Error", "Command
/// Aborted By Host"); "Vendor Specific" for codes from 0xC0 and for type 7,
/// "Reserved" for codes the standard does not define. Only bits 10:0 count.
const char* descriptionFor(int status);

/// "Invalid Field in Command (status type 0, code 0x02, do not retry)": the
/// description, then in parentheses the type and the code, and as they are
/// set ", retry delay N" (the controller's delay index 1-3), ", more" and
/// ", do not retry".
std::string asString(int status);

}  // namespace status
}  // namespace nvme
}  // namespace xio
}  // namespace sal
}  // namespace quorel

#endif
