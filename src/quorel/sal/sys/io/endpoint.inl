// Platform half of the descriptor helpers: fcntl, dup2, close, read, write.
#include <quorel/sal/sys/io/endpoint.h>

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

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

namespace {

enum stdfd { kInput = 0, kOutput = 1, kError = 2 };

void setStdHandle(stdfd which, handle fd, bool inheritable) {
  if (::dup2(fd, which) == -1) {
    const int error = errno;
    QUOREL_THROW(sys::Exception)("::dup2() failed", i::err::domain::kSystemCall, error);
  }
  setCloseOnExec(which, !inheritable);
}

}  // namespace

void setStdIn(handle fd, bool inheritable) { setStdHandle(kInput, fd, inheritable); }
void setStdOut(handle fd, bool inheritable) { setStdHandle(kOutput, fd, inheritable); }
void setStdErr(handle fd, bool inheritable) { setStdHandle(kError, fd, inheritable); }

int close(handle fd) { return ::close(fd); }

ssize_t readSome(handle fd, void* buffer, std::size_t count) { return ::read(fd, buffer, count); }
ssize_t writeSome(handle fd, const void* buffer, std::size_t count) { return ::write(fd, buffer, count); }

}  // namespace endpoint
}  // namespace io
}  // namespace sys
}  // namespace sal
}  // namespace quorel
