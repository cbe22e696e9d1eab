// File characteristics of real block devices on the host: loop devices,
// whose SG_IO fails, so sizes come from the kernel requests. Needs root.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

#include "support/expect.h"

namespace quorel {
namespace {

// A loop device over a sparse file, detached and removed at the end;
// partitioned: with one partition from 1 MiB on, as devNUMp1.
class LoopDevice {
 public:
  explicit LoopDevice(const std::string& size, bool partitioned = false) {
    file_ = "/tmp/quorel-loop-" + std::to_string(::getpid()) + "-" + size;
    if (std::system(("truncate -s " + size + " " + file_).c_str()) != 0) return;
    if (partitioned && !writePartitionTable()) return;
    const std::string scan = partitioned ? "-P " : "";
    std::unique_ptr<FILE, int (*)(FILE*)> out(
        ::popen(("losetup -f --show " + scan + file_ + " 2>/dev/null").c_str(), "r"), ::pclose);
    char name[64] = {};
    if (out && std::fgets(name, sizeof name, out.get()) != nullptr) device_ = std::string(name, std::strcspn(name, "\n"));
  }
  ~LoopDevice() {
    if (!device_.empty()) std::system(("losetup -d " + device_).c_str());
    ::unlink(file_.c_str());
  }
  const std::string& device() const { return device_; }

 private:
  // A master boot record with one Linux partition of 8 MiB at sector 2048.
  bool writePartitionTable() const {
    unsigned char sector[512] = {};
    unsigned char* entry = sector + 446;
    entry[4] = 0x83;
    const unsigned int first = 2048, count = 16384;
    for (int i = 0; i < 4; ++i) {
      entry[8 + i] = static_cast<unsigned char>(first >> (8 * i));
      entry[12 + i] = static_cast<unsigned char>(count >> (8 * i));
    }
    sector[510] = 0x55;
    sector[511] = 0xaa;
    std::unique_ptr<FILE, int (*)(FILE*)> out(std::fopen(file_.c_str(), "r+"), std::fclose);
    return out && std::fwrite(sector, sizeof sector, 1, out.get()) == 1;
  }

  std::string file_;
  std::string device_;
};

#define REQUIRE_LOOP(loop)                                                                          \
  if ((loop).device().empty())                                                                      \
  GTEST_SKIP() << "no loop device could be set up here (needs root and /dev/loop-control): "        \
               << (::geteuid() == 0 ? "losetup failed" : "not running as root")

TEST(LoopDevice, SixtyFourMiBThroughTheKernelRequests) {
  LoopDevice loop("64M");
  REQUIRE_LOOP(loop);
  const sal::fs::Stat s(loop.device());
  EXPECT_EQ(s.type(), 5);
  EXPECT_TRUE(s.is(typeid(sal::fs::i::stat::type::UnixBlockDevice)));
  EXPECT_EQ(s.size(), 64u << 20);
  EXPECT_EQ(s.blockSize(), 512u);
  EXPECT_EQ(s.errorRC().rfind("device I/O control failed for SCSI Read Capacity (10) - system call error:", 0), 0u);
  EXPECT_TRUE(s.error().empty());
}

TEST(LoopDevice, EightGiBWrapsToZeroInTheKernelFallback) {
  LoopDevice loop("8G");
  REQUIRE_LOOP(loop);
  const sal::fs::Stat s(loop.device());
  EXPECT_EQ(s.blockSize(), 512u);
  EXPECT_EQ(s.size(), 0u);
}

TEST(LoopDevice, APartitionHasItsDisksQueueLimits) {
  LoopDevice loop("64M", true);
  REQUIRE_LOOP(loop);
  const std::string partition = loop.device() + "p1";
  for (int i = 0; i < 100 && ::access(partition.c_str(), F_OK) != 0; ++i) ::usleep(10000);
  if (::access(partition.c_str(), F_OK) != 0) GTEST_SKIP() << "the kernel made no " << partition << " here";
  const sal::fs::QueueLimits disk = sal::fs::QueueLimits::of(loop.device());
  const sal::fs::QueueLimits part = sal::fs::QueueLimits::of(partition);
  EXPECT_NE(std::make_pair(part.majorNumber(), part.minorNumber()),
            std::make_pair(disk.majorNumber(), disk.minorNumber()));
  EXPECT_EQ(disk.logicalBlockSize(), 512u);
  EXPECT_GT(disk.maxHardwareTransfer(), 0u);
  EXPECT_EQ(part.maxHardwareTransfer(), disk.maxHardwareTransfer());
  EXPECT_EQ(part.maxDiscard(), disk.maxDiscard());
  EXPECT_EQ(part.maxSegments(), disk.maxSegments());
}

TEST(LoopDevice, AnExclusiveOpenOfADeviceInUseIsRefusedWithEBUSY) {
  LoopDevice loop("8M");
  REQUIRE_LOOP(loop);
  sal::xio::fopen::Spec spec;
  spec.set<sal::xio::i::fopen::read::Enabled>().set<sal::xio::i::fopen::write::Enabled>();
  const sal::xio::Endpoint holder = sal::xio::Endpoint::adopt(sal::xio::fopen::openExclusive(loop.device(), spec),
                                                              sal::xio::open::Spec());
  QUOREL_EXPECT_THROW(sal::xio::fopen::openExclusive(loop.device(), spec), sal::xio::OpenException,
                      "::open('" + loop.device() + "', O_RDWR O_EXCL O_LARGEFILE F_SETFD=FD_CLOEXEC) failed", 2, EBUSY);
  // A plain open still succeeds beside the exclusive one.
  EXPECT_NE(sal::xio::Endpoint::open(loop.device(), spec).id(), sal::xio::i::id::kNone);
}

}  // namespace
}  // namespace quorel
