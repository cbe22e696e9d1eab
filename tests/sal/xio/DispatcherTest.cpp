// Dispatchers: the option words, the synchronous dispatcher's paths and
// misuse, and the submissions, completions, waits and interrupts of the
// asynchronous ones (native AIO and io_uring, one contract).
#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/io_uring.h>
#include <linux/seccomp.h>
#include <scsi/sg.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <typeinfo>
#include <vector>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

#include "support/expect.h"
#include "support/fault.h"
#include "support/loopback.h"
#include "support/process.h"

namespace quorel {
namespace {

using namespace sal::xio;
namespace fo = sal::xio::i::fopen;
namespace mx = sal::xio::i::mux;
using sal::i::err::domain::kApplication;
using sal::i::err::domain::kSCSICDB;
using sal::i::err::domain::kSystemCall;

// Everything a handler was told, in order.
struct Event {
  std::string slot;
  int result;
  unsigned int id;
  const Request* request;
  const std::type_info* type;         // of a failure
  std::shared_ptr<quorel::Exception> failure;
};

class Recorder : public AHandler {
 public:
  void on(i::op::Read, int result, Request& request) override { add("read", result, request); }
  void on(i::op::Write, int result, Request& request) override { add("write", result, request); }
  void on(AIOCompletionException& e, Request& request) override { fail("completion-failed", e, request); }
  void on(AIORequestException& e, Request& request) override { fail("submission-failed", e, request); }
  void on(AIOCancellationException& e, Request& request) override { fail("cancelled", e, request); }
  void on(ReadException& e, Request& request) override { fail("read-failed", e, request); }
  void on(WriteException& e, Request& request) override { fail("write-failed", e, request); }

  std::vector<Event> events;
  std::function<void(Request&)> then;  // runs after each event is recorded

 private:
  void add(const char* slot, int result, Request& request) {
    events.push_back({slot, result, request.id(), &request, nullptr, nullptr});
    if (then) then(request);
  }
  template <class E>
  void fail(const char* slot, E& e, Request& request) {
    events.push_back({slot, 0, request.id(), &request, &typeid(e), std::make_shared<E>(e)});
    if (then) then(request);
  }
};

// How often each request id appears among the events.
std::vector<int> countsByID(const std::vector<Event>& events, size_t ids) {
  std::vector<int> counts(ids, 0);
  for (const Event& event : events) {
    if (event.id < ids) ++counts[event.id];
  }
  return counts;
}

// Checks that the one event is a failure of class E in slot with these fields.
template <class E>
void expectFailure(const std::vector<Event>& events, const char* slot, const std::string& why, int domain, int code) {
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].slot, slot);
  ASSERT_TRUE(events[0].failure);
  EXPECT_TRUE(*events[0].type == typeid(E)) << events[0].type->name();
  test::expectFields(*events[0].failure, why, domain, code);
}

// Checks that the one event is a completion in slot with this result.
void expectDone(const std::vector<Event>& events, const char* slot, int result) {
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].slot, slot);
  EXPECT_EQ(events[0].result, result);
}

mux::Spec syncSpec() {
  mux::Spec spec;
  spec.set<mx::type::Sync>();
  return spec;
}
mux::Spec asyncSpec() {
  mux::Spec spec;
  spec.set<mx::type::Async>();
  return spec;
}

// Runs one request of a fresh handler through the dispatcher and returns
// what the handler was told.
std::vector<Event> runOne(Dispatcher& dispatcher, const Endpoint& endpoint, bool write, void* buffer, int count,
                          long long offset, int blockSize = 0) {
  Recorder handler;
  std::unique_ptr<Request> request(dispatcher.newRequestFor(&handler, endpoint));
  request->setBlockSize(blockSize);
  if (write) {
    request->submit(i::op::Write(), buffer, count, offset);
  } else {
    request->submit(i::op::Read(), buffer, count, offset);
  }
  dispatcher.wait();
  return handler.events;
}

// A scratch file removed at the end of the test.
struct ScratchFile {
  std::string path = [] {
    std::string name = ::testing::UnitTest::GetInstance()->current_test_info()->name();
    for (char& c : name) c = c == '/' ? '-' : c;  // parametrised tests: "Case/Kind"
    return "/tmp/quorel-dispatch-" + std::to_string(::getpid()) + "-" + name;
  }();
  ~ScratchFile() { ::unlink(path.c_str()); }

  Endpoint open(bool read, bool write, bool direct = false) const {
    fopen::Spec spec;
    if (read) spec.set<fo::read::Enabled>();
    if (write) spec.set<fo::write::Enabled>().set<fo::write::create::Enabled>();
    if (direct) spec.set<fo::lin::direct::Enabled>();
    return Endpoint::open(path, spec);
  }
  void fill(const std::string& text) const {
    File file(open(false, true));
    file.write(text.data(), static_cast<int>(text.size()), 0);
  }
};

// A scratch file holding text, a dispatcher, and a request of a recording
// handler on the file.
struct Rig {
  Rig(const std::string& text, const mux::Spec& spec, int depth, bool write = false)
      : Rig(text, Dispatcher::create(spec, depth), write) {}
  Rig(const std::string& text, const Dispatcher& d, bool write = false) : dispatcher(d) {
    file.fill(text);
    endpoint = file.open(true, write);
    request.reset(dispatcher.newRequestFor(&handler, endpoint));
  }
  ScratchFile file;
  Endpoint endpoint;
  Dispatcher dispatcher;
  Recorder handler;
  std::unique_ptr<Request> request;
};

// ---------------------------------------------------------------- mux::Spec

TEST(MuxSpec, CopiesShareTheRecordClonesDoNotAndForeignTypesAreRefused) {
  mux::Spec spec;
  mux::Spec shared = spec;
  spec.set<mx::type::Sync>().set<mx::scsi::rw32>();
  EXPECT_TRUE(shared.is<mx::scsi::rw32>());
  mux::Spec copy = spec.clone();
  spec.set<mx::scsi::rw16>();
  EXPECT_TRUE(copy.is<mx::scsi::rw32>());
  QUOREL_EXPECT_THROW(spec.set<mx::type::DevPoll>(), OperationNotSupportedException,
                      "the multiplexer type 'DevPoll' is not supported on this platform", kApplication, 0);
  EXPECT_TRUE(spec.is<mx::type::Sync>());
}

TEST(Dispatcher, OnlySyncAndAsyncTypesAndAPositiveDepthCreateADispatcher) {
  QUOREL_EXPECT_THROW(Dispatcher::create(mux::Spec(), 1), InvalidArgumentException,
                      "the mux spec does not specify a valid type", kApplication, 0);
  QUOREL_EXPECT_THROW(Dispatcher::create(asyncSpec(), 0), InvalidArgumentException,
                      "the queue depth must be at least 1", kApplication, 0);
  EXPECT_EQ(Dispatcher::create(syncSpec(), 0).pending(), 0);
  Dispatcher none;
  EXPECT_THROW(none.wait(), NULLDereferenceException);
}

// What the throwing handlers of these tests throw.
struct Thrown {};

// ---------------------------------------------------------------- synchronous

