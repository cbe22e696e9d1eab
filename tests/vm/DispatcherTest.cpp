// The dispatchers on real disks inside the storage test bed: SCSI reads and
// writes, UNMAP and TRIM as write requests of the synchronous dispatcher,
// a device's refusal as a handler failure, and direct asynchronous I/O
// through native AIO and io_uring.
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <typeinfo>
#include <vector>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

namespace quorel {
namespace {

using namespace sal::xio;
namespace mx = sal::xio::i::mux;

#define REQUIRE_DISK(path, variable)                          \
  const char* path##Value = std::getenv(variable);            \
  if (path##Value == nullptr || *path##Value == '\0')         \
    GTEST_SKIP() << variable << " is not set: no such disk in this machine"; \
  const std::string path(path##Value)

// Remembers the last completion or failure.
class Last : public AHandler {
 public:
  void on(i::op::Read, int r, Request&) override { result = r; }
  void on(i::op::Write, int r, Request&) override { result = r; }
  void on(AIOCompletionException& e, Request&) override { keep(e); }
  void on(AIORequestException& e, Request&) override { keep(e); }
  void on(AIOCancellationException& e, Request&) override { keep(e); }
  void on(ReadException& e, Request&) override { keep(e); }
  void on(WriteException& e, Request&) override { keep(e); }

  int result = -1;
  int completions = 0;
  std::shared_ptr<quorel::Exception> failure;
  const std::type_info* type = nullptr;

 private:
  template <class E>
  void keep(E& e) {
    failure = std::make_shared<E>(e);
    type = &typeid(e);
  }
};

Endpoint openDevice(const std::string& path, bool direct = false) {
  fopen::Spec spec;
  spec.set<i::fopen::read::Enabled>().set<i::fopen::write::Enabled>();
  if (direct) spec.set<i::fopen::lin::direct::Enabled>();
  return Endpoint::open(path, spec);
}

// Runs one request through a synchronous dispatcher of spec.
int runSync(const mux::Spec& spec, const Endpoint& device, bool write, void* buffer, int count, long long offset,
            Last& handler) {
  Dispatcher dispatcher = Dispatcher::create(spec, 1);
  std::unique_ptr<Request> request(dispatcher.newRequestFor(&handler, device));
  request->setBlockSize(512);
  handler.result = -1;
  handler.failure.reset();
  if (write) {
    request->submit(i::op::Write(), buffer, count, offset);
  } else {
    request->submit(i::op::Read(), buffer, count, offset);
  }
  dispatcher.wait();
  return handler.result;
}

mux::Spec scsiSpec(int cdb) {
  mux::Spec spec;
  spec.set<mx::type::Sync>().set<mx::scsi::Enabled>();
  if (cdb == 16) spec.set<mx::scsi::rw16>();
  if (cdb == 32) spec.set<mx::scsi::rw32>();
  return spec;
}

TEST(DispatcherOnDisks, SCSIRequestsRoundTripOnEveryDisk) {
  for (const char* variable : {"QUOREL_SCSI_DEBUG", "QUOREL_VIRTIO", "QUOREL_AHCI"}) {
    SCOPED_TRACE(variable);
    REQUIRE_DISK(path, variable);
    Endpoint device = openDevice(path);
    for (int cdb : {10, 16}) {
      std::vector<char> pattern(16384), back(16384, 0);
      for (size_t n = 0; n < pattern.size(); ++n) pattern[n] = static_cast<char>(n * 11 + cdb);
      Last handler;
      EXPECT_EQ(runSync(scsiSpec(cdb), device, true, pattern.data(), 16384, 2 << 20, handler), 16384)
          << (handler.failure ? handler.failure->asString() : "");
      EXPECT_EQ(runSync(scsiSpec(cdb), device, false, back.data(), 16384, 2 << 20, handler), 16384);
      EXPECT_EQ(pattern, back) << cdb;
    }
  }
}

TEST(DispatcherOnDisks, AReadPastTheLastBlockReachesTheHandlerWithStatusAndSense) {
  REQUIRE_DISK(path, "QUOREL_SCSI_DEBUG");
  Endpoint device = openDevice(path);
  const long long end = static_cast<long long>(sal::fs::Stat(path).size());
  std::vector<char> buffer(4096);
  Last handler;
  runSync(scsiSpec(16), device, false, buffer.data(), 4096, end + (1 << 20), handler);
  ASSERT_TRUE(handler.failure);
  EXPECT_TRUE(*handler.type == typeid(SCSIReadException));
  EXPECT_EQ(handler.failure->why(), "device I/O control failed for SCSI Read (16)");
  EXPECT_EQ(handler.failure->domain(), sal::i::err::domain::kSCSICDB);
  EXPECT_EQ(handler.failure->code(), 2);  // CHECK CONDITION
  EXPECT_EQ(scsi::sense::kcq::descriptionFrom(handler.failure->auxData().c_str()),
            "05/21/00 (ILLEGAL REQUEST / LOGICAL BLOCK ADDRESS OUT OF RANGE)");
}

TEST(DispatcherOnDisks, UNMAPAsAWriteRequestDiscards) {
  REQUIRE_DISK(path, "QUOREL_SCSI_DEBUG");
  Endpoint device = openDevice(path);
  std::vector<char> data(65536, 'u'), back(65536, 'x');
  Last handler;
  ASSERT_EQ(runSync(scsiSpec(10), device, true, data.data(), 65536, 0, handler), 65536);
  mux::Spec unmap;
  unmap.set<mx::type::Sync>().set<mx::scsi::unmap::Enabled>();
  EXPECT_EQ(runSync(unmap, device, true, nullptr, 65536, 0, handler), 65536)
      << (handler.failure ? handler.failure->asString() : "");
  ASSERT_EQ(runSync(scsiSpec(10), device, false, back.data(), 65536, 0, handler), 65536);
  EXPECT_EQ(back, std::vector<char>(65536, 0));
}

TEST(DispatcherOnDisks, TRIMDirectAndThroughSCSIAsWriteRequestsDiscard) {
  REQUIRE_DISK(path, "QUOREL_AHCI");
  Endpoint device = openDevice(path);
  for (bool satl : {false, true}) {
    SCOPED_TRACE(satl ? "SATL" : "direct");
    std::vector<char> pattern(65536, 't'), back(65536, 'x');
    Last handler;
    ASSERT_EQ(runSync(scsiSpec(10), device, true, pattern.data(), 65536, 4 << 20, handler), 65536);
    mux::Spec trim;
    trim.set<mx::type::Sync>().set<mx::ata::trim::Enabled>();
    if (satl) trim.set<mx::ata::onscsi::Enabled>();
    EXPECT_EQ(runSync(trim, device, true, nullptr, 65536, 4 << 20, handler), 65536)
        << (handler.failure ? handler.failure->asString() : "");
    ASSERT_EQ(runSync(scsiSpec(10), device, false, back.data(), 65536, 4 << 20, handler), 65536);
    EXPECT_EQ(back, std::vector<char>(65536, 0));
  }
}

// Counts the reads that completed with the block's own number in it.
class Checker : public AHandler {
 public:
  explicit Checker(int block) : block_(block) {}
  void on(i::op::Read, int result, Request& request) override {
    int number;
    std::memcpy(&number, buffers[request.id()], sizeof number);
    if (result == block_ && number == static_cast<int>(offsets[request.id()] / block_)) ++good;
    ++completions;
  }
  void on(i::op::Write, int result, Request&) override {
    if (result == block_) ++good;
    ++completions;
  }
  void on(AIOCompletionException& e, Request&) override { failures.push_back(e.asString()); }
  void on(AIORequestException& e, Request&) override { failures.push_back(e.asString()); }
  void on(AIOCancellationException& e, Request&) override { failures.push_back(e.asString()); }
  void on(ReadException& e, Request&) override { failures.push_back(e.asString()); }
  void on(WriteException& e, Request&) override { failures.push_back(e.asString()); }

  std::vector<char*> buffers;
  std::vector<long long> offsets;
  int good = 0;
  int completions = 0;
  std::vector<std::string> failures;

 private:
  int block_;
};

// Writes `count` direct blocks at scattered offsets from block `first` on,
// each marked with its number, all queued at once, then reads them back and
// checks them block by block.
void writeScatteredThenReadBack(Dispatcher& dispatcher, const Endpoint& device, int count, int first, char fill) {
  const int kBlock = 4096;
  std::vector<char> memory(static_cast<size_t>(count + 1) * kBlock);
  char* base = memory.data() + (kBlock - reinterpret_cast<uintptr_t>(memory.data()) % kBlock) % kBlock;
  Checker checker(kBlock);
  std::vector<std::unique_ptr<Request>> requests;
  for (int n = 0; n < count; ++n) {
    char* buffer = base + static_cast<size_t>(n) * kBlock;
    const long long offset = static_cast<long long>((n * 37) % count + first) * kBlock;
    std::memset(buffer, fill, kBlock);
    const int number = static_cast<int>(offset / kBlock);
    std::memcpy(buffer, &number, sizeof number);
    checker.buffers.push_back(buffer);
    checker.offsets.push_back(offset);
    requests.emplace_back(dispatcher.newRequestFor(&checker, device));
    requests.back()->setID(static_cast<unsigned int>(n));
    ASSERT_TRUE(requests.back()->submit(i::op::Write(), buffer, kBlock, offset));
  }
  EXPECT_EQ(dispatcher.pending(), count);
  dispatcher.wait();
  EXPECT_EQ(checker.good, count);
  checker.good = checker.completions = 0;
  for (int n = 0; n < count; ++n) {
    std::memset(checker.buffers[n], 0, kBlock);
    ASSERT_TRUE(requests[n]->submit(i::op::Read(), checker.buffers[n], kBlock, checker.offsets[n]));
  }
  dispatcher.wait();
  EXPECT_EQ(checker.completions, count);
  EXPECT_EQ(checker.good, count);
  EXPECT_TRUE(checker.failures.empty()) << checker.failures.front();
}

TEST(DispatcherOnDisks, DirectAsynchronousRequestsOnAVirtioDisk) {
  REQUIRE_DISK(path, "QUOREL_VIRTIO");
  mux::Spec spec;
  spec.set<mx::type::Async>();
  Dispatcher dispatcher = Dispatcher::create(spec, 256);
  writeScatteredThenReadBack(dispatcher, openDevice(path, true), 256, 0, 'v');
}

// The io_uring dispatcher on the test bed's kernel, four times its depth
// queued at once, past the first 4 MiB of the NVMe disk.
TEST(DispatcherOnDisks, URingDirectRequestsOnTheNVMeDisk) {
  REQUIRE_DISK(path, "QUOREL_NVME");
  Dispatcher dispatcher = Dispatcher::createURing(16);
  ASSERT_TRUE(dispatcher.usesURing());
  writeScatteredThenReadBack(dispatcher, openDevice(path, true), 64, 1024, 'u');
}

}  // namespace
}  // namespace quorel
