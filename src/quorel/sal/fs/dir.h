/// \file
/// Directories and the entries in them: create, remove (a whole tree too),
/// rename and ask what is there.
///
/// Every failing call throws fs::Exception naming the call and the path, for
/// example "::mkdir('/no/such/dir') failed" (domain 2, errno). A path that no
/// call could take (empty, holding a NUL byte, or with a component longer
/// than 255 bytes) throws PathNameException (domain 0) before anything
/// reaches the system.
///
///   fs::dir::createAll("/srv/spool/incoming");
///   for (const fs::Entry& entry : fs::Listing("/srv/spool/incoming")) ...
///   fs::removeAll("/srv/spool/old");
#ifndef QUOREL_SAL_FS_DIR_H
#define QUOREL_SAL_FS_DIR_H

#include <sys/types.h>

#include <quorel/sal/fs/Path.h>
#include <quorel/sal/fs/i/entry.h>
#include <quorel/util/pod.h>

namespace quorel {
namespace sal {
namespace fs {

namespace i {
namespace denied {
/// removeAll stops at the first entry it may not remove (the default).
struct Stop {};
/// removeAll leaves entries it may not remove, and the directories holding
/// them, and goes on with the rest.
struct Skip {};
}  // namespace denied
}  // namespace i

namespace dir {

/// Creates one directory with mode (before the umask). Its parent must exist;
/// an existing entry of that name is a failure (EEXIST).
void create(const Path& path, mode_t mode = 0777);
/// Creates the directory and every missing parent, each with mode. True when
/// it created the directory itself; false when a directory was already there,
/// also one made meanwhile by somebody else. Anything else in the way (a
/// file, a symbolic link, even one to a directory) fails with EEXIST or
/// ENOTDIR.
bool createAll(const Path& path, mode_t mode = 0777);
/// Removes one empty directory (rmdir).
void remove(const Path& path);

}  // namespace dir

/// Removes path and, when it is a directory, everything in it; returns how
/// many entries went (path included), 0 when nothing was there. The removal
/// never follows a symbolic link, not even one named with a trailing slash or
/// one that replaces a directory while the removal runs: the link goes, its
/// target stays. It works through open directories, so depth is limited
/// neither by the stack nor by PATH_MAX; it keeps at most 16 directories open
/// whatever the depth (17 descriptors for a moment while it opens one more).
/// The first failure stops it: the exception names the entry, and nothing
/// after it is touched. The root and paths ending in "." or ".." are refused
/// with PathNameException before anything is touched.
pod::uint64 removeAll(const Path& path, i::denied::Stop = i::denied::Stop());
/// As above, but entries it may not remove (EACCES, EPERM) stay, with the
/// directories that hold them; other failures still stop it.
pod::uint64 removeAll(const Path& path, i::denied::Skip);

/// Renames (rename(2)), replacing an existing target as rename(2) does.
void rename(const Path& from, const Path& to);

/// What path names itself, without following a symbolic link: kNone when
/// nothing is there.
i::entry::type typeOf(const Path& path);
/// What path leads to, following symbolic links: kNone when nothing is there
/// or a link dangles or loops.
i::entry::type targetTypeOf(const Path& path);
/// True when there is an entry of that name, a dangling link included.
bool exists(const Path& path);
/// True when path leads to a directory (through links).
bool isDirectory(const Path& path);

}  // namespace fs
}  // namespace sal
}  // namespace quorel

#endif
