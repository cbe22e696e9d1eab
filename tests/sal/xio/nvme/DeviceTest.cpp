// NVMe pass-through against a stand-in controller: the ioctls and the
// commands they carry, the fallback to the older ioctls, status decoding,
// refusals, splitting to the queue's limits and the NVMe dispatcher.
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/nvme_ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

#include "support/expect.h"
#include "support/fault.h"
#include "support/process.h"

namespace quorel {
namespace {

namespace nvme = sal::xio::nvme;
namespace xio = sal::xio;

// One request the stand-in saw.
struct Sent {
  unsigned long request;
  nvme_passthru_cmd64 command;
  std::vector<unsigned char> data;  // what a Dataset Management command carried
};

// The controller behind the stand-in ioctl, with one namespace, and the
// queue attributes the kernel would show for it.
struct Controller {
  int nsid = 1;           // 0: a controller node (NVME_IOCTL_ID answers ENOTTY)
  bool block = true;      // the node's type
  bool old = false;       // a kernel that answers the 64-bit-result requests with ENOTTY
  int error = 0;          // the errno every pass-through request fails with
  int status = 0;         // the status I/O commands complete with
  unsigned long long blocks = 1ULL << 22;
  unsigned int shift = 9;
  unsigned int metadata = 0;
  unsigned char mdts = 7;
  std::map<std::string, std::string> queue{{"logical_block_size", "512"},     {"physical_block_size", "512"},
                                           {"max_sectors_kb", "512"},         {"max_hw_sectors_kb", "512"},
                                           {"max_segments", "127"},           {"discard_max_bytes", "2147483136"},
                                           {"max_discard_segments", "256"},   {"discard_granularity", "512"},
                                           {"write_zeroes_max_bytes", "524288"}};
  std::vector<Sent> sent;
} controller;

ino_t nodeInode = 0;            // the scratch file that plays the node
std::string queueDirectory;     // its queue attributes, as files
const unsigned kMajor = 4095, kMinor = 4095;

void store(std::string& data, std::size_t at, unsigned long long value, int bytes) {
  for (int i = 0; i < bytes; ++i) data[at + i] = static_cast<char>(value >> (8 * i));
}

template <class C>
int answer(unsigned long request, C& c) {
  Sent sent{request, {}, {}};
  std::memcpy(&sent.command, &c, sizeof c);
  if (controller.error != 0) {
    controller.sent.push_back(sent);
    errno = controller.error;
    return -1;
  }
  char* data = reinterpret_cast<char*>(static_cast<std::uintptr_t>(c.addr));
  const bool admin = request == NVME_IOCTL_ADMIN_CMD || request == NVME_IOCTL_ADMIN64_CMD;
  c.result = static_cast<decltype(c.result)>(0x1122334455667788ULL);
  int status = 0;
  if (admin && c.opcode == 0x06) {
    std::string d(4096, '\0');
    if (c.cdw10 == 1) {
      d.replace(4, 20, "quorel-fake-0       ");
      d.replace(24, 40, std::string("Fake NVMe Ctrl") + std::string(26, ' '));
      d.replace(64, 8, "1.0     ");
      d[77] = static_cast<char>(controller.mdts);
      store(d, 516, 1, 4);
      store(d, 520, 0x0C, 2);
    } else {
      store(d, 0, controller.blocks, 8);
      store(d, 8, controller.blocks, 8);
      store(d, 128, controller.metadata | controller.shift << 16, 4);
    }
    std::memcpy(data, d.data(), 4096);
  } else if (admin && c.opcode == 0x02) {
    std::string d(512, '\0');
    d[0] = 0x04;
    store(d, 1, 310, 2);
    store(d, 32, 1234, 8);
    store(d, 48, 1, 8);
    store(d, 56, 1, 8);  // more than 64 bits
    store(d, 128, 42, 8);
    std::memcpy(data, d.data(), 512);
  } else {
    if (c.opcode == 0x09) sent.data.assign(data, data + c.data_len);
    status = controller.status;
  }
  controller.sent.push_back(sent);
  return status;
}

int standInIoctl(int, unsigned long request, void* argument) {
  switch (request) {
    case NVME_IOCTL_ID:
      if (controller.nsid > 0) return controller.nsid;
      errno = ENOTTY;
      return -1;
    case NVME_IOCTL_ADMIN64_CMD:
    case NVME_IOCTL_IO64_CMD:
      if (controller.old) {
        controller.sent.push_back(Sent{request, {}, {}});
        errno = ENOTTY;
        return -1;
      }
      return answer(request, *static_cast<nvme_passthru_cmd64*>(argument));
    case NVME_IOCTL_ADMIN_CMD:
    case NVME_IOCTL_IO_CMD:
      return answer(request, *static_cast<nvme_passthru_cmd*>(argument));
    default:
      errno = ENOTTY;
      return -1;
  }
}

// The scratch file reads as a block (or character) device of the fake numbers.
int standInFstat(int fd, struct stat64* status) {
  static auto real = reinterpret_cast<int (*)(int, struct stat64*)>(::dlsym(RTLD_NEXT, "fstat64"));
  const int result = real(fd, status);
  if (result == 0 && status->st_ino == nodeInode) {
    status->st_mode = (controller.block ? S_IFBLK : S_IFCHR) | 0660;
    status->st_rdev = makedev(kMajor, kMinor);
  }
  return result;
}

// The fake device's queue attributes come from files of the scratch directory.
int standInOpen(const char* path, int flags, int mode) {
  static auto real = reinterpret_cast<int (*)(const char*, int, ...)>(::dlsym(RTLD_NEXT, "open"));
  const std::string prefix = "/sys/dev/block/" + std::to_string(kMajor) + ":" + std::to_string(kMinor) + "/queue/";
  const std::string name(path);
  if (name.compare(0, prefix.size(), prefix) == 0) {
    return real((queueDirectory + "/" + name.substr(prefix.size())).c_str(), flags, mode);
  }
  return real(path, flags, mode);
}

class NVMe : public ::testing::Test {
 protected:
  NVMe()
      : ioctl_("ioctl", reinterpret_cast<void*>(&standInIoctl)),
        fstat_("fstat64", reinterpret_cast<void*>(&standInFstat)),
        open_("open", reinterpret_cast<void*>(&standInOpen)) {
    controller = Controller();
    char directory[] = "/tmp/quorel-nvme-XXXXXX";
    queueDirectory = ::mkdtemp(directory);
    node_ = queueDirectory + "/node";
    std::ofstream(node_.c_str()) << "";
    struct stat64 status;
    ::stat64(node_.c_str(), &status);
    nodeInode = status.st_ino;
  }
  ~NVMe() override { std::filesystem::remove_all(queueDirectory); }

