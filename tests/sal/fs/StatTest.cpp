// File characteristics: files, directories, and devices answered by a
// stand-in for SG_IO and the block-device requests.
#include <fcntl.h>
#include <linux/fs.h>
#include <scsi/sg.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <typeinfo>
#include <utility>

#include <gtest/gtest.h>

#include <quorel/quorel.h>
#include <quorel/util/impl/typeName.h>

#include "support/expect.h"
#include "support/fault.h"

namespace quorel {
namespace {

using sal::fs::Stat;
namespace tag = sal::fs::i::stat;

TEST(Stat, MissingPathsDirectoriesAndFiles) {
  const Stat missing("/nonexistent/quorel");
  EXPECT_FALSE(missing.exists());
  EXPECT_TRUE(missing.is(typeid(tag::type::Undefined)));

  const std::string path = "/tmp/quorel-stat-" + std::to_string(::getpid());
  const int fd = ::open(path.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0400);
  ASSERT_EQ(::write(fd, std::string(1234, 'x').data(), 1234), 1234);
  ::close(fd);
  Stat file(path);
  ::unlink(path.c_str());
  EXPECT_EQ(file.type(), 2);
  EXPECT_EQ(file.size(), 1234u);
  EXPECT_TRUE(file.is(typeid(tag::access::read::Enabled)));
  EXPECT_TRUE(file.is(typeid(tag::access::write::Disabled)));  // the owner's bits, even for root
  file.resetFor("/tmp");
  EXPECT_EQ(file.size(), 0u);
  EXPECT_TRUE(file.is(typeid(tag::type::Directory)));
}

TEST(Stat, UnsupportedQueryAttributesAndFailedCallsThrow) {
  const Stat directory("/tmp");
  QUOREL_EXPECT_THROW(directory.is(typeid(std::string)), sal::fs::StatException,
                      util::impl::demangledNameOf(typeid(std::string)) + " is not a supported query attribute", 0, 0);
  // Tags of other families are named as the caller wrote them.
  namespace x = sal::xio::i;
  const std::pair<const std::type_info*, const char*> tags[] = {
      {&typeid(x::fopen::posix::user::write::Disabled), "fopen::posix::user::write::Disabled"},
      {&typeid(x::mux::scsi::rw16), "mux::scsi::rw16"},
  };
  for (const auto& named : tags) {
    QUOREL_EXPECT_THROW(directory.is(*named.first), sal::fs::StatException,
                        std::string("quorel::sal::xio::i::") + named.second + " is not a supported query attribute", 0, 0);
  }
  QUOREL_EXPECT_FAULT("open64", EACCES, Stat("/tmp"), sal::fs::StatException, "::open('/tmp') failed", 2, EACCES);
  QUOREL_EXPECT_FAULT("fstat64", EIO, Stat("/tmp"), sal::fs::StatException,
                      "::stat('/tmp') failed while trying todetermine the file characterstics", 2, EIO);
}

TEST(Stat, CharacterDeviceWithoutSCSIFallsBackAndKeepsEveryText) {
  const Stat null("/dev/null");
  EXPECT_TRUE(null.is(typeid(tag::type::UnixCharacterDevice)));
  EXPECT_TRUE(null.is(typeid(tag::type::Device)));
  EXPECT_EQ(null.readAccess(), 0);  // devices get no access flags
  const std::string enotty = std::to_string(ENOTTY) + " (" + std::strerror(ENOTTY) + ")";
  EXPECT_EQ(null.errorRC(), "device I/O control failed for SCSI Read Capacity (10) - system call error:" + enotty);
  EXPECT_EQ(null.errorRC16(), "device I/O control failed for SCSI Read Capacity (16) - system call error:" + enotty);
  EXPECT_EQ(null.error(), std::string("::ioctl(BLKSSZGET) failed: ") + std::strerror(ENOTTY));
  EXPECT_EQ(null.size(), 0u);
}

// A device answering READ CAPACITY and the block-device requests as a test sets it up.
struct FakeDisk {
  int calls10 = 0, calls16 = 0;
  int fail10 = 0;  // first tries of (10) that answer BUSY
  bool reject = false;  // CHECK CONDITION with ILLEGAL REQUEST for both
  unsigned long long last10 = 0x3FF, last16 = 0x3FF;
  unsigned int block10 = 512, block16 = 512;
  unsigned long sectors = 16777216;  // 8 GiB of 512-byte sectors
  int sizeError = 0;                 // BLKGETSIZE fails with this
} disk;

void put(unsigned char* at, unsigned long long value, int bytes) {
  for (int i = bytes - 1; i >= 0; --i, value >>= 8) at[i] = static_cast<unsigned char>(value);
}

int fakeDisk(int, unsigned long request, void* argument) {
  if (request == BLKSSZGET) {
    *static_cast<int*>(argument) = 512;
    return 0;
  }
  if (request == BLKGETSIZE) {
    if (disk.sizeError != 0) {
      errno = disk.sizeError;
      return -1;
    }
    *static_cast<unsigned long*>(argument) = disk.sectors;
    return 0;
  }
  sg_io_hdr& h = *static_cast<sg_io_hdr*>(argument);
  unsigned char* data = static_cast<unsigned char*>(h.dxferp);
  h.status = 0;
  h.sb_len_wr = 0;
  h.resid = 0;
  const bool ten = h.cmdp[0] == 0x25;
  ten ? ++disk.calls10 : ++disk.calls16;
  if (disk.reject || (ten && disk.calls10 <= disk.fail10)) {
    h.status = disk.reject ? 2 : 8;
    if (disk.reject) {
      std::memset(h.sbp, 0, 18);
      h.sbp[0] = 0x70;
      h.sbp[2] = 0x05;
      h.sbp[7] = 10;
      h.sbp[12] = 0x20;
      h.sb_len_wr = 18;
    }
    return 0;
  }
  if (ten) {
    put(data, disk.last10, 4);
    put(data + 4, disk.block10, 4);
  } else {
    put(data, disk.last16, 8);
    put(data + 8, disk.block16, 4);
  }
  return 0;
}

class FakeDevice : public ::testing::Test {
 protected:
  FakeDevice() : standIn_("ioctl", reinterpret_cast<void*>(&fakeDisk)) { disk = FakeDisk(); }
  test::fault::StandIn standIn_;
};

TEST_F(FakeDevice, ReadCapacity10IsEnoughForSmallDisksAndInvalidAddressesMoveOnTo16) {
  const Stat s("/dev/null");
  EXPECT_EQ(s.size(), 0x400u * 512);
  EXPECT_EQ(s.blockSize(), 512u);
  EXPECT_EQ(disk.calls16, 0);

  // Invalid last addresses move on to READ CAPACITY (16).
  disk.last10 = 0xFFFFFFFF;
  disk.last16 = 0x1FFFFFFFFULL;
  disk.block16 = 4096;
  const Stat big("/dev/null");
  EXPECT_EQ(big.errorRC(), "SCSI Read Capacity (10) returned an invalid last LBA");
  EXPECT_EQ(big.size(), 0x200000000ULL * 4096);
  EXPECT_EQ(big.blockSizeByRC16(), 4096u);
  disk = FakeDisk();
  disk.last10 = 0;
  disk.block10 = 0;
  disk.last16 = ~0ULL;
  disk.block16 = 0;
  const Stat bad("/dev/null");
  EXPECT_EQ(bad.errorRC(), "SCSI Read Capacity (10) returned block size of 0 and an invalid last LBA");
  EXPECT_EQ(bad.errorRC16(), "SCSI Read Capacity (16) returned block size of 0 and an invalid last LBA");
}

TEST_F(FakeDevice, EachCommandIsTriedTwiceAndRejectedOnesFallBackToTheKernelWithItsWrap) {
  disk.fail10 = 1;
  EXPECT_TRUE(Stat("/dev/null").errorRC().empty());
  disk = FakeDisk();
  disk.fail10 = 2;
  const Stat busy("/dev/null");
  EXPECT_EQ(disk.calls10, 2);
  EXPECT_EQ(busy.errorRC(), "SCSI Read Capacity (10) failed - SCSI CDB error:0x08 (BUSY)");
  EXPECT_EQ(busy.sizeByRC16(), 0x400u * 512);

  // Rejected commands fall back to the kernel, with its wrap.
  disk = FakeDisk();
  disk.reject = true;
  const Stat rejected("/dev/null");
  EXPECT_EQ(disk.calls10, 2);
  EXPECT_EQ(disk.calls16, 2);
  EXPECT_EQ(rejected.errorRC(),
            "SCSI Read Capacity (10) failed - SCSI CDB error:0x02 (CHECK CONDITION) KCQ:0x05/20/00 (ILLEGAL REQUEST / "
            "INVALID COMMAND OPERATION CODE) sense data:70000500 0000000A 00000000 20000000 0000");
  EXPECT_EQ(rejected.errorRC16().rfind("SCSI Read Capacity (16) failed - ", 0), 0u);
  EXPECT_EQ(rejected.blockSize(), 512u);
  EXPECT_EQ(rejected.size(), 0u);  // 8 GiB wraps to 0 in 32 bits
  disk.sectors = 131072;
  const Stat small("/dev/null");
  EXPECT_EQ(small.size(), 64u << 20);
  disk.sizeError = EFBIG;  // what a 32-bit caller gets for a very large device
  const Stat large("/dev/null");
  EXPECT_EQ(large.error(), std::string("::ioctl(BLKGETSIZE) failed: ") + std::strerror(EFBIG));
  EXPECT_EQ(large.size(), 0u);
}

}  // namespace
}  // namespace quorel