TEST(SyncDispatcher, MisuseIsRefusedAndAThrowingHandlerLeavesNothingPending) {
  Rig rig("0123456789", syncSpec(), 1);
  char buffer[4];
  QUOREL_EXPECT_THROW(rig.request->submit(), sal::xio::Exception, "the request is not armed for a read or a write",
                      kApplication, 0);
  QUOREL_EXPECT_THROW(rig.dispatcher.wait(), sal::xio::Exception, "no pending synchronous I/O to wait on",
                      kApplication, 0);
  EXPECT_TRUE(rig.request->submit(i::op::Read(), buffer, 4, 0));
  QUOREL_EXPECT_THROW(rig.request->submit(), sal::xio::Exception, "cannot queue multiple synchronous I/O requests",
                      kApplication, 0);
  rig.dispatcher.waitFor(0);  // performs the one pending request
  EXPECT_EQ(rig.dispatcher.pending(), 0);

  // The handler's exception leaves wait(); the dispatcher takes the next request.
  rig.handler.then = [](Request&) { throw Thrown(); };
  rig.request->submit(i::op::Read(), buffer, 4, 0);
  EXPECT_THROW(rig.dispatcher.wait(), Thrown);
  rig.handler.then = nullptr;
  EXPECT_TRUE(rig.request->submit(i::op::Read(), buffer, 2, 8));
  rig.dispatcher.wait();
  ASSERT_EQ(rig.handler.events.size(), 3u);
  EXPECT_EQ(rig.handler.events[2].result, 2);
}

TEST(SyncDispatcher, ACountOfAllOnesCompletesWithTheSentinelWithoutIOAndFailuresReachTheirSlots) {
  ScratchFile file;
  file.fill("abc");
  Dispatcher dispatcher = Dispatcher::create(syncSpec(), 1);
  {
    test::fault::Injection never("pread64", EIO, 1000000), neverWrite("pwrite64", EIO, 1000000);
    expectDone(runOne(dispatcher, file.open(true, true), false, nullptr, -1, 0), "read", -666);
    expectDone(runOne(dispatcher, file.open(true, true), true, nullptr, -1, 0), "write", -666);
    EXPECT_EQ(test::fault::calls("pread64") + test::fault::calls("pwrite64"), 0);
  }
  char buffer[4];
  expectFailure<ReadException>(runOne(dispatcher, file.open(false, true), false, buffer, 3, 0),  // write-only
                               "read-failed", "::pread() failed", kSystemCall, EBADF);
  expectFailure<WriteException>(runOne(dispatcher, file.open(true, false), true, buffer, 3, 0),  // read-only
                                "write-failed", "::pwrite() failed", kSystemCall, EBADF);
}

TEST(SyncDispatcher, SocketRequestsMoveEveryByteEndShortWhenThePeerClosesAndReportFailures) {
  sal::io::TCPServerSocket server(test::loopbackBinding(AF_INET), false);
  const Endpoint client = Endpoint::open(test::loopbackBinding(AF_INET, 0),
                                         sal::io::TCPConnectingAddress("127.0.0.1", server.selfAddress().port()));
  sal::io::ATCPIOSocket peer = server.accept(5000);
  mux::Spec spec = syncSpec();
  spec.set<mx::tcp::Enabled>();
  Dispatcher dispatcher = Dispatcher::create(spec, 1);

  const int kSize = 1 << 20;  // more than one recv/send moves
  std::vector<char> out(kSize), in(kSize);
  for (size_t n = 0; n < out.size(); ++n) out[n] = static_cast<char>(n * 7);
  std::thread echo([&peer] {
    std::vector<char> got(kSize);
    for (int done = 0; done < kSize;) done += peer.get(got.data() + done, kSize - done);
    for (int done = 0; done < kSize;) done += peer.put(got.data() + done, kSize - done);
  });
  expectDone(runOne(dispatcher, client, true, out.data(), kSize, 0), "write", kSize);
  expectDone(runOne(dispatcher, client, false, in.data(), kSize, 0), "read", kSize);
  echo.join();
  EXPECT_TRUE(in == out);
  // A read ends short when the peer closes (through the UDP path's spec too).
  spec.set<mx::udp::Enabled>();
  Dispatcher udp = Dispatcher::create(spec, 1);
  peer.put("12345", 5);
  peer.close();
  expectDone(runOne(udp, client, false, in.data(), 64, 0), "read", 5);
  EXPECT_EQ(std::string(in.data(), 5), "12345");

  // A file is no socket.
  ScratchFile file;
  file.fill("abc");
  char buffer[3];
  expectFailure<ReadException>(runOne(dispatcher, file.open(true, true), false, buffer, 3, 0), "read-failed",
                               "::recv() failed", kSystemCall, ENOTSOCK);
  expectFailure<WriteException>(runOne(dispatcher, file.open(true, true), true, buffer, 3, 0), "write-failed",
                                "::send() failed", kSystemCall, ENOTSOCK);
}

// Pass-through paths on a file that is no SCSI device: the ioctl fails.
struct PassThroughCase {
  void (*set)(mux::Spec&);
  bool write;
  const char* why;
  const std::type_info* type;
};

TEST(SyncDispatcher, EachPassThroughPathReportsAFailedIOControlWithItsMessage) {
  ScratchFile file;
  file.fill(std::string(4096, 'x'));
  const PassThroughCase cases[] = {
      {[](mux::Spec& s) { s.set<mx::scsi::Enabled>(); }, false, "device I/O control failed for SCSI Read (10)",
       &typeid(SCSIReadException)},
      {[](mux::Spec& s) { s.set<mx::scsi::Enabled>().set<mx::scsi::rw32>(); }, true,
       "device I/O control failed for SCSI Write (32)", &typeid(SCSIWriteException)},
      {[](mux::Spec& s) { s.set<mx::scsi::Enabled>().set<mx::scsi::extended::Enabled>(); }, true,
       "device I/O control failed for SCSI Write (10)", &typeid(SCSIWriteException)},
      {[](mux::Spec& s) { s.set<mx::scsi::unmap::Enabled>(); }, true, "device I/O control failed for SCSI UNMAP",
       &typeid(SCSIWriteException)},
      {[](mux::Spec& s) { s.set<mx::ata::trim::Enabled>(); }, true, "ATA TRIM failed", &typeid(WriteException)},
      {[](mux::Spec& s) { s.set<mx::ata::trim::Enabled>().set<mx::ata::onscsi::Enabled>(); }, true,
       "ATA TRIM (SATL) failed", &typeid(SCSIWriteException)},
  };
  char buffer[4096];
  for (const PassThroughCase& c : cases) {
    SCOPED_TRACE(c.why);
    mux::Spec spec = syncSpec();
    c.set(spec);
    Dispatcher dispatcher = Dispatcher::create(spec, 1);
    const std::vector<Event> events = runOne(dispatcher, file.open(true, true), c.write, buffer, 4096, 0, 512);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].slot, c.write ? "write-failed" : "read-failed");
    EXPECT_TRUE(*events[0].type == *c.type) << events[0].type->name();
    test::expectFields(*events[0].failure, c.why, kSystemCall, ENOTTY);
  }
  // Without a block size nothing is sent.
  mux::Spec spec = syncSpec();
  spec.set<mx::scsi::Enabled>();
  Dispatcher dispatcher = Dispatcher::create(spec, 1);
  expectFailure<SCSIReadException>(runOne(dispatcher, file.open(true, false), false, buffer, 512, 0),
                                   "read-failed", "device I/O control failed for SCSI Read (10)", kSystemCall, EINVAL);
}

// SG_IO answered by a stand-in device: CHECK CONDITION with the sense data
// in `senseReply`: fixed-format ILLEGAL REQUEST / INVALID FIELD IN CDB, or
// descriptor sense with the ATA Status Return descriptor, error 0x04 (ABRT),
// status 0x51 (ERR).
const std::string kIllegalRequest("\x70\0\x05\0\0\0\0\x0a\0\0\0\0\x24\0\0\0\0\0", 18);
const std::string kATAError("\x72\x01\0\x1d\0\0\0\x0e\x09\x0c\0\x04\0\0\0\0\0\0\0\0\x40\x51", 22);
std::string senseReply;
std::vector<unsigned char> lastCDB;

