// scsi::Transfer: how ranges are cut into requests of a synchronous
// dispatcher, what each command carries, failures in the middle and ranges
// refused whole, against a stand-in device.
#include <scsi/sg.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

#include "support/expect.h"
#include "support/fault.h"

namespace quorel {
namespace {

namespace xio = sal::xio;
namespace mx = sal::xio::i::mux;
using xio::scsi::Transfer;

// What the device was sent: the command block, the data address and length,
// and the bytes of a short data-out list (UNMAP parameters, a TRIM payload).
struct Command {
  std::vector<unsigned char> cdb;
  const char* data;
  unsigned int length;
  std::vector<unsigned char> list;
};
std::vector<Command> commands;
// The command (1 for the first) that fails, and how: a CHECK CONDITION with
// MEDIUM ERROR sense (an ATA status with ERR for ATA PASS-THROUGH), or the
// ioctl with EIO. The command (1 for the first) that moves 512 bytes less.
size_t failing = 0;
bool ioctlFails = false;
size_t shortOne = 0;

int standInDevice(int, unsigned long, void* argument) {
  sg_io_hdr& h = *static_cast<sg_io_hdr*>(argument);
  Command c{std::vector<unsigned char>(h.cmdp, h.cmdp + h.cmd_len), static_cast<const char*>(h.dxferp),
            h.dxfer_len, {}};
  if (h.dxfer_direction == SG_DXFER_TO_DEV && h.dxfer_len <= 4096) {
    const unsigned char* list = static_cast<const unsigned char*>(h.dxferp);
    c.list.assign(list, list + h.dxfer_len);
  }
  commands.push_back(c);
  const bool fails = commands.size() == failing;
  if (fails && ioctlFails) {
    errno = EIO;
    return -1;
  }
  h.status = 0;
  h.host_status = h.driver_status = 0;
  h.sb_len_wr = 0;
  h.resid = commands.size() == shortOne ? 512 : 0;
  if (h.cmdp[0] == 0x85 && (h.cmdp[2] & 0x20) != 0) {  // ATA PASS-THROUGH: the registers come back in sense
    std::memset(h.sbp, 0, 22);
    h.sbp[0] = 0x72;
    h.sbp[1] = 0x01;
    h.sbp[3] = 0x1D;  // ATA PASS THROUGH INFORMATION AVAILABLE
    h.sbp[7] = 14;
    h.sbp[8] = 0x09;
    h.sbp[9] = 0x0C;
    h.sbp[8 + 3] = fails ? 0x04 : 0;        // error: ABORT
    h.sbp[8 + 13] = fails ? 0x51 : 0x50;  // status: ERR
    h.sb_len_wr = 22;
    h.status = 2;
  } else if (fails) {
    std::memset(h.sbp, 0, 18);
    h.sbp[0] = 0x70;
    h.sbp[2] = 0x03;  // MEDIUM ERROR
    h.sbp[7] = 10;
    h.sbp[12] = 0x11;  // UNRECOVERED READ ERROR
    h.sb_len_wr = 18;
    h.status = 2;
  }
  return 0;
}

class SCSITransfer : public ::testing::Test {
 protected:
  SCSITransfer() : device_("ioctl", reinterpret_cast<void*>(&standInDevice)) {
    commands.clear();
    failing = shortOne = 0;
    ioctlFails = false;
  }
  ~SCSITransfer() override { sal::vm::deallocate(memory_); }

  template <class... Tags>
  static xio::Dispatcher dispatcher() {
    xio::mux::Spec spec;
    spec.set<mx::type::Sync>();
    (spec.set<Tags>(), ...);
    return xio::Dispatcher::create(spec, 1);
  }
  static Transfer::Limits limits(pod::uint32 block, pod::uint64 transfer, pod::uint32 segments, pod::uint64 discard) {
    Transfer::Limits l;
    l.blockSize = block;
    l.maxTransfer = transfer;
    l.maxSegments = segments;
    l.maxDiscard = discard;
    return l;
  }
  // Page-aligned memory of 1 MiB and a page.
  char* memory() {
    if (memory_ == nullptr) memory_ = static_cast<char*>(sal::vm::allocate((1 << 20) + 4096));
    return memory_;
  }

