// Queue limits: a block device of the host against its sysfs attributes, and
// the paths and descriptors that have none.
#include <dirent.h>
#include <fcntl.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

#include "support/expect.h"
#include "support/fault.h"
#include "support/process.h"

namespace quorel {
namespace {

using sal::fs::QueueLimits;

// The first block device of the host with a node in /dev, or "".
std::string someBlockDevice() {
  DIR* directory = ::opendir("/sys/block");
  std::string found;
  if (directory == nullptr) return found;
  while (const dirent* entry = ::readdir(directory)) {
    const std::string node = std::string("/dev/") + entry->d_name;
    if (entry->d_name[0] != '.' && ::access(node.c_str(), F_OK) == 0) {
      found = node;
      break;
    }
  }
  ::closedir(directory);
  return found;
}

unsigned long long attribute(const std::string& device, const std::string& name) {
  std::ifstream in("/sys/block/" + device.substr(5) + "/queue/" + name);
  unsigned long long value = 0;
  in >> value;
  return value;
}

TEST(QueueLimits, ABlockDeviceShowsItsQueueByPathAndDescriptor) {
  const std::string device = someBlockDevice();
  if (device.empty()) GTEST_SKIP() << "this host shows no block device in /sys/block";
  const QueueLimits limits = QueueLimits::of(device);
  EXPECT_EQ(limits.logicalBlockSize(), attribute(device, "logical_block_size"));
  EXPECT_EQ(limits.physicalBlockSize(), attribute(device, "physical_block_size"));
  EXPECT_EQ(limits.maxTransfer(), attribute(device, "max_sectors_kb") * 1024);
  EXPECT_EQ(limits.maxHardwareTransfer(), attribute(device, "max_hw_sectors_kb") * 1024);
  EXPECT_EQ(limits.maxSegments(), attribute(device, "max_segments"));
  EXPECT_EQ(limits.maxDiscard(), attribute(device, "discard_max_bytes"));
  EXPECT_EQ(limits.maxDiscardSegments(), attribute(device, "max_discard_segments"));
  EXPECT_EQ(limits.discardGranularity(), attribute(device, "discard_granularity"));
  EXPECT_EQ(limits.maxWriteZeroes(), attribute(device, "write_zeroes_max_bytes"));

  const int fd = ::open(device.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) GTEST_SKIP() << device << " does not open here: " << std::strerror(errno);
  const QueueLimits same = QueueLimits::ofDescriptor(fd);
  ::close(fd);
  EXPECT_EQ(same.majorNumber(), limits.majorNumber());
  EXPECT_EQ(same.minorNumber(), limits.minorNumber());
  EXPECT_EQ(same.maxHardwareTransfer(), limits.maxHardwareTransfer());
}

TEST(QueueLimits, WhatIsNoBlockDeviceOrHasNoQueueThrows) {
  const int before = test::openDescriptorCount();
  QUOREL_EXPECT_THROW(QueueLimits::of("/nonexistent/quorel"), sal::fs::StatException,
                      "::stat('/nonexistent/quorel') failed", 2, ENOENT);
  QUOREL_EXPECT_THROW(QueueLimits::of("/dev/null"), sal::fs::StatException, "'/dev/null' is not a block device", 0,
                      ENOTBLK);
  QUOREL_EXPECT_THROW(QueueLimits::ofDescriptor(-1), sal::fs::StatException, "::fstat(-1) failed", 2, EBADF);
  const int null = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  QUOREL_EXPECT_THROW(QueueLimits::ofDescriptor(null), sal::fs::StatException,
                      "descriptor " + std::to_string(null) + " is not a block device", 0, ENOTBLK);
  ::close(null);

  // A queue attribute that cannot be read; its descriptor is closed.
  const std::string device = someBlockDevice();
  if (!device.empty()) {
    const QueueLimits limits = QueueLimits::of(device);
    const std::string queue = "/sys/dev/block/" + std::to_string(limits.majorNumber()) + ":" +
                              std::to_string(limits.minorNumber()) + "/queue/";
    QUOREL_EXPECT_THROW(
        {
          test::fault::Injection fail("read", EIO);
          QueueLimits::of(device);
        },
        sal::fs::StatException, "::read('" + queue + "logical_block_size') failed", 2, EIO);
    QUOREL_EXPECT_THROW(
        {
          test::fault::Injection fail("open", EACCES, 3);
          QueueLimits::of(device);
        },
        sal::fs::StatException, "::open('" + queue + "max_sectors_kb') failed", 2, EACCES);
  }
  EXPECT_EQ(test::openDescriptorCount(), before);
}

}  // namespace
}  // namespace quorel
