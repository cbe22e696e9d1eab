// NVMe pass-through on QEMU's NVMe controller inside the storage test bed:
// Identify against the machine's settings, data written and read back and
// seen in the disk's image on the host, deallocations that punch holes there,
// a status the controller returns, and the NVMe dispatcher. The test program
// is a 32-bit one on a 64-bit kernel: every command goes through the
// kernel's compat ioctl path.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

namespace quorel {
namespace {

namespace nvme = sal::xio::nvme;
namespace xio = sal::xio;

std::string variable(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

#define REQUIRE_NVME()                                                                       \
  const std::string path = variable("QUOREL_NVME"), image = variable("QUOREL_NVME_IMAGE");   \
  if (path.empty()) GTEST_SKIP() << "QUOREL_NVME is not set: no NVMe disk in this machine"

// Page-aligned memory (direct transfers need no bounce buffer then).
class Memory {
 public:
  explicit Memory(std::size_t size) : data_(static_cast<char*>(sal::vm::allocate(size))), size_(size) {}
  ~Memory() { sal::vm::deallocate(data_); }
  char* data() const { return data_; }
  std::vector<char> copy() const { return std::vector<char>(data_, data_ + size_); }

 private:
  char* data_;
  std::size_t size_;
};

void fill(char* at, std::size_t size, int seed) {
  for (std::size_t n = 0; n < size; ++n) at[n] = static_cast<char>(n * 13 + seed + n / 4096);
}

// What the host's image file holds at offset (read through the machine's
// uncached view of it).
std::vector<char> imageAt(const std::string& image, std::size_t size, long long offset) {
  std::vector<char> data(size);
  const int fd = ::open(image.c_str(), O_RDONLY);
  if (fd < 0 || ::pread64(fd, data.data(), size, offset) != static_cast<ssize_t>(size)) data.clear();
  if (fd >= 0) ::close(fd);
  return data;
}

// The image's allocated bytes.
long long allocated(const std::string& image) {
  struct stat64 status;
  return ::stat64(image.c_str(), &status) == 0 ? static_cast<long long>(status.st_blocks) * 512 : -1;
}

TEST(Nvme, IdentifyGivesTheMachinesControllerAndNamespace) {
  REQUIRE_NVME();
  nvme::Device disk(path);
  EXPECT_EQ(disk.namespaceID(), 1u);
  const nvme::Controller c = disk.identifyController();
  EXPECT_EQ(c.serial, "quorel-nvme-0");
  EXPECT_EQ(c.model, "QEMU NVMe Ctrl");
  EXPECT_FALSE(c.firmware.empty());
  EXPECT_EQ(c.maxTransfer(), 512u * 1024);  // MDTS 7
  const nvme::Namespace n = disk.identifyNamespace();
  EXPECT_EQ(n.bytes(), 2ULL << 30);
  EXPECT_EQ(n.blockSize, 512u);
  EXPECT_EQ(n.metadataSize, 0u);
  EXPECT_EQ(disk.size(), 2ULL << 30);
  EXPECT_EQ(disk.maxTransfer(), 512u * 1024);  // MDTS and max_hw_sectors_kb agree
  EXPECT_GT(disk.health().temperature, 273);

  // The controller node takes admin commands and knows no namespace of its own.
  nvme::Device controller(variable("QUOREL_NVME_CONTROLLER"));
  EXPECT_EQ(controller.namespaceID(), 0u);
  EXPECT_EQ(controller.identifyController().serial, "quorel-nvme-0");
  EXPECT_EQ(controller.identifyNamespace(1).size, n.size);
}

// A 32-bit program's commands go through the 64-bit kernel's compat path:
// the pointers, the 64-bit result and the status come back right.
TEST(Nvme, CommandsOfA32BitProgramComeBackWholeThroughTheCompatPath) {
  REQUIRE_NVME();
  utsname names;
  ASSERT_EQ(::uname(&names), 0);
  RecordProperty("path", sizeof(void*) == 4 && std::string(names.machine) == "x86_64" ? "compat" : "native");
  nvme::Device disk(path);
  nvme::Command queues;  // Get Features, Number of Queues: the counts in dword 0
  queues.opcode = 0x0A;
  queues.cdw10 = 0x07;
  EXPECT_EQ(disk.submit(nvme::i::queue::Admin(), queues), 0);
  EXPECT_NE(queues.result & 0xffff, 0u);

  nvme::Command unknown;  // an opcode no command set defines
  unknown.opcode = 0xFF;
  unknown.nsid = disk.namespaceID();
  const int status = disk.submit(nvme::i::queue::IO(), unknown);
  EXPECT_STREQ(nvme::status::descriptionFor(status), "Invalid Command Opcode");
  EXPECT_EQ(nvme::status::asString(status), "Invalid Command Opcode (status type 0, code 0x01, do not retry)");

  Memory buffer(4096);
  nvme::Command past;  // a Read past the namespace's end, which the library would refuse
  past.opcode = 0x02;
  past.nsid = disk.namespaceID();
  past.cdw10 = 1u << 22;
  past.cdw12 = 7;
  past.data = buffer.data();
  past.length = 4096;
  EXPECT_EQ(nvme::status::asString(disk.submit(nvme::i::queue::IO(), past)),
            "LBA Out of Range (status type 0, code 0x80, do not retry)");
}

TEST(Nvme, WritesReadBackAndReachTheImageFile) {
  REQUIRE_NVME();
  nvme::Device disk(path, nvme::i::open::ReadWrite());
  const std::size_t size = 3 << 20;  // six commands and more
  const long long offset = 256LL << 20;
  Memory data(size), back(size);
  fill(data.data(), size, 1);
  EXPECT_EQ(disk.writeAt(data.data(), size, offset), 7u);
  disk.flush();
  EXPECT_EQ(disk.readAt(back.data(), size, offset), 7u);
  EXPECT_EQ(back.copy(), data.copy());
  EXPECT_EQ(imageAt(image, size, offset), data.copy());

  // Memory never written is the kernel's zero page over and over: each page
  // its own segment, and 512 KiB would be 128 of them, one more than the
  // queue takes (the kernel answers EINVAL). 127 pages per command fit.
  Memory zeros(size);
  EXPECT_EQ(disk.writeAt(zeros.data(), size, offset), 7u);
  EXPECT_EQ(imageAt(image, size, offset), std::vector<char>(size, 0));
}

TEST(Nvme, DeallocationsPunchHolesInTheImageFile) {
  REQUIRE_NVME();
  nvme::Device disk(path, nvme::i::open::ReadWrite());
  Memory data(1 << 20);
  fill(data.data(), 1 << 20, 2);
  const long long small = 512LL << 20, large = 1LL << 30;
  disk.writeAt(data.data(), 1 << 20, small);
  for (int n = 0; n < 8; ++n) disk.writeAt(data.data(), 1 << 20, large + (n << 26));
  disk.flush();
  const long long before = allocated(image);

  EXPECT_EQ(disk.discard(small, 1 << 20), 1u);
  const long long afterOne = allocated(image);
  EXPECT_LE(afterOne, before - (1 << 20));
  EXPECT_EQ(imageAt(image, 1 << 20, small), std::vector<char>(1 << 20, 0));

  // 1 GiB through the dispatcher: one command (discard_max_bytes is 2 GiB - 512).
  struct Released : xio::AHandler {
    void on(xio::i::op::Read, int, xio::Request&) override {}
    void on(xio::i::op::Write, int r, xio::Request&) override { result = r; }
    void on(xio::AIOCompletionException&, xio::Request&) override {}
    void on(xio::AIORequestException&, xio::Request&) override {}
    void on(xio::AIOCancellationException&, xio::Request&) override {}
    void on(xio::ReadException& e, xio::Request&) override { failure = e.asString(); }
    void on(xio::WriteException& e, xio::Request&) override { failure = e.asString(); }
    int result = 0;
    std::string failure;
  } handler;
  xio::Dispatcher dispatcher = xio::Dispatcher::createNVMe(disk, nvme::i::op::Deallocate());
  std::unique_ptr<xio::Request> request(dispatcher.newRequestFor(&handler, disk.endpoint()));
  request->submit(xio::i::op::Write(), nullptr, 1 << 30, large);
  dispatcher.wait();
  EXPECT_EQ(handler.result, 1 << 30) << handler.failure;
  EXPECT_LE(allocated(image), afterOne - (8 << 20));
}

TEST(Nvme, TheDispatcherReads8MiBInCommandsTheQueueTakes) {
  REQUIRE_NVME();
  nvme::Device disk(path, nvme::i::open::ReadWrite());
  const int size = 8 << 20;
  const long long offset = 64LL << 20;
  Memory data(size), back(size);
  fill(data.data(), size, 3);
  disk.writeAt(data.data(), size, offset);
  struct Reads : xio::AHandler {
    void on(xio::i::op::Read, int r, xio::Request&) override { result = r; }
    void on(xio::i::op::Write, int, xio::Request&) override {}
    void on(xio::AIOCompletionException&, xio::Request&) override {}
    void on(xio::AIORequestException&, xio::Request&) override {}
    void on(xio::AIOCancellationException&, xio::Request&) override {}
    void on(xio::ReadException& e, xio::Request&) override { failure = e.why(); }
    void on(xio::WriteException& e, xio::Request&) override { failure = e.why(); }
    int result = 0;
    std::string failure;
  } handler;
  xio::Dispatcher dispatcher = xio::Dispatcher::createNVMe(disk);
  std::unique_ptr<xio::Request> request(dispatcher.newRequestFor(&handler, disk.endpoint()));
  request->submit(xio::i::op::Read(), back.data(), size, offset);
  dispatcher.wait();
  EXPECT_EQ(handler.result, size) << handler.failure;
  EXPECT_EQ(back.copy(), data.copy());

  // A request past the end reaches the handler, refused.
  request->submit(xio::i::op::Read(), back.data(), 4096, 2LL << 30);
  dispatcher.wait();
  EXPECT_EQ(handler.failure,
            "NVMe Read refused: blocks 4194304 to 4194311 reach past the namespace's last block (4194303)");
}

// Exclusive opens: a second one fails with EBUSY while the first holds the node.
TEST(Nvme, AnExclusiveHolderKeepsOthersFromOpeningExclusively) {
  REQUIRE_NVME();
  nvme::Device holder(path, nvme::i::open::Exclusive());
  try {
    nvme::Device second(path, nvme::i::open::Exclusive());
    ADD_FAILURE() << "a second exclusive open succeeded";
  } catch (const xio::OpenException& e) {
    EXPECT_EQ(e.why(), "::open('" + path + "', O_RDWR O_EXCL O_CLOEXEC) failed");
    EXPECT_EQ(e.code(), EBUSY);
  }
}

}  // namespace
}  // namespace quorel