int checkCondition(int, unsigned long request, void* argument) {
  if (request != SG_IO) return -1;
  sg_io_hdr* header = static_cast<sg_io_hdr*>(argument);
  lastCDB.assign(header->cmdp, header->cmdp + header->cmd_len);
  header->status = 2;
  header->host_status = header->driver_status = 0;
  header->resid = 0;
  header->sb_len_wr = static_cast<unsigned char>(senseReply.size());
  std::memcpy(header->sbp, senseReply.data(), senseReply.size());
  return 0;
}

TEST(SyncDispatcher, ADeviceThatRejectsTheCommandGivesItsStatusAndSense) {
  ScratchFile file;
  file.fill("x");
  senseReply = kIllegalRequest;
  test::fault::StandIn device("ioctl", reinterpret_cast<void*>(checkCondition));
  {
    mux::Spec spec = syncSpec();
    spec.set<mx::scsi::unmap::Enabled>();
    Dispatcher dispatcher = Dispatcher::create(spec, 1);
    const std::vector<Event> events = runOne(dispatcher, file.open(true, true), true, nullptr, 1 << 20, 1 << 20, 4096);
    expectFailure<SCSIWriteException>(events, "write-failed", "SCSI UNMAP failed", kSCSICDB, 2);
    EXPECT_EQ(events[0].failure->auxData(), kIllegalRequest);
    ASSERT_EQ(lastCDB.size(), 10u);
    EXPECT_EQ(lastCDB[0], 0x42);
  }
  {
    mux::Spec spec = syncSpec();
    spec.set<mx::scsi::Enabled>().set<mx::scsi::rw16>().set<mx::scsi::fua::Enabled>();
    Dispatcher dispatcher = Dispatcher::create(spec, 1);
    char buffer[1024];
    const std::vector<Event> events = runOne(dispatcher, file.open(true, true), false, buffer, 1024, 4096, 512);
    expectFailure<SCSIReadException>(events, "read-failed", "device I/O control failed for SCSI Read (16)", kSCSICDB,
                                     2);
    EXPECT_EQ(events[0].failure->auxData(), kIllegalRequest);
    // READ(16), FUA, LBA 8, two blocks.
    const std::vector<unsigned char> cdb = {0x88, 0x08, 0, 0, 0, 0, 0, 0, 0, 8, 0, 0, 0, 2, 0, 0};
    EXPECT_EQ(lastCDB, cdb);
  }
  // ATA TRIM on a device that does not know ATA PASS-THROUGH (fixed-format
  // sense carries registers only with 00/1D), then with the error bit set:
  // the status and error registers.
  for (const std::string& reply : {kIllegalRequest, kATAError}) {
    senseReply = reply;
    const bool refused = reply == kIllegalRequest;
    for (bool satl : {false, true}) {
      mux::Spec spec = syncSpec();
      spec.set<mx::ata::trim::Enabled>();
      if (satl) spec.set<mx::ata::onscsi::Enabled>();
      Dispatcher dispatcher = Dispatcher::create(spec, 1);
      const std::vector<Event> events = runOne(dispatcher, file.open(true, true), true, nullptr, 4096, 0, 512);
      if (satl) {
        expectFailure<SCSIWriteException>(events, "write-failed", "ATA TRIM (SATL) failed",
                                          refused ? kSCSICDB : kApplication, refused ? 2 : 0x0451);
      } else {
        expectFailure<WriteException>(events, "write-failed", "ATA TRIM failed", kApplication, refused ? 0x51 : 0x0451);
      }
      if (refused && satl) {
        EXPECT_EQ(events[0].failure->auxData(), kIllegalRequest);
      }
    }
  }
}

TEST(SyncDispatcher, DiscardsOfAZeroLengthSendNothingAndComplete) {
  ScratchFile file;
  file.fill("x");
  test::fault::Injection never("ioctl", EIO, 1000000);
  for (int path = 0; path < 3; ++path) {
    mux::Spec spec = syncSpec();
    if (path == 0) spec.set<mx::scsi::unmap::Enabled>();
    if (path >= 1) spec.set<mx::ata::trim::Enabled>();
    if (path == 2) spec.set<mx::ata::onscsi::Enabled>();
    Dispatcher dispatcher = Dispatcher::create(spec, 1);
    expectDone(runOne(dispatcher, file.open(true, true), true, nullptr, 0, 4096, 512), "write", 0);
  }
  EXPECT_EQ(test::fault::calls("ioctl"), 0);
}

// ---------------------------------------------------------------- asynchronous

// A block-aligned buffer for O_DIRECT.
struct Aligned {
  explicit Aligned(size_t size) : data(static_cast<char*>(std::aligned_alloc(4096, size))) {}
  ~Aligned() { std::free(data); }
  char* data;
};

// Reopens a scratch file with O_DIRECT, or explains why the test cannot.
bool directEndpoint(const ScratchFile& file, Endpoint& endpoint, std::string& why) {
  try {
    endpoint = file.open(true, true, true);
    return true;
  } catch (const OpenException& e) {
    why = "O_DIRECT is not available for " + file.path + ": " + e.asSimpleString();
    return false;
  }
}

// Why this process gets no io_uring dispatcher, or "" when it does.
const std::string& noURing() {
  static const std::string why = [] {
    try {
      Dispatcher::createURing(1);
      return std::string();
    } catch (const quorel::Exception& e) {
      return "the kernel gives this process no io_uring: " + e.asSimpleString();
    }
  }();
  return why;
}
#define QUOREL_REQUIRE_URING() \
  if (!noURing().empty()) GTEST_SKIP() << noURing()

// The asynchronous dispatchers: native AIO (create with type::Async) and
// io_uring (createURing), which share a contract.
struct Kind {
  const char* name;
  bool uring;
};
void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.name; }

class AsyncDispatchers : public ::testing::TestWithParam<Kind> {
 protected:
  void SetUp() override {
    if (uring()) QUOREL_REQUIRE_URING();
  }
  bool uring() const { return GetParam().uring; }
  Dispatcher make(int depth) const {
    return uring() ? Dispatcher::createURing(depth) : Dispatcher::create(asyncSpec(), depth);
  }
};

INSTANTIATE_TEST_SUITE_P(Kind, AsyncDispatchers, ::testing::Values(Kind{"AIO", false}, Kind{"URing", true}),
                         [](const ::testing::TestParamInfo<Kind>& kind) { return std::string(kind.param.name); });

TEST_P(AsyncDispatchers, ThousandsOfDirectRequestsInFlightCompleteOnceWithTheirData) {
  const int kBlocks = 4096, kBlock = 4096;
  ScratchFile file;
  Endpoint endpoint;
  std::string why;
  if (!directEndpoint(file, endpoint, why)) GTEST_SKIP() << why;

  // A queue of one, then every request in flight at once. io_uring takes
  // requests beyond its depth and submits them as room comes; native AIO is
  // given no more than its depth.
  for (int depth : {1, kBlocks}) {
    SCOPED_TRACE(depth);
    Dispatcher dispatcher = make(depth);
    Aligned data(static_cast<size_t>(kBlocks) * kBlock);
    Recorder handler;
    std::vector<std::unique_ptr<Request>> requests;
    for (int n = 0; n < kBlocks; ++n) {
      requests.emplace_back(dispatcher.newRequestFor(&handler, endpoint));
      requests.back()->setID(static_cast<unsigned int>(n));
    }
    // Each block is filled with its number and the depth; writes in order, reads in reverse.
    const auto block = [&](int n) { return data.data + static_cast<size_t>(n) * kBlock; };
    for (int n = 0; n < kBlocks; ++n) std::memset(block(n), (n + depth) % 251, kBlock);
    for (bool write : {true, false}) {
      for (int k = 0; k < kBlocks; ++k) {
        const int n = write ? k : kBlocks - 1 - k;
        if (!uring() && dispatcher.pending() == depth) dispatcher.waitFor(10000);
        const long long at = static_cast<long long>(n) * kBlock;
        ASSERT_TRUE(write ? requests[n]->submit(i::op::Write(), block(n), kBlock, at)
                          : requests[n]->submit(i::op::Read(), block(n), kBlock, at));
      }
      EXPECT_EQ(dispatcher.pending(), uring() ? kBlocks : depth);
      dispatcher.wait();
      if (write) std::memset(data.data, 0, static_cast<size_t>(kBlocks) * kBlock);
    }
    ASSERT_EQ(static_cast<int>(handler.events.size()), 2 * kBlocks);
    std::vector<int> seen(kBlocks, 0);
    for (const Event& event : handler.events) {
      ASSERT_EQ(event.result, kBlock);
      ++seen[event.id];
    }
    for (int n = 0; n < kBlocks; ++n) {
      ASSERT_EQ(seen[n], 2) << "block " << n;
      ASSERT_EQ(block(n)[0], static_cast<char>((n + depth) % 251)) << "block " << n;
      ASSERT_EQ(block(n)[kBlock - 1], block(n)[0]) << "block " << n;
    }
  }
}

