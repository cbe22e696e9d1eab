// Device tests on a real Linux SCSI stack, run inside the storage test bed
// (scripts/testbed): scsi_debug, a virtio-scsi disk and an AHCI disk behind
// libata's SCSI/ATA translation.
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <quorel/quorel.h>
#include <quorel/sal/impl/hostinfo.h>

namespace quorel {
namespace {

namespace fio = sal::xio::impl::fio;
using sal::xio::impl::scsi::IOControl;

std::string disk(const char* variable) {
  const char* value = std::getenv(variable);
  return value != nullptr ? value : "";
}

// The kernel's view of a disk's size in bytes.
unsigned long long kernelSize(const std::string& device) {
  std::ifstream in("/sys/block/" + device.substr(device.rfind('/') + 1) + "/size");
  unsigned long long sectors = 0;
  in >> sectors;
  return sectors * 512;
}

#define REQUIRE_DISK(path, variable) \
  const std::string path = disk(variable); \
  if (path.empty()) GTEST_SKIP() << variable << " is not set: no such disk in this machine"

TEST(TestBed, ReadCapacityMatchesTheKernelOnEveryDisk) {
  for (const char* variable : {"QUOREL_SCSI_DEBUG", "QUOREL_VIRTIO", "QUOREL_AHCI"}) {
    SCOPED_TRACE(variable);
    REQUIRE_DISK(path, variable);
    const sal::fs::Stat s(path);
    EXPECT_EQ(s.type(), 5);
    EXPECT_TRUE(s.errorRC().empty()) << s.errorRC();
    EXPECT_EQ(s.size(), kernelSize(path));
    EXPECT_EQ(s.sizeByRC(), kernelSize(path));
    EXPECT_EQ(s.blockSize(), 512u);
  }
}

class Disk : public ::testing::Test {
 protected:
  void open(const std::string& path) {
    fd_ = ::open(path.c_str(), O_RDWR);
    ASSERT_GE(fd_, 0) << path;
  }
  ~Disk() override {
    if (fd_ >= 0) ::close(fd_);
  }
  sal::xio::i::id::type id() const { return static_cast<sal::xio::i::id::type>(fd_); }
  int fd_ = -1;
};

TEST_F(Disk, ReadWriteRoundTripsOfTenAndSixteenByteCommands) {
  for (const char* variable : {"QUOREL_SCSI_DEBUG", "QUOREL_VIRTIO", "QUOREL_AHCI"}) {
    SCOPED_TRACE(variable);
    REQUIRE_DISK(path, variable);
    open(path);
    IOControl io(false);
    for (int cdbSize : {10, 16}) {
      std::vector<char> pattern(8192), back(8192);
      for (size_t i = 0; i < pattern.size(); ++i) pattern[i] = static_cast<char>(i * 7 + cdbSize);
      int status = -1, sense = -1;
      const long long offset = 1 << 20;
      EXPECT_EQ(fio::scsi::op(true, io, id(), pattern.data(), 8192, 512, offset, true, false, 60, status, sense, cdbSize),
                8192)
          << "status " << status << " sense " << sense;
      EXPECT_EQ(fio::scsi::op(false, io, id(), back.data(), 8192, 512, offset, false, false, 60, status, sense,
                              cdbSize),
                8192);
      EXPECT_EQ(pattern, back) << cdbSize;
    }
    ::close(fd_);
    fd_ = -1;
  }
}

TEST_F(Disk, UNMAPDiscardsAndTheBlocksReadBackAsZeros) {
  REQUIRE_DISK(path, "QUOREL_SCSI_DEBUG");
  open(path);
  IOControl io(false);
  std::vector<char> data(65536, 'u'), back(65536, 'x');
  int status = -1, sense = -1;
  ASSERT_EQ(fio::scsi::op(true, io, id(), data.data(), 65536, 512, 0, false, false, 60, status, sense, 16), 65536);
  EXPECT_EQ(fio::scsiUNMAPWithoutException(io, id(), 512, 0, 65536, 60, status, sense), 65536)
      << "status " << status << " " << sal::xio::scsi::sense::kcq::descriptionFrom(io.senseData());
  ASSERT_EQ(fio::scsi::op(false, io, id(), back.data(), 65536, 512, 0, false, false, 60, status, sense, 16), 65536);
  EXPECT_EQ(back, std::vector<char>(65536, 0));
}

TEST_F(Disk, TRIMThroughTheSATLayerDiscards) {
  REQUIRE_DISK(path, "QUOREL_AHCI");
  open(path);
  IOControl io(false);
  int status = -1, error = -1;
  // The emulated disk punches holes for discarded blocks: they read back as zeros.
  std::vector<char> pattern(65536, 't'), back(65536, 'x');
  ASSERT_EQ(fio::scsi::op(true, io, id(), pattern.data(), 65536, 512, 1 << 20, false, false, 60, status, error, 10),
            65536);
  EXPECT_EQ(fio::ataOnSCSITRIMWithoutException(io, id(), 512, 1 << 20, 70000LL * 512, 60, status, error),
            70000LL * 512)
      << "status 0x" << std::hex << status << " error 0x" << error;
  ASSERT_EQ(fio::scsi::op(false, io, id(), back.data(), 65536, 512, 1 << 20, false, false, 60, status, error, 10),
            65536);
  EXPECT_EQ(back, std::vector<char>(65536, 0));
  sal::xio::impl::ata::IOControl ata;
  EXPECT_EQ(fio::ataTRIMWithoutException(ata, id(), 512, 0, 4096, 60, status, error), 4096)
      << "status 0x" << std::hex << status << " error 0x" << error;
  EXPECT_EQ(status & 0x01, 0);
}

// scsi_debug's setting, from the module's parameters.
int scsiDebugParameter(const char* name) {
  std::ifstream in(std::string("/sys/module/scsi_debug/parameters/") + name);
  int value = 0;
  in >> value;
  return value;
}

TEST_F(Disk, ThirtyTwoByteCommandsOnATypeTwoProtectedDisk) {
  REQUIRE_DISK(path, "QUOREL_SCSI_DEBUG");
  if (scsiDebugParameter("dif") != 2) GTEST_SKIP() << "this machine's scsi_debug has no type-2 protection";
  const sal::fs::Stat s(path);
  EXPECT_EQ(s.blockSize(), 4096u);
  EXPECT_EQ(s.size(), kernelSize(path));
  open(path);
  IOControl io(false);
  std::vector<char> pattern(16384), back(16384);
  for (size_t i = 0; i < pattern.size(); ++i) pattern[i] = static_cast<char>(i * 13);
  int status = -1, sense = -1;
  EXPECT_EQ(fio::scsi::op(true, io, id(), pattern.data(), 16384, 4096, 8 * 4096, true, false, 60, status, sense, 32),
            16384)
      << "status " << status << " " << sal::xio::scsi::sense::kcq::descriptionFrom(io.senseData());
  EXPECT_EQ(fio::scsi::op(false, io, id(), back.data(), 16384, 4096, 8 * 4096, false, false, 60, status, sense, 32),
            16384);
  EXPECT_EQ(pattern, back);
}

TEST_F(Disk, ABadCommandComesBackAsCheckConditionWithItsSense) {
  REQUIRE_DISK(path, "QUOREL_SCSI_DEBUG");
  open(path);
  sal::xio::scsi::IOControl io(false);
  io.cdb()[0] = 0xFF;  // no such operation code
  char data[8];
  int length = 0, status = -1, senseLength = -1;
  io.executeFor(0, id(), 10, 60, data, length, status, senseLength);
  EXPECT_EQ(status, 2);
  ASSERT_GT(senseLength, 0);
  EXPECT_EQ(sal::xio::scsi::sense::kcq::descriptionFrom(io.senseData()),
            "05/20/00 (ILLEGAL REQUEST / INVALID COMMAND OPERATION CODE)");
}

// The identity from the SMBIOS strings the machine was given
// (QUOREL_EXPECT_FIRMWARE, with '_' for spaces).
TEST(Firmware, IdentityHoldsTheStringsGivenToTheMachineOnEveryPath) {
  const char* expected = std::getenv("QUOREL_EXPECT_FIRMWARE");
  if (expected == nullptr) GTEST_SKIP() << "this machine was given no firmware strings to expect";
  std::string identity(expected);
  for (char& c : identity) c = c == '_' ? ' ' : c;
  EXPECT_EQ(sal::hostinfo::env::id(), identity);
  namespace dmi = sal::impl::hostinfo::dmi;
  // With the sysfs entries hidden: the whole table, then the entry point in memory.
  EXPECT_EQ(dmi::identityOfHost("/nonexistent/", "/sys/firmware/dmi/tables/DMI", "/dev/mem"), identity);
  EXPECT_EQ(dmi::identityOfHost("/nonexistent/", "/nonexistent", "/dev/mem"), identity);
}

}  // namespace
}  // namespace quorel
