// The removal of a directory tree: a depth-first walk through directory
// descriptors (openat, getdents64, fstatat, unlinkat), with no recursion.
#include <quorel/sal/fs/impl/Tree.h>

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>

#include <quorel/sal/fs/Exception.h>
#include <quorel/sal/fs/impl/Listing.h>
#include <quorel/sal/fs/impl/path.h>
#include <quorel/sal/sys/fs/dir.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace fs {
namespace impl {

namespace {

namespace dir = sys::fs::dir;

// The top without trailing slashes (the root keeps its one): the system follows
// a link named "link/", and the walk would empty the link's target.
std::string withoutTrailingSlashes(std::string text) {
  while (text.size() > 1 && text.back() == '/') text.pop_back();
  return text;
}

}  // namespace

Tree::Tree(const Path& top, bool skipDenied) : top_(withoutTrailingSlashes(top.text())), skipDenied_(skipDenied) {}

Tree::~Tree() {
  for (Level& level : levels_) {
    if (level.fd != -1) dir::close(level.fd);
  }
}

pod::uint64 Tree::remove() {
  struct stat64 status;
  if (!dir::statusOf(top_.text(), false, status)) return 0;
  if (!S_ISDIR(status.st_mode)) {
    dir::unlink(top_.text());
    return 1;
  }
  levels_.emplace_back();
  Level& top = levels_.back();
  top.name = current_ = top_.text();
  top.length = current_.size();
  try {
    top.fd = dir::open(top_.text(), O_NOFOLLOW);
  } catch (const fs::Exception& e) {
    if (e.code() == ENOENT) return 0;
    if (e.code() != ELOOP && e.code() != ENOTDIR) throw;
    dir::unlink(top_.text());  // swapped for a link since the lstat: the link goes
    return 1;
  }
  open_ = 1;
  dir::statusOf(top.fd, current_, status);
  top.device = status.st_dev;
  top.inode = status.st_ino;

  while (!levels_.empty()) {
    const std::size_t depth = levels_.size() - 1;
    unsigned char type = DT_UNKNOWN;
    const char* name = nextName(depth, type);
    if (name == nullptr) {
      leave();
      continue;
    }
    if (type == DT_UNKNOWN) {
      try {
        dir::statusAt(levels_[depth].fd, current_, name, status);
      } catch (const fs::Exception& e) {
        if (e.code() == ENOENT) continue;  // went meanwhile
        throw;
      }
      type = S_ISDIR(status.st_mode) ? DT_DIR : DT_REG;
    }
    if (type == DT_DIR) {
      enter(depth, name);
    } else {
      removeEntry(depth, name, false);
    }
  }
  return removed_;
}

// The next name of the deepest level that is neither a dot entry nor one left
// behind; null at the end of the directory. Valid until the level reads again.
const char* Tree::nextName(std::size_t depth, unsigned char& type) {
  Level& level = levels_[depth];
  for (;;) {
    const char* name = nullptr;
    if (!level.items.empty()) {
      if (level.next == level.items.size()) return nullptr;
      const Level::Item& item = level.items[level.next++];
      name = level.names.c_str() + item.name;
      type = item.type;
    } else {
      if (level.at == level.end) {
        if (level.batches > 0) {
          readWhole(level);
          if (!level.items.empty()) continue;
          return nullptr;
        }
        if (!level.batch) level.batch.reset(new pod::uint64[Listing::kBatch / sizeof(pod::uint64)]);
        level.end = dir::read(level.fd, current_, level.batch.get(), Listing::kBatch);
        level.at = 0;
        ++level.batches;
        if (level.end == 0) return nullptr;
      }
      const auto* entry = reinterpret_cast<const struct dirent64*>(reinterpret_cast<const char*>(level.batch.get()) +
                                                                   level.at);
      level.at += entry->d_reclen;
      name = entry->d_name;
      type = entry->d_type;
    }
    if (isDots(name)) continue;
    bool left = false;
    for (const std::string& skipped : level.skipped) left = left || skipped == name;
    if (!left) return name;
  }
}

// Reads the rest of a large directory and orders its entries by inode number.
void Tree::readWhole(Level& level) {
  for (;;) {
    const std::size_t end = dir::read(level.fd, current_, level.batch.get(), Listing::kBatch);
    if (end == 0) break;
    for (std::size_t at = 0; at < end;) {
      const auto* entry = reinterpret_cast<const struct dirent64*>(reinterpret_cast<const char*>(level.batch.get()) +
                                                                   at);
      at += entry->d_reclen;
      if (isDots(entry->d_name)) continue;
      level.items.push_back({entry->d_ino, level.names.size(), entry->d_type});
      level.names.append(entry->d_name, std::strlen(entry->d_name) + 1);
    }
  }
  std::sort(level.items.begin(), level.items.end(),
            [](const Level::Item& a, const Level::Item& b) { return a.inode < b.inode; });
  level.next = 0;
  level.at = level.end = 0;
}

void Tree::enter(std::size_t parent, const char* entryName) {
  // A copy first: the name may lie in the parent's level, which moves when
  // the levels grow.
  const std::string name(entryName);
  levels_.emplace_back();
  Level& child = levels_.back();
  child.name = name;
  try {
    child.fd = dir::openAt(levels_[parent].fd, current_, name.c_str(), O_NOFOLLOW);
  } catch (const fs::Exception& e) {
    levels_.pop_back();
    const int error = e.code();
    if (error == ENOENT) return;
    if (error == ELOOP || error == ENOTDIR) {
      removeEntry(parent, name.c_str(), false);  // no longer a directory: a link or a file took its place
    } else if (!leftAsDenied(levels_[parent], name.c_str(), error)) {
      throw;
    }
    return;
  }
  ++open_;
  if (current_.back() != '/') current_ += '/';
  current_ += child.name;
  child.length = current_.size();
  struct stat64 status;
  dir::statusOf(child.fd, current_, status);
  child.device = status.st_dev;
  child.inode = status.st_ino;
  if (open_ > kHeld) close(levels_[lowestOpen_++]);
}

void Tree::close(Level& level) {
  dir::close(level.fd);
  level.fd = -1;
  level.batch.reset();
  level.at = level.end = 0;
  level.batches = 0;
  level.items = std::vector<Level::Item>();
  level.names = std::string();
  level.next = 0;
  --open_;
}

// Opens a closed level again through ".." of the level below it, and makes
// sure it is the directory the walk came down through: had the tree been moved
// meanwhile, ".." would lead out of it.
void Tree::reopen(std::size_t depth) {
  Level& level = levels_[depth];
  level.fd = dir::openAt(levels_[depth + 1].fd, current_, "..", O_NOFOLLOW);
  ++open_;
  lowestOpen_ = depth;
  const std::string text = current_.substr(0, level.length);
  struct stat64 status;
  dir::statusOf(level.fd, text, status);
  if (status.st_dev != level.device || status.st_ino != level.inode) {
    QUOREL_THROW(fs::Exception)("the directory '" + text + "' was moved while its tree was being removed",
                                sal::i::err::domain::kApplication, 0);
  }
}

// The deepest level has no more entries: close it and remove it from its parent.
void Tree::leave() {
  const std::size_t depth = levels_.size() - 1;
  if (depth > 0 && levels_[depth - 1].fd == -1) reopen(depth - 1);
  Level& level = levels_[depth];
  close(level);
  const std::string name = std::move(level.name);
  const bool denied = level.denied;
  levels_.pop_back();
  if (depth == 0) {
    if (denied) return;  // something inside stays, and so does the top
    try {
      dir::remove(name);
    } catch (const fs::Exception& e) {
      if (e.code() != ENOTDIR) throw;
      dir::unlink(name);  // swapped for a link meanwhile: the link goes
    }
    ++removed_;
    return;
  }
  Level& parent = levels_[depth - 1];
  current_.resize(parent.length);
  if (denied) {
    parent.denied = true;
    parent.skipped.push_back(name);
  } else {
    removeEntry(depth - 1, name.c_str(), true);
  }
}

void Tree::removeEntry(std::size_t depth, const char* name, bool directory) {
  Level& level = levels_[depth];
  try {
    dir::unlinkAt(level.fd, current_, name, directory ? AT_REMOVEDIR : 0);
  } catch (const fs::Exception& e) {
    const int error = e.code();
    if (error == ENOENT) return;
    if (directory && error == ENOTDIR) {
      dir::unlinkAt(level.fd, current_, name, 0);  // emptied, then swapped for a link: the link goes
    } else if (!directory && error == EISDIR) {
      enter(depth, name);  // became a directory meanwhile
      return;
    } else if (!leftAsDenied(level, name, error)) {
      throw;
    } else {
      return;
    }
  }
  ++removed_;
}

bool Tree::leftAsDenied(Level& level, const char* name, int error) {
  if (!skipDenied_ || (error != EACCES && error != EPERM)) return false;
  level.denied = true;
  level.skipped.push_back(name);
  return true;
}

}  // namespace impl
}  // namespace fs
}  // namespace sal
}  // namespace quorel