TEST_P(AsyncDispatchers, AMisalignedDirectRequestCompletesWithTheErrorNumber) {
  ScratchFile file;
  file.fill(std::string(8192, 'x'));
  Endpoint endpoint;
  std::string why;
  if (!directEndpoint(file, endpoint, why)) GTEST_SKIP() << why;
  Dispatcher dispatcher = make(4);
  Recorder handler;
  std::unique_ptr<Request> request(dispatcher.newRequestFor(&handler, endpoint));
  Aligned buffer(8192);
  ASSERT_TRUE(request->submit(i::op::Write(), buffer.data + 1, 4096, 0));
  dispatcher.wait();
  EXPECT_EQ(dispatcher.pending(), 0);
  expectFailure<AIOCompletionException>(handler.events, "completion-failed", "error in write completion",
                                        kSystemCall, EINVAL);
}

// Offsets beyond 32 bits reach the file unchanged through each dispatcher
// (a sparse file: nothing below the offset is written); a read ends short at
// the end of the file.
TEST(Dispatchers, OffsetsAbove4GiBReachTheFile) {
  const long long kFiveGiB = 5LL << 30;
  ScratchFile file;
  Endpoint endpoint = file.open(true, true);
  const int fd = static_cast<int>(endpoint.id());
  char text[] = "beyond four gibibytes";
  const int length = static_cast<int>(sizeof text - 1);
  long long end = 0;
  for (const char* kind : {"Sync", "Async", "URing"}) {  // a torn-down ring may end a later AIO wait early
    SCOPED_TRACE(kind);
    const bool uring = kind[0] == 'U';
    if (uring && !noURing().empty()) continue;
    Dispatcher dispatcher = uring ? Dispatcher::createURing(4)
                                  : Dispatcher::create(kind[0] == 'A' ? asyncSpec() : syncSpec(), 4);
    Recorder handler;
    std::unique_ptr<Request> request(dispatcher.newRequestFor(&handler, endpoint));
    const long long at = kFiveGiB + (uring ? 12295 : kind[0] == 'A' ? 8197 : 4099);  // each beyond the last
    char back[sizeof text] = {};
    request->setID(7);
    request->submit(i::op::Write(), text, length, at);
    dispatcher.wait();
    request->setFor(i::op::Read(), back, op::Spec(4, at + 7));
    request->submit();
    dispatcher.wait();
    EXPECT_EQ(std::string(back, 4), "four");
    // Count and offset alone: each operation keeps the buffer it was last armed with.
    request->submit(i::op::Write(), op::Spec(6, at + 4096));
    dispatcher.wait();
    request->submit(i::op::Read(), op::Spec(8, at + 4098));  // 4 bytes are left
    dispatcher.wait();
    EXPECT_EQ(std::string(back, 4), "yond");
    ASSERT_EQ(handler.events.size(), 4u);
    EXPECT_EQ(handler.events[3].slot, "read");
    EXPECT_EQ(handler.events[3].result, 4);
    EXPECT_EQ(handler.events[3].id, 7u);
    EXPECT_EQ(handler.events[3].request, request.get());
    ASSERT_EQ(::pread64(fd, back, length, at), length);
    EXPECT_EQ(std::string(back, length), text);
    ASSERT_EQ(::pread64(fd, back, 6, at + 4096), 6);  // count and offset alone reach the file unchanged
    EXPECT_EQ(std::string(back, 6), "beyond");
    end = at + 4096 + 6;
  }
  struct stat64 status;
  ASSERT_EQ(::fstat64(fd, &status), 0);
  EXPECT_EQ(status.st_size, end);
  EXPECT_LT(status.st_blocks, 1024);  // sparse
}

// A request on an endpoint without a descriptor: io_submit refuses it; io_uring
// reports it in its completion, and refuses a negative offset (which it would
// read as "the file's position") before the kernel sees it.
TEST_P(AsyncDispatchers, ARefusedSubmissionReachesItsSlotAndLeavesNothingPending) {
  Rig rig("abc", make(4), true);
  rig.endpoint.close();
  char buffer[3];
  if (uring()) {
    EXPECT_TRUE(rig.request->submit(i::op::Write(), buffer, 3, 0));
    rig.dispatcher.wait();
    expectFailure<AIOCompletionException>(rig.handler.events, "completion-failed", "error in write completion",
                                          kSystemCall, EBADF);
    rig.handler.events.clear();
    EXPECT_FALSE(rig.request->submit(i::op::Read(), buffer, 3, -1));
    expectFailure<AIORequestException>(rig.handler.events, "submission-failed",
                                       "the count or the offset of the read is negative", kApplication, 0);
  } else {
    EXPECT_FALSE(rig.request->submit(i::op::Write(), buffer, 3, 0));
    expectFailure<AIORequestException>(rig.handler.events, "submission-failed", "::io_submit() failed for write",
                                       kSystemCall, EBADF);
  }
  EXPECT_EQ(rig.dispatcher.pending(), 0);
  rig.dispatcher.wait();  // returns at once
}

TEST_P(AsyncDispatchers, HeldRequestsCompleteWithTheSentinelAndWaitForSkipsTheKernelWhenIdle) {
  QUOREL_REQUIRE_FAULT_POINT("syscall");
  Rig rig("abcdef", make(4), true);
  std::unique_ptr<Request> second(rig.dispatcher.newRequestFor(&rig.handler, rig.endpoint));
  {
    test::fault::Injection never("syscall", EIO, 1000000);
    EXPECT_TRUE(rig.request->submit(i::op::Read(), nullptr, -1, 0));
    EXPECT_TRUE(second->submit(i::op::Write(), nullptr, -1, 0));
    EXPECT_EQ(rig.dispatcher.pending(), 2);
    rig.dispatcher.waitFor(60000);  // returns at once: nothing is in the kernel
    rig.dispatcher.waitFor(60000);
    EXPECT_EQ(test::fault::calls("syscall"), 0);
  }
  const std::vector<Event>& events = rig.handler.events;
  ASSERT_EQ(events.size(), 2u);
  EXPECT_EQ(events[0].slot, "read");
  EXPECT_EQ(events[1].slot, "write");
  EXPECT_EQ(events[1].result, -666);
  EXPECT_EQ(rig.dispatcher.pending(), 0);

  // wait() completes held requests and kernel requests alike.
  rig.handler.events.clear();
  char buffer[3];
  rig.request->submit(i::op::Read(), buffer, 3, 3);
  second->submit(i::op::Write(), nullptr, -1, 0);
  rig.dispatcher.wait();
  ASSERT_EQ(events.size(), 2u);
  EXPECT_EQ(events[0].result, -666);  // held ones go first
  EXPECT_EQ(events[1].result, 3);
  EXPECT_EQ(std::string(buffer, 3), "def");
}

