/// \file
/// The removal of a directory tree through open directory descriptors.
#ifndef QUOREL_SAL_FS_IMPL_TREE_H
#define QUOREL_SAL_FS_IMPL_TREE_H

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include <quorel/sal/fs/Path.h>
#include <quorel/util/pod.h>

namespace quorel {
namespace sal {
namespace fs {
namespace impl {

/// Removes a tree depth first. Each directory is opened relative to its
/// parent's descriptor with O_NOFOLLOW, so that a directory swapped for a link
/// during the walk is never entered: the link is removed instead. Directories
/// deeper than kHeld below the current one are closed and, when the walk comes
/// back up, reopened through ".." of their child and checked to be the same
/// directory (device and inode) as before, so the walk never leaves the tree.
class Tree {
 public:
  static constexpr std::size_t kHeld = 16;

  Tree(const Path& top, bool skipDenied);
  ~Tree();
  Tree(const Tree&) = delete;
  Tree& operator=(const Tree&) = delete;

  /// Entries removed, top included; 0 when top does not exist.
  pod::uint64 remove();

 private:
  struct Level {
    std::string name;  // within the parent; the whole path for the top
    std::size_t length = 0;  // of the level's path text, the start of current_
    int fd = -1;             // -1 while closed to keep within kHeld
    dev_t device = 0;
    ino64_t inode = 0;
    std::unique_ptr<pod::uint64[]> batch;
    std::size_t at = 0, end = 0;
    int batches = 0;  // read since the level was (re)opened
    // A directory of more than one batch is read whole and its entries taken
    // in inode order: unlinking in that order touches the inode table in
    // sequence, which on ext4 and its kin saves much of the removal's I/O.
    struct Item {
      ino64_t inode;
      std::size_t name;  // offset into names
      unsigned char type;
    };
    std::vector<Item> items;
    std::string names;
    std::size_t next = 0;
    std::vector<std::string> skipped;  // left behind by a denied removal
    bool denied = false;               // something inside was left
  };

  void enter(std::size_t parent, const char* name);
  void reopen(std::size_t depth);
  const char* nextName(std::size_t depth, unsigned char& type);
  void readWhole(Level& level);
  void leave();
  void removeEntry(std::size_t depth, const char* name, bool directory);
  bool leftAsDenied(Level& level, const char* name, int error);
  void close(Level& level);

  Path top_;
  bool skipDenied_;
  std::vector<Level> levels_;
  std::string current_;  // the path text of the deepest level
  std::size_t open_ = 0, lowestOpen_ = 0;
  pod::uint64 removed_ = 0;
};

}  // namespace impl
}  // namespace fs
}  // namespace sal
}  // namespace quorel

#endif
