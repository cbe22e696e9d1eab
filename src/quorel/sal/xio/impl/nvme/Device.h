/// \file
/// One NVMe node behind nvme::Device: its namespace, the ioctl form the
/// kernel takes, the limits commands are checked against and cut to, and
/// the commands themselves.
#ifndef QUOREL_SAL_XIO_IMPL_NVME_DEVICE_H
#define QUOREL_SAL_XIO_IMPL_NVME_DEVICE_H

#include <cstddef>
#include <string>

#include <quorel/sal/xio/Endpoint.h>
#include <quorel/sal/xio/nvme/types.h>
#include <quorel/util/pod.h>

namespace quorel {
namespace sal {
namespace xio {
namespace impl {
namespace nvme {

/// What the commands to a namespace are checked against and cut to: the LBA
/// format in use, the namespace's size, and what one command may carry by
/// its own fields, the controller's MDTS and the kernel's queue limits.
struct Geometry {
  pod::uint32 blockSize = 0;
  pod::uint16 metadataSize = 0;
  pod::uint64 blocks = 0;          // of the namespace
  pod::uint64 maxTransfer = 0;     // bytes of one Read or Write, whole blocks
  pod::uint32 maxSegments = 0;     // memory pages one command's buffer may span (0: no limit known)
  pod::uint64 maxDeallocate = 0;   // blocks of one Dataset Management command, its ranges together
  pod::uint32 maxRanges = 0;       // ranges of one Dataset Management command
  pod::uint32 maxWriteZeroes = 0;  // blocks of one Write Zeroes
};

/// Commands go to the descriptor given with each (the node's own, or
/// another open of the same namespace: a dispatcher's request endpoint)
/// with this node's namespace identifier and time-out. One thread at a time.
class Device {
 public:
  /// Asks the node for its namespace identifier (NVME_IOCTL_ID); a character
  /// node that has none is taken for a controller (identifier 0). Throws
  /// xio::nvme::Exception "::ioctl('<name>', NVME_IOCTL_ID) failed" (domain
  /// 2, errno) for any other node, "::fstat('<name>') failed" when the node
  /// cannot be examined.
  explicit Device(const xio::Endpoint& endpoint);
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  const xio::Endpoint& endpoint() const { return endpoint_; }
  int descriptor() const;
  pod::uint32 namespaceID() const { return nsid_; }
  /// Milliseconds each command may take before the kernel aborts it (0: the
  /// kernel's default).
  pod::uint32 timeout = 0;

  /// A raw command on the admin or the I/O queue: its status (0: success).
  /// Throws xio::nvme::Exception "NVMe Admin Command 0xNN failed" / "NVMe I/O
  /// Command 0xNN failed" + ": ::ioctl(<request>) failed" (domain 2, errno).
  int submit(int fd, bool admin, xio::nvme::Command& command);

  xio::nvme::Controller identifyController();
  xio::nvme::Namespace identifyNamespace(pod::uint32 nsid);
  xio::nvme::Health health();
  /// Found on the first call (Identify Controller, Identify Namespace,
  /// fs::QueueLimits of the node) and kept; identify calls refresh it.
  /// Refuses, as xio::nvme::Exception, a node that is no namespace block node.
  const Geometry& geometry();

  /// One command each (see xio::nvme::Device).
  void read(int fd, pod::uint64 lba, pod::uint32 blocks, void* buffer);
  void write(int fd, pod::uint64 lba, pod::uint32 blocks, const void* buffer);
  void writeZeroes(int fd, pod::uint64 lba, pod::uint32 blocks);
  void flush(int fd);
  void deallocate(int fd, const xio::nvme::Range* ranges, std::size_t count);

  /// Byte ranges in as many commands as the limits need; each returns the
  /// number of commands it sent.
  pod::uint64 transfer(bool write, int fd, void* buffer, pod::uint64 count, pod::uint64 offset);
  pod::uint64 discard(int fd, pod::uint64 offset, pod::uint64 length);

 private:
  template <class E>
  int pass(int fd, bool admin, xio::nvme::Command& command, const std::string& name);
  template <class E>
  const Geometry& geometryFor(const char* command);
  template <class E>
  void checkRange(const char* command, pod::uint64 lba, pod::uint64 blocks);
  template <class E>
  void transferOne(const char* command, pod::uint8 opcode, int fd, pod::uint64 lba, pod::uint32 blocks, void* buffer);
  template <class E>
  pod::uint64 transferAll(const char* command, pod::uint8 opcode, int fd, char* buffer, pod::uint64 count,
                          pod::uint64 offset);
  void derive();

  xio::Endpoint endpoint_;
  pod::uint32 nsid_;
  bool block_;
  bool legacy_;  // the kernel knows only the 32-bit-result ioctls
  bool known_;   // geometry_ holds what the identify commands and the queue gave
  // What the geometry is derived from: MDTS in bytes and the queue's limits
  // (0: none), the LBA format and size of the namespace.
  pod::uint64 controllerLimit_;
  pod::uint64 queueTransfer_;
  pod::uint32 queueSegments_;
  pod::uint64 queueDiscard_;
  pod::uint32 queueDiscardSegments_;
  pod::uint64 queueWriteZeroes_;
  Geometry geometry_;
};

}  // namespace nvme
}  // namespace impl
}  // namespace xio
}  // namespace sal
}  // namespace quorel

#endif
