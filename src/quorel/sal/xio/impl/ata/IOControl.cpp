// ATA pass-through, SCSI UNMAP and ATA TRIM.
#include <quorel/sal/xio/impl/ata/IOControl.h>

#include <errno.h>

#include <algorithm>
#include <vector>
#include <cstring>

#include <quorel/sal/xio/Exception.h>
#include <quorel/util/Throw.h>
#include <quorel/util/byte.h>

namespace quorel {
namespace sal {
namespace xio {
namespace impl {

namespace ata {

namespace {
const unsigned char kPassThrough16 = 0x85;
const int kProtocolDMA = 6;
const int kProtocolPIODataOut = 5;
const int kProtocolPIODataIn = 4;
const unsigned char kStatusReturnDescriptor = 0x09;
}  // namespace

IOControl::IOControl() : transport_(false) {
  std::memset(&current_, 0, sizeof current_);
  std::memset(&previous_, 0, sizeof previous_);
}

void IOControl::buildPassThrough(unsigned char* cdb, const TaskFile& t, bool dataOut, bool dma, bool checkCondition) {
  std::memset(cdb, 0, 32);
  const int protocol = dma ? kProtocolDMA : dataOut ? kProtocolPIODataOut : kProtocolPIODataIn;
  cdb[0] = kPassThrough16;
  cdb[1] = static_cast<unsigned char>(protocol << 1 | 0x01);  // EXTEND: the 48-bit register layout
  // CK_COND, T_DIR (1: from the device), BYT_BLOK (count in blocks), T_LENGTH = the count field.
  cdb[2] = static_cast<unsigned char>((checkCondition ? 0x20 : 0) | (dataOut ? 0 : 0x08) | 0x04 | 0x02);
  cdb[4] = t.features;
  cdb[6] = t.count;
  cdb[8] = t.lbaLow;
  cdb[10] = t.lbaMid;
  cdb[12] = t.lbaHigh;
  cdb[13] = t.device;
  cdb[14] = t.command;
}

bool IOControl::registersFrom(const char* sense, int senseLength, TaskFile& taskFile) {
  const unsigned char* s = reinterpret_cast<const unsigned char*>(sense);
  if (senseLength < 8) return false;
  const int code = s[0] & 0x7f;
  if (code == 0x72 || code == 0x73) {
    const int end = std::min(senseLength, 8 + s[7]);
    for (int at = 8; at + 1 < end; at += 2 + s[at + 1]) {
      if (s[at] == kStatusReturnDescriptor && at + 13 < senseLength) {
        taskFile.features = s[at + 3];  // error
        taskFile.command = s[at + 13];  // status
        return true;
      }
    }
    return false;
  }
  // Fixed format carries the registers in its information bytes only with
  // ATA PASS THROUGH INFORMATION AVAILABLE (00/1D); any other sense is the
  // device refusing the command.
  if ((code == 0x70 || code == 0x71) && senseLength >= 14 && s[12] == 0x00 && s[13] == 0x1D) {
    taskFile.features = s[3];  // information bytes: error, status, device, count
    taskFile.command = s[4];
    return true;
  }
  return false;
}

int IOControl::execute(i::id::type id, void* data, int length, int timeout, bool dataOut, bool dma,
                       bool checkCondition) {
  buildPassThrough(transport_.cdb(), current_, dataOut, dma, checkCondition);
  int transferred = length, status = 0, senseLength = 0;
  if (transport_.execute(dataOut ? 1 : 0, id, 16, timeout, data, transferred, status, senseLength) == 0) return 0;
  if (!registersFrom(transport_.senseData(), senseLength, current_)) {
    // No registers came back: a clean completion unless the command failed.
    current_.features = 0;
    current_.command = status == 0 ? 0x50 : 0x51;  // DRDY | DSC, with ERR on failure
  }
  return 1;
}

int IOControl::executeFor(i::id::type id, void* data, int length, int timeout, bool dataOut, bool dma,
                          bool checkCondition) {
  const int done = execute(id, data, length, timeout, dataOut, dma, checkCondition);
  if (done == 0) {
    const int error = errno;
    QUOREL_THROW(xio::Exception)("device I/O control failed while attempting to send an ATA command to device",
                                 sal::i::err::domain::kSystemCall, error);
  }
  return done;
}

}  // namespace ata

namespace fio {

namespace {

using util::byte::storeBigEndian;

// The blocks of a byte range: false (errno EINVAL) for a block size that is
// not positive or a negative offset or count, which no command addresses.
bool blocksOf(int blockSize, pod::int64 offset, pod::int64 count, pod::uint64& first, pod::uint64& blocks) {
  if (blockSize <= 0 || offset < 0 || count < 0) {
    errno = EINVAL;
    return false;
  }
  first = static_cast<pod::uint64>(offset / blockSize);
  blocks = static_cast<pod::uint64>(count / blockSize);
  return true;
}

const pod::uint64 kUNMAPBlocksPerDescriptor = 0xFFFFFFFEu;
const int kUNMAPDescriptorsPerCommand = 4095;
const pod::uint64 kTRIMBlocksPerEntry = 65535;
const int kTRIMEntriesPerPayload = 64;
const pod::uint64 kTRIMAddressableBlocks = 1ULL << 48;  // an entry's LBA has 48 bits

// The blocks of a TRIM range: as blocksOf, and false (errno EOVERFLOW) for a
// range that reaches past the last block an entry can name. The whole range
// is refused before any command goes out: no entry is ever cut or wrapped.
bool trimBlocksOf(int blockSize, pod::int64 offset, pod::int64 count, pod::uint64& first, pod::uint64& blocks) {
  if (!blocksOf(blockSize, offset, count, first, blocks)) return false;
  if (blocks > 0 && (first >= kTRIMAddressableBlocks || blocks > kTRIMAddressableBlocks - first)) {
    errno = EOVERFLOW;
    return false;
  }
  return true;
}

// Fills one TRIM payload from lba on; returns the blocks it covers.
pod::uint64 fillTRIMPayload(unsigned char* payload, pod::uint64 lba, pod::uint64 blocks) {
  std::memset(payload, 0, 512);
  pod::uint64 covered = 0;
  for (int entry = 0; entry < kTRIMEntriesPerPayload && covered < blocks; ++entry) {
    const pod::uint64 n = std::min(blocks - covered, kTRIMBlocksPerEntry);
    const pod::uint64 value = (lba + covered) | (n << 48);  // lba + covered < 2^48 (trimBlocksOf)
    for (int i = 0; i < 8; ++i) payload[entry * 8 + i] = static_cast<unsigned char>(value >> (8 * i));
    covered += n;
  }
  return covered;
}

ata::TaskFile trimTaskFile() {
  ata::TaskFile t;
  std::memset(&t, 0, sizeof t);
  t.features = 1;    // TRIM
  t.count = 1;       // one payload block
  t.command = 0x06;  // DATA SET MANAGEMENT
  return t;
}

}  // namespace

pod::int64 scsiUNMAPWithoutException(impl::scsi::IOControl& io, i::id::type id, int blockSize, pod::int64 offset,
                              pod::int64 count, int timeout, int& status, int& senseLength) {
  pod::uint64 first, blocks;
  if (!blocksOf(blockSize, offset, count, first, blocks)) return -1;
  std::vector<unsigned char> list(8 + 16 * kUNMAPDescriptorsPerCommand);
  for (pod::uint64 done = 0; done < blocks;) {
    int n = 0;
    for (; n < kUNMAPDescriptorsPerCommand && done < blocks; ++n) {
      const pod::uint64 take = std::min(blocks - done, kUNMAPBlocksPerDescriptor);
      unsigned char* d = list.data() + 8 + 16 * n;
      std::memset(d, 0, 16);
      storeBigEndian(d, first + done, 8);
      storeBigEndian(d + 8, take, 4);
      done += take;
    }
    const int parameters = 8 + 16 * n;
    storeBigEndian(list.data(), static_cast<pod::uint64>(16 * n + 6), 2);
    storeBigEndian(list.data() + 2, static_cast<pod::uint64>(16 * n), 2);
    std::memset(list.data() + 4, 0, 4);
    unsigned char* cdb = io.cdb();
    std::memset(cdb, 0, 32);
    cdb[0] = 0x42;  // UNMAP
    storeBigEndian(cdb + 7, static_cast<pod::uint64>(parameters), 2);
    int length = parameters;
    if (io.execute(1, id, 10, timeout, list.data(), length, status, senseLength) == 0 || status != 0 ||
        senseLength != 0) {
      return -1;
    }
  }
  return count;
}

pod::int64 ataTRIMWithoutException(ata::IOControl& io, i::id::type id, int blockSize, pod::int64 offset, pod::int64 count,
                            int timeout, int& status, int& senseLength) {
  pod::uint64 first, blocks;
  if (!trimBlocksOf(blockSize, offset, count, first, blocks)) return -1;
  unsigned char payload[512];
  for (pod::uint64 done = 0; done < blocks;) {
    done += fillTRIMPayload(payload, first + done, blocks - done);
    io.currentTaskFile() = trimTaskFile();
    io.previousTaskFile() = io.currentTaskFile();
    const int sent = io.execute(id, payload, 512, timeout, true, true, true);
    status = io.currentTaskFile().command;
    senseLength = io.currentTaskFile().features;
    if (sent == 0 || (status & 0x01) != 0) return -1;
  }
  return count;
}

pod::int64 ataOnSCSITRIMWithoutException(impl::scsi::IOControl& io, i::id::type id, int blockSize, pod::int64 offset,
                                  pod::int64 count, int timeout, int& status, int& senseLength) {
  pod::uint64 first, blocks;
  if (!trimBlocksOf(blockSize, offset, count, first, blocks)) return -1;
  unsigned char payload[512];
  for (pod::uint64 done = 0; done < blocks;) {
    done += fillTRIMPayload(payload, first + done, blocks - done);
    ata::TaskFile taskFile = trimTaskFile();
    ata::IOControl::buildPassThrough(io.cdb(), taskFile, true, true, true);
    int length = 512;
    if (io.execute(1, id, 16, timeout, payload, length, status, senseLength) == 0) return -1;
    // With check-condition a good completion still returns CHECK CONDITION,
    // carrying the registers; without them any status other than GOOD is the
    // device refusing the command.
    if (ata::IOControl::registersFrom(io.senseData(), senseLength, taskFile)) {
      if ((taskFile.command & 0x01) != 0) {
        status = taskFile.command;
        senseLength = taskFile.features;
        return -1;
      }
    } else if (status != 0) {
      return -1;
    }
  }
  return count;
}

}  // namespace fio
}  // namespace impl
}  // namespace xio
}  // namespace sal
}  // namespace quorel