TEST_P(AsyncDispatchers, AThrowingHandlerLeavesEveryOtherRequestToCompleteOnce) {
  Rig rig("abcdefghijklmnopqrst", make(8));
  Dispatcher& dispatcher = rig.dispatcher;
  Recorder& handler = rig.handler;
  std::vector<std::unique_ptr<Request>> requests;
  for (unsigned int n = 0; n < 5; ++n) {
    requests.emplace_back(dispatcher.newRequestFor(&handler, rig.endpoint));
    requests.back()->setID(n);
  }
  char buffers[5][4];
  const auto read = [&](unsigned int n) {
    ASSERT_TRUE(requests[n]->submit(i::op::Read(), buffers[n], 4, 4 * n));
  };
  const auto readBack = [&](unsigned int n) { return std::string(buffers[n], 4); };

  // Held requests: the second one's handler throws; one held after that
  // joins the next wait.
  int throws = 1;
  handler.then = [&throws](Request& request) {
    if (request.id() == 1 && throws-- > 0) throw Thrown();
  };
  for (unsigned int n = 0; n < 3; ++n) requests[n]->submit(i::op::Read(), nullptr, -1, 0);
  EXPECT_THROW(dispatcher.wait(), Thrown);
  EXPECT_EQ(dispatcher.pending(), 1);
  requests[3]->submit(i::op::Write(), nullptr, -1, 0);
  dispatcher.wait();
  EXPECT_EQ(countsByID(handler.events, 5), (std::vector<int>{1, 1, 1, 1, 0}));

  // Kernel events taken together: the first handler throws; the other two
  // complete at the next wait, even one that gives the kernel no time.
  handler.events.clear();
  handler.then = [&handler](Request&) {
    if (handler.events.size() == 1) throw Thrown();
  };
  for (unsigned int n = 0; n < 3; ++n) read(n);
  EXPECT_THROW(dispatcher.wait(), Thrown);
  EXPECT_EQ(dispatcher.pending(), 2);
  dispatcher.waitFor(0);
  ASSERT_EQ(dispatcher.pending(), 0);
  EXPECT_EQ(countsByID(handler.events, 5), (std::vector<int>{1, 1, 1, 0, 0}));
  EXPECT_EQ(readBack(0) + readBack(1) + readBack(2), "abcdefghijkl");

  // A handler that waits: its wait completes what the outer one had taken
  // and what it takes itself; each request once.
  handler.events.clear();
  handler.then = [&](Request& request) {
    if (request.id() != 0) return;
    read(3);
    read(4);
    dispatcher.wait();
  };
  for (unsigned int n = 0; n < 3; ++n) read(n);
  dispatcher.wait();
  EXPECT_EQ(dispatcher.pending(), 0);
  EXPECT_EQ(countsByID(handler.events, 5), (std::vector<int>{1, 1, 1, 1, 1}));
  EXPECT_EQ(readBack(3) + readBack(4), "mnopqrst");
}

TEST_P(AsyncDispatchers, WaitForReturnsAfterItsTimeWhenTheKernelCompletesNothing) {
  // A request that stays in flight: a read of an empty pipe through io_uring;
  // a submission the kernel never hears of through native AIO.
  std::unique_ptr<test::fault::StandIn> pretend;
  Pipe pipe{open::Spec(), open::Spec()};
  if (!uring()) {
    QUOREL_REQUIRE_FAULT_POINT("syscall");
    pretend.reset(new test::fault::StandIn(
        "syscall", reinterpret_cast<void*>(+[](long number, long a, long b, long c, long d, long e, long f) -> long {
          if (number == SYS_io_submit) return 1;
          return ::syscall(number, a, b, c, d, e, f);
        })));
  }
  Dispatcher dispatcher = make(4);
  Recorder handler;
  std::unique_ptr<Request> request(dispatcher.newRequestFor(&handler, pipe.forRead()));
  char buffer[3];
  ASSERT_TRUE(request->submit(i::op::Read(), buffer, 3, 0));
  // The longer of two waits: a signal ends a wait of native AIO, and the
  // kernel sends one to a thread once after a ring it used is torn down.
  const auto waited = [&dispatcher] {
    const sal::time::absolute before = sal::time::milli::now();
    dispatcher.waitFor(50);
    return sal::time::milli::now() - before;
  };
  EXPECT_GE(std::max(waited(), waited()), 40);
  EXPECT_TRUE(handler.events.empty());
  EXPECT_EQ(dispatcher.pending(), 1);
}

// The interrupt signal's disposition, restored after a test.
struct KeepSignal6 {
  KeepSignal6() { ::sigaction(SIGABRT, nullptr, &saved); }
  ~KeepSignal6() { ::sigaction(SIGABRT, &saved, nullptr); }
  static void set(void (*handler)(int)) {
    struct sigaction action = {};
    action.sa_handler = handler;
    ::sigaction(SIGABRT, &action, nullptr);
  }
  static void (*now())(int) {
    struct sigaction action;
    ::sigaction(SIGABRT, nullptr, &action);
    return action.sa_handler;
  }
  struct sigaction saved;
};

// Whether each signal is blocked in the calling thread (signal n at n - 1).
std::vector<int> currentMask() {
  sigset_t mask;
  ::pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  std::vector<int> blocked;
  for (int signal = 1; signal < NSIG; ++signal) blocked.push_back(sigismember(&mask, signal));
  return blocked;
}

// Stand-in for the kernel's AIO calls: io_submit keeps a request in flight
// for ever; once armed, the next io_getevents lands an interrupt from another
// thread in front of the kernel, or hands the completion over and lands it on
// the way back.
namespace interruptible {
Dispatcher* owner = nullptr;
iocb* submitted = nullptr;
std::atomic<bool> landBeforeTheKernel(false);
std::atomic<bool> completing(false);
std::atomic<bool> enteringTheKernel(false);
std::atomic<bool> blockedForEver(false);

// Has another thread interrupt the owner while the signal is blocked, then
// unblocks it: the signal is handled on the way back from that call.
void interruptHere() {
  sigset_t interrupt;
  sigemptyset(&interrupt);
  sigaddset(&interrupt, SIGABRT);
  ::pthread_sigmask(SIG_BLOCK, &interrupt, nullptr);
  {
    std::thread other([] { owner->interrupt(); });
    other.join();
  }
  ::pthread_sigmask(SIG_UNBLOCK, &interrupt, nullptr);
}

long aioCalls(long number, long a, long b, long c, long d, long e, long f) {
  if (number == SYS_io_submit) {
    submitted = reinterpret_cast<iocb**>(c)[0];
    return 1;
  }
  if (number == SYS_io_getevents && completing.exchange(false)) {
    io_event* events = reinterpret_cast<io_event*>(d);
    events[0].data = submitted->aio_data;
    events[0].obj = reinterpret_cast<pod::uintptr>(submitted);
    events[0].res = 3;
    events[0].res2 = 0;
    interruptHere();
    return 1;
  }
  if (number == SYS_io_getevents && landBeforeTheKernel.exchange(false)) {
    interruptHere();
    // Still here: io_getevents would now wait for a completion that never comes.
    const timespec* timeout = reinterpret_cast<const timespec*>(e);
    if (timeout == nullptr || timeout->tv_sec != 0 || timeout->tv_nsec != 0) {
      blockedForEver = true;
      errno = EINTR;
      return -1;
    }
  }
  if (number == SYS_io_getevents) enteringTheKernel = true;
  return ::syscall(number, a, b, c, d, e, f);
}
}  // namespace interruptible

