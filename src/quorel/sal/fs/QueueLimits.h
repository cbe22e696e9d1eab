/// \file
/// QueueLimits: what one request to a block device may carry, as the
/// kernel's block layer reports it for the device's queue.
#ifndef QUOREL_SAL_FS_QUEUELIMITS_H
#define QUOREL_SAL_FS_QUEUELIMITS_H

#include <string>

#include <quorel/util/pod.h>

namespace quorel {
namespace sal {
namespace fs {

/// The limits of a block device's request queue, read from the kernel's
/// device attributes (/sys/dev/block/MAJOR:MINOR/queue). A partition has the
/// queue of its disk. Reads and writes through the block layer are split to
/// these limits by the kernel itself; a pass-through command (SCSI, ATA or
/// NVMe) is not, and the kernel refuses one larger than maxHardwareTransfer()
/// with EINVAL. Discards are split by the kernel to maxDiscard(), but a
/// pass-through UNMAP, TRIM or deallocation must fit the device's own limits.
/// A value, cheap to copy.
///
///   const fs::QueueLimits limits = fs::QueueLimits::of("/dev/sdb");
///   for (uint64 at = 0; at < total; at += limits.maxHardwareTransfer()) ...
class QueueLimits {
 public:
  /// The limits of the block device at path (followed if a link) or of the
  /// block device behind an open descriptor. Throws StatException:
  /// "::stat('<path>') failed" / "::fstat(<descriptor>) failed" (domain 2,
  /// errno); "'<path>' is not a block device" (domain 0, ENOTBLK);
  /// "::open('<attribute>') failed" or "::read('<attribute>') failed"
  /// (domain 2, errno) for a queue attribute the kernel does not have or
  /// will not give; "'<attribute>' holds no number" (domain 0, EINVAL).
  static QueueLimits of(const std::string& path);
  static QueueLimits ofDescriptor(int descriptor);

  /// The device's numbers.
  unsigned int majorNumber() const { return major_; }
  unsigned int minorNumber() const { return minor_; }
  /// The smallest unit the device addresses, and the one it writes without
  /// reading first (logical_block_size, physical_block_size).
  pod::uint32 logicalBlockSize() const { return logicalBlockSize_; }
  pod::uint32 physicalBlockSize() const { return physicalBlockSize_; }
  /// Bytes of one read or write: the block layer's current ceiling
  /// (max_sectors_kb) and the device's own (max_hw_sectors_kb), which is
  /// what a pass-through command may move.
  pod::uint64 maxTransfer() const { return maxTransfer_; }
  pod::uint64 maxHardwareTransfer() const { return maxHardwareTransfer_; }
  /// Separate memory segments of one request (max_segments).
  pod::uint32 maxSegments() const { return maxSegments_; }
  /// Bytes of one discard (discard_max_bytes, 0 when the device does not
  /// discard), the ranges one discard command may carry
  /// (max_discard_segments) and the unit it frees (discard_granularity).
  pod::uint64 maxDiscard() const { return maxDiscard_; }
  pod::uint32 maxDiscardSegments() const { return maxDiscardSegments_; }
  pod::uint32 discardGranularity() const { return discardGranularity_; }
  /// Bytes of one write-zeroes command (write_zeroes_max_bytes; 0: none).
  pod::uint64 maxWriteZeroes() const { return maxWriteZeroes_; }

 private:
  QueueLimits() = default;
  static QueueLimits read(unsigned int major, unsigned int minor);

  unsigned int major_ = 0;
  unsigned int minor_ = 0;
  pod::uint32 logicalBlockSize_ = 0;
  pod::uint32 physicalBlockSize_ = 0;
  pod::uint64 maxTransfer_ = 0;
  pod::uint64 maxHardwareTransfer_ = 0;
  pod::uint32 maxSegments_ = 0;
  pod::uint64 maxDiscard_ = 0;
  pod::uint32 maxDiscardSegments_ = 0;
  pod::uint32 discardGranularity_ = 0;
  pod::uint64 maxWriteZeroes_ = 0;
};

}  // namespace fs
}  // namespace sal
}  // namespace quorel

#endif
