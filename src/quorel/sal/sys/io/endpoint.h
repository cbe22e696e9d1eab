/// \file
/// Platform helpers on plain descriptors.
#ifndef QUOREL_SAL_SYS_IO_ENDPOINT_H
#define QUOREL_SAL_SYS_IO_ENDPOINT_H

#include <sys/types.h>

#include <cstddef>

namespace quorel {
namespace sal {
namespace sys {
namespace io {
namespace endpoint {

typedef int handle;

/// Sets or clears FD_CLOEXEC. Throws sys::Exception "::fcntl() failed"
/// (domain 2, errno).
void setCloseOnExec(handle fd, bool on);

/// dup2(fd, 0|1|2), then close-on-exec on the standard descriptor unless
/// inheritable; fd stays open. Throws sys::Exception "::dup2() failed" (errno)
/// or the fcntl failure.
void setStdIn(handle fd, bool inheritable);
void setStdOut(handle fd, bool inheritable);
void setStdErr(handle fd, bool inheritable);
/// close(fd); the result is returned, not checked.
int close(handle fd);
/// One read() / write(): the byte count, or -1 with errno set. Never throw:
/// the caller decides what an error number means for its operation (EAGAIN on
/// a non-blocking pipe is not a failure). A write to a pipe whose reader is
/// gone raises SIGPIPE, which write() cannot suppress: a program that wants
/// EPIPE instead ignores the signal (signal(SIGPIPE, SIG_IGN)).
ssize_t readSome(handle fd, void* buffer, std::size_t count);
ssize_t writeSome(handle fd, const void* buffer, std::size_t count);

}  // namespace endpoint
}  // namespace io
}  // namespace sys
}  // namespace sal
}  // namespace quorel

#endif
