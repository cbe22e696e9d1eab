// Platform half of the named mutex: open and fcntl record locks.
#include <quorel/sal/sys/exec/NamedMutex.h>

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstring>

#include <quorel/sal/Exception.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace sys {
namespace exec {

namespace {

// A record lock of the whole file.
struct flock wholeFile(short type) {
  struct flock lock;
  std::memset(&lock, 0, sizeof lock);
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  return lock;
}

}  // namespace

NamedMutex::NamedMutex(const std::string& name)
    : name_(name), path_("/tmp/quorel.sal.sys.exec.NamedMutex-" + name), fd_(-1) {
  fd_ = ::open(path_.c_str(), O_WRONLY | O_CREAT, 0777);
  if (fd_ == -1) {
    const int error = errno;
    QUOREL_THROW(sys::Exception)("::open(\"" + path_ + "\") failed", i::err::domain::kSystemCall, error);
  }
}

NamedMutex::~NamedMutex() {
  if (fd_ != -1) ::close(fd_);
}

void NamedMutex::lock() {
  mutex_.lock();
  struct flock lock = wholeFile(F_WRLCK);
  if (::fcntl(fd_, F_SETLKW, &lock) == -1) {
    const int error = errno;
    mutex_.unlock();
    QUOREL_THROW(sys::Exception)("::fcntl() failed to lock \"" + path_ + "\"", i::err::domain::kSystemCall, error);
  }
}

bool NamedMutex::tryLock() {
  if (!mutex_.tryLock()) return false;
  struct flock lock = wholeFile(F_WRLCK);
  if (::fcntl(fd_, F_SETLK, &lock) == -1) {
    const int error = errno;
    mutex_.unlock();
    if (error == EACCES) return false;
    QUOREL_THROW(sys::Exception)("::fcntl() failed to lock \"" + path_ + "\"", i::err::domain::kSystemCall, error);
  }
  return true;
}

void NamedMutex::unlock() {
  struct flock lock = wholeFile(F_UNLCK);
  if (::fcntl(fd_, F_SETLK, &lock) == -1) {
    const int error = errno;
    mutex_.unlock();
    QUOREL_THROW(sys::Exception)("::fcntl() failed to unlock \"" + path_ + "\"", i::err::domain::kSystemCall, error);
  }
  mutex_.unlock();
}

}  // namespace exec
}  // namespace sys
}  // namespace sal
}  // namespace quorel
