// Listing: a directory's entries through getdents64, a batch at a time.
#include <quorel/sal/fs/Listing.h>

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <quorel/sal/fs/Exception.h>
#include <quorel/sal/fs/impl/path.h>
#include <quorel/sal/sys/fs/dir.h>

namespace quorel {
namespace sal {

namespace io {
namespace i {
FSItem::~FSItem() = default;
}  // namespace i
}  // namespace io

namespace fs {

namespace i {
namespace entry {

const char* nameOf(type kind) noexcept {
  switch (kind) {
    case kNone: return "none";
    case kDirectory: return "directory";
    case kRegularFile: return "file";
    case kBlockDevice: return "block device";
    case kCharacterDevice: return "character device";
    case kSymbolicLink: return "link";
    case kFifo: return "fifo";
    case kSocket: return "socket";
    default: return "unknown";
  }
}

}  // namespace entry
}  // namespace i

namespace impl {

namespace {

namespace dir = sys::fs::dir;

i::entry::type typeOfRecord(unsigned char type) {
  switch (type) {
    case DT_DIR: return i::entry::kDirectory;
    case DT_REG: return i::entry::kRegularFile;
    case DT_LNK: return i::entry::kSymbolicLink;
    case DT_BLK: return i::entry::kBlockDevice;
    case DT_CHR: return i::entry::kCharacterDevice;
    case DT_FIFO: return i::entry::kFifo;
    case DT_SOCK: return i::entry::kSocket;
    default: return i::entry::kUnknown;
  }
}

}  // namespace

i::entry::type typeFrom(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFDIR: return i::entry::kDirectory;
    case S_IFREG: return i::entry::kRegularFile;
    case S_IFLNK: return i::entry::kSymbolicLink;
    case S_IFBLK: return i::entry::kBlockDevice;
    case S_IFCHR: return i::entry::kCharacterDevice;
    case S_IFIFO: return i::entry::kFifo;
    case S_IFSOCK: return i::entry::kSocket;
    default: return i::entry::kUnknown;
  }
}

Listing::Listing(const Path& directory) : path_(directory), fd_(-1) {
  check(directory);
  batch_.reset(new pod::uint64[kBatch / sizeof(pod::uint64)]);
  fd_ = dir::open(directory.text(), 0);
}

Listing::~Listing() {
  if (fd_ != -1) dir::close(fd_);
}

bool Listing::next(Entry& entry) {
  for (;;) {
    if (at_ == end_) {
      if (ended_) return false;
      end_ = dir::read(fd_, path_.text(), batch_.get(), kBatch);
      at_ = 0;
      if (end_ == 0) {
        ended_ = true;
        return false;
      }
    }
    const auto* record = reinterpret_cast<const struct dirent64*>(reinterpret_cast<const char*>(batch_.get()) + at_);
    at_ += record->d_reclen;
    const char* name = record->d_name;
    if (isDots(name)) continue;
    entry.name_.assign(name);
    entry.inode_ = record->d_ino;
    entry.type_ = typeOfRecord(record->d_type);
    if (entry.type_ == i::entry::kUnknown) {
      struct stat64 status;
      try {
        dir::statusAt(fd_, path_.text(), name, status);
        entry.type_ = typeFrom(status.st_mode);
      } catch (const fs::Exception& e) {
        // Gone meanwhile, or a directory that may be read but not searched:
        // the name is still worth reporting.
        if (e.code() != ENOENT && e.code() != EACCES) throw;
      }
    }
    return true;
  }
}

}  // namespace impl

Listing::Listing(const Path& directory) : handle_(new impl::Listing(directory)) {}

}  // namespace fs
}  // namespace sal
}  // namespace quorel
