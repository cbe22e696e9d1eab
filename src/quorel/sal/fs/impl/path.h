/// \file
/// The check every path passes before it reaches a system call, and the
/// entry kind of a file mode.
#ifndef QUOREL_SAL_FS_IMPL_PATH_H
#define QUOREL_SAL_FS_IMPL_PATH_H

#include <sys/types.h>

#include <quorel/sal/fs/Path.h>
#include <quorel/sal/fs/i/entry.h>

namespace quorel {
namespace sal {
namespace fs {
namespace impl {

/// Throws PathNameException (domain 0, code 0) for a path no call could take:
/// "the path name is empty", "the path name holds a NUL byte at offset <n>",
/// "the path name '<path>' has a component longer than 255 bytes".
void check(const Path& path);

/// True for "." and "..", the entries a listing and a removal pass over.
inline bool isDots(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

/// The entry kind of a file mode (st_mode).
i::entry::type typeFrom(mode_t mode);

}  // namespace impl
}  // namespace fs
}  // namespace sal
}  // namespace quorel

#endif
