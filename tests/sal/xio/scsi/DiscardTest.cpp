// SCSI UNMAP and ATA TRIM: how ranges are cut into commands and what the
// commands carry, against a stand-in device.
#include <linux/bsg.h>
#include <scsi/sg.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

#include "support/expect.h"
#include "support/fault.h"

namespace quorel {
namespace {

namespace fio = sal::xio::impl::fio;
using sal::xio::impl::ata::IOControl;
using sal::xio::impl::ata::TaskFile;

struct Command {
  std::vector<unsigned char> cdb;
  std::vector<unsigned char> data;
};

// Records every command; answers as a device with ATA status register `ataStatus`.
std::vector<Command> commands;
unsigned char ataStatus = 0x50;
unsigned char scsiStatus = 0;

int recordingDevice(int, unsigned long, void* argument) {
  sg_io_hdr& h = *static_cast<sg_io_hdr*>(argument);
  const unsigned char* data = static_cast<const unsigned char*>(h.dxferp);
  commands.push_back(Command{std::vector<unsigned char>(h.cmdp, h.cmdp + h.cmd_len),
                             std::vector<unsigned char>(data, data + h.dxfer_len)});
  h.status = scsiStatus;
  h.host_status = h.driver_status = 0;
  h.resid = 0;
  h.sb_len_wr = 0;
  if (h.cmdp[0] == 0x85 && (h.cmdp[2] & 0x20) != 0) {  // check condition: return the registers
    std::memset(h.sbp, 0, 22);
    h.sbp[0] = 0x72;
    h.sbp[1] = 0x01;  // RECOVERED ERROR
    h.sbp[3] = 0x1D;  // ATA PASS THROUGH INFORMATION AVAILABLE
    h.sbp[7] = 14;
    h.sbp[8] = 0x09;
    h.sbp[9] = 0x0C;
    h.sbp[8 + 3] = (ataStatus & 1) != 0 ? 0x04 : 0;  // ABORT in the error register
    h.sbp[8 + 13] = ataStatus;
    h.sb_len_wr = 22;
    h.status = 2;
  }
  return 0;
}

class Discard : public ::testing::Test {
 protected:
  Discard() : device_("ioctl", reinterpret_cast<void*>(&recordingDevice)) {
    commands.clear();
    ataStatus = 0x50;
    scsiStatus = 0;
  }
  test::fault::StandIn device_;
};

pod::uint64 bigEndian(const unsigned char* at, int bytes) {
  pod::uint64 v = 0;
  for (int i = 0; i < bytes; ++i) v = v << 8 | at[i];
  return v;
}

pod::uint64 littleEndian(const unsigned char* at, int bytes) {
  pod::uint64 v = 0;
  for (int i = bytes - 1; i >= 0; --i) v = v << 8 | at[i];
  return v;
}

TEST_F(Discard, UNMAPSplitsDescriptorsAtTheirLimitCarriesAtMost4095PerCommandAndStopsAtAFailure) {
  sal::xio::impl::scsi::IOControl io(false);
  int status = -1, sense = -1;
  const pod::int64 bytes = (1LL << 32) * 512;
  EXPECT_EQ(fio::scsiUNMAPWithoutException(io, 3, 512, 1024, bytes, 60, status, sense), bytes);
  ASSERT_EQ(commands.size(), 1u);
  const Command& c = commands[0];
  EXPECT_EQ(c.cdb[0], 0x42);
  EXPECT_EQ(bigEndian(&c.cdb[7], 2), 8u + 32u);
  EXPECT_EQ(bigEndian(&c.data[0], 2), 32u + 6u);
  EXPECT_EQ(bigEndian(&c.data[2], 2), 32u);
  EXPECT_EQ(bigEndian(&c.data[8], 8), 2u);  // LBA 1024 / 512
  EXPECT_EQ(bigEndian(&c.data[16], 4), 0xFFFFFFFEu);
  EXPECT_EQ(bigEndian(&c.data[24], 8), 2ULL + 0xFFFFFFFEULL);
  EXPECT_EQ(bigEndian(&c.data[32], 4), 2u);

  // At most 4095 descriptors per command.
  commands.clear();
  const pod::int64 blocks = 4095LL * 0xFFFFFFFELL + 5;
  EXPECT_EQ(fio::scsiUNMAPWithoutException(io, 3, 1, 0, blocks, 60, status, sense), blocks);
  ASSERT_EQ(commands.size(), 2u);
  EXPECT_EQ(bigEndian(&commands[0].data[2], 2), 4095u * 16u);
  EXPECT_EQ(bigEndian(&commands[1].data[2], 2), 16u);
  EXPECT_EQ(bigEndian(&commands[1].data[8], 8), 4095ULL * 0xFFFFFFFEULL);
  EXPECT_EQ(bigEndian(&commands[1].data[16], 4), 5u);

  // The first failure stops it.
  commands.clear();
  scsiStatus = 0x18;  // RESERVATION CONFLICT
  EXPECT_EQ(fio::scsiUNMAPWithoutException(io, 3, 1, 0, blocks, 60, status, sense), -1);
  EXPECT_EQ(commands.size(), 1u);
  EXPECT_EQ(status, 0x18);
  EXPECT_EQ(fio::scsiUNMAPWithoutException(io, 3, 512, 0, 0, 60, status, sense), 0);  // nothing to do
  EXPECT_EQ(commands.size(), 1u);
}

TEST_F(Discard, TRIMCutsEntriesAndPayloadsAndReportsTheRegistersOfAFailure) {
  IOControl io;
  int status = -1, error = -1;
  EXPECT_EQ(fio::ataTRIMWithoutException(io, 3, 512, 512 * 10, 70000LL * 512, 60, status, error), 70000LL * 512);
  ASSERT_EQ(commands.size(), 1u);
  const Command& c = commands[0];
  EXPECT_EQ(c.cdb[0], 0x85);
  EXPECT_EQ(c.cdb[4], 1);     // features: TRIM
  EXPECT_EQ(c.cdb[6], 1);     // one payload block
  EXPECT_EQ(c.cdb[14], 0x06); // DATA SET MANAGEMENT
  EXPECT_EQ(c.cdb[1] >> 1 & 0x0F, 6);  // DMA
  ASSERT_EQ(c.data.size(), 512u);
  EXPECT_EQ(littleEndian(&c.data[0], 6), 10u);
  EXPECT_EQ(littleEndian(&c.data[6], 2), 65535u);
  EXPECT_EQ(littleEndian(&c.data[8], 6), 10u + 65535u);
  EXPECT_EQ(littleEndian(&c.data[14], 2), 4465u);
  EXPECT_EQ(littleEndian(&c.data[16], 8), 0u);
  EXPECT_EQ(status, 0x50);
  EXPECT_EQ(io.previousTaskFile().command, 0x06);

  commands.clear();
  EXPECT_EQ(fio::ataTRIMWithoutException(io, 3, 1, 0, 64LL * 65535 + 1, 60, status, error), 64LL * 65535 + 1);
  ASSERT_EQ(commands.size(), 2u);
  EXPECT_EQ(littleEndian(&commands[0].data[63 * 8 + 6], 2), 65535u);
  EXPECT_EQ(littleEndian(&commands[1].data[0], 6), 64u * 65535u);
  EXPECT_EQ(littleEndian(&commands[1].data[6], 2), 1u);

  // A failure reports the status and error registers.
  ataStatus = 0x51;  // ERR
  EXPECT_EQ(fio::ataTRIMWithoutException(io, 3, 512, 0, 512, 60, status, error), -1);
  EXPECT_EQ(status, 0x51);
  EXPECT_EQ(error, 0x04);
  sal::xio::impl::scsi::IOControl scsi(false);
  EXPECT_EQ(fio::ataOnSCSITRIMWithoutException(scsi, 3, 512, 0, 512, 60, status, error), -1);
  EXPECT_EQ(status, 0x51);
  ataStatus = 0x50;
  EXPECT_EQ(fio::ataOnSCSITRIMWithoutException(scsi, 3, 512, 0, 512, 60, status, error), 512);
  EXPECT_EQ(fio::ataTRIMWithoutException(io, 3, 512, 0, 0, 60, status, error), 0);
}

// The last block a TRIM range entry can name is 2^48 - 1: a range reaching
// past it is refused whole before any command goes out, never cut or
// wrapped; so is a negative range on every path.
TEST_F(Discard, RangesTheCommandsCannotCarryAreRefusedBeforeAnythingIsSent) {
  IOControl ata;
  sal::xio::impl::scsi::IOControl scsi(false);
  int status = -1, error = -1;
  const pod::int64 limit = 1LL << 48;
  errno = 0;
  EXPECT_EQ(fio::ataTRIMWithoutException(ata, 3, 1, limit - 1, 2, 60, status, error), -1);
  EXPECT_EQ(errno, EOVERFLOW);
  errno = 0;
  EXPECT_EQ(fio::ataOnSCSITRIMWithoutException(scsi, 3, 512, (limit - 70000) * 512, 70001LL * 512, 60, status, error),
            -1);
  EXPECT_EQ(errno, EOVERFLOW);
  for (const auto& range : {std::make_pair(-512LL, 512LL), std::make_pair(0LL, -512LL)}) {
    errno = 0;
    EXPECT_EQ(fio::ataTRIMWithoutException(ata, 3, 512, range.first, range.second, 60, status, error), -1);
    EXPECT_EQ(errno, EINVAL);
    errno = 0;
    EXPECT_EQ(fio::ataOnSCSITRIMWithoutException(scsi, 3, 512, range.first, range.second, 60, status, error), -1);
    EXPECT_EQ(errno, EINVAL);
    errno = 0;
    EXPECT_EQ(fio::scsiUNMAPWithoutException(scsi, 3, 512, range.first, range.second, 60, status, error), -1);
    EXPECT_EQ(errno, EINVAL);
  }
  EXPECT_TRUE(commands.empty());

  // Up to the last addressable block: sent, in entries of 65535.
  EXPECT_EQ(fio::ataTRIMWithoutException(ata, 3, 1, limit - 70000, 70000, 60, status, error), 70000);
  ASSERT_EQ(commands.size(), 1u);
  EXPECT_EQ(littleEndian(&commands[0].data[0], 6), static_cast<pod::uint64>(limit - 70000));
  EXPECT_EQ(littleEndian(&commands[0].data[8], 6), static_cast<pod::uint64>(limit - 70000 + 65535));
  EXPECT_EQ(littleEndian(&commands[0].data[14], 2), 4465u);
}

// A refused range reaches the dispatcher's handler as a write failure.
class FailureKeeper : public sal::xio::AHandler {
 public:
  void on(sal::xio::i::op::Read, int, sal::xio::Request&) override {}
  void on(sal::xio::i::op::Write, int, sal::xio::Request&) override {}
  void on(sal::xio::AIOCompletionException&, sal::xio::Request&) override {}
  void on(sal::xio::AIORequestException&, sal::xio::Request&) override {}
  void on(sal::xio::AIOCancellationException&, sal::xio::Request&) override {}
  void on(sal::xio::ReadException&, sal::xio::Request&) override {}
  void on(sal::xio::WriteException& e, sal::xio::Request&) override { failure = e; }
  quorel::Exception failure{"", "", sal::i::err::domain::kApplication, 0, "", 0, ""};
};

TEST_F(Discard, ARefusedTRIMReachesTheHandlerAsAWriteFailure) {
  namespace mx = sal::xio::i::mux;
  sal::xio::mux::Spec spec;
  spec.set<mx::type::Sync>().set<mx::ata::trim::Enabled>();
  sal::xio::Dispatcher dispatcher = sal::xio::Dispatcher::create(spec, 1);
  FailureKeeper handler;
  std::unique_ptr<sal::xio::Request> request(dispatcher.newRequestFor(&handler, sal::xio::Endpoint::open("device")));
  request->setBlockSize(512);
  request->submit(sal::xio::i::op::Write(), nullptr, 4096, (1LL << 48) * 512 - 512);
  dispatcher.wait();
  EXPECT_EQ(handler.failure.why(), "ATA TRIM failed");
  EXPECT_EQ(handler.failure.code(), EOVERFLOW);
  EXPECT_TRUE(commands.empty());
}

TEST(ATAPassThrough, FailedIoctlThrowsFromThePublicFormOnly) {
  IOControl io;
  char data[512];
  test::fault::Injection fail("ioctl", ENODEV, 1, 2);
  EXPECT_EQ(io.execute(3, data, 512, 60, true, true, true), 0);
  QUOREL_EXPECT_THROW(io.executeFor(3, data, 512, 60, true, true, true), sal::xio::Exception,
                      "device I/O control failed while attempting to send an ATA command to device", 2, ENODEV);
}

}  // namespace
}  // namespace quorel
