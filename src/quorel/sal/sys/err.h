/// \file
/// Platform calls that turn error numbers into text.
#ifndef QUOREL_SAL_SYS_ERR_H
#define QUOREL_SAL_SYS_ERR_H

#include <string>

namespace quorel {
namespace sal {
namespace sys {
namespace err {

/// strerror() text for an errno value (thread-safe).
std::string errnoText(int code);
/// The dynamic linker's pending message, or null; reading it clears it.
const char* dlerrorText();
/// gai_strerror() text for a getaddrinfo()/getnameinfo() result.
const char* gaiText(int code);

}  // namespace err
}  // namespace sys
}  // namespace sal
}  // namespace quorel

#endif
