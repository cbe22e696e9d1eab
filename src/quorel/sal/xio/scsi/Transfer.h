/// \file
/// scsi::Transfer: SCSI reads and writes, UNMAP and ATA TRIM of any size
/// through a synchronous dispatcher, cut into pieces the device takes.
#ifndef QUOREL_SAL_XIO_SCSI_TRANSFER_H
#define QUOREL_SAL_XIO_SCSI_TRANSFER_H

#include <quorel/sal/fs/QueueLimits.h>
#include <quorel/sal/xio/Dispatcher.h>
#include <quorel/sal/xio/Endpoint.h>
#include <quorel/sal/xio/impl/scsi/Transfer.h>
#include <quorel/util/AHandleTo.h>
#include <quorel/util/pod.h>

namespace quorel {
namespace sal {
namespace xio {
namespace scsi {

/// A request of the synchronous dispatcher is one command: a SCSI READ or
/// WRITE of more than the device's queue takes fails in the kernel (SG_IO
/// refuses more bytes than max_hw_sectors_kb, and a buffer spanning more
/// memory pages than max_segments), and an UNMAP or TRIM of more than the
/// device's discard limit is refused by the device. A Transfer moves a range
/// of any size through such a dispatcher in pieces that fit: each piece one
/// request, submitted and waited for in turn, in ascending order.
///
///   xio::mux::Spec spec;
///   spec.set<xio::i::mux::type::Sync>().set<xio::i::mux::scsi::Enabled>().set<xio::i::mux::scsi::rw16>();
///   xio::scsi::Transfer disk(xio::Dispatcher::create(spec, 1), endpoint);   // the device's queue limits
///   disk.read(buffer, 64 << 20, 0);                                         // 64 MiB in as many READs as it takes
///
/// A piece of a READ or WRITE holds at most maxTransfer bytes, spans at most
/// maxSegments memory pages of the buffer (the kernel maps a buffer page by
/// page: a page-aligned piece may hold maxSegments pages, one that starts
/// inside a page that much less), and at most what its command block counts
/// (65535 blocks in 10 bytes) and a request counts (2^31 - 1 bytes), all in
/// whole blocks. A piece of a discard holds at most maxDiscard bytes and a
/// request's count. Each discard piece is one contiguous range, which the
/// dispatcher sends as one UNMAP descriptor or one TRIM payload of up to 64
/// entries, so every device's limit of discard segments (one at least) holds.
///
/// Which command goes is the dispatcher's choice, by its mux::Spec: a READ or
/// WRITE of 10, 16 or 32 bytes (scsi, scsi::rw16, scsi::rw32), an UNMAP
/// (scsi::unmap) or an ATA TRIM, directly or through SCSI (ata::trim,
/// ata::onscsi). Its options (FUA, protection, the v4 header) apply to every
/// piece.
///
/// Failures: the first piece that fails ends the call and its exception is
/// thrown as the dispatcher reported it, of its own class: SCSIReadException
/// "device I/O control failed for SCSI Read (10)" (and (16), (32)),
/// SCSIWriteException for SCSI Write, "SCSI UNMAP failed", "device I/O control
/// failed for SCSI UNMAP" and "ATA TRIM (SATL) failed", WriteException "ATA
/// TRIM failed" (see Dispatcher for their domains and codes). The pieces
/// before it stay done: their data is in the buffer, or on the device, or
/// discarded; the failed piece's blocks are in whatever state the device left
/// them (a failed write or discard may have done part of it; a failed read
/// leaves that part of the buffer undefined); nothing after it is sent and
/// nothing is retried. done() gives the bytes of the pieces that completed. A
/// piece that completes with fewer bytes than asked (a residual count) also
/// ends the call, which returns what moved.
///
/// What no piece can carry is refused whole, before anything is sent, with
/// the class of the operation's failures (SCSIReadException "SCSI Read (10)
/// refused: <why>", SCSIWriteException "SCSI Write (16) refused: ...", "SCSI
/// UNMAP refused: ...", "ATA TRIM (SATL) refused: ...", WriteException "ATA
/// TRIM refused: ..."), domain 0: EINVAL for an offset or length that is not
/// whole blocks, no buffer, a buffer the length runs past the end of memory
/// from, limits that leave no room for a block in a piece, or a dispatcher
/// that does not send that command; EOVERFLOW for a range past byte 2^63 - 1,
/// past block 2^32 - 1 with 10-byte commands or past block 2^48 - 1 with
/// TRIM; EOPNOTSUPP for a discard on a device whose discard limit is 0.
/// A length of 0 sends nothing and returns 0.
///
/// Copies share the dispatcher, the endpoint, one request and done(). One
/// thread at a time, and none of the dispatcher's other requests may be
/// pending during a call (its submit then throws "cannot queue multiple
/// synchronous I/O requests", before anything is sent).
class Transfer {
 public:
  typedef impl::scsi::TransferLimits Limits;

  /// Holds nothing; any use throws NULLDereferenceException.
  Transfer() = default;
  /// On a synchronous pass-through dispatcher (type::Sync with scsi,
  /// scsi::unmap or ata::trim) and an endpoint open on the device: with the
  /// limits of the endpoint's block device (fs::QueueLimits::ofDescriptor,
  /// whose failures it throws: a node that is no block device, such as an
  /// sg node, needs explicit limits), with queue limits read before, or with
  /// explicit limits. Throws InvalidArgumentException "a transfer needs a
  /// synchronous pass-through dispatcher (type::Sync with scsi, scsi::unmap
  /// or ata::trim)" and "the block size <n> is not a positive int" (domain
  /// 0, EINVAL).
  Transfer(const Dispatcher& dispatcher, const Endpoint& endpoint);
  Transfer(const Dispatcher& dispatcher, const Endpoint& endpoint, const fs::QueueLimits& limits);
  Transfer(const Dispatcher& dispatcher, const Endpoint& endpoint, const Limits& limits);

  /// count bytes at byte offset, in whole blocks, to or from buffer, in SCSI
  /// READs or WRITEs; returns the bytes moved (count, unless a piece came
  /// back short). The dispatcher's spec must enable scsi.
  pod::uint64 read(void* buffer, pod::uint64 count, pod::uint64 offset);
  pod::uint64 write(const void* buffer, pod::uint64 count, pod::uint64 offset);
  /// Releases count bytes at byte offset, in whole blocks, by the
  /// dispatcher's UNMAP or TRIM; returns count. The dispatcher's spec must
  /// enable scsi::unmap or ata::trim, and not scsi.
  pod::uint64 discard(pod::uint64 count, pod::uint64 offset);

  /// Bytes of the pieces the last read, write or discard completed, also
  /// when it threw (0 when it was refused).
  pod::uint64 done() const { return handle_.reference().done(); }
  const Limits& limits() const { return handle_.reference().limits(); }

 private:
  util::AHandleTo<impl::scsi::Transfer> handle_;
};

}  // namespace scsi
}  // namespace xio
}  // namespace sal
}  // namespace quorel

#endif