  test::fault::StandIn device_;
  char* memory_ = nullptr;
};

pod::uint64 bigEndian(const std::vector<unsigned char>& v, size_t at, int bytes) {
  pod::uint64 n = 0;
  for (int i = 0; i < bytes; ++i) n = n << 8 | v[at + i];
  return n;
}

pod::uint64 littleEndian(const std::vector<unsigned char>& v, size_t at, int bytes) {
  pod::uint64 n = 0;
  for (int i = bytes - 1; i >= 0; --i) n = n << 8 | v[at + i];
  return n;
}

const pod::uint64 kPage = 4096;
const pod::uint64 kRequestMost = 2147483136;  // 2^31 - 1 in whole 512-byte blocks

TEST_F(SCSITransfer, ReadsAndWritesGoInPiecesThatFitTheQueueTheCommandAndARequest) {
  ASSERT_EQ(sal::hostinfo::mem::pageSize(), kPage);
  char* const buffer = memory();
  // 16 segments of one page: 64 KiB from a page boundary; from 512 bytes into
  // a page, 512 less, after which the pieces start on page boundaries.
  Transfer disk(dispatcher<mx::scsi::Enabled, mx::scsi::rw16>(), xio::Endpoint::open("device"),
                limits(512, 256 << 10, 16, 0));
  EXPECT_EQ(disk.read(buffer, 1 << 20, 1 << 20), 1u << 20);
  EXPECT_EQ(disk.done(), 1u << 20);
  ASSERT_EQ(commands.size(), 16u);
  for (size_t n = 0; n < commands.size(); ++n) {
    const Command& c = commands[n];
    EXPECT_EQ(c.cdb[0], 0x88);
    EXPECT_EQ(bigEndian(c.cdb, 2, 8), 2048u + 128u * n);
    EXPECT_EQ(bigEndian(c.cdb, 10, 4), 128u);
    EXPECT_EQ(c.data, buffer + (n << 16));
    EXPECT_EQ(c.length, 65536u);
  }
  commands.clear();
  EXPECT_EQ(disk.write(buffer + 512, 1 << 20, 0), 1u << 20);
  ASSERT_EQ(commands.size(), 17u);
  EXPECT_EQ(commands[0].length, 65536u - 512u);
  pod::uint64 next = 0;
  for (const Command& c : commands) {
    EXPECT_EQ(c.cdb[0], 0x8A);
    EXPECT_EQ(bigEndian(c.cdb, 2, 8), next / 512);
    EXPECT_EQ(c.data, buffer + 512 + next);
    EXPECT_LE((reinterpret_cast<std::uintptr_t>(c.data) % kPage + c.length + kPage - 1) / kPage, 16u);
    next += c.length;
  }
  EXPECT_EQ(commands.back().length, 512u);

  // Without a segment limit, the transfer limit; in 10 bytes, at most 65535
  // blocks (with 1-byte blocks the LBA is the offset).
  commands.clear();
  Transfer small(dispatcher<mx::scsi::Enabled>(), xio::Endpoint::open("device"), limits(1, 1 << 20, 0, 0));
  EXPECT_EQ(small.read(buffer, 200000, 7), 200000u);
  ASSERT_EQ(commands.size(), 4u);
  for (size_t n = 0; n < 4; ++n) {
    EXPECT_EQ(commands[n].cdb[0], 0x28);
    EXPECT_EQ(bigEndian(commands[n].cdb, 2, 4), 7u + 65535u * n);
    EXPECT_EQ(bigEndian(commands[n].cdb, 7, 2), n < 3 ? 65535u : 3395u);
  }
  commands.clear();
  Transfer large(dispatcher<mx::scsi::Enabled, mx::scsi::rw32>(), xio::Endpoint::open("device"),
                 limits(4096, 256 << 10, 0, 0));
  EXPECT_EQ(large.write(buffer, 1 << 20, 4096), 1u << 20);
  ASSERT_EQ(commands.size(), 4u);
  EXPECT_EQ(commands[3].cdb[0], 0x7F);
  EXPECT_EQ(commands[3].cdb[9], 0x0B);
  EXPECT_EQ(bigEndian(commands[3].cdb, 12, 8), 1u + 3u * 64u);
  EXPECT_EQ(bigEndian(commands[3].cdb, 28, 4), 64u);

  // A range beyond what a request counts goes in requests of 2^31 - 1 bytes
  // in whole blocks (the stand-in touches no data: no such buffer is needed).
  commands.clear();
  Transfer huge(dispatcher<mx::scsi::Enabled, mx::scsi::rw16>(), xio::Endpoint::open("device"),
                limits(512, 1ULL << 40, 0, 0));
  char* const nowhere = reinterpret_cast<char*>(static_cast<std::uintptr_t>(1) << 20);
  const pod::uint64 three = 3ULL << 30;
  EXPECT_EQ(huge.read(nowhere, three, 0), three);
  ASSERT_EQ(commands.size(), 2u);
  EXPECT_EQ(commands[0].length, kRequestMost);
  EXPECT_EQ(commands[1].length, three - kRequestMost);
  EXPECT_EQ(bigEndian(commands[1].cdb, 2, 8), kRequestMost / 512);
  EXPECT_EQ(commands[1].data, nowhere + kRequestMost);
  EXPECT_EQ(huge.read(nowhere, 0, 0), 0u);  // nothing to do
  EXPECT_EQ(commands.size(), 2u);
}

TEST_F(SCSITransfer, DiscardsGoInPiecesOfTheDiscardLimitOneRangeEach) {
  Transfer unmap(dispatcher<mx::scsi::unmap::Enabled>(), xio::Endpoint::open("device"), limits(512, 0, 0, 32 << 20));
  EXPECT_EQ(unmap.discard(1ULL << 30, 1 << 20), 1ULL << 30);
  ASSERT_EQ(commands.size(), 32u);
  for (size_t n = 0; n < commands.size(); ++n) {
    const Command& c = commands[n];
    EXPECT_EQ(c.cdb[0], 0x42);
    EXPECT_EQ(bigEndian(c.list, 2, 2), 16u);  // one descriptor
    EXPECT_EQ(bigEndian(c.list, 8, 8), 2048u + 65536u * n);
    EXPECT_EQ(bigEndian(c.list, 16, 4), 65536u);
  }
  // A limit beyond what a request counts: requests of 2^31 - 1 bytes.
  commands.clear();
  Transfer far(dispatcher<mx::scsi::unmap::Enabled>(), xio::Endpoint::open("device"), limits(512, 0, 0, 1ULL << 40));
  EXPECT_EQ(far.discard(5ULL << 30, 0), 5ULL << 30);
  ASSERT_EQ(commands.size(), 3u);
  EXPECT_EQ(bigEndian(commands[2].list, 8, 8), 2 * kRequestMost / 512);
  EXPECT_EQ(bigEndian(commands[2].list, 16, 4), ((5ULL << 30) - 2 * kRequestMost) / 512);

  // TRIM, directly and through SCSI: a payload per piece.
  for (bool onSCSI : {false, true}) {
    SCOPED_TRACE(onSCSI);
    commands.clear();
    Transfer trim = onSCSI ? Transfer(dispatcher<mx::ata::trim::Enabled, mx::ata::onscsi::Enabled>(),
                                      xio::Endpoint::open("device"), limits(512, 0, 0, 1 << 20))
                           : Transfer(dispatcher<mx::ata::trim::Enabled>(), xio::Endpoint::open("device"),
                                      limits(512, 0, 0, 1 << 20));
    EXPECT_EQ(trim.discard(3 << 20, 4096), 3u << 20);
    ASSERT_EQ(commands.size(), 3u);
    for (size_t n = 0; n < 3; ++n) {
      EXPECT_EQ(commands[n].cdb[0], 0x85);
      ASSERT_EQ(commands[n].list.size(), 512u);
      EXPECT_EQ(littleEndian(commands[n].list, 0, 6), 8u + 2048u * n);
      EXPECT_EQ(littleEndian(commands[n].list, 6, 2), 2048u);
      EXPECT_EQ(littleEndian(commands[n].list, 8, 8), 0u);
    }
  }
}

TEST_F(SCSITransfer, AFailureInTheMiddleEndsTheCallWithItsOwnClassAndWhatWasDoneStays) {
  char* const buffer = memory();
  Transfer disk(dispatcher<mx::scsi::Enabled, mx::scsi::rw16>(), xio::Endpoint::open("device"),
                limits(512, 64 << 10, 0, 0));
  failing = 3;
  auto e = QUOREL_EXPECT_THROW(disk.read(buffer, 1 << 20, 0), xio::SCSIReadException,
                               "device I/O control failed for SCSI Read (16)", 5, 2);
  ASSERT_TRUE(e);
  EXPECT_EQ(e->auxData().size(), 18u);  // the sense bytes
  EXPECT_EQ(commands.size(), 3u);
  EXPECT_EQ(disk.done(), 2u * 65536u);
  commands.clear();
  ioctlFails = true;
  failing = 2;
  QUOREL_EXPECT_THROW(disk.write(buffer, 1 << 20, 0), xio::SCSIWriteException,
                      "device I/O control failed for SCSI Write (16)", 2, EIO);
  EXPECT_EQ(commands.size(), 2u);
  EXPECT_EQ(disk.done(), 65536u);
  // A piece that comes back short ends the call with what moved.
  commands.clear();
  failing = 0;
  shortOne = 2;
  EXPECT_EQ(disk.read(buffer, 1 << 20, 0), 2u * 65536u - 512u);
  EXPECT_EQ(commands.size(), 2u);

  shortOne = 0;
  ioctlFails = false;
  commands.clear();
  failing = 2;
  Transfer unmap(dispatcher<mx::scsi::unmap::Enabled>(), xio::Endpoint::open("device"), limits(512, 0, 0, 1 << 20));
  QUOREL_EXPECT_THROW(unmap.discard(4 << 20, 0), xio::SCSIWriteException, "SCSI UNMAP failed", 5, 2);
  EXPECT_EQ(unmap.done(), 1u << 20);
  commands.clear();
  Transfer trim(dispatcher<mx::ata::trim::Enabled>(), xio::Endpoint::open("device"), limits(512, 0, 0, 1 << 20));
  QUOREL_EXPECT_THROW(trim.discard(4 << 20, 0), xio::WriteException, "ATA TRIM failed", 0, 0x51 | 0x04 << 8);
  EXPECT_EQ(trim.done(), 1u << 20);
  commands.clear();
  Transfer satl(dispatcher<mx::ata::trim::Enabled, mx::ata::onscsi::Enabled>(), xio::Endpoint::open("device"),
                limits(512, 0, 0, 1 << 20));
  QUOREL_EXPECT_THROW(satl.discard(4 << 20, 0), xio::SCSIWriteException, "ATA TRIM (SATL) failed", 0,
                      0x51 | 0x04 << 8);
  EXPECT_EQ(commands.size(), 2u);
}

TEST_F(SCSITransfer, WhatNoPieceCanCarryIsRefusedWholeBeforeAnythingIsSent) {
  char* const buffer = memory();
  const xio::Endpoint device = xio::Endpoint::open("device");
  Transfer ten(dispatcher<mx::scsi::Enabled>(), device, limits(512, 1 << 20, 0, 0));
  QUOREL_EXPECT_THROW(ten.read(buffer, 4096, 100), xio::SCSIReadException,
                      "SCSI Read (10) refused: offset 100 and length 4096 are not whole 512-byte blocks", 0, EINVAL);
  QUOREL_EXPECT_THROW(ten.write(nullptr, 4096, 0), xio::SCSIWriteException, "SCSI Write (10) refused: no buffer", 0,
                      EINVAL);
  QUOREL_EXPECT_THROW(ten.read(buffer, 1 << 20, (1ULL << 41) - 4096), xio::SCSIReadException,
                      "SCSI Read (10) refused: blocks 4294967288 to 4294969335 reach past block 4294967295, the last "
                      "a 10-byte command addresses",
                      0, EOVERFLOW);
  char* const top = reinterpret_cast<char*>(UINTPTR_MAX - 4095);
  QUOREL_EXPECT_THROW(ten.read(top, 8192, 0), xio::SCSIReadException,
                      "SCSI Read (10) refused: a buffer of 8192 bytes there runs past the end of memory", 0, EINVAL);
  QUOREL_EXPECT_THROW(ten.discard(4096, 0), xio::WriteException,
                      "discard refused: the dispatcher's writes are SCSI WRITE commands (its spec enables scsi)", 0,
                      EINVAL);
  Transfer sixteen(dispatcher<mx::scsi::Enabled, mx::scsi::rw16>(), device, limits(512, 256, 0, 0));
  QUOREL_EXPECT_THROW(sixteen.read(buffer, 4096, 0), xio::SCSIReadException,
                      "SCSI Read (16) refused: the device's transfer limit of 256 bytes holds no whole 512-byte block",
                      0, EINVAL);
  QUOREL_EXPECT_THROW(sixteen.read(buffer, 1 << 20, (1ULL << 63) - 4096), xio::SCSIReadException,
                      "SCSI Read (16) refused: offset 9223372036854771712 and length 1048576 reach past byte "
                      "9223372036854775807, the last a request addresses",
                      0, EOVERFLOW);
  // One segment of a page: a piece starting 3900 bytes into a page has room
  // for no 512-byte block, and the pieces before it would go first.
  Transfer one(dispatcher<mx::scsi::Enabled, mx::scsi::rw16>(), device, limits(512, 1 << 20, 1, 0));
  QUOREL_EXPECT_THROW(one.read(buffer + 3900 - 1024, 8192, 0), xio::SCSIReadException,
                      "SCSI Read (16) refused: the piece at byte 1024 of the buffer starts 3900 bytes into a memory "
                      "page, which leaves no room for a 512-byte block in the 1 pages one command maps",
                      0, EINVAL);
  EXPECT_EQ(one.done(), 0u);

  Transfer unmap(dispatcher<mx::scsi::unmap::Enabled>(), device, limits(512, 0, 0, 0));
  QUOREL_EXPECT_THROW(unmap.discard(4096, 0), xio::SCSIWriteException,
                      "SCSI UNMAP refused: the device takes no discards (its discard limit is 0)", 0, EOPNOTSUPP);
  QUOREL_EXPECT_THROW(unmap.read(buffer, 4096, 0), xio::SCSIReadException,
                      "SCSI Read (10) refused: the dispatcher does not send SCSI READ and WRITE (its spec does not "
                      "enable scsi)",
                      0, EINVAL);
  Transfer trim(dispatcher<mx::ata::trim::Enabled>(), device, limits(512, 0, 0, 1 << 20));
  QUOREL_EXPECT_THROW(trim.discard(8192, (1ULL << 57) - 4096), xio::WriteException,
                      "ATA TRIM refused: blocks 281474976710648 to 281474976710663 reach past block "
                      "281474976710655, the last a TRIM entry addresses",
                      0, EOVERFLOW);
  Transfer satl(dispatcher<mx::ata::trim::Enabled, mx::ata::onscsi::Enabled>(), device, limits(4096, 0, 0, 2048));
  QUOREL_EXPECT_THROW(satl.discard(4096, 0), xio::SCSIWriteException,
                      "ATA TRIM (SATL) refused: the device's discard limit of 2048 bytes holds no whole 4096-byte "
                      "block",
                      0, EINVAL);
  EXPECT_TRUE(commands.empty());

  // Dispatchers that send no pass-through commands, and limits without a block.
  QUOREL_EXPECT_THROW(Transfer(dispatcher<>(), device, limits(512, 0, 0, 0)), InvalidArgumentException,
                      "a transfer needs a synchronous pass-through dispatcher (type::Sync with scsi, scsi::unmap or "
                      "ata::trim)",
                      0, EINVAL);
  xio::mux::Spec async;
  async.set<mx::type::Async>().set<mx::scsi::Enabled>();
  QUOREL_EXPECT_THROW(Transfer(xio::Dispatcher::create(async, 1), device, limits(512, 0, 0, 0)),
                      InvalidArgumentException,
                      "a transfer needs a synchronous pass-through dispatcher (type::Sync with scsi, scsi::unmap or "
                      "ata::trim)",
                      0, EINVAL);
  QUOREL_EXPECT_THROW(Transfer(dispatcher<mx::scsi::Enabled>(), device, limits(0, 0, 0, 0)),
                      InvalidArgumentException, "the block size 0 is not a positive int", 0, EINVAL);
  // A node that is no block device has no queue limits to read.
  xio::fopen::Spec readable;
  readable.set<xio::i::fopen::read::Enabled>();
  const xio::Endpoint null = xio::Endpoint::open("/dev/null", readable);
  QUOREL_EXPECT_THROW(Transfer(dispatcher<mx::scsi::Enabled>(), null), sal::fs::StatException,
                      "descriptor " + std::to_string(null.id()) + " is not a block device", 0, ENOTBLK);
}

}  // namespace
}  // namespace quorel