TEST(AsyncDispatcher, OneInterruptFromAnotherThreadEndsTheWaitWhereverItLands) {
  QUOREL_REQUIRE_FAULT_POINT("syscall");
  KeepSignal6 keep;
  KeepSignal6::set(SIG_DFL);
  Rig rig("abc", asyncSpec(), 4);
  Dispatcher& dispatcher = rig.dispatcher;
  Recorder& handler = rig.handler;
  dispatcher.interrupt();  // the owner: no signal, disposition untouched
  EXPECT_EQ(KeepSignal6::now(), SIG_DFL);
  interruptible::owner = &dispatcher;
  test::fault::StandIn pretend("syscall", reinterpret_cast<void*>(interruptible::aioCalls));
  char buffer[3];
  ASSERT_TRUE(rig.request->submit(i::op::Read(), buffer, 3, 0));
  dispatcher.lock();
  const std::vector<int> locked = currentMask();

  // Landing in front of the kernel, in wait() and in waitFor().
  for (bool timed : {false, true}) {
    SCOPED_TRACE(timed ? "waitFor" : "wait");
    interruptible::blockedForEver = false;
    interruptible::landBeforeTheKernel = true;
    if (timed) {
      dispatcher.waitFor(24 * 3600 * 1000);
    } else {
      dispatcher.wait();
    }
    EXPECT_FALSE(interruptible::blockedForEver);
    ASSERT_EQ(currentMask(), locked);  // as lock() set it: the next interrupt gets through
  }

  // Landing while the owner waits in the kernel (or just before).
  interruptible::enteringTheKernel = false;
  std::thread interrupter([&dispatcher] {
    while (!interruptible::enteringTheKernel.load()) std::this_thread::yield();
    dispatcher.interrupt();
  });
  dispatcher.wait();
  interrupter.join();
  EXPECT_EQ(dispatcher.pending(), 1);
  EXPECT_TRUE(handler.events.empty());

  // Landing as io_getevents returns with a completion: it is not lost.
  interruptible::completing = true;
  dispatcher.wait();
  EXPECT_EQ(dispatcher.pending(), 0);
  ASSERT_EQ(handler.events.size(), 1u);
  EXPECT_EQ(handler.events[0].result, 3);

  EXPECT_NE(KeepSignal6::now(), SIG_DFL);  // the dispatcher's own handler
  EXPECT_EQ(currentMask(), locked);
  dispatcher.unlock();
}

TEST_P(AsyncDispatchers, LocksNestAndOnlyTheOwnerUnlocks) {
  Dispatcher dispatcher = make(1);
  const std::vector<int> before = currentMask();
  ASSERT_EQ(before[SIGTERM - 1], 0);
  dispatcher.lock();
  dispatcher.lock();
  std::thread([&dispatcher] {
    sigset_t none;
    sigemptyset(&none);
    ::pthread_sigmask(SIG_SETMASK, &none, nullptr);
    const std::vector<int> mine = currentMask();
    dispatcher.unlock();  // not the owner: nothing happens
    EXPECT_EQ(currentMask(), mine);
  }).join();
  dispatcher.unlock();
  std::vector<int> locked = currentMask();
  EXPECT_EQ(locked[SIGTERM - 1], 1);
  EXPECT_EQ(locked[SIGABRT - 1], 0);
  dispatcher.unlock();
  EXPECT_EQ(currentMask(), before);
  dispatcher.unlock();  // no longer locked
  EXPECT_EQ(currentMask(), before);

  dispatcher.lock();  // locks again after a balanced pair
  EXPECT_EQ(currentMask()[SIGTERM - 1], 1);
  dispatcher.unlock();
  EXPECT_EQ(currentMask(), before);
}

TEST(AsyncDispatcher, AProgramsOwnInterruptHandlerIsKept) {
  KeepSignal6 keep;
  static std::atomic<int> caught(0);
  void (*own)(int) = +[](int) { caught.fetch_add(1); };
  KeepSignal6::set(own);
  Dispatcher dispatcher = Dispatcher::create(asyncSpec(), 1);
  std::thread([&dispatcher] { dispatcher.interrupt(); }).join();
  EXPECT_TRUE(test::eventually([] { return caught.load() == 1; }));
  EXPECT_EQ(KeepSignal6::now(), own);
}

TEST(AsyncDispatcher, SignalCallsThatFailAreReported) {
  QUOREL_REQUIRE_FAULT_POINT("pthread_sigmask");
  KeepSignal6 keep;
  Dispatcher dispatcher = Dispatcher::create(asyncSpec(), 1);
  QUOREL_EXPECT_FAULT("pthread_sigmask", EINVAL, dispatcher.lock(), AIOException, "::pthread_sigmask() failed",
                      kSystemCall, EINVAL);
  dispatcher.unlock();  // never locked: nothing to restore
  dispatcher.lock();
  QUOREL_EXPECT_FAULT("pthread_sigmask", EPERM, dispatcher.unlock(), AIOException, "::pthread_sigmask() failed",
                      kSystemCall, EPERM);
  dispatcher.unlock();  // still locked after the failure: this one restores
  std::thread([&dispatcher] {
    QUOREL_EXPECT_FAULT("sigaction", EINVAL, dispatcher.interrupt(), AIOException, "::sigaction() failed", kSystemCall,
                        EINVAL);
    {
      test::fault::Injection fail("sigaction", EINVAL, 2);  // the query works, installing fails
      KeepSignal6::set(SIG_DFL);
      QUOREL_EXPECT_THROW(dispatcher.interrupt(), AIOException, "::sigaction() failed", kSystemCall, EINVAL);
    }
    QUOREL_EXPECT_FAULT("pthread_kill", ESRCH, dispatcher.interrupt(), AIOException, "::pthread_kill() failed",
                        kSystemCall, ESRCH);
  }).join();
}

int destroyed = 0;  // io_destroy calls seen

TEST(AsyncDispatcher, WithoutAKernelContextEverySubmissionIsRefusedAndAContextIsReleasedWithItsDispatcher) {
  QUOREL_REQUIRE_FAULT_POINT("syscall");
  ScratchFile file;
  file.fill("abc");
  Dispatcher dispatcher;
  {
    test::fault::Injection fail("syscall", EAGAIN);  // io_setup: the system's AIO limit is reached
    dispatcher = Dispatcher::create(asyncSpec(), 4);
  }
  Recorder handler;
  std::unique_ptr<Request> request(dispatcher.newRequestFor(&handler, file.open(true, false)));
  char buffer[3];
  EXPECT_FALSE(request->submit(i::op::Read(), buffer, 3, 0));
  expectFailure<AIORequestException>(handler.events, "submission-failed", "::io_submit() failed for read", kSystemCall,
                                     EINVAL);
  test::fault::StandIn watch("syscall", reinterpret_cast<void*>(+[](long number, long a, long b, long c, long d,
                                                                     long e, long f) -> long {
    static_cast<void>(number == SYS_io_destroy && ++destroyed);
    return ::syscall(number, a, b, c, d, e, f);
  }));
  { Dispatcher released = Dispatcher::create(asyncSpec(), 8); }
  EXPECT_EQ(destroyed, 1);
}

// ---------------------------------------------------------------- io_uring

// Ends the owner's wait in progress, or its next one: an interrupt is never
// lost. The owner's own interrupt does nothing.
TEST(URingDispatcher, AnInterruptFromAnotherThreadEndsTheWaitInProgressOrTheNext) {
  QUOREL_REQUIRE_URING();
  Pipe pipe{open::Spec(), open::Spec()};
  Dispatcher dispatcher = Dispatcher::createURing(4);
  Recorder handler;
  std::unique_ptr<Request> request(dispatcher.newRequestFor(&handler, pipe.forRead()));
  char buffer[4];
  ASSERT_TRUE(request->submit(i::op::Read(), buffer, 4, 0));  // stays in flight: the pipe is empty
  dispatcher.lock();
  std::thread interrupter([&dispatcher] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    dispatcher.interrupt();
  });
  dispatcher.wait();
  interrupter.join();
  std::thread([&dispatcher] { dispatcher.interrupt(); }).join();
  dispatcher.waitFor(24 * 3600 * 1000);  // the one that came before it
  EXPECT_EQ(dispatcher.pending(), 1);
  EXPECT_TRUE(handler.events.empty());

  dispatcher.interrupt();
  std::thread writer([&pipe] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(::write(static_cast<int>(pipe.forWrite().id()), "pipe", 4), 4);
  });
  dispatcher.wait();
  writer.join();
  expectDone(handler.events, "read", 4);
  dispatcher.unlock();
}

