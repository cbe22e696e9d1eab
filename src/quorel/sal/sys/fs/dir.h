/// \file
/// Platform layer of paths and directories: one function per system call,
/// each throwing fs::Exception "::<call>('<path>') failed" (domain 2, errno)
/// unless it says otherwise. Functions that work inside an open directory take
/// the directory's path text too, for their messages.
#ifndef QUOREL_SAL_SYS_FS_DIR_H
#define QUOREL_SAL_SYS_FS_DIR_H

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <string>

namespace quorel {
namespace sal {
namespace sys {
namespace fs {
namespace dir {

/// mkdir.
void make(const std::string& path, mode_t mode);
/// rmdir.
void remove(const std::string& path);
/// unlink.
void unlink(const std::string& path);
/// rename.
void rename(const std::string& from, const std::string& to);
/// mkdtemp: templateText ends in "XXXXXX", which is replaced in place.
void makeTemporary(std::string& templateText);
/// lstat64 (follow false) or stat64; false, without throwing, when nothing is
/// there (ENOENT, ENOTDIR) or, following, the links loop (ELOOP).
bool statusOf(const std::string& path, bool follow, struct stat64& status);

/// open64 with O_RDONLY | O_DIRECTORY | O_CLOEXEC and extra flags.
int open(const std::string& path, int flags);
/// openat with O_RDONLY | O_DIRECTORY | O_CLOEXEC and extra flags:
/// "::openat('<dir>', '<name>') failed".
int openAt(int dir, const std::string& dirText, const char* name, int flags);
/// close; never throws.
void close(int fd) noexcept;
/// getdents64 into buffer: the bytes of whole entries read, 0 at the end.
std::size_t read(int fd, const std::string& dirText, void* buffer, std::size_t size);
/// fstatat64 without following a link: "::fstatat('<dir>', '<name>') failed".
/// dir may be AT_FDCWD.
void statusAt(int dir, const std::string& dirText, const char* name, struct stat64& status);
/// fstat64 of an open directory: "::fstat('<dir>') failed".
void statusOf(int fd, const std::string& dirText, struct stat64& status);
/// unlinkat (flags 0 or AT_REMOVEDIR): "::unlinkat('<dir>', '<name>') failed".
void unlinkAt(int dir, const std::string& dirText, const char* name, int flags);

}  // namespace dir
}  // namespace fs
}  // namespace sys
}  // namespace sal
}  // namespace quorel

#endif
