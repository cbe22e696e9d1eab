// Platform half of queue limits: the device numbers of a path or descriptor
// and the kernel's queue attributes.
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <string>

#include <quorel/sal/fs/Exception.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace fs {
namespace impl {
namespace queue {

namespace {

// The device numbers of a block device's status, or the exception that says
// what the node is not.
void numbersOf(const struct stat64& status, const std::string& what, unsigned int& major, unsigned int& minor) {
  if (!S_ISBLK(status.st_mode)) {
    QUOREL_THROW(StatException)(what + " is not a block device", sal::i::err::domain::kApplication, ENOTBLK);
  }
  major = ::major(status.st_rdev);
  minor = ::minor(status.st_rdev);
}

}  // namespace

void deviceOf(const std::string& path, unsigned int& major, unsigned int& minor) {
  struct stat64 status;
  if (::stat64(path.c_str(), &status) != 0) {
    const int error = errno;
    QUOREL_THROW(StatException)("::stat('" + path + "') failed", sal::i::err::domain::kSystemCall, error);
  }
  numbersOf(status, "'" + path + "'", major, minor);
}

void deviceOf(int descriptor, unsigned int& major, unsigned int& minor) {
  struct stat64 status;
  if (::fstat64(descriptor, &status) != 0) {
    const int error = errno;
    QUOREL_THROW(StatException)("::fstat(" + std::to_string(descriptor) + ") failed", sal::i::err::domain::kSystemCall, error);
  }
  numbersOf(status, "descriptor " + std::to_string(descriptor), major, minor);
}

bool exists(const std::string& path) { return ::access(path.c_str(), F_OK) == 0; }

int open(const std::string& attribute) {
  const int descriptor = ::open(attribute.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) {
    const int error = errno;
    QUOREL_THROW(StatException)("::open('" + attribute + "') failed", sal::i::err::domain::kSystemCall, error);
  }
  return descriptor;
}

void close(int descriptor) { ::close(descriptor); }

std::size_t read(int descriptor, char* text, std::size_t size, const std::string& attribute) {
  ssize_t got;
  do {
    got = ::read(descriptor, text, size);
  } while (got < 0 && errno == EINTR);
  if (got < 0) {
    const int error = errno;
    QUOREL_THROW(StatException)("::read('" + attribute + "') failed", sal::i::err::domain::kSystemCall, error);
  }
  return static_cast<std::size_t>(got);
}

}  // namespace queue
}  // namespace impl
}  // namespace fs
}  // namespace sal
}  // namespace quorel