// Fails io_uring_setup with error in this process from now on (the filter is
// inherited and cannot be undone: children only).
bool refuseURingSetup(int error) {
  struct sock_filter filter[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, arch)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, sizeof(void*) == 4 ? AUDIT_ARCH_I386 : AUDIT_ARCH_X86_64, 1, 0),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, __NR_io_uring_setup, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | (static_cast<unsigned int>(error) & SECCOMP_RET_DATA)),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  struct sock_fprog program = {static_cast<unsigned short>(sizeof filter / sizeof filter[0]), filter};
  return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

// What the stand-in for open shows as /proc/sys/kernel/io_uring_disabled: a
// pipe's read end holding the setting, or no such file.
int disabledSetting = -1;
int openSetting(const char* path, int, int) {
  if (std::strcmp(path, "/proc/sys/kernel/io_uring_disabled") != 0 || disabledSetting < 0) {
    errno = ENOENT;
    return -1;
  }
  return disabledSetting;
}

TEST(URingDispatcher, WhereTheKernelRefusesIoUringCreationFailsOrFallsBackToNativeAIO) {
  ScratchFile file;
  file.fill("abc");
  for (int error : {EPERM, ENOSYS}) {
    SCOPED_TRACE(error);
    std::fflush(stdout);
    const pid_t child = ::fork();
    if (child == 0) {
      if (!refuseURingSetup(error)) ::_exit(3);
      {
        test::fault::StandIn setting("open", reinterpret_cast<void*>(openSetting));
        QUOREL_EXPECT_THROW(Dispatcher::createURing(8), AIOException, "::io_uring_setup() failed", kSystemCall,
                            error);
        int ends[2];
        if (::pipe(ends) != 0 || ::write(ends[1], "2\n", 2) != 2) ::_exit(4);
        disabledSetting = ends[0];  // the library closes it
        auto e = QUOREL_EXPECT_THROW(Dispatcher::createURing(8), AIOException,
                                     "::io_uring_setup() failed (kernel.io_uring_disabled is 2)", kSystemCall, error);
        if (e) {
          EXPECT_STREQ(e->where(),
                       "quorel::sal::xio::impl::ADispatcher* quorel::sal::xio::impl::createURingWith(int, bool)");
        }
      }
      Dispatcher fallback = Dispatcher::createURing(8, mx::type::Async());
      EXPECT_FALSE(fallback.usesURing());
      EXPECT_EQ(fallback.muxSpec().words[mx::kType], mx::type::Async::value);
      char buffer[3];
      expectDone(runOne(fallback, file.open(true, false), false, buffer, 3, 0), "read", 3);
      std::fflush(stdout);
      ::_exit(::testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status)) << status;
    if (WEXITSTATUS(status) == 3) GTEST_SKIP() << "this process cannot install a seccomp filter";
    EXPECT_EQ(WEXITSTATUS(status), 0) << "the child's checks failed (above)";
  }
  if (noURing().empty()) {
    Dispatcher uring = Dispatcher::createURing(8, mx::type::Async());
    EXPECT_TRUE(uring.usesURing());
    EXPECT_EQ(uring.muxSpec().words[mx::kType], mx::type::Async::value);
  }
}

// The mappings of io_uring rings in this process.
int ringMappings() {
  std::ifstream maps("/proc/self/maps");
  int count = 0;
  for (std::string line; std::getline(maps, line);) count += line.find("[io_uring]") != std::string::npos ? 1 : 0;
  return count;
}

long clearFeatures(long number, long a, long b, long c, long d, long e, long f) {
  const long result = ::syscall(number, a, b, c, d, e, f);
  if (number == __NR_io_uring_setup && result >= 0) {
    reinterpret_cast<io_uring_params*>(b)->features &= ~IORING_FEAT_EXT_ARG;
  }
  return result;
}

TEST(URingDispatcher, EveryFailureReleasesTheRingAndDestructionCancelsWhatIsInTheKernel) {
  QUOREL_REQUIRE_URING();
  QUOREL_EXPECT_THROW(Dispatcher::createURing(0), InvalidArgumentException, "the queue depth must be at least 1",
                      kApplication, 0);
  QUOREL_EXPECT_THROW(Dispatcher::createURing(32769), InvalidArgumentException, "the queue depth must be at most 32768",
                      kApplication, 32769);
  const int descriptors = test::openDescriptorCount();
  for (int nth : {1, 2}) {  // the rings, then the entries
    if (!test::fault::available("mmap")) break;
    test::fault::Injection fail("mmap", ENOMEM, nth);
    QUOREL_EXPECT_THROW(Dispatcher::createURing(8), AIOException, "::mmap() failed", kSystemCall, ENOMEM);
  }
  QUOREL_EXPECT_FAULT("eventfd", EMFILE, Dispatcher::createURing(8), AIOException, "::eventfd() failed", kSystemCall,
                      EMFILE);
  EXPECT_EQ(test::openDescriptorCount(), descriptors);
  EXPECT_EQ(ringMappings(), 0);

  // A read of an empty pipe in the kernel is cancelled: the byte written
  // after the dispatcher is gone stays in the pipe.
  Pipe pipe{open::Spec(), open::Spec()};
  Recorder handler;
  char buffer[1];
  {
    Dispatcher dispatcher = Dispatcher::createURing(4);
    std::unique_ptr<Request> request(dispatcher.newRequestFor(&handler, pipe.forRead()));
    request->submit(i::op::Read(), buffer, 1, 0);
    dispatcher.waitFor(0);
    EXPECT_EQ(dispatcher.pending(), 1);
  }
  ASSERT_EQ(::write(static_cast<int>(pipe.forWrite().id()), "x", 1), 1);
  EXPECT_EQ(::read(static_cast<int>(pipe.forRead().id()), buffer, 1), 1);
  EXPECT_TRUE(handler.events.empty());
  EXPECT_EQ(ringMappings(), 0);

  if (!test::fault::available("syscall")) return;
  // A kernel whose io_uring lacks a feature: refused, or the fallback.
  {
    test::fault::StandIn older("syscall", reinterpret_cast<void*>(clearFeatures));
    auto e = test::caught<OperationNotSupportedException>([] { Dispatcher::createURing(8); });
    if (e) {
      EXPECT_EQ(e->code() & (IORING_FEAT_EXT_ARG | IORING_FEAT_NODROP), IORING_FEAT_NODROP);  // the kernel's word
      test::expectFields(*e, "the kernel's io_uring lacks the features the dispatcher needs", kApplication, e->code());
    }
    EXPECT_FALSE(Dispatcher::createURing(8, mx::type::Async()).usesURing());
  }
  EXPECT_EQ(test::openDescriptorCount(), descriptors + 2);  // the pipe

  // A batch the kernel refuses: its requests reach the submission-failed slot.
  Rig rig("abc", Dispatcher::createURing(4));
  rig.request->submit(i::op::Read(), buffer, 1, 0);
  {
    test::fault::Injection fail("syscall", EFAULT);
    rig.dispatcher.wait();
  }
  expectFailure<AIORequestException>(rig.handler.events, "submission-failed", "::io_uring_enter() failed for read",
                                     kSystemCall, EFAULT);
  EXPECT_EQ(rig.dispatcher.pending(), 0);
  rig.handler.events.clear();
  rig.request->submit(i::op::Read(), buffer, 1, 2);
  rig.dispatcher.wait();
  expectDone(rig.handler.events, "read", 1);
  EXPECT_EQ(buffer[0], 'c');
}

