// Platform half of the descriptor helpers: fcntl.
#include <quorel/sal/sys/io/endpoint.h>

#include <errno.h>
#include <fcntl.h>

#include <quorel/sal/Exception.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace sys {
namespace io {
namespace endpoint {

void setCloseOnExec(handle fd, bool on) {
  const int flags = ::fcntl(fd, F_GETFD);
  if (flags == -1 || ::fcntl(fd, F_SETFD, on ? flags | FD_CLOEXEC : flags & ~FD_CLOEXEC) == -1) {
    const int error = errno;
    QUOREL_THROW(sys::Exception)("::fcntl() failed", i::err::domain::kSystemCall, error);
  }
}

}  // namespace endpoint
}  // namespace io
}  // namespace sys
}  // namespace sal
}  // namespace quorel
