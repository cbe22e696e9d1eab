// READ/WRITE command blocks and their execution.
#include <quorel/sal/xio/impl/scsi/op.h>

#include <errno.h>

#include <cstring>

#include <quorel/sal/xio/impl/scsi/IOControl.inl>
#include <quorel/util/byte.h>

namespace quorel {
namespace sal {
namespace xio {
namespace impl {
namespace fio {
namespace scsi {

using util::byte::storeBigEndian;

void build(bool write, unsigned char* cdb, pod::uint64 lba, pod::uint32 blocks, bool fua, bool protect, int cdbSize) {
  std::memset(cdb, 0, 32);
  // 0x20: the device checks protection information; 0x08: Force Unit Access.
  const unsigned char flags = static_cast<unsigned char>((protect ? 0x20 : 0) | (fua ? 0x08 : 0));
  if (cdbSize == 16) {
    cdb[0] = write ? 0x8A : 0x88;
    cdb[1] = flags;
    storeBigEndian(cdb + 2, lba, 8);
    storeBigEndian(cdb + 10, blocks, 4);
  } else if (cdbSize == 32) {
    cdb[0] = 0x7F;   // variable-length command
    cdb[7] = 0x18;   // additional command length
    cdb[9] = write ? 0x0B : 0x09;  // service action
    cdb[10] = flags;
    storeBigEndian(cdb + 12, lba, 8);
    storeBigEndian(cdb + 20, lba & 0xffffffffu, 4);  // expected initial reference tag
    storeBigEndian(cdb + 28, blocks, 4);
  } else {
    cdb[0] = write ? 0x2A : 0x28;
    cdb[1] = flags;
    storeBigEndian(cdb + 2, lba & 0xffffffffu, 4);
    storeBigEndian(cdb + 7, blocks & 0xffffu, 2);
  }
}

int op(bool write, impl::scsi::IOControl& io, i::id::type id, void* buffer, int count, int blockSize,
       pod::int64 offset, bool fua, bool protect, int timeout, int& status, int& senseLength, int cdbSize) {
  if (blockSize <= 0 || offset < 0 || count < 0) {  // no block to address
    errno = EINVAL;
    return -1;
  }
  const pod::uint64 lba = static_cast<pod::uint64>(offset / blockSize);
  const pod::uint32 blocks = static_cast<pod::uint32>(count / blockSize);
  build(write, io.cdb(), lba, blocks, fua, protect, cdbSize);
  const int length = cdbSize == 16 || cdbSize == 32 ? cdbSize : 10;
  int transferred = count;
  if (io.execute(write ? 1 : 0, id, length, timeout, buffer, transferred, status, senseLength) == 0) return -1;
  if (status != 0 || senseLength != 0) return -1;
  return transferred;
}

}  // namespace scsi
}  // namespace fio
}  // namespace impl
}  // namespace xio
}  // namespace sal
}  // namespace quorel
