// Device tests on a real Linux SCSI stack, run inside the storage test bed
// (scripts/testbed): scsi_debug, a virtio-scsi disk and an AHCI disk behind
// libata's SCSI/ATA translation.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
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

// Pieces that fit the device (scsi::Transfer): each disk's queue takes less
// than 64 MiB in one SCSI command (scsi_debug 2048 memory pages, virtio-scsi
// 254 pages, AHCI 128 KiB), and the vm.split machine's scsi_debug (2 GiB over
// 64 MiB of memory, unmap_max_blocks=65536) discards 32 MiB per command.

// Keeps the failure of a lone request.
class Failure : public sal::xio::AHandler {
 public:
  void on(sal::xio::i::op::Read, int, sal::xio::Request&) override {}
  void on(sal::xio::i::op::Write, int, sal::xio::Request&) override {}
  void on(sal::xio::AIOCompletionException&, sal::xio::Request&) override {}
  void on(sal::xio::AIORequestException&, sal::xio::Request&) override {}
  void on(sal::xio::AIOCancellationException&, sal::xio::Request&) override {}
  void on(sal::xio::ReadException& e, sal::xio::Request&) override { why = e.why(); }
  void on(sal::xio::WriteException& e, sal::xio::Request&) override { why = e.why(); }
  std::string why;
};

template <class Operation>
std::string loneRequest(const sal::xio::Dispatcher& dispatcher, const sal::xio::Endpoint& device, void* buffer,
                        int count) {
  Failure handler;
  std::unique_ptr<sal::xio::Request> request(dispatcher.newRequestFor(&handler, device));
  request->setBlockSize(512);
  request->submit(Operation(), buffer, count, 0);
  sal::xio::Dispatcher(dispatcher).wait();
  return handler.why;
}

sal::xio::Endpoint openReadWrite(const std::string& path) {
  sal::xio::fopen::Spec spec;
  spec.set<sal::xio::i::fopen::read::Enabled>().set<sal::xio::i::fopen::write::Enabled>();
  return sal::xio::Endpoint::open(path, spec);
}

sal::xio::Dispatcher syncDispatcher(bool unmap) {
  namespace mx = sal::xio::i::mux;
  sal::xio::mux::Spec spec;
  spec.set<mx::type::Sync>();
  if (unmap) {
    spec.set<mx::scsi::unmap::Enabled>();
  } else {
    spec.set<mx::scsi::Enabled>().set<mx::scsi::rw16>();
  }
  return sal::xio::Dispatcher::create(spec, 1);
}

// The first bytes of a disk's image on the host.
std::vector<char> image(const char* variable, size_t bytes) {
  std::vector<char> data(bytes);
  std::ifstream in(disk(variable), std::ios::binary);
  in.read(data.data(), static_cast<std::streamsize>(bytes));
  data.resize(static_cast<size_t>(in.gcount()));
  return data;
}

const size_t k64MiB = 64 << 20;

// Page-aligned memory of 64 MiB and a page, freed with the object.
struct Memory {
  Memory() : data(static_cast<char*>(sal::vm::allocate(k64MiB + 4096))) {}
  ~Memory() { sal::vm::deallocate(data); }
  char* data;
};

TEST(Split, ReadsAndWritesOf64MiBGoInPiecesEveryDiskTakes) {
  for (const char* variable : {"QUOREL_SCSI_DEBUG", "QUOREL_VIRTIO", "QUOREL_AHCI"}) {
    SCOPED_TRACE(variable);
    REQUIRE_DISK(path, variable);
    const sal::xio::Endpoint device = openReadWrite(path);
    const sal::xio::Dispatcher dispatcher = syncDispatcher(false);
    Memory pattern, back;
    for (size_t n = 0; n < k64MiB; n += 4) {
      const pod::uint32 word = static_cast<pod::uint32>(n * 2654435761u + std::strlen(variable));
      std::memcpy(pattern.data + n, &word, 4);
    }
    // One request of it all is more than the kernel passes on.
    EXPECT_EQ(loneRequest<sal::xio::i::op::Read>(dispatcher, device, back.data, k64MiB),
              "device I/O control failed for SCSI Read (16)");
    sal::xio::scsi::Transfer disk(dispatcher, device);
    EXPECT_LT(std::min<pod::uint64>(disk.limits().maxTransfer, disk.limits().maxSegments * 4096ULL), k64MiB);
    EXPECT_EQ(disk.write(pattern.data, k64MiB, 0), k64MiB);
    // Into a buffer that starts inside a page.
    std::memset(back.data, 0, k64MiB + 4096);
    EXPECT_EQ(disk.read(back.data + 512, k64MiB, 0), k64MiB);
    EXPECT_EQ(std::memcmp(pattern.data, back.data + 512, k64MiB), 0);
    if (std::strcmp(variable, "QUOREL_SCSI_DEBUG") != 0) {
      const std::vector<char> host = image(std::strcmp(variable, "QUOREL_VIRTIO") == 0 ? "QUOREL_VIRTIO_IMAGE"
                                                                                     : "QUOREL_AHCI_IMAGE",
                                           k64MiB);
      ASSERT_EQ(host.size(), k64MiB);
      EXPECT_EQ(std::memcmp(pattern.data, host.data(), k64MiB), 0) << "the image on the host differs";
    }
  }
}

