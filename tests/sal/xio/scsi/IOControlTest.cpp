// SCSI pass-through: the SG_IO headers, the status packing and the READ and
// WRITE command blocks, against a stand-in device.
#include <fcntl.h>
#include <linux/bsg.h>
#include <scsi/sg.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

#include "support/expect.h"
#include "support/fault.h"

namespace quorel {
namespace {

using sal::xio::impl::scsi::IOControl;
namespace op = sal::xio::impl::fio::scsi;

// What the stand-in device saw and how it answers.
struct Device {
  std::vector<unsigned char> cdb;
  int direction = 0;
  unsigned int length = 0;
  unsigned char status = 0;
  unsigned short host = 0;
  unsigned short driver = 0;
  unsigned char senseLength = 0;
  int resid = 0;
} device;

int standInDevice(int, unsigned long request, void* argument) {
  if (request != SG_IO) return -1;
  if (static_cast<sg_io_hdr*>(argument)->interface_id == 'S') {
    sg_io_hdr& h = *static_cast<sg_io_hdr*>(argument);
    device.cdb.assign(h.cmdp, h.cmdp + h.cmd_len);
    device.direction = h.dxfer_direction;
    device.length = h.dxfer_len;
    h.status = device.status;
    h.host_status = device.host;
    h.driver_status = device.driver;
    std::memset(h.sbp, 0x5A, device.senseLength);
    h.sb_len_wr = device.senseLength;
    h.resid = device.resid;
    return 0;
  }
  sg_io_v4& h = *static_cast<sg_io_v4*>(argument);
  const unsigned char* cdb = reinterpret_cast<const unsigned char*>(static_cast<pod::uintptr>(h.request));
  device.cdb.assign(cdb, cdb + h.request_len);
  device.length = h.dout_xfer_len != 0 ? h.dout_xfer_len : h.din_xfer_len;
  h.device_status = device.status;
  h.transport_status = device.host;
  h.driver_status = device.driver;
  h.response_len = device.senseLength;
  h.din_resid = device.resid;
  h.dout_resid = device.resid;
  return 0;
}

class SCSIPassThrough : public ::testing::Test {
 protected:
  SCSIPassThrough() : standIn_("ioctl", reinterpret_cast<void*>(&standInDevice)) { device = Device(); }
  test::fault::StandIn standIn_;
};

std::vector<unsigned char> bytes(std::initializer_list<int> list) {
  return std::vector<unsigned char>(list.begin(), list.end());
}

TEST_F(SCSIPassThrough, PacksSCSIHostAndDriverStatus) {
  IOControl io(false);
  char data[512];
  int length = 512, status = -1, senseLength = -1;
  device.host = 7;
  io.executeFor(0, 3, 10, 60, data, length, status, senseLength);
  EXPECT_EQ(status, 7 << 16);
  EXPECT_EQ(device.direction, SG_DXFER_FROM_DEV);
  device = Device();
  device.driver = 0x28;  // only the low four bits count
  io.executeFor(1, 3, 10, 60, data, length, status, senseLength);
  EXPECT_EQ(status, 8 << 24);
  EXPECT_EQ(device.direction, SG_DXFER_TO_DEV);
  device = Device();
  device.status = 2;
  device.host = 7;
  device.senseLength = 18;
  device.resid = 100;
  length = 512;
  io.executeFor(0, 3, 10, 60, data, length, status, senseLength);
  EXPECT_EQ(status, 2);  // the SCSI status wins
  EXPECT_EQ(senseLength, 18);
  EXPECT_EQ(length, 412);
  EXPECT_EQ(static_cast<unsigned char>(io.senseData()[17]), 0x5A);
}

TEST_F(SCSIPassThrough, ExtendedHeaderReportsTheDeviceStatusOnly) {
  IOControl io(true);
  char data[4096];
  int length = 4096, status = -1, senseLength = -1;
  device.host = 7;
  device.resid = 96;
  io.executeFor(1, 3, 16, 60, data, length, status, senseLength);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(length, 4000);
  EXPECT_EQ(device.cdb.size(), 16u);
  EXPECT_EQ(device.length, 4096u);
}

TEST_F(SCSIPassThrough, BuildsReadAndWriteCommandBlocks) {
  IOControl io(false);
  std::vector<char> data(4096);
  int status = -1, senseLength = -1;
  EXPECT_EQ(op::op(false, io, 3, data.data(), 4096, 512, 4096, false, false, 60, status, senseLength, 10), 4096);
  EXPECT_EQ(device.cdb, bytes({0x28, 0, 0, 0, 0, 0x08, 0, 0, 0x08, 0}));
  op::op(true, io, 3, data.data(), 4096, 4096, 8192LL << 32, true, true, 60, status, senseLength, 16);
  EXPECT_EQ(device.cdb, bytes({0x8A, 0x28, 0, 0, 0, 0x02, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0}));
  op::op(false, io, 3, data.data(), 1024, 512, 0x1234567800LL, false, true, 60, status, senseLength, 32);
  ASSERT_EQ(device.cdb.size(), 32u);
  EXPECT_EQ(device.cdb[0], 0x7F);
  EXPECT_EQ(device.cdb[7], 0x18);
  EXPECT_EQ(device.cdb[9], 0x09);
  EXPECT_EQ(device.cdb[10], 0x20);
  EXPECT_EQ(std::vector<unsigned char>(device.cdb.begin() + 12, device.cdb.begin() + 20),
            bytes({0, 0, 0, 0, 0x09, 0x1A, 0x2B, 0x3C}));  // LBA 0x1234567800 / 512
  EXPECT_EQ(std::vector<unsigned char>(device.cdb.begin() + 20, device.cdb.begin() + 24), bytes({0x09, 0x1A, 0x2B, 0x3C}));
  EXPECT_EQ(device.cdb[31], 2);
  // The ten-byte form keeps the low 32 bits of the LBA and 16 of the count.
  op::build(true, io.cdb(), 0x123456789ULL, 0x12345, false, false, 10);
  EXPECT_EQ(std::vector<unsigned char>(io.cdb(), io.cdb() + 10), bytes({0x2A, 0, 0x23, 0x45, 0x67, 0x89, 0, 0x23, 0x45, 0}));
}

TEST_F(SCSIPassThrough, OperationsReportFailuresAsMinusOne) {
  IOControl io(false);
  char data[512];
  int status = -1, senseLength = -1;
  device.status = 2;
  device.senseLength = 18;
  EXPECT_EQ(op::op(false, io, 3, data, 512, 512, 0, false, false, 60, status, senseLength, 10), -1);
  EXPECT_EQ(status, 2);
  device = Device();
  device.senseLength = 8;  // sense without a status still fails
  EXPECT_EQ(op::op(false, io, 3, data, 512, 512, 0, false, false, 60, status, senseLength, 16), -1);
  EXPECT_EQ(op::op(false, io, 3, data, 512, 0, 0, false, false, 60, status, senseLength, 10), -1);
  device = Device();
  EXPECT_EQ(op::op(false, io, 3, data, 0, 512, 0, false, false, 60, status, senseLength, 10), 0);  // zero length
  // A negative offset or count addresses no block: refused, nothing sent.
  device = Device();
  errno = 0;
  EXPECT_EQ(op::op(false, io, 3, data, 512, 512, -512, false, false, 60, status, senseLength, 16), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(op::op(true, io, 3, data, -512, 512, 0, false, false, 60, status, senseLength, 16), -1);
  EXPECT_TRUE(device.cdb.empty());
}

TEST(SCSIPassThroughFailures, AFailedIoctlThrowsFromThePublicFormOnly) {
  const int fd = ::open("/dev/null", O_RDONLY);  // no SCSI behind it: ENOTTY
  sal::xio::scsi::IOControl io(false);
  char data[8];
  int length = 8, status = 0, senseLength = 0;
  auto e = QUOREL_EXPECT_THROW(io.executeFor(0, static_cast<sal::xio::i::id::type>(fd), 10, 1, data, length, status,
                                             senseLength),
                               sal::xio::Exception,
                               "device I/O control failed while attempting to send a SCSI CDB to device", 2, ENOTTY);
  EXPECT_EQ(io.impl().execute(0, static_cast<sal::xio::i::id::type>(fd), 10, 1, data, length, status, senseLength), 0);
  int failedStatus = 0;
  EXPECT_EQ(op::op(false, io.impl(), static_cast<sal::xio::i::id::type>(fd), data, 8, 8, 0, false, false, 1,
                   failedStatus, senseLength, 10),
            -1);
  {
    test::fault::Injection fail("ioctl", EIO);
    QUOREL_EXPECT_THROW(io.executeFor(0, 3, 10, 1, data, length, status, senseLength), sal::xio::Exception,
                        "device I/O control failed while attempting to send a SCSI CDB to device", 2, EIO);
  }
  ::close(fd);
}

}  // namespace
}  // namespace quorel
