/// \file
/// READ and WRITE commands of 10, 16 and 32 bytes.
#ifndef QUOREL_SAL_XIO_IMPL_SCSI_OP_H
#define QUOREL_SAL_XIO_IMPL_SCSI_OP_H

#include <quorel/sal/xio/impl/scsi/IOControl.h>

namespace quorel {
namespace sal {
namespace xio {
namespace impl {
namespace fio {
namespace scsi {

/// Builds READ/WRITE(10), (16) or (32) for count bytes at byte offset in
/// blocks of blockSize (LBA and block count by integer division), with Force
/// Unit Access and protection checking as asked, and sends it. Returns the
/// bytes transferred, or -1 if the ioctl failed, the status is not 0, sense
/// bytes came back, or (errno EINVAL, nothing sent) the block size is not
/// positive or the offset or count is negative.
///
/// The 10-byte form wraps, and does so on purpose: it carries the low 32
/// bits of the LBA and the low 16 bits of the block count, with no range
/// check, so a request at block 2^32 or beyond, or of more than 65535 blocks,
/// reaches other blocks than asked, silently. Callers that may go that far
/// choose 16 (64-bit LBA, 32-bit count) or 32 bytes; the quorel tool picks
/// 16 by itself whenever the device or the request passes those limits.
int op(bool write, impl::scsi::IOControl& io, i::id::type id, void* buffer, int count, int blockSize,
       pod::int64 offset, bool fua, bool protect, int timeout, int& status, int& senseLength, int cdbSize);

/// Writes the command block alone (into io.cdb()); for tests and tools. The
/// 10-byte form wraps as op's does.
void build(bool write, unsigned char* cdb, pod::uint64 lba, pod::uint32 blocks, bool fua, bool protect, int cdbSize);

}  // namespace scsi
}  // namespace fio
}  // namespace impl
}  // namespace xio
}  // namespace sal
}  // namespace quorel

#endif
