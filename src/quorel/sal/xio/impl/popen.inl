// Platform half of pipe pairs: pipe and fcntl.
#include <quorel/sal/xio/impl/desc.h>

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <quorel/sal/xio/Exception.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace xio {
namespace impl {
namespace popen {

namespace {

// Applies one end's options. Returns the message of the call that failed,
// with errno as it left it, or nullptr: the pair's creation reports the
// failure as its own.
const char* applyTo(int fd, const open::Spec& spec) {
  if (spec.enabled(i::open::kNonblock) && ::fcntl(fd, F_SETFL, O_NONBLOCK) == -1) {
    return "::fcntl(F_SETFL, O_NONBLOCK) failed";
  }
  if (!spec.enabled(i::open::kInherit) && ::fcntl(fd, F_SETFD, FD_CLOEXEC) == -1) {
    return "::fcntl(F_SETFD, FD_CLOEXEC) failed";
  }
  return nullptr;
}

}  // namespace

void newPair(desc::os::id::type& readEnd, desc::os::id::type& writeEnd, const open::Spec& readSpec,
             const open::Spec& writeSpec) {
  int ends[2];
  if (::pipe(ends) != 0) {
    const int error = errno;
    QUOREL_THROW(OpenException)("::pipe() failed", sal::i::err::domain::kSystemCall, error);
  }
  desc::Owned readGuard(ends[0]), writeGuard(ends[1]);
  const char* failed = applyTo(ends[0], readSpec);
  if (failed == nullptr) failed = applyTo(ends[1], writeSpec);
  if (failed != nullptr) {
    const int error = errno;
    QUOREL_THROW(OpenException)(failed, sal::i::err::domain::kSystemCall, error);
  }
  readEnd = readGuard.release();
  writeEnd = writeGuard.release();
}

}  // namespace popen
}  // namespace impl
}  // namespace xio
}  // namespace sal
}  // namespace quorel
