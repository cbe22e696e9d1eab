/// \file
/// The kinds of directory entry that listings and type queries report.
#ifndef QUOREL_SAL_FS_I_ENTRY_H
#define QUOREL_SAL_FS_I_ENTRY_H

namespace quorel {
namespace sal {
namespace fs {
namespace i {
namespace entry {

/// What a directory entry is. The codes that fs::Stat also reports (directory,
/// regular file, block and character device) have the same values there.
enum type : int {
  kNone = -1,  ///< nothing by that name (type queries only)
  kUnknown = 0,  ///< neither the directory entry nor fstatat could tell
  kDirectory = 1,
  kRegularFile = 2,
  kBlockDevice = 5,
  kCharacterDevice = 6,
  kSymbolicLink = 7,
  kFifo = 8,
  kSocket = 9
};

/// "none", "unknown", "directory", "file", "block device", "character device",
/// "link", "fifo" or "socket".
const char* nameOf(type kind) noexcept;

}  // namespace entry
}  // namespace i
}  // namespace fs
}  // namespace sal
}  // namespace quorel

#endif
