// Platform half of file characteristics: open64, fstat64, READ CAPACITY
// through SG_IO, and the block-device requests BLKSSZGET and BLKGETSIZE.
#include <quorel/sal/fs/impl/Stat.h>

#include <errno.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include <quorel/sal/err.h>
#include <quorel/sal/fs/Exception.h>
#include <quorel/sal/fs/i/stat.h>
#include <quorel/sal/xio/impl/scsi/IOControl.h>
#include <quorel/sal/xio/scsi/sense.h>
#include <quorel/util/Throw.h>
#include <quorel/util/impl/typeName.h>
#include <quorel/util/byte.h>
#include <quorel/util/str.h>

namespace quorel {
namespace sal {
namespace fs {
namespace impl {

namespace {

using sal::i::err::domain::kSCSICDB;
using sal::i::err::domain::kSystemCall;

// Closes the queried descriptor on every way out.
struct Closer {
  int fd;
  ~Closer() { ::close(fd); }
};

// One READ CAPACITY, sent once more if the first try fails. Returns true
// with the data filled, or false with the failure text in error.
bool readCapacity(int fd, int cdbSize, unsigned char* data, int dataSize, std::string& error) {
  const std::string which = cdbSize == 10 ? "(10)" : "(16)";
  xio::impl::scsi::IOControl io(false);
  int status = 0, senseLength = 0, transferred = 0, sent = 0, failure = 0;
  for (int attempt = 0; attempt < 2; ++attempt) {
    std::memset(io.cdb(), 0, 32);
    if (cdbSize == 10) {
      io.cdb()[0] = 0x25;  // READ CAPACITY (10)
    } else {
      io.cdb()[0] = 0x9E;  // SERVICE ACTION IN (16)
      io.cdb()[1] = 0x10;  // READ CAPACITY (16)
      io.cdb()[13] = 0x20; // allocation length 32
    }
    std::memset(data, 0, static_cast<size_t>(dataSize));
    transferred = dataSize;
    status = senseLength = 0;
    sent = io.execute(0, static_cast<xio::i::id::type>(fd), cdbSize, 60, data, transferred, status, senseLength);
    failure = sent == 0 ? errno : 0;
    if (sent != 0 && status == 0 && senseLength == 0) return true;
  }
  if (sent == 0) {
    error = "device I/O control failed for SCSI Read Capacity " + which + " - " + err::asString(kSystemCall) + ":" +
            std::to_string(failure) + " (" + err::asString(failure, kSystemCall) + ")";
    return false;
  }
  error = "SCSI Read Capacity " + which + " failed - " + err::asString(kSCSICDB) + ":0x" +
          util::str::hexFrom(static_cast<unsigned int>(status), false) + " (" + err::asString(status, kSCSICDB) + ")";
  if (senseLength > 0) {
    std::string sense(io.senseData(), io.senseData() + senseLength);
    sense.resize(sense.size() < 32 ? 32 : sense.size(), '\0');
    error += " KCQ:0x" + xio::scsi::sense::kcq::descriptionFrom(sense.data()) +
             " sense data:" + xio::scsi::sense::hexStringFrom(io.senseData(), senseLength);
  }
  return false;
}

// The checks on a returned capacity; appends to error.
void checkCapacity(pod::uint64 lastLBA, pod::uint64 invalidAll, pod::uint32 blockLength, const std::string& which,
                   std::string& error) {
  if (blockLength == 0) error = "SCSI Read Capacity " + which + " returned block size of 0";
  if (lastLBA == 0 || lastLBA == invalidAll) {
    error += error.empty() ? "SCSI Read Capacity " + which + " returned an invalid last LBA" : " and an invalid last LBA";
  }
}

}  // namespace

void Stat::query() {
  const int fd = ::open64(name.c_str(), O_RDONLY);
  if (fd == -1) {
    const int failure = errno;
    if (failure == ENOENT) return;
    QUOREL_THROW(StatException)("::open('" + name + "') failed", kSystemCall, failure);
  }
  Closer closer{fd};
  struct stat64 status;
  std::memset(&status, 0, sizeof status);
  if (::fstat64(fd, &status) != 0) {
    const int failure = errno;
    QUOREL_THROW(StatException)(
        "::stat('" + name + "') failed while trying todetermine the file characterstics", kSystemCall, failure);
  }
  exists = true;
  mode = status.st_mode;
  switch (status.st_mode & S_IFMT) {
    case S_IFBLK:
      type = kBlockDevice;
      queryDevice(fd);
      return;
    case S_IFCHR:
      type = kCharacterDevice;
      queryDevice(fd);
      return;
    case S_IFDIR: type = kDirectory; break;
    case S_IFREG:
      type = kRegularFile;
      size = static_cast<pod::uint64>(status.st_size);
      break;
    default: break;
  }
  // The owner's permission bits, whoever asks.
  readAccess = (status.st_mode & S_IRUSR) != 0 ? 1 : 0;
  writeAccess = (status.st_mode & S_IWUSR) != 0 ? 1 : 0;
}

bool Stat::capacityOf(int fd) {
  unsigned char data[32];
  if (readCapacity(fd, 10, data, 8, errorRC)) {
    const pod::uint64 last = util::byte::loadBigEndian(data, 4);
    const pod::uint32 length = static_cast<pod::uint32>(util::byte::loadBigEndian(data + 4, 4));
    checkCapacity(last, 0xFFFFFFFFu, length, "(10)", errorRC);
    if (errorRC.empty()) {
      blockSizeByRC = blockSize = length;
      sizeByRC = size = (last + 1) * length;
      return true;
    }
  }
  if (readCapacity(fd, 16, data, 32, errorRC16)) {
    const pod::uint64 last = util::byte::loadBigEndian(data, 8);
    const pod::uint32 length = static_cast<pod::uint32>(util::byte::loadBigEndian(data + 8, 4));
    checkCapacity(last, ~0ULL, length, "(16)", errorRC16);
    if (errorRC16.empty()) {
      blockSizeByRC16 = blockSize = length;
      sizeByRC16 = size = (last + 1) * length;
      return true;
    }
  }
  return false;
}

void Stat::queryDevice(int fd) {
  if (capacityOf(fd)) return;
  int sectorSize = 0;
  if (::ioctl(fd, BLKSSZGET, &sectorSize) != 0) {
    const int failure = errno;
    error = "::ioctl(BLKSSZGET) failed: " + err::asString(failure, kSystemCall);
    return;
  }
  unsigned long sectors = 0;
  if (::ioctl(fd, BLKGETSIZE, &sectors) != 0) {
    const int failure = errno;
    error = "::ioctl(BLKGETSIZE) failed: " + err::asString(failure, kSystemCall);
    return;
  }
  blockSize = static_cast<pod::uint32>(sectorSize);
  // The byte count is computed in 32 bits: devices of 4 GiB or more wrap.
  // Long-standing behaviour of this fallback, kept.
  const pod::uint32 bytes = static_cast<pod::uint32>(sectors) * 512u;
  size = blockSize != 0 ? static_cast<pod::uint64>(bytes / blockSize) * blockSize : 0;
}

bool Stat::is(const std::type_info& tag) const {
  namespace t = i::stat::type;
  namespace a = i::stat::access;
  if (tag == typeid(t::Undefined)) return type == kUndefined;
  if (tag == typeid(t::Directory)) return type == kDirectory;
  if (tag == typeid(t::RegularFile)) return type == kRegularFile;
  if (tag == typeid(t::Device)) return type == kDevice || type == kBlockDevice || type == kCharacterDevice;
  if (tag == typeid(t::TapeDevice)) return type == kTapeDevice;
  if (tag == typeid(t::UnixBlockDevice)) return type == kBlockDevice;
  if (tag == typeid(t::UnixCharacterDevice)) return type == kCharacterDevice;
  if (tag == typeid(a::read::Disabled)) return readAccess == 0;
  if (tag == typeid(a::read::Enabled)) return readAccess == 1;
  if (tag == typeid(a::write::Disabled)) return writeAccess == 0;
  if (tag == typeid(a::write::Enabled)) return writeAccess == 1;
  QUOREL_THROW(StatException)(util::impl::demangledNameOf(tag) + " is not a supported query attribute",
                              sal::i::err::domain::kApplication, 0);
}

}  // namespace impl
}  // namespace fs
}  // namespace sal
}  // namespace quorel
