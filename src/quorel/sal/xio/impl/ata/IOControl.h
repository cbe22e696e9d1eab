/// \file
/// ATA commands through SCSI ATA PASS-THROUGH(16) over SG_IO, and the
/// discard commands built on the pass-through layers.
#ifndef QUOREL_SAL_XIO_IMPL_ATA_IOCONTROL_H
#define QUOREL_SAL_XIO_IMPL_ATA_IOCONTROL_H

#include <quorel/sal/xio/impl/scsi/IOControl.h>

namespace quorel {
namespace sal {
namespace xio {
namespace impl {
namespace ata {

/// The ATA registers of one command.
struct TaskFile {
  unsigned char features;  // the error register on return
  unsigned char count;
  unsigned char lbaLow;
  unsigned char lbaMid;
  unsigned char lbaHigh;
  unsigned char device;
  unsigned char command;  // the status register on return
  unsigned char spare;
};

/// The transport: an ATA command in a SCSI ATA PASS-THROUGH(16) command block
/// (SAT), sent with SG_IO. With checkCondition the device returns the ATA
/// status and error registers in its sense data (ATA Status Return
/// descriptor, or the fixed format's information bytes), which are read back
/// into the current task file.
class IOControl {
 public:
  IOControl();
  IOControl(const IOControl&) = delete;
  IOControl& operator=(const IOControl&) = delete;

  TaskFile& currentTaskFile() { return current_; }
  TaskFile& previousTaskFile() { return previous_; }
  impl::scsi::IOControl& transport() { return transport_; }

  /// Sends the current task file; data moves out when dataOut (else in),
  /// with the DMA protocol when dma. Returns 0 if the ioctl failed (errno tells
  /// why), else non-zero; the status and error registers are then in the
  /// current task file's command and features fields.
  int execute(i::id::type id, void* data, int length, int timeout, bool dataOut, bool dma, bool checkCondition);
  /// The same, throwing xio::Exception "device I/O control failed while
  /// attempting to send an ATA command to device" when the ioctl fails.
  int executeFor(i::id::type id, void* data, int length, int timeout, bool dataOut, bool dma, bool checkCondition);

  /// The ATA PASS-THROUGH(16) block for a task file (for tests and tools).
  static void buildPassThrough(unsigned char* cdb, const TaskFile& taskFile, bool dataOut, bool dma,
                               bool checkCondition);
  /// Reads the status (command field) and error (features field) registers
  /// back from sense data; false if the sense carries none.
  static bool registersFrom(const char* sense, int senseLength, TaskFile& taskFile);

 private:
  impl::scsi::IOControl transport_;
  TaskFile current_;
  TaskFile previous_;
};

}  // namespace ata

namespace fio {

/// Discards count bytes at byte offset in blocks of blockSize, splitting the
/// range into as many descriptors or entries, and commands, as their limits
/// need: a long range is never cut short. Each returns count when every
/// block is covered, 0 for a zero count, or -1 at the first failure (then
/// status and senseLength hold the SCSI status and sense length, or for ATA
/// the status and error registers). A range no command can carry is refused
/// with -1 before anything is sent: errno EINVAL for a block size that is not
/// positive or a negative offset or count, EOVERFLOW for a TRIM range that
/// reaches past block 2^48 - 1.
///
/// SCSI UNMAP: up to 4095 descriptors of at most 0xFFFFFFFE blocks per command.
pod::int64 scsiUNMAPWithoutException(impl::scsi::IOControl& io, i::id::type id, int blockSize, pod::int64 offset,
                              pod::int64 count, int timeout, int& status, int& senseLength);
/// ATA DATA SET MANAGEMENT (TRIM): up to 64 entries of at most 65535 blocks,
/// each starting at a 48-bit LBA, per 512-byte payload; directly through the ATA transport, or (SATL) as the
/// same task file inside a SCSI ATA PASS-THROUGH through io.
pod::int64 ataTRIMWithoutException(ata::IOControl& io, i::id::type id, int blockSize, pod::int64 offset, pod::int64 count,
                            int timeout, int& status, int& senseLength);
pod::int64 ataOnSCSITRIMWithoutException(impl::scsi::IOControl& io, i::id::type id, int blockSize, pod::int64 offset,
                                  pod::int64 count, int timeout, int& status, int& senseLength);

}  // namespace fio
}  // namespace impl
}  // namespace xio
}  // namespace sal
}  // namespace quorel

#endif
