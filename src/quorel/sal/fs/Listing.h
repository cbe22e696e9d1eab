/// \file
/// Listing: the entries of a directory, read a batch at a time.
#ifndef QUOREL_SAL_FS_LISTING_H
#define QUOREL_SAL_FS_LISTING_H

#include <cstddef>
#include <iterator>
#include <string>

#include <quorel/sal/fs/Path.h>
#include <quorel/sal/fs/i/entry.h>
#include <quorel/sal/fs/impl/Listing.h>
#include <quorel/sal/io/i/FSItem.h>
#include <quorel/util/AHandleTo.h>
#include <quorel/util/pod.h>

namespace quorel {
namespace sal {
namespace fs {

/// One entry of a listing: its name (never "." or ".."), its kind and its
/// inode number (64 bits on every build).
class Entry final : public io::i::FSItem {
 public:
  const std::string& name() const override { return name_; }
  i::entry::type type() const override { return type_; }
  pod::uint64 inode() const { return inode_; }

 private:
  friend class impl::Listing;
  std::string name_;
  i::entry::type type_ = i::entry::kUnknown;
  pod::uint64 inode_ = 0;
};

/// The entries of one directory in the order the file system keeps them. The
/// directory is opened at construction and read through getdents64 into one
/// 32 KiB batch at a time, so a directory of a million entries costs no more
/// memory than a small one. An entry's kind comes from the directory entry, or,
/// on file systems that do not record it, from fstatat without following
/// links (kUnknown only if even that cannot tell: the entry went meanwhile, or
/// the directory may be read but not searched). Links are never followed, so
/// loops and dangling links list like any other entry. Copies share the
/// directory and its position; the last one closes it.
///
///   for (const fs::Entry& entry : fs::Listing("/etc"))
///     std::cout << entry.name() << " " << fs::i::entry::nameOf(entry.type()) << "\n";
///
/// Throws fs::Exception "::open('<dir>') failed" or "::getdents64('<dir>')
/// failed" (domain 2, errno), PathNameException for an unusable path.
class Listing {
 public:
  /// Opens the directory (following a link to it).
  explicit Listing(const Path& directory);

  /// Reads the next entry into entry; false at the end.
  bool next(Entry& entry) { return handle_->next(entry); }
  const Path& path() const { return handle_->path(); }

  /// An input iterator: each listing is gone through once.
  class Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = Entry;
    using difference_type = std::ptrdiff_t;
    using pointer = const Entry*;
    using reference = const Entry&;

    Iterator() = default;
    reference operator*() const { return entry_; }
    pointer operator->() const { return &entry_; }
    Iterator& operator++() {
      if (!listing_->next(entry_)) listing_ = nullptr;
      return *this;
    }
    bool operator==(const Iterator& other) const { return listing_ == other.listing_; }
    bool operator!=(const Iterator& other) const { return listing_ != other.listing_; }

   private:
    friend class Listing;
    explicit Iterator(impl::Listing* listing) : listing_(listing) { ++*this; }
    impl::Listing* listing_ = nullptr;
    Entry entry_;
  };

  Iterator begin() { return Iterator(handle_.operator->()); }
  Iterator end() { return Iterator(); }

 private:
  util::AHandleTo<impl::Listing> handle_;
};

}  // namespace fs
}  // namespace sal
}  // namespace quorel

#endif
