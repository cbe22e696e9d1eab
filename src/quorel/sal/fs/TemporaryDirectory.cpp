// TemporaryDirectory: mkdtemp, and removal of the tree with the last copy.
#include <quorel/sal/fs/TemporaryDirectory.h>

#include <quorel/sal/fs/Exception.h>
#include <quorel/sal/fs/dir.h>
#include <quorel/sal/fs/impl/path.h>
#include <quorel/sal/sys/fs/dir.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace fs {

namespace impl {

TemporaryDirectory::TemporaryDirectory(const Path& parent, const std::string& prefix) {
  check(parent);
  if (prefix.find('/') != std::string::npos) {
    QUOREL_THROW(PathNameException)("the prefix '" + prefix + "' of a temporary directory holds a slash",
                                    sal::i::err::domain::kApplication, 0);
  }
  std::string name = (parent / (prefix + "XXXXXX")).text();
  check(name);
  sys::fs::dir::makeTemporary(name);
  path = name;
}

TemporaryDirectory::~TemporaryDirectory() {
  try {
    remove();
  } catch (...) {
  }
}

void TemporaryDirectory::remove() {
  if (removed) return;
  fs::removeAll(path);
  removed = true;
}

}  // namespace impl

TemporaryDirectory::TemporaryDirectory(const Path& parent, const std::string& prefix)
    : handle_(new impl::TemporaryDirectory(parent, prefix)) {}

}  // namespace fs
}  // namespace sal
}  // namespace quorel
