// File characteristics of real block devices on the host: loop devices,
// whose SG_IO fails, so sizes come from the kernel requests. Needs root.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

namespace quorel {
namespace {

// A loop device over a sparse file, detached and removed at the end.
class LoopDevice {
 public:
  explicit LoopDevice(const std::string& size) {
    file_ = "/tmp/quorel-loop-" + std::to_string(::getpid()) + "-" + size;
    if (std::system(("truncate -s " + size + " " + file_).c_str()) != 0) return;
    std::unique_ptr<FILE, int (*)(FILE*)> out(::popen(("losetup -f --show " + file_ + " 2>/dev/null").c_str(), "r"),
                                              ::pclose);
    char name[64] = {};
    if (out && std::fgets(name, sizeof name, out.get()) != nullptr) device_ = std::string(name, std::strcspn(name, "\n"));
  }
  ~LoopDevice() {
    if (!device_.empty()) std::system(("losetup -d " + device_).c_str());
    ::unlink(file_.c_str());
  }
  const std::string& device() const { return device_; }

 private:
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

}  // namespace
}  // namespace quorel
