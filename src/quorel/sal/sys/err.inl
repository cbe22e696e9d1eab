// Platform half of the error texts: strerror_r, dlerror and gai_strerror.
#include <quorel/sal/sys/err.h>

#include <dlfcn.h>
#include <netdb.h>
#include <string.h>

namespace quorel {
namespace sal {
namespace sys {
namespace err {

std::string errnoText(int code) {
  char buffer[256];
  // GNU strerror_r returns either buffer or a static text.
  return ::strerror_r(code, buffer, sizeof buffer);
}

const char* dlerrorText() { return ::dlerror(); }

const char* gaiText(int code) { return ::gai_strerror(code); }

}  // namespace err
}  // namespace sys
}  // namespace sal
}  // namespace quorel