// ------------------------------------------------------------------ sockets

// One loopback connection echoed through the socket dispatcher: the client
// writes its message and reads the echo; the server reads and writes back what
// each read brought until the whole message went round.
class EchoPair : public AHandler {
 public:
  static const int kSize = 64;

  EchoPair(Dispatcher& d, const Endpoint& clientEnd, const Endpoint& serverEnd, int k)
      : clientWrite(d.newRequestFor(this, clientEnd)), clientRead(d.newRequestFor(this, clientEnd)),
        serverRead(d.newRequestFor(this, serverEnd)), serverWrite(d.newRequestFor(this, serverEnd)) {
    for (int n = 0; n < kSize; ++n) out[n] = static_cast<char>(k * 31 + n);
    clientWrite->submit(i::op::Write(), out, kSize, 0);
    clientRead->submit(i::op::Read(), in, kSize, 0);
    serverRead->submit(i::op::Read(), relay, kSize, 0);
  }

  void on(i::op::Read, int result, Request& request) override {
    if (result <= 0) return fail("an early end");
    if (&request == clientRead.get()) {
      received += result;
      if (received < kSize) clientRead->submit(i::op::Read(), in + received, kSize - received, 0);
    } else {
      serverWrite->submit(i::op::Write(), relay, result, 0);
    }
  }
  void on(i::op::Write, int result, Request& request) override {
    if (&request != serverWrite.get()) return;
    relayed += result;
    if (relayed < kSize) serverRead->submit(i::op::Read(), relay, kSize - relayed, 0);
  }
  void on(AIOCompletionException&, Request&) override { fail("completion"); }
  void on(AIORequestException&, Request&) override { fail("submission"); }
  void on(AIOCancellationException&, Request&) override { fail("cancellation"); }
  void on(ReadException& e, Request&) override { fail(e.why()); }
  void on(WriteException& e, Request&) override { fail(e.why()); }

  bool echoed() const { return received == kSize && std::memcmp(in, out, kSize) == 0; }
  std::string failure;

 private:
  void fail(const std::string& why) { failure = why; }

  std::unique_ptr<Request> clientWrite, clientRead, serverRead, serverWrite;
  char out[kSize], in[kSize], relay[kSize];
  int received = 0, relayed = 0;
};

TEST(SelectDispatcher, EchoesAThousandConcurrentConnectionsWithEveryByteChecked) {
  const test::DescriptorLimit limit(2 * 1000 + 64);
  if (!limit.ok()) GTEST_SKIP() << "needs 2064 descriptors; RLIMIT_NOFILE allows " << limit.hardLimit();
  Dispatcher dispatcher = Dispatcher::createSelecting();
  sal::io::TCPServerSocket server(test::loopbackBinding(AF_INET), false);
  const sal::io::TCPConnectingAddress to("127.0.0.1", server.selfAddress().port());
  std::vector<std::unique_ptr<EchoPair>> pairs;
  for (int k = 0; k < 1000; ++k) {
    sal::io::TCPClientSocket client(to, true, false);
    pairs.emplace_back(new EchoPair(dispatcher, Endpoint::open(client), Endpoint::open(server.accept(5000)), k));
  }
  dispatcher.wait();
  EXPECT_EQ(dispatcher.pending(), 0);
  for (const std::unique_ptr<EchoPair>& pair : pairs) {
    EXPECT_EQ(pair->failure, "");
    EXPECT_TRUE(pair->echoed());
  }
}

TEST(SelectDispatcher, WritesGoOutWholeAndPeersEndsResetsAndFailedCallsReachTheirSlots) {
  test::Connection c;
  Dispatcher dispatcher = Dispatcher::createSelecting();
  const Endpoint sender = Endpoint::open(c.accepted);
  // 8 MiB: far more than the socket buffers take at once.
  const int kSize = 8 << 20;
  std::vector<char> out(kSize), in(kSize);
  for (size_t n = 0; n < out.size(); ++n) out[n] = static_cast<char>(n * 13);
  std::thread reader([&] {
    for (int done = 0; done < kSize;) done += c.client.get(in.data() + done, kSize - done);
  });
  expectDone(runOne(dispatcher, sender, true, out.data(), kSize, 0), "write", kSize);
  reader.join();
  EXPECT_TRUE(in == out);

  const Endpoint receiver = Endpoint::open(c.client);
  c.accepted.put("end", 3);
  c.accepted.shutdownWrite();
  expectDone(runOne(dispatcher, receiver, false, in.data(), 64, 0), "read", 3);
  expectDone(runOne(dispatcher, receiver, false, in.data(), 64, 0), "read", 0);  // the peer's end
  expectDone(runOne(dispatcher, receiver, false, nullptr, -1, 0), "read", -666);  // no transfer

  // A reset peer: the read fails, then the write, without SIGPIPE.
  test::Connection d;
  const Endpoint reset = Endpoint::open(d.client);
  d.accepted.enableForcefulClose();
  d.accepted.close(false);  // no shutdown first: a reset, not an end
  expectFailure<ReadException>(runOne(dispatcher, reset, false, in.data(), 64, 0), "read-failed",
                               "::recv() failed", kSystemCall, ECONNRESET);
  expectFailure<WriteException>(runOne(dispatcher, reset, true, out.data(), 64, 0), "write-failed",
                                "::send() failed", kSystemCall, EPIPE);
  // A datagram each way on UDP.
  sal::io::UDPSocket a(test::loopbackUDPBinding(AF_INET), sal::io::UDPSocket::kNone, false);
  sal::io::UDPSocket b(test::loopbackUDPBinding(AF_INET), sal::io::UDPSocket::kNone, false);
  a.connectTo(a.newPeerAddressAt("127.0.0.1", b.selfAddress().port()));
  expectDone(runOne(dispatcher, Endpoint::open(a), true, out.data(), 100, 0), "write", 100);
  expectDone(runOne(dispatcher, Endpoint::open(b), false, in.data(), 1000, 0), "read", 100);
}

TEST(SelectDispatcher, InterruptEndsAWaitAndClosingOrNestingIsReported) {
  test::Connection c;
  Dispatcher dispatcher = Dispatcher::createSelecting();
  Endpoint endpoint = Endpoint::open(c.client);
  Recorder handler;
  std::unique_ptr<Request> request(dispatcher.newRequestFor(&handler, endpoint));
  char buffer[16];
  request->submit(i::op::Read(), buffer, sizeof buffer, 0);
  std::thread interrupter([&dispatcher] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    dispatcher.interrupt();
  });
  dispatcher.wait();  // returns on the interrupt, the read still queued
  interrupter.join();
  EXPECT_EQ(dispatcher.pending(), 1);
  EXPECT_TRUE(handler.events.empty());

  // A handler may not wait on the dispatcher that runs it.
  handler.then = [&dispatcher](Request&) { dispatcher.wait(); };
  c.accepted.put("x", 1);
  QUOREL_EXPECT_THROW(dispatcher.wait(), sal::xio::Exception, "the socket dispatcher is already waiting",
                      kApplication, 0);
  handler.then = nullptr;

  // Closing the socket through any of its objects fails what is queued on it.
  request->submit(i::op::Read(), buffer, sizeof buffer, 0);
  dispatcher.waitFor(0);
  c.client.close();
  handler.events.clear();
  dispatcher.wait();
  expectFailure<ReadException>(handler.events, "read-failed", "::recv() failed", kSystemCall, EBADF);
  EXPECT_EQ(endpoint.id(), i::id::kNone);
  EXPECT_EQ(dispatcher.pending(), 0);
}

}  // namespace
}  // namespace quorel
