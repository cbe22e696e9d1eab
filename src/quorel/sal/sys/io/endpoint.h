// Platform helpers on plain descriptors.
#ifndef QUOREL_SAL_SYS_IO_ENDPOINT_H
#define QUOREL_SAL_SYS_IO_ENDPOINT_H

namespace quorel {
namespace sal {
namespace sys {
namespace io {
namespace endpoint {

typedef int handle;

// Sets or clears FD_CLOEXEC. Throws sys::Exception "::fcntl() failed"
// (domain 2, errno).
void setCloseOnExec(handle fd, bool on);

}  // namespace endpoint
}  // namespace io
}  // namespace sys
}  // namespace sal
}  // namespace quorel

#endif
