/// \file
/// The open directory and the batch of entries behind fs::Listing.
#ifndef QUOREL_SAL_FS_IMPL_LISTING_H
#define QUOREL_SAL_FS_IMPL_LISTING_H

#include <cstddef>
#include <memory>

#include <quorel/sal/fs/Path.h>
#include <quorel/util/pod.h>

namespace quorel {
namespace sal {
namespace fs {

class Entry;

namespace impl {

/// A directory descriptor with a buffer of entries read by getdents64.
class Listing {
 public:
  static constexpr std::size_t kBatch = 32 * 1024;

  explicit Listing(const Path& directory);
  ~Listing();
  Listing(const Listing&) = delete;
  Listing& operator=(const Listing&) = delete;

  /// The next entry other than "." and ".."; false at the end.
  bool next(Entry& entry);
  const Path& path() const { return path_; }

 private:
  Path path_;
  int fd_;
  std::unique_ptr<pod::uint64[]> batch_;  // 8-byte aligned, as the entries are
  std::size_t at_ = 0, end_ = 0;
  bool ended_ = false;
};

}  // namespace impl
}  // namespace fs
}  // namespace sal
}  // namespace quorel

#endif
