// QueueLimits: the queue attributes of a block device, read from sysfs.
#include <quorel/sal/fs/QueueLimits.h>

#include <limits>

#include <quorel/sal/fs/impl/queue.inl>

namespace quorel {
namespace sal {
namespace fs {

namespace {

// Closes an attribute however its reading ends.
struct Closer {
  int descriptor;
  ~Closer() { impl::queue::close(descriptor); }
};

// An attribute's decimal number (the kernel writes it with a newline).
pod::uint64 numberOf(const std::string& attribute) {
  Closer closer{impl::queue::open(attribute)};
  char text[32];
  const std::size_t size = impl::queue::read(closer.descriptor, text, sizeof text, attribute);
  pod::uint64 value = 0;
  std::size_t at = 0;
  for (; at < size && text[at] >= '0' && text[at] <= '9'; ++at) {
    const unsigned digit = static_cast<unsigned>(text[at] - '0');
    if (value > (std::numeric_limits<pod::uint64>::max() - digit) / 10) break;
    value = value * 10 + digit;
  }
  if (at == 0 || (at < size && text[at] != '\n')) {
    QUOREL_THROW(StatException)("'" + attribute + "' holds no number", sal::i::err::domain::kApplication, EINVAL);
  }
  return value;
}

pod::uint32 smallNumberOf(const std::string& attribute) {
  const pod::uint64 value = numberOf(attribute);
  if (value > std::numeric_limits<pod::uint32>::max()) {
    QUOREL_THROW(StatException)("'" + attribute + "' holds no number", sal::i::err::domain::kApplication, EINVAL);
  }
  return static_cast<pod::uint32>(value);
}

}  // namespace

QueueLimits QueueLimits::of(const std::string& path) {
  unsigned int major = 0, minor = 0;
  impl::queue::deviceOf(path, major, minor);
  return read(major, minor);
}

QueueLimits QueueLimits::ofDescriptor(int descriptor) {
  unsigned int major = 0, minor = 0;
  impl::queue::deviceOf(descriptor, major, minor);
  return read(major, minor);
}

QueueLimits QueueLimits::read(unsigned int major, unsigned int minor) {
  const std::string device = "/sys/dev/block/" + std::to_string(major) + ":" + std::to_string(minor);
  // A partition has no queue of its own; its disk, one level up, has.
  const std::string queue = device + (impl::queue::exists(device + "/partition") ? "/../queue/" : "/queue/");
  QueueLimits limits;
  limits.major_ = major;
  limits.minor_ = minor;
  limits.logicalBlockSize_ = smallNumberOf(queue + "logical_block_size");
  limits.physicalBlockSize_ = smallNumberOf(queue + "physical_block_size");
  limits.maxTransfer_ = numberOf(queue + "max_sectors_kb") * 1024;
  limits.maxHardwareTransfer_ = numberOf(queue + "max_hw_sectors_kb") * 1024;
  limits.maxSegments_ = smallNumberOf(queue + "max_segments");
  limits.maxDiscard_ = numberOf(queue + "discard_max_bytes");
  limits.maxDiscardSegments_ = smallNumberOf(queue + "max_discard_segments");
  limits.discardGranularity_ = smallNumberOf(queue + "discard_granularity");
  limits.maxWriteZeroes_ = numberOf(queue + "write_zeroes_max_bytes");
  return limits;
}

}  // namespace fs
}  // namespace sal
}  // namespace quorel
