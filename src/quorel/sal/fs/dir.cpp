// Directories: creation, removal, renaming and type queries, over the
// platform functions of sys/fs/dir.inl.
#include <quorel/sal/fs/dir.h>

#include <quorel/sal/sys/fs/dir.inl>
#include <quorel/sal/fs/impl/Tree.inl>

#include <errno.h>
#include <limits.h>

#include <vector>

#include <quorel/sal/fs/Exception.h>
#include <quorel/sal/fs/impl/path.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace fs {

namespace impl {

void check(const Path& path) {
  using sal::i::err::domain::kApplication;
  const std::string& text = path.text();
  if (text.empty()) QUOREL_THROW(PathNameException)("the path name is empty", kApplication, 0);
  const std::string::size_type nul = text.find('\0');
  if (nul != std::string::npos) {
    QUOREL_THROW(PathNameException)("the path name holds a NUL byte at offset " + std::to_string(nul), kApplication,
                                    0);
  }
  std::string::size_type begin = 0;
  while (begin < text.size()) {
    const std::string::size_type end = std::min(text.find('/', begin), text.size());
    if (end - begin > NAME_MAX) {
      QUOREL_THROW(PathNameException)("the path name '" + text + "' has a component longer than " +
                                      std::to_string(NAME_MAX) + " bytes", kApplication, 0);
    }
    begin = end + 1;
  }
}

}  // namespace impl

namespace {

i::entry::type typeOf(const Path& path, bool follow) {
  impl::check(path);
  struct stat64 status;
  return sys::fs::dir::statusOf(path.text(), follow, status) ? impl::typeFrom(status.st_mode) : i::entry::kNone;
}

}  // namespace

namespace dir {

void create(const Path& path, mode_t mode) {
  impl::check(path);
  sys::fs::dir::make(path.text(), mode);
}

// Goes up until a directory can be made (or is there), then makes the rest
// downwards. EEXIST on the way counts as done only where a directory stands,
// which is what makes concurrent creators of one tree all succeed.
bool createAll(const Path& path, mode_t mode) {
  impl::check(path);
  std::vector<Path> missing{path};
  bool createdLast = false;
  while (!missing.empty()) {
    const Path& next = missing.back();
    try {
      sys::fs::dir::make(next.text(), mode);
      createdLast = true;
    } catch (const fs::Exception& e) {
      const Path parent = next.parent();
      if (e.code() == ENOENT && parent != next && parent.text() != ".") {
        missing.push_back(parent);
        continue;
      }
      if (e.code() != EEXIST || fs::typeOf(next) != i::entry::kDirectory) throw;
      createdLast = false;
    }
    missing.pop_back();
  }
  return createdLast;
}

void remove(const Path& path) {
  impl::check(path);
  sys::fs::dir::remove(path.text());
}

}  // namespace dir

namespace {

// A tree whose removal is certainly a mistake: the root, or a path ending in
// "." or "..", whose directory cannot go while it is in use as such anyway.
void checkRemovable(const Path& path) {
  impl::check(path);
  const std::string last = path.name();
  if (path.normal().text() == "/" || last == "." || last == "..") {
    QUOREL_THROW(PathNameException)("the tree '" + path.text() + "' is not removed: it is the root or ends in . or ..",
                                    sal::i::err::domain::kApplication, 0);
  }
}

}  // namespace

pod::uint64 removeAll(const Path& path, i::denied::Stop) {
  checkRemovable(path);
  return impl::Tree(path, false).remove();
}

pod::uint64 removeAll(const Path& path, i::denied::Skip) {
  checkRemovable(path);
  return impl::Tree(path, true).remove();
}

void rename(const Path& from, const Path& to) {
  impl::check(from);
  impl::check(to);
  sys::fs::dir::rename(from.text(), to.text());
}

i::entry::type typeOf(const Path& path) { return typeOf(path, false); }
i::entry::type targetTypeOf(const Path& path) { return typeOf(path, true); }
bool exists(const Path& path) { return typeOf(path, false) != i::entry::kNone; }
bool isDirectory(const Path& path) { return typeOf(path, true) == i::entry::kDirectory; }

}  // namespace fs
}  // namespace sal
}  // namespace quorel