TEST(Split, DiscardsOf1GiBGoInPiecesOfTheDiscardLimit) {
  // TRIM through SCSI in pieces of 8 MiB: the emulated disk punches holes.
  {
    REQUIRE_DISK(path, "QUOREL_AHCI");
    namespace mx = sal::xio::i::mux;
    sal::xio::mux::Spec spec;
    spec.set<mx::type::Sync>().set<mx::ata::trim::Enabled>().set<mx::ata::onscsi::Enabled>();
    sal::xio::scsi::Transfer::Limits limits = sal::xio::scsi::Transfer::Limits::of(sal::fs::QueueLimits::of(path));
    limits.maxDiscard = 8 << 20;
    const sal::xio::Endpoint device = openReadWrite(path);
    sal::xio::scsi::Transfer disk(syncDispatcher(false), device);
    Memory pattern;
    std::memset(pattern.data, 'a', k64MiB);
    ASSERT_EQ(disk.write(pattern.data, k64MiB, 0), k64MiB);
    sal::xio::scsi::Transfer trim(sal::xio::Dispatcher::create(spec, 1), device, limits);
    EXPECT_EQ(trim.discard(48 << 20, 8 << 20), 48u << 20);
    const std::vector<char> host = image("QUOREL_AHCI_IMAGE", k64MiB);
    ASSERT_EQ(host.size(), k64MiB);
    EXPECT_EQ(std::count(host.begin(), host.begin() + (8 << 20), 'a'), 8 << 20);
    EXPECT_EQ(std::count(host.begin() + (8 << 20), host.begin() + (56 << 20), 0), 48 << 20);
    EXPECT_EQ(std::count(host.begin() + (56 << 20), host.end(), 'a'), 8 << 20);
  }
  REQUIRE_DISK(path, "QUOREL_SCSI_DEBUG");
  const sal::fs::QueueLimits queue = sal::fs::QueueLimits::of(path);
  if (kernelSize(path) < (1ULL << 30) || queue.maxDiscard() >= (1ULL << 30)) {
    GTEST_SKIP() << "this machine's scsi_debug is smaller than 1 GiB or discards it in one command (vm.split "
                    "gives it virtual_gb=2 unmap_max_blocks=65536)";
  }
  const sal::xio::Endpoint device = openReadWrite(path);
  sal::xio::scsi::Transfer disk(syncDispatcher(false), device);
  Memory pattern, back;
  std::memset(pattern.data, 'u', k64MiB);
  ASSERT_EQ(disk.write(pattern.data, k64MiB, 0), k64MiB);  // all of the disk's memory
  // One command for it all is more than the device takes, and leaves the data.
  const sal::xio::Dispatcher unmap = syncDispatcher(true);
  EXPECT_EQ(loneRequest<sal::xio::i::op::Write>(unmap, device, nullptr, 1 << 30), "SCSI UNMAP failed");
  ASSERT_EQ(disk.read(back.data, k64MiB, 0), k64MiB);
  EXPECT_EQ(std::memcmp(pattern.data, back.data, k64MiB), 0);
  sal::xio::scsi::Transfer discarder(unmap, device);
  EXPECT_EQ(discarder.discard(1ULL << 30, 0), 1ULL << 30);
  ASSERT_EQ(disk.read(back.data, k64MiB, 0), k64MiB);
  EXPECT_EQ(std::count(back.data, back.data + k64MiB, 0), static_cast<long>(k64MiB));
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
