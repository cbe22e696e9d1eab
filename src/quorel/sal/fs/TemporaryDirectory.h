/// \file
/// TemporaryDirectory: a fresh directory that goes away with its last copy.
#ifndef QUOREL_SAL_FS_TEMPORARYDIRECTORY_H
#define QUOREL_SAL_FS_TEMPORARYDIRECTORY_H

#include <string>

#include <quorel/sal/fs/Path.h>
#include <quorel/util/AHandleTo.h>

namespace quorel {
namespace sal {
namespace fs {

namespace impl {

/// The directory made by mkdtemp, removed (tree and all) on destruction.
class TemporaryDirectory {
 public:
  TemporaryDirectory(const Path& parent, const std::string& prefix);
  /// Removes what is left quietly: a failure here has nobody to go to.
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  void remove();

  Path path;
  bool removed = false;
};

}  // namespace impl

/// A new directory, private to its owner (mode 0700, from mkdtemp),
/// named parent/prefix plus six random characters. The last copy removes it
/// with everything in it; remove() does so at once and reports failures.
///
///   fs::TemporaryDirectory scratch;                 // "/tmp/quorel-Xa81Qz"
///   fs::dir::create(scratch.path() / "work");
///
/// Throws fs::Exception "::mkdtemp('<parent>/<prefix>XXXXXX') failed" (domain
/// 2, errno), PathNameException for an unusable parent or prefix (one with a
/// slash included).
class TemporaryDirectory {
 public:
  /// No environment variable is read: the parent is the one given.
  explicit TemporaryDirectory(const Path& parent = "/tmp", const std::string& prefix = "quorel-");

  const Path& path() const { return handle_.reference().path; }
  /// Removes the directory and its contents now (see fs::removeAll()).
  void remove() { handle_->remove(); }

 private:
  util::AHandleTo<impl::TemporaryDirectory> handle_;
};

}  // namespace fs
}  // namespace sal
}  // namespace quorel

#endif
