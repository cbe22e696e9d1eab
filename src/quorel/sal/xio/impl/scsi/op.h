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
/// blocks of blockSize (LBA and block count by integer division; the 10-byte
/// form keeps only the low 32 bits of the LBA and 16 of the count), with
/// Force Unit Access and protection checking as asked, and sends it. Returns
/// the bytes transferred, or -1 if the ioctl failed, the status is not 0,
/// sense bytes came back, or the block size is not positive (errno EINVAL).
int op(bool write, impl::scsi::IOControl& io, i::id::type id, void* buffer, int count, int blockSize,
       pod::int64 offset, bool fua, bool protect, int timeout, int& status, int& senseLength, int cdbSize);

/// Writes the command block alone (into io.cdb()); for tests and tools.
void build(bool write, unsigned char* cdb, pod::uint64 lba, pod::uint32 blocks, bool fua, bool protect, int cdbSize);

}  // namespace scsi
}  // namespace fio
}  // namespace impl
}  // namespace xio
}  // namespace sal
}  // namespace quorel

#endif
