/// \file
/// Texts for error domains and for the error numbers of each domain.
#ifndef QUOREL_SAL_ERR_H
#define QUOREL_SAL_ERR_H

#include <string>

#include <quorel/sal/i/err.h>

namespace quorel {
namespace sal {
namespace err {

/// The domain's name, e.g. "system call error"; "unknown error domain" for a
/// value outside 0..6.
std::string asString(i::err::domain::code domain);

/// The message for a code in a domain: strerror() text for the errno domains,
/// the pending dlerror() text for the dynamic linker (read, and so cleared, by
/// this call), gai_strerror() text, the SCSI status table, and
/// "unknown error code" where nothing better is known. Never throws for an
/// unknown domain or code.
std::string asString(int code, i::err::domain::code domain);

}  // namespace err
}  // namespace sal
}  // namespace quorel

#endif
