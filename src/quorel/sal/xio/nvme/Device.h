/// \file
/// nvme::Device: NVMe commands to a controller or a namespace through the
/// kernel's pass-through ioctls.
#ifndef QUOREL_SAL_XIO_NVME_DEVICE_H
#define QUOREL_SAL_XIO_NVME_DEVICE_H

#include <string>
#include <vector>

#include <quorel/sal/xio/Endpoint.h>
#include <quorel/sal/xio/impl/nvme/Device.h>
#include <quorel/sal/xio/nvme/Exception.h>
#include <quorel/sal/xio/nvme/status.h>
#include <quorel/sal/xio/nvme/types.h>
#include <quorel/util/AHandleTo.h>

namespace quorel {
namespace sal {
namespace xio {
namespace nvme {

/// An NVMe node: a namespace's block node (/dev/nvme0n1), which takes every
/// command, or a controller's character node (/dev/nvme0), which takes admin
/// commands only. Copies share the node, its descriptor and what was learnt
/// of it; one thread at a time.
///
///   nvme::Device disk("/dev/nvme0n1", nvme::i::open::ReadWrite());
///   const nvme::Namespace space = disk.identifyNamespace();   // size, LBA format
///   disk.read(0, 8, buffer);                                  // blocks 0-7, one command
///   disk.readAt(big, 8 << 20, 0);                             // 8 MiB in as many commands as it takes
///
/// Commands go out with the 64-bit-result ioctls (NVME_IOCTL_ADMIN64_CMD,
/// NVME_IOCTL_IO64_CMD) and, once the kernel has answered those with ENOTTY
/// (before 5.3), with NVME_IOCTL_ADMIN_CMD and NVME_IOCTL_IO_CMD. Each goes
/// with timeout() as its time-out.
///
/// Failures (see nvme/Exception.h for the classes: ReadException for Read,
/// WriteException for Write, Write Zeroes and Dataset Management, Exception
/// for the rest):
/// - "NVMe <command> failed: ::ioctl(<request>) failed", domain 2 with errno
///   (EINTR when the kernel aborted the command at its time-out);
/// - "NVMe <command> failed: <status text>", domain 0 with the status as code,
///   for a command the controller completed with an error (nvme::status);
/// - "NVMe <command> refused: <why>", domain 0, for what no command can
///   carry, before anything is sent: EINVAL for a count or length one command
///   does not carry (65536 blocks, the device's transfer limit, the memory
///   pages the kernel maps) or that is not whole blocks, EOVERFLOW for blocks
///   past the namespace's end, ENOTBLK for I/O to a node that is no namespace
///   block node, ENXIO for an inactive namespace, EOPNOTSUPP for Read and
///   Write on an LBA format with metadata.
/// The first command that needs the namespace's geometry identifies the
/// controller and the namespace and reads the queue's limits
/// (fs::QueueLimits); their failures come from there.
class Device {
 public:
  /// Holds nothing; any use throws NULLDereferenceException.
  Device() = default;
  /// Opens path read-only, read-write, or read-write and exclusively (a
  /// mounted or exclusively held block device then fails with EBUSY), always
  /// close-on-exec. Throws OpenException "::open('<path>', <flags>) failed"
  /// (domain 2, errno), and what Device(Endpoint) throws (the descriptor is
  /// closed first).
  explicit Device(const std::string& path);
  Device(const std::string& path, i::open::ReadWrite);
  Device(const std::string& path, i::open::Exclusive);
  /// On an endpoint open on the node, which the device then shares. Throws
  /// Exception "::ioctl('<name>', NVME_IOCTL_ID) failed" (domain 2, errno)
  /// for a node that is neither a namespace nor a character node.
  explicit Device(const Endpoint& endpoint);

  const Endpoint& endpoint() const { return handle_.reference().endpoint(); }
  /// The namespace of a namespace node; 0 for a controller node.
  pod::uint32 namespaceID() const { return handle_.reference().namespaceID(); }
  /// Milliseconds a command may take before the kernel aborts it; 0 (the
  /// default) leaves the kernel's own (30 s for I/O, 60 s for admin commands
  /// unless configured).
  pod::uint32 timeout() const { return handle_.reference().timeout; }
  void setTimeout(pod::uint32 milliseconds) { handle_->timeout = milliseconds; }

  /// A raw command, sent as it is: its status (0: success; nvme::status
  /// describes the others) with command.result filled in. Throws Exception
  /// "NVMe Admin Command 0xNN failed: ::ioctl(...) failed" / "NVMe I/O
  /// Command 0xNN failed: ..." only when the ioctl fails.
  int submit(i::queue::Admin, Command& command);
  int submit(i::queue::IO, Command& command);

  /// Identify (controller; this node's namespace, which a controller node
  /// has not: refused with ENOTBLK; a namespace by its identifier), and the
  /// SMART / health information log (Get Log Page 2 for the whole controller).
  Controller identifyController();
  Namespace identifyNamespace();
  Namespace identifyNamespace(pod::uint32 nsid);
  Health health();

  /// The namespace's geometry: data bytes per block, size in bytes, and the
  /// bytes one Read or Write carries (65536 blocks, MDTS, the queue's
  /// max_hw_sectors_kb: the least).
  pod::uint32 blockSize();
  pod::uint64 size();
  pod::uint64 maxTransfer();

  /// One command each, on this node's namespace; the block count is the
  /// real count (the command carries it less one).
  void read(pod::uint64 lba, pod::uint32 blocks, void* buffer);
  void write(pod::uint64 lba, pod::uint32 blocks, const void* buffer);
  void writeZeroes(pod::uint64 lba, pod::uint32 blocks);
  void flush();
  /// Dataset Management with the deallocate attribute: up to 256 ranges (or
  /// the queue's max_discard_segments), of up to 2^32 - 1 blocks, and no more
  /// blocks together than the queue's discard_max_bytes.
  void deallocate(const std::vector<Range>& ranges);

  /// count bytes at byte offset (whole blocks), in as many commands as the
  /// limits need: at most maxTransfer() bytes and no more memory pages than
  /// the queue's max_segments each; Dataset Management in commands of as
  /// many ranges and blocks as deallocate() takes. Each returns the number of
  /// commands sent; a range is checked whole before the first, and a failure
  /// stops it (what went before stays done).
  pod::uint64 readAt(void* buffer, pod::uint64 count, pod::uint64 offset);
  pod::uint64 writeAt(const void* buffer, pod::uint64 count, pod::uint64 offset);
  pod::uint64 discard(pod::uint64 offset, pod::uint64 length);

  impl::nvme::Device& impl() { return *handle_.operator->(); }

 private:
  int descriptor() const { return handle_.reference().descriptor(); }

  util::AHandleTo<impl::nvme::Device> handle_;
};

}  // namespace nvme
}  // namespace xio
}  // namespace sal
}  // namespace quorel

#endif