  // A device on the scratch node with the queue attributes as they stand.
  nvme::Device open() {
    for (const auto& attribute : controller.queue) {
      std::ofstream(queueDirectory + "/" + attribute.first) << attribute.second << "\n";
    }
    return nvme::Device(node_, nvme::i::open::ReadWrite());
  }
  // The I/O commands sent so far (identify commands aside).
  std::vector<Sent> io() const {
    std::vector<Sent> commands;
    for (const Sent& s : controller.sent) {
      if (s.request == NVME_IOCTL_IO64_CMD || s.request == NVME_IOCTL_IO_CMD) commands.push_back(s);
    }
    return commands;
  }

  std::string node_;
  test::fault::StandIn ioctl_;
  test::fault::StandIn fstat_;
  test::fault::StandIn open_;
};

TEST(NVMeStatus, DecodesTypeCodeAndTheRetryBits) {
  namespace status = nvme::status;
  EXPECT_EQ(status::asString(0x4002), "Invalid Field in Command (status type 0, code 0x02, do not retry)");
  EXPECT_EQ(status::asString(0x0001), "Invalid Command Opcode (status type 0, code 0x01)");
  EXPECT_EQ(status::asString(0x2880), "LBA Out of Range (status type 0, code 0x80, retry delay 1, more)");
  EXPECT_STREQ(status::descriptionFor(0x0109), "Invalid Log Page");
  EXPECT_STREQ(status::descriptionFor(0x0183), "Command Size Limit Exceeded");
  EXPECT_STREQ(status::descriptionFor(0x0281), "Unrecovered Read Error");
  EXPECT_STREQ(status::descriptionFor(0x0371), "Command Aborted By Host");
  EXPECT_STREQ(status::descriptionFor(0x00C5), "Vendor Specific");
  EXPECT_STREQ(status::descriptionFor(0x0701), "Vendor Specific");
  EXPECT_STREQ(status::descriptionFor(0x0017), "Reserved");
  EXPECT_STREQ(status::descriptionFor(0x0401), "Reserved");
  EXPECT_STREQ(status::typeDescriptionFor(2), "Media and Data Integrity Errors");
}

TEST_F(NVMe, IdentifiesTheControllerTheNamespaceAndItsHealth) {
  nvme::Device device = open();
  EXPECT_EQ(device.namespaceID(), 1u);
  const nvme::Controller c = device.identifyController();
  EXPECT_EQ(c.serial, "quorel-fake-0");
  EXPECT_EQ(c.model, "Fake NVMe Ctrl");
  EXPECT_EQ(c.firmware, "1.0");
  EXPECT_EQ(c.maxTransfer(), 512u * 1024);
  EXPECT_TRUE(c.supportsDatasetManagement());
  const nvme::Namespace n = device.identifyNamespace();
  EXPECT_EQ(n.size, 1ULL << 22);
  EXPECT_EQ(n.blockSize, 512u);
  EXPECT_EQ(n.bytes(), 2ULL << 30);
  const nvme::Health h = device.health();
  EXPECT_EQ(h.criticalWarning, 4);
  EXPECT_EQ(h.temperature, 310);
  EXPECT_EQ(h.dataUnitsRead, 1234u);
  EXPECT_EQ(h.dataUnitsWritten, ~0ULL);  // past 64 bits
  EXPECT_EQ(h.powerOnHours, 42u);
  const nvme_passthru_cmd64& log = controller.sent.back().command;
  EXPECT_EQ(log.opcode, 0x02);
  EXPECT_EQ(log.nsid, 0xFFFFFFFFu);
  EXPECT_EQ(log.cdw10, 0x007F0002u);  // SMART / health, 128 dwords
  EXPECT_EQ(log.data_len, 512u);
}

// A kernel before 5.3 answers the 64-bit-result requests with ENOTTY: the
// command goes again through the older request, and later ones go there at once.
TEST_F(NVMe, FallsBackToTheOlderRequestsOnceTheKernelAnswersENOTTY) {
  controller.old = true;
  nvme::Device device = open();
  nvme::Command command;
  command.opcode = 0x06;
  command.cdw10 = 1;
  std::vector<char> data(4096);
  command.data = data.data();
  command.length = 4096;
  EXPECT_EQ(device.submit(nvme::i::queue::Admin(), command), 0);
  EXPECT_EQ(command.result, 0x55667788u);  // the older request's 32 bits
  ASSERT_EQ(controller.sent.size(), 2u);
  EXPECT_EQ(controller.sent[0].request, static_cast<unsigned long>(NVME_IOCTL_ADMIN64_CMD));
  EXPECT_EQ(controller.sent[1].request, static_cast<unsigned long>(NVME_IOCTL_ADMIN_CMD));
  std::vector<char> buffer(4096);
  device.read(8, 8, buffer.data());
  ASSERT_EQ(controller.sent.back().request, static_cast<unsigned long>(NVME_IOCTL_IO_CMD));
  for (const Sent& s : controller.sent) EXPECT_NE(s.request, static_cast<unsigned long>(NVME_IOCTL_IO64_CMD));

  // On a kernel that knows them, the 64-bit result comes back whole.
  controller = Controller();
  nvme::Device current = open();
  EXPECT_EQ(current.submit(nvme::i::queue::Admin(), command), 0);
  EXPECT_EQ(command.result, 0x1122334455667788ULL);
  EXPECT_EQ(controller.sent.size(), 1u);
}

TEST_F(NVMe, CommandsCarryTheirFieldsTheTimeOutAndZeroExtendedAddresses) {
  controller.blocks = 1ULL << 42;
  nvme::Device device = open();
  device.setTimeout(1500);
  std::vector<char> buffer(4096);
  device.write((1ULL << 32) + 7, 8, buffer.data());
  device.writeZeroes(100, 1024);
  device.flush();
  device.deallocate({{10, 20}, {1000, 1}});
  const std::vector<Sent> sent = io();
  ASSERT_EQ(sent.size(), 4u);
  const nvme_passthru_cmd64& w = sent[0].command;
  EXPECT_EQ(w.opcode, 0x01);
  EXPECT_EQ(w.nsid, 1u);
  EXPECT_EQ(w.cdw10, 7u);
  EXPECT_EQ(w.cdw11, 1u);
  EXPECT_EQ(w.cdw12, 7u);  // 0-based
  EXPECT_EQ(w.data_len, 4096u);
  EXPECT_EQ(w.addr, static_cast<pod::uint64>(reinterpret_cast<std::uintptr_t>(buffer.data())));
  EXPECT_EQ(sent[1].command.opcode, 0x08);
  EXPECT_EQ(sent[1].command.cdw12, 1023u);
  EXPECT_EQ(sent[2].command.opcode, 0x00);
  const Sent& dsm = sent[3];
  EXPECT_EQ(dsm.command.opcode, 0x09);
  EXPECT_EQ(dsm.command.cdw10, 1u);  // two ranges, 0-based
  EXPECT_EQ(dsm.command.cdw11, 0x04u);
  EXPECT_EQ(dsm.data, std::vector<unsigned char>({0, 0, 0, 0, 20, 0, 0, 0, 10, 0, 0, 0, 0, 0, 0, 0,  //
                                                  0, 0, 0, 0, 1, 0, 0, 0, 0xe8, 3, 0, 0, 0, 0, 0, 0}));
  for (const Sent& s : controller.sent) EXPECT_EQ(s.command.timeout_ms, 1500u);
}

TEST_F(NVMe, FailuresNameTheCommandWithTheDecodedStatusOrTheErrno) {
  nvme::Device device = open();
  std::vector<char> buffer(4096);
  controller.status = 0x4002;
  QUOREL_EXPECT_THROW(device.read(0, 8, buffer.data()), nvme::ReadException,
                      "NVMe Read failed: Invalid Field in Command (status type 0, code 0x02, do not retry)", 0, 0x4002);
  controller.status = 0x0280;
  QUOREL_EXPECT_THROW(device.writeAt(buffer.data(), 4096, 0), nvme::WriteException,
                      "NVMe Write failed: Write Fault (status type 2, code 0x80)", 0, 0x0280);
  controller.status = 0;
  controller.error = EIO;
  QUOREL_EXPECT_THROW(device.flush(), nvme::Exception, "NVMe Flush failed: ::ioctl(NVME_IOCTL_IO64_CMD) failed", 2,
                      EIO);
  controller.error = EACCES;
  QUOREL_EXPECT_THROW(device.identifyController(), nvme::Exception,
                      "NVMe Identify Controller failed: ::ioctl(NVME_IOCTL_ADMIN64_CMD) failed", 2, EACCES);
  // A raw command reports the status instead of throwing.
  controller.error = 0;
  controller.status = 0x4001;
  nvme::Command raw;
  raw.opcode = 0xFF;
  raw.nsid = 1;
  EXPECT_EQ(device.submit(nvme::i::queue::IO(), raw), 0x4001);
}

// What no command carries is refused before anything is sent.
TEST_F(NVMe, WhatNoCommandCarriesIsRefusedBeforeAnythingIsSent) {
  nvme::Device device = open();
  std::vector<char> buffer(600 * 1024);
  char* page = buffer.data() + (4096 - reinterpret_cast<std::uintptr_t>(buffer.data()) % 4096);
  const std::string read = "NVMe Read refused: ", dsm = "NVMe Dataset Management refused: ";
  QUOREL_EXPECT_THROW(device.read(0, 70000, page), nvme::ReadException,
                      read + "70000 blocks are more than one command carries (65536)", 0, EINVAL);
  QUOREL_EXPECT_THROW(device.read(0, 1025, page), nvme::ReadException,
                      read + "524800 bytes are more than one command carries on this device (524288)", 0, EINVAL);
  QUOREL_EXPECT_THROW(device.read(0, 1024, page), nvme::ReadException,
                      read + "the buffer spans 128 memory pages, more than one command maps (127)", 0, EINVAL);
  QUOREL_EXPECT_THROW(device.read((1ULL << 22) - 4, 8, page), nvme::ReadException,
                      read + "blocks 4194300 to 4194307 reach past the namespace's last block (4194303)", 0,
                      EOVERFLOW);
  QUOREL_EXPECT_THROW(device.readAt(page, 4096, 100), nvme::ReadException,
                      read + "offset 100 and length 4096 are not whole 512-byte blocks", 0, EINVAL);
  QUOREL_EXPECT_THROW(device.writeZeroes(0, 2048), nvme::WriteException,
                      "NVMe Write Zeroes refused: 2048 blocks are more than one command covers on this device (1024)",
                      0, EINVAL);
  QUOREL_EXPECT_THROW(device.deallocate(std::vector<nvme::Range>(257, nvme::Range{0, 1})), nvme::WriteException,
                      dsm + "257 ranges are more than one command carries on this device (256)", 0, EINVAL);
  QUOREL_EXPECT_THROW(device.deallocate({{0, 4194304}}), nvme::WriteException,
                      dsm + "4194304 blocks are more than one command deallocates on this device (4194303)", 0,
                      EINVAL);
  EXPECT_TRUE(io().empty());
}

// I/O goes to a namespace's block node with an LBA format without metadata;
// nothing else takes it. No descriptor outlives its device.
TEST_F(NVMe, NodesThatTakeNoIOAreRefusedAndDescriptorsNeverOutliveTheirDevice) {
  const int before = test::openDescriptorCount();
  std::vector<char> buffer(4096);
  const std::string node = "'" + node_ + "'";
  controller.nsid = 0;
  controller.block = false;
  {
    nvme::Device device = open();  // a controller node: admin commands only
    EXPECT_EQ(device.identifyController().serial, "quorel-fake-0");
    QUOREL_EXPECT_THROW(device.read(0, 8, buffer.data()), nvme::ReadException,
                        "NVMe Read refused: " + node + " is a controller node: I/O goes to a namespace's block node",
                        0, ENOTBLK);
    QUOREL_EXPECT_THROW(device.identifyNamespace(), nvme::Exception,
                        "NVMe Identify Namespace refused: " + node + " is a controller node: name the namespace", 0,
                        ENOTBLK);
  }
  controller.block = true;  // a block device that is no NVMe namespace
  QUOREL_EXPECT_THROW(open(), nvme::Exception, "::ioctl(" + node + ", NVME_IOCTL_ID) failed", 2, ENOTTY);
  controller.nsid = 1;
  controller.block = false;  // the namespace's character node
  QUOREL_EXPECT_THROW(open().writeAt(buffer.data(), 512, 0), nvme::WriteException,
                      "NVMe Write refused: " + node + " is not a block device: I/O goes to a namespace's block node", 0,
                      ENOTBLK);
  controller.block = true;
  controller.metadata = 8;
  QUOREL_EXPECT_THROW(open().read(0, 1, buffer.data()), nvme::ReadException,
                      "NVMe Read refused: the LBA format in use carries 8 bytes of metadata per block, which these "
                      "commands do not move",
                      0, EOPNOTSUPP);
  controller.metadata = 0;
  controller.shift = 0;
  QUOREL_EXPECT_THROW(open().discard(0, 512), nvme::WriteException,
                      "NVMe Dataset Management refused: namespace 1 has no LBA format in use (it is not active)", 0,
                      ENXIO);
  QUOREL_EXPECT_THROW(nvme::Device("/nonexistent/quorel"), xio::OpenException,
                      "::open('/nonexistent/quorel', O_RDONLY O_CLOEXEC) failed", 2, ENOENT);
  EXPECT_TRUE(io().empty());
  EXPECT_EQ(test::openDescriptorCount(), before);
}

TEST_F(NVMe, ByteRangesAreCutToTheLimitsOfOneCommand) {
  controller.blocks = 1ULL << 42;
  nvme::Device device = open();
  // 8 MiB from a page boundary: 127 pages (508 KiB) per command, the queue's
  // max_segments, below MDTS and max_hw_sectors_kb (512 KiB).
  std::vector<char> memory((8 << 20) + 8192);
  char* page = memory.data() + (4096 - reinterpret_cast<std::uintptr_t>(memory.data()) % 4096);
  EXPECT_EQ(device.readAt(page, 8 << 20, 1 << 20), 17u);
  std::vector<Sent> sent = io();
  ASSERT_EQ(sent.size(), 17u);
  pod::uint64 lba = 2048, bytes = 0;
  for (const Sent& s : sent) {
    EXPECT_EQ(s.command.cdw10 | static_cast<pod::uint64>(s.command.cdw11) << 32, lba);
    EXPECT_EQ(s.command.addr, reinterpret_cast<std::uintptr_t>(page) + bytes);
    EXPECT_EQ((s.command.cdw12 + 1) * 512, s.command.data_len);
    lba += s.command.cdw12 + 1;
    bytes += s.command.data_len;
  }
  EXPECT_EQ(sent[0].command.data_len, 127u * 4096);
  EXPECT_EQ(bytes, 8u << 20);
  // Off a page boundary the first command fills what its pages hold.
  controller.sent.clear();
  device.writeAt(page + 512, 1 << 20, 0);
  EXPECT_EQ(io()[0].command.data_len, 127u * 4096 - 512);

  // Deallocation: ranges of at most discard_max_bytes, one per command when
  // that is also the command's limit; 2^32 - 1 blocks per range and up to
  // max_discard_segments ranges per command when the queue sets no limit.
  controller.sent.clear();
  EXPECT_EQ(device.discard(0, 4ULL << 30), 3u);
  sent = io();
  ASSERT_EQ(sent.size(), 3u);
  EXPECT_EQ(sent[1].data[4] | sent[1].data[5] << 8 | sent[1].data[6] << 16, 4194303);
  EXPECT_EQ(sent[2].data[4], 2);
  EXPECT_EQ(sent[2].data[8] | sent[2].data[9] << 8 | sent[2].data[10] << 16, 8388606);
  controller.sent.clear();
  controller.queue["discard_max_bytes"] = "0";
  controller.queue["max_discard_segments"] = "2";
  nvme::Device unlimited = open();
  EXPECT_EQ(unlimited.discard(512, ((1ULL << 33) + 5) * 512), 2u);
  sent = io();
  ASSERT_EQ(sent.size(), 2u);
  EXPECT_EQ(sent[0].command.cdw10, 1u);  // two ranges
  EXPECT_EQ(std::vector<unsigned char>(sent[0].data.begin() + 4, sent[0].data.begin() + 16),
            std::vector<unsigned char>({0xff, 0xff, 0xff, 0xff, 1, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(std::vector<unsigned char>(sent[1].data.begin() + 4, sent[1].data.begin() + 16),
            std::vector<unsigned char>({7, 0, 0, 0, 0xff, 0xff, 0xff, 0xff, 1, 0, 0, 0}));  // 1 + 2 (2^32 - 1)
}

// Keeps the last completion or failure.
class Last : public xio::AHandler {
 public:
  void on(xio::i::op::Read, int r, xio::Request&) override { result = r; }
  void on(xio::i::op::Write, int r, xio::Request&) override { result = r; }
  void on(xio::AIOCompletionException&, xio::Request&) override {}
  void on(xio::AIORequestException&, xio::Request&) override {}
  void on(xio::AIOCancellationException&, xio::Request&) override {}
  void on(xio::ReadException& e, xio::Request&) override { keep(e); }
  void on(xio::WriteException& e, xio::Request&) override { keep(e); }

  int result = 0;
  std::shared_ptr<quorel::Exception> failure;
  bool nvme = false;

 private:
  template <class E>
  void keep(E& e) {
    failure = std::make_shared<quorel::Exception>(e);
    nvme = dynamic_cast<nvme::ReadException*>(&e) != nullptr || dynamic_cast<nvme::WriteException*>(&e) != nullptr;
  }
};

TEST_F(NVMe, TheDispatcherSendsRequestsAsCommandsAndFailuresToTheHandler) {
  nvme::Device device = open();
  Last handler;
  std::vector<char> memory((8 << 20) + 4096);
  char* page = memory.data() + (4096 - reinterpret_cast<std::uintptr_t>(memory.data()) % 4096);
  xio::Dispatcher dispatcher = xio::Dispatcher::createNVMe(device);
  EXPECT_EQ(dispatcher.muxSpec().words[xio::i::mux::kType], xio::i::mux::type::Sync::value);
  std::unique_ptr<xio::Request> request(dispatcher.newRequestFor(&handler, device.endpoint()));
  request->submit(xio::i::op::Read(), page, 8 << 20, 0);
  dispatcher.wait();
  EXPECT_EQ(handler.result, 8 << 20);
  EXPECT_EQ(io().size(), 17u);
  request->submit(xio::i::op::Write(), page, 4096, 4096);
  dispatcher.wait();
  EXPECT_EQ(handler.result, 4096);
  EXPECT_EQ(io().back().command.opcode, 0x01);
  request->submit(xio::i::op::Read(), page, -1, 0);  // moves nothing
  dispatcher.wait();
  EXPECT_EQ(handler.result, -666);
  EXPECT_EQ(io().size(), 18u);

  controller.status = 0x0281;
  request->submit(xio::i::op::Read(), page, 4096, 0);
  dispatcher.wait();
  ASSERT_TRUE(handler.failure);
  EXPECT_TRUE(handler.nvme);
  EXPECT_EQ(handler.failure->why(), "NVMe Read failed: Unrecovered Read Error (status type 2, code 0x81)");
  EXPECT_EQ(handler.failure->code(), 0x0281);

  // Writes on a dispatcher made for deallocation release their range.
  controller.status = 0;
  xio::Dispatcher releasing = xio::Dispatcher::createNVMe(device, nvme::i::op::Deallocate());
  std::unique_ptr<xio::Request> release(releasing.newRequestFor(&handler, device.endpoint()));
  release->submit(xio::i::op::Write(), nullptr, 1 << 30, 1 << 20);
  releasing.wait();
  EXPECT_EQ(handler.result, 1 << 30);
  const Sent dsm = io().back();
  EXPECT_EQ(dsm.command.opcode, 0x09);
  EXPECT_EQ(dsm.data[4] | dsm.data[5] << 8 | dsm.data[6] << 16, 1 << 21);
  EXPECT_EQ(dsm.data[9], 0x08);  // block 2048
  release->submit(xio::i::op::Write(), nullptr, 1 << 30, (2LL << 30) - 512);
  releasing.wait();
  EXPECT_EQ(handler.failure->why(),
            "NVMe Dataset Management refused: blocks 4194303 to 6291454 reach past the namespace's last block "
            "(4194303)");
}

}  // namespace
}  // namespace quorel
