// Platform half of the descriptor primitives: dup, fcntl, close, fstat64.
#include <quorel/sal/xio/impl/desc.h>

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <quorel/sal/xio/Exception.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace xio {
namespace impl {
namespace desc {

Owned::~Owned() {
  if (fd_ != -1) ::close(fd_);
}

i::id::type clone(i::id::type id, bool inherit) {
  const int duplicate = ::dup(static_cast<int>(id));
  if (duplicate == -1) {
    const int error = errno;
    QUOREL_THROW(CloneException)("::dup() failed", sal::i::err::domain::kSystemCall, error);
  }
  if (!inherit && ::fcntl(duplicate, F_SETFD, 1) == -1) {
    const int error = errno;
    ::close(duplicate);
    QUOREL_THROW(CloneException)("::fcntl(F_SETFD, 1) failed", sal::i::err::domain::kSystemCall, error);
  }
  return static_cast<i::id::type>(duplicate);
}

namespace fd {

void close(i::id::type id) {
  if (::close(static_cast<int>(id)) != 0) {
    const int error = errno;
    QUOREL_THROW(CloseException)("::close() failed", sal::i::err::domain::kSystemCall, error);
  }
}

}  // namespace fd

namespace std {

namespace {
i::id::type ifOpen(int fd) {
  struct stat64 status;
  return ::fstat64(fd, &status) == 0 ? static_cast<i::id::type>(fd) : i::id::kNone;
}
}  // namespace

i::id::type input() { return ifOpen(0); }
i::id::type output() { return ifOpen(1); }
i::id::type error() { return ifOpen(2); }

}  // namespace std

int statusFlagsOf(i::id::type id) { return ::fcntl(static_cast<int>(id), F_GETFL); }
int descriptorFlagsOf(i::id::type id) { return ::fcntl(static_cast<int>(id), F_GETFD); }

}  // namespace desc
}  // namespace impl
}  // namespace xio
}  // namespace sal
}  // namespace quorel
