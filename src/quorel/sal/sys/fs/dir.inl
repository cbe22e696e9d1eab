// Platform half of paths and directories: mkdir, rmdir, unlink, rename, mkdtemp,
// lstat64/stat64, open64, openat, close, getdents64, fstatat64, fstat64 and
// unlinkat. Listings use the 64-bit interfaces only: a 32-bit readdir()
// fails with EOVERFLOW on file systems whose inode numbers or offsets need
// 64 bits.
#include <quorel/sal/sys/fs/dir.h>

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <quorel/sal/fs/Exception.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace sys {
namespace fs {
namespace dir {

namespace {

using sal::i::err::domain::kSystemCall;

std::string quoted(const std::string& text) { return "'" + text + "'"; }

}  // namespace

void make(const std::string& path, mode_t mode) {
  if (::mkdir(path.c_str(), mode) != 0) {
    const int error = errno;
    QUOREL_THROW(sal::fs::Exception)("::mkdir(" + quoted(path) + ") failed", kSystemCall, error);
  }
}

void remove(const std::string& path) {
  if (::rmdir(path.c_str()) != 0) {
    const int error = errno;
    QUOREL_THROW(sal::fs::Exception)("::rmdir(" + quoted(path) + ") failed", kSystemCall, error);
  }
}

void unlink(const std::string& path) {
  if (::unlink(path.c_str()) != 0) {
    const int error = errno;
    QUOREL_THROW(sal::fs::Exception)("::unlink(" + quoted(path) + ") failed", kSystemCall, error);
  }
}

void rename(const std::string& from, const std::string& to) {
  if (::rename(from.c_str(), to.c_str()) != 0) {
    const int error = errno;
    QUOREL_THROW(sal::fs::Exception)("::rename(" + quoted(from) + ", " + quoted(to) + ") failed", kSystemCall,
                                     error);
  }
}

void makeTemporary(std::string& templateText) {
  const std::string asked = templateText;  // a failing mkdtemp leaves its last try in the text
  if (::mkdtemp(&templateText[0]) == nullptr) {
    const int error = errno;
    QUOREL_THROW(sal::fs::Exception)("::mkdtemp(" + quoted(asked) + ") failed", kSystemCall, error);
  }
}

bool statusOf(const std::string& path, bool follow, struct stat64& status) {
  if ((follow ? ::stat64(path.c_str(), &status) : ::lstat64(path.c_str(), &status)) == 0) return true;
  const int error = errno;
  if (error == ENOENT || error == ENOTDIR || (follow && error == ELOOP)) return false;
  QUOREL_THROW(sal::fs::Exception)((follow ? "::stat(" : "::lstat(") + quoted(path) + ") failed", kSystemCall,
                                   error);
}

int open(const std::string& path, int flags) {
  const int fd = ::open64(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | flags);
  if (fd == -1) {
    const int error = errno;
    QUOREL_THROW(sal::fs::Exception)("::open(" + quoted(path) + ") failed", kSystemCall, error);
  }
  return fd;
}

int openAt(int dir, const std::string& dirText, const char* name, int flags) {
  const int fd = ::openat(dir, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | flags);
  if (fd == -1) {
    const int error = errno;
    QUOREL_THROW(sal::fs::Exception)("::openat(" + quoted(dirText) + ", " + quoted(name) + ") failed", kSystemCall,
                                     error);
  }
  return fd;
}

void close(int fd) noexcept { ::close(fd); }

std::size_t read(int fd, const std::string& dirText, void* buffer, std::size_t size) {
  const ssize_t got = ::getdents64(fd, buffer, size);
  if (got < 0) {
    const int error = errno;
    QUOREL_THROW(sal::fs::Exception)("::getdents64(" + quoted(dirText) + ") failed", kSystemCall, error);
  }
  return static_cast<std::size_t>(got);
}

void statusAt(int dir, const std::string& dirText, const char* name, struct stat64& status) {
  if (::fstatat64(dir, name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
    const int error = errno;
    QUOREL_THROW(sal::fs::Exception)("::fstatat(" + quoted(dirText) + ", " + quoted(name) + ") failed",
                                     kSystemCall, error);
  }
}

void statusOf(int fd, const std::string& dirText, struct stat64& status) {
  if (::fstat64(fd, &status) != 0) {
    const int error = errno;
    QUOREL_THROW(sal::fs::Exception)("::fstat(" + quoted(dirText) + ") failed", kSystemCall, error);
  }
}

void unlinkAt(int dir, const std::string& dirText, const char* name, int flags) {
  if (::unlinkat(dir, name, flags) != 0) {
    const int error = errno;
    QUOREL_THROW(sal::fs::Exception)("::unlinkat(" + quoted(dirText) + ", " + quoted(name) + ") failed",
                                     kSystemCall, error);
  }
}

}  // namespace dir
}  // namespace fs
}  // namespace sys
}  // namespace sal
}  // namespace quorel
