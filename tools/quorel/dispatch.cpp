// quorel read and quorel discard: requests through the library's dispatchers.
//
//   quorel read [PATH] [--async|--uring|--sync] [--depth N] [--bs SIZE] [--size SIZE] [--ios N] [--direct]
//               [--random] [--scsi [--rw10|--rw16|--rw32]]
//   quorel discard PATH --offset O --length L (--unmap|--trim|--satl)
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <iomanip>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <typeinfo>
#include <vector>

#include <quorel/quorel.h>

#include "buffer.h"
#include "command.h"
#include "json.h"

namespace tool {

namespace {

namespace xio = quorel::sal::xio;
namespace tick = quorel::sal::time::tick;
using quorel::pod::uint64;

// A scratch file of size bytes that is removed when the run ends.
class ScratchFile {
 public:
  explicit ScratchFile(long long size) {
    const char* directory = std::getenv("TMPDIR");
    path_ = std::string(directory != nullptr && *directory != '\0' ? directory : "/tmp") + "/quorel-read-" +
            std::to_string(::getpid());
    xio::fopen::Spec spec;
    spec.set<xio::i::fopen::write::Enabled>()
        .set<xio::i::fopen::write::create::Enabled>()
        .set<xio::i::fopen::write::init::Truncate>();
    xio::File file(xio::Endpoint::open(path_, spec));
    created_ = true;
    const int chunk = 1 << 20;
    std::vector<char> pattern(chunk);
    for (size_t n = 0; n < pattern.size(); ++n) pattern[n] = static_cast<char>(n * 31 + 7);
    for (long long done = 0; done < size;) {
      const int n = static_cast<int>(std::min<long long>(chunk, size - done));
      done += file.write(pattern.data(), n, done);
    }
    file.sync();
  }
  ~ScratchFile() {
    if (created_) std::remove(path_.c_str());
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  bool created_ = false;
};

// count offsets of whole blocks of the first size bytes: in order (wrapping
// around), or a fixed pseudo-random walk.
class Offsets {
 public:
  Offsets(long long size, int blockSize, bool random, long long count)
      : blocks_(size / blockSize), count_(blocks_ > 0 ? count : 0), blockSize_(blockSize), random_(random) {}
  long long next() {
    const long long n = issued_++;
    if (!random_) return n % blocks_ * blockSize_;
    state_ ^= state_ << 13;
    state_ ^= state_ >> 7;
    state_ ^= state_ << 17;
    return static_cast<long long>(state_ % static_cast<uint64>(blocks_)) * blockSize_;
  }
  bool done() const { return issued_ >= count_; }

 private:
  long long blocks_;
  long long count_;
  int blockSize_;
  bool random_;
  long long issued_ = 0;
  uint64 state_ = 0x9E3779B97F4A7C15ULL;
};

// A handler that keeps the first failure any request reports.
class AFailureKeeper : public xio::AHandler {
 public:
  void on(xio::AIOCompletionException& e, xio::Request&) override { keep(e); }
  void on(xio::AIORequestException& e, xio::Request&) override {
    if (failure_.empty()) submission_ = true;
    keep(e);
  }
  void on(xio::AIOCancellationException& e, xio::Request&) override { keep(e); }
  void on(xio::ReadException& e, xio::Request&) override { keep(e); }
  void on(xio::WriteException& e, xio::Request&) override { keep(e); }
  using xio::AHandler::on;

  bool failed() const { return !failure_.empty(); }
  const std::string& failure() const { return failure_; }
  int code() const { return code_; }
  // Whether the first failure was a submission the kernel refused.
  bool submission() const { return submission_; }

 protected:
  void keep(const quorel::Exception& e) {
    if (!failure_.empty()) return;
    failure_ = e.asSimpleString();
    code_ = e.code();
  }

 private:
  std::string failure_;
  int code_ = 0;
  bool submission_ = false;
};

// Reports a failed run with what diagnose.cpp finds behind it; exit status 1.
int failed(const std::string& failure, const std::string& advice) {
  std::cerr << "quorel: " << failure << "\n" << advice;
  return 1;
}

// Runs what opens or queries path; a refusal the node's permissions explain
// ends the command with advice.
template <class Open>
auto orAdvice(const std::string& path, Open open) -> decltype(open()) {
  try {
    return open();
  } catch (const quorel::Exception& e) {
    const std::string advice =
        e.domain() == quorel::sal::i::err::domain::kSystemCall ? deviceAdvice(path, e.code(), false) : "";
    if (advice.empty()) throw;
    throw Exit{failed(e.asSimpleString(), advice)};
  }
}

xio::Endpoint adoptExclusive(const std::string& path, const xio::fopen::Spec& spec) {
  return xio::Endpoint::adopt(xio::fopen::openExclusive(path, spec), xio::open::Spec());
}

// Keeps every request busy until all offsets are read, and counts.
class Reader : public AFailureKeeper {
 public:
  Reader(Offsets& offsets, int blockSize, bool progress)
      : offsets_(offsets), blockSize_(blockSize), progress_(progress), started_(tick::now()), shown_(started_) {}

  void start(xio::Request& request) {
    if (offsets_.done() || failed()) return;
    submitted_[request.id()] = tick::now();
    request.submit(xio::i::op::Read(), buffers_[request.id()], blockSize_, offsets_.next());
  }
  void add(char* buffer) {
    buffers_.push_back(buffer);
    submitted_.push_back(0);
  }

  void on(xio::i::op::Read, int result, xio::Request& request) override {
    completed(submitted_[request.id()], result);
    start(request);
  }
  void on(xio::i::op::Write, int, xio::Request&) override {}

  // The synchronous SCSI path: each request goes through the transfer, in as
  // many commands as the device takes.
  void run(xio::scsi::Transfer& transfer) {
    while (!offsets_.done() && !failed()) {
      const uint64 started = tick::now();
      try {
        completed(started, static_cast<long long>(transfer.read(buffers_[0], static_cast<uint64>(blockSize_),
                                                                static_cast<uint64>(offsets_.next()))));
      } catch (const quorel::Exception& e) {
        keep(e);
      }
    }
  }

  void completed(uint64 submitted, long long result) {
    const uint64 now = tick::now();
    latency_ += now - submitted;
    bytes_ += result;
    ++ios_;
    if (progress_ && tick::as::milli(shown_, now) >= 500) {
      shown_ = now;
      std::cerr << "\r  " << bytesText(bytes_ / (1 << 20) * (1 << 20)) << " read, " << ios_ << " I/Os, "
                << std::fixed << std::setprecision(0) << ios_ / seconds(now) << " IOPS   " << std::flush;
    }
  }

  void report(std::ostream& out, const std::string& path) const {
    const uint64 now = tick::now();
    if (progress_ && tick::as::milli(started_, now) >= 500) std::cerr << "\r" << std::string(70, ' ') << "\r";
    const double elapsed = seconds(now);
    if (options.json) {
      out << json::Object()
                 .add("path", path)
                 .add("bytes", bytes_)
                 .add("ios", ios_)
                 .add("iops", elapsed > 0 ? ios_ / elapsed : 0)
                 .add("megabytesPerSecond", elapsed > 0 ? bytes_ / elapsed / 1e6 : 0)
                 .add("meanLatencyMicroseconds", ios_ > 0 ? static_cast<double>(latency_) / ios_ / 1000 : 0)
                 .add("elapsedSeconds", elapsed)
                 .add("failure", failure())
                 .str()
          << "\n";
      return;
    }
    out << std::fixed << "bytes " << bytes_ << "  ios " << ios_ << "  IOPS " << std::setprecision(0)
        << (elapsed > 0 ? ios_ / elapsed : 0) << "  MB/s " << std::setprecision(1)
        << (elapsed > 0 ? bytes_ / elapsed / 1e6 : 0) << "  mean latency " << std::setprecision(1)
        << (ios_ > 0 ? static_cast<double>(latency_) / ios_ / 1000 : 0) << " us  elapsed " << std::setprecision(3)
        << elapsed << " s\n";
  }

 private:
  double seconds(uint64 now) const { return static_cast<double>(tick::as::nano(started_, now)) / 1e9; }

  Offsets& offsets_;
  int blockSize_;
  bool progress_;
  std::vector<char*> buffers_;
  std::vector<uint64> submitted_;
  uint64 started_;
  uint64 shown_;
  uint64 latency_ = 0;
  long long bytes_ = 0;
  long long ios_ = 0;
};

// What a 10-byte READ carries: the low 32 bits of the LBA and the low 16 of
// the block count, without a range check (the library builds it so, on
// purpose). The tool never lets it wrap.
const uint64 kRead10Blocks = 1ULL << 32;
const uint64 kRead10Count = 0xFFFF;

// The SCSI READ size for a read of the first `used` bytes of a device of
// deviceBytes in requests of blockSize bytes, with logical blocks of
// logicalBlock bytes: the asked one (10, 16 or 32), or with 0 the 10-byte
// form unless the device or the read reaches past what it addresses, or a
// request needs more than one 10-byte command, then 16. A read past what a
// forced 10-byte form addresses, and a request that is not a whole number of
// blocks, are refused (a request of more blocks than READ(10) counts goes in
// several).
int scsiReadSize(int asked, long long deviceBytes, long long used, int blockSize, int logicalBlock) {
  if (blockSize % logicalBlock != 0) {
    throw UsageError{"--bs must be a whole number of " + std::to_string(logicalBlock) + "-byte blocks with --scsi"};
  }
  const uint64 count = static_cast<uint64>(blockSize / logicalBlock);
  const uint64 reach = static_cast<uint64>(used / logicalBlock);  // blocks 0 .. reach - 1 are read
  const bool tooFar = reach > kRead10Blocks, tooMany = count > kRead10Count;
  if (asked == 0) {
    return static_cast<uint64>(deviceBytes / logicalBlock) > kRead10Blocks || tooFar || tooMany ? 16 : 10;
  }
  if (asked == 10 && tooFar) {
    throw UsageError{"READ(10) addresses only the first " + std::to_string(kRead10Blocks) +
                     " blocks and this read reaches block " + std::to_string(reach - 1) +
                     " (leave out --rw10, or read less with --size)"};
  }
  return asked;
}

// What one SCSI command may carry on path: its queue's limits for a block
// device; for another node (an sg node, a file) none are known, and each
// request goes as one command (READ(10) still carries at most 65535 blocks).
xio::scsi::Transfer::Limits scsiLimits(const std::string& path, const quorel::sal::fs::Stat& stat, int logicalBlock,
                                       int request) {
  xio::scsi::Transfer::Limits limits;
  if (stat.is(typeid(quorel::sal::fs::i::stat::type::UnixBlockDevice))) {
    limits = xio::scsi::Transfer::Limits::of(quorel::sal::fs::QueueLimits::of(path));
  } else {
    limits.maxTransfer = static_cast<uint64>(request);
  }
  limits.blockSize = static_cast<quorel::pod::uint32>(logicalBlock);
  return limits;
}

// Runs every request of a dispatcher to the end (or to the first failure).
void drain(xio::Dispatcher& dispatcher) {
  while (dispatcher.pending() > 0) dispatcher.wait();
}

}  // namespace

std::string bytesText(long long bytes) {
  std::ostringstream out;
  if (bytes >= (1LL << 30) && bytes % (1LL << 30) == 0) {
    out << bytes / (1LL << 30) << " GiB";
  } else if (bytes >= (1LL << 20) && bytes % (1LL << 20) == 0) {
    out << bytes / (1LL << 20) << " MiB";
  } else if (bytes >= 1024 && bytes % 1024 == 0) {
    out << bytes / 1024 << " KiB";
  } else {
    out << bytes << " bytes";
  }
  return out.str();
}

int read(const std::vector<std::string>& args) {
  std::string path;
  bool async = true, uring = false, direct = false, random = false, scsi = false, depthGiven = false;
  int depth = 32, blockSize = 4096, cdb = 0;  // cdb 0: the tool chooses
  long long size = -1, ios = -1;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    auto value = [&]() -> const std::string& {
      if (++i == args.size()) throw UsageError{a + " needs a value"};
      return args[i];
    };
    if (a == "--async") {
      async = true;
      uring = false;
    } else if (a == "--uring") {
      async = uring = true;
    } else if (a == "--sync") {
      async = uring = false;
    } else if (a == "--depth") {
      depth = parseInteger(value(), "depth");
      if (depth < 1 || depth > 4096) throw UsageError{"invalid depth '" + args[i] + "' (1 to 4096)"};
      depthGiven = true;
    } else if (a == "--bs") {
      blockSize = parseSize(value());
    } else if (a == "--size") {
      size = parseBytes(value(), "size");
    } else if (a == "--ios") {
      ios = parseBytes(value(), "I/O count");
    } else if (a == "--direct") {
      direct = true;
    } else if (a == "--random") {
      random = true;
    } else if (a == "--scsi") {
      scsi = true;
    } else if (a == "--rw10" || a == "--rw16" || a == "--rw32") {
      if (cdb != 0) throw UsageError{"choose one of --rw10, --rw16 and --rw32"};
      cdb = std::stoi(a.substr(4));
    } else if (!a.empty() && a[0] == '-') {
      throw UsageError{"unknown option '" + a + "'"};
    } else if (path.empty()) {
      path = a;
    } else {
      throw UsageError{"read takes one PATH"};
    }
  }
  if (cdb != 0 && !scsi) throw UsageError{"--rw10, --rw16 and --rw32 go with --scsi"};
  if (scsi) {
    if (path.empty()) throw UsageError{"--scsi needs a device PATH"};
    if (uring) throw UsageError{"--scsi runs through the synchronous dispatcher, not --uring"};
    async = false;  // pass-through runs through the synchronous dispatcher
  }
  if (!async && depthGiven && depth != 1) throw UsageError{"the synchronous dispatcher runs one request at a time"};
  if (!async) depth = 1;

  std::unique_ptr<ScratchFile> scratch;
  if (path.empty()) {
    scratch.reset(new ScratchFile(size < 0 ? 64LL << 20 : size));
    path = scratch->path();
  }
  const quorel::sal::fs::Stat stat = orAdvice(path, [&] { return quorel::sal::fs::Stat(path); });
  if (!stat.exists()) throw UsageError{"no such file '" + path + "'"};
  const long long available = static_cast<long long>(stat.size());
  if (size < 0 || size > available) size = available;
  const int logicalBlock = static_cast<int>(stat.blockSize() > 0 ? stat.blockSize() : 512);
  if (scsi) cdb = scsiReadSize(cdb, available, size / blockSize * blockSize, blockSize, logicalBlock);

  xio::fopen::Spec spec;
  spec.set<xio::i::fopen::read::Enabled>();
  if (direct) spec.set<xio::i::fopen::lin::direct::Enabled>();
  xio::Endpoint endpoint = orAdvice(path, [&] { return xio::Endpoint::open(path, spec); });

  xio::mux::Spec mux;
  if (async) {
    mux.set<xio::i::mux::type::Async>();
  } else {
    mux.set<xio::i::mux::type::Sync>();
  }
  if (scsi) {
    mux.set<xio::i::mux::scsi::Enabled>();
    if (cdb == 10) mux.set<xio::i::mux::scsi::rw10>();
    if (cdb == 16) mux.set<xio::i::mux::scsi::rw16>();
    if (cdb == 32) mux.set<xio::i::mux::scsi::rw32>();
  }
  xio::Dispatcher dispatcher = uring ? xio::Dispatcher::createURing(depth) : xio::Dispatcher::create(mux, depth);
  dispatcher.lock();

  Offsets offsets(size, blockSize, random, ios < 0 ? size / blockSize : ios);
  const bool terminal = ::isatty(2) == 1;
  Reader reader(offsets, blockSize, terminal);
  if (!options.json) std::cout << "read " << path << (scratch ? " (temporary)" : "") << ": " << bytesText(size) << ", "
            << (uring ? "uring depth " + std::to_string(depth)
                      : async ? "async depth " + std::to_string(depth) : std::string("sync"))
            << ", "
            << bytesText(blockSize) << " blocks, " << (random ? "random" : "sequential") << ", "
            << (direct ? "direct" : "buffered")
            << (scsi ? ", SCSI READ(" + std::to_string(cdb) + ")" : std::string()) << "\n"
            << std::flush;

  std::vector<std::unique_ptr<Buffer>> buffers;
  std::vector<std::unique_ptr<xio::Request>> requests;
  for (int n = 0; n < depth; ++n) {
    buffers.emplace_back(new Buffer(static_cast<size_t>(blockSize)));
    reader.add(buffers.back()->data());
    if (scsi) continue;
    requests.emplace_back(dispatcher.newRequestFor(&reader, endpoint));
    requests.back()->setID(static_cast<unsigned int>(n));
    requests.back()->setBlockSize(logicalBlock);
  }
  if (scsi) {
    xio::scsi::Transfer transfer(dispatcher, endpoint, scsiLimits(path, stat, logicalBlock, blockSize));
    reader.run(transfer);
  }
  for (auto& request : requests) reader.start(*request);
  drain(dispatcher);
  dispatcher.unlock();
  reader.report(std::cout, path);
  if (reader.failed()) {
    return failed(reader.failure(), async && reader.submission() ? aioAdvice(depth)
                                                                   : deviceAdvice(path, reader.code(), scsi));
  }
  return 0;
}

int discard(const std::vector<std::string>& args) {
  std::string path, how;
  long long offset = -1, length = -1;
  bool force = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    auto value = [&]() -> const std::string& {
      if (++i == args.size()) throw UsageError{a + " needs a value"};
      return args[i];
    };
    if (a == "--offset") {
      offset = parseBytes(value(), "offset");
    } else if (a == "--length") {
      length = parseBytes(value(), "length");
    } else if (a == "--unmap" || a == "--trim" || a == "--satl") {
      if (!how.empty()) throw UsageError{"choose one of --unmap, --trim and --satl"};
      how = a;
    } else if (a == "--force") {
      force = true;
    } else if (!a.empty() && a[0] == '-') {
      throw UsageError{"unknown option '" + a + "'"};
    } else if (path.empty()) {
      path = a;
    } else {
      throw UsageError{"discard takes one PATH"};
    }
  }
  if (path.empty() || offset < 0 || length < 0 || how.empty()) {
    throw UsageError{"discard takes PATH --offset O --length L and one of --unmap, --trim, --satl"};
  }
  const quorel::sal::fs::Stat stat = orAdvice(path, [&] { return quorel::sal::fs::Stat(path); });
  if (!stat.exists()) throw UsageError{"no such file '" + path + "'"};
  const int blockSize = static_cast<int>(stat.blockSize() > 0 ? stat.blockSize() : 512);
  if (offset % blockSize != 0 || length % blockSize != 0) {
    throw UsageError{"offset and length must be multiples of the block size (" + std::to_string(blockSize) + ")"};
  }
  // A TRIM entry names its first block in 48 bits; the library refuses a
  // range past that too, but only piece by piece: refused here, whole, before
  // any piece is sent. (UNMAP addresses 64 bits: every range fits.)
  const uint64 kTRIMBlocks = 1ULL << 48;
  const uint64 end = (static_cast<uint64>(offset) + static_cast<uint64>(length)) / static_cast<uint64>(blockSize);
  if (how != "--unmap" && length > 0 && end > kTRIMBlocks) {
    throw UsageError{"ATA TRIM addresses only the first " + std::to_string(kTRIMBlocks) +
                     " blocks and this range reaches block " + std::to_string(end - 1)};
  }

  xio::mux::Spec mux;
  mux.set<xio::i::mux::type::Sync>();
  if (how == "--unmap") mux.set<xio::i::mux::scsi::unmap::Enabled>();
  if (how != "--unmap") mux.set<xio::i::mux::ata::trim::Enabled>();
  if (how == "--satl") mux.set<xio::i::mux::ata::onscsi::Enabled>();
  xio::Dispatcher dispatcher = xio::Dispatcher::create(mux, 1);
  xio::fopen::Spec spec;
  spec.set<xio::i::fopen::read::Enabled>().set<xio::i::fopen::write::Enabled>();
  // A device in use (mounted, part of a volume, held by another program)
  // refuses an exclusive open: its data stays as it is unless --force.
  xio::Endpoint endpoint;
  try {
    endpoint = orAdvice(path, [&] { return force ? xio::Endpoint::open(path, spec) : adoptExclusive(path, spec); });
  } catch (const xio::OpenException& e) {
    if (e.code() != EBUSY) throw;
    std::cerr << "quorel: " << path << " is in use (mounted, part of a volume, or held open by another program); "
              << "nothing was discarded (--force discards anyway)\n";
    return 1;
  }
  // A device takes at most its queue's discard limit in one command: larger
  // ranges go in pieces (of 1 GiB where the node has no queue, or its queue
  // reports no limit).
  xio::scsi::Transfer::Limits limits;
  limits.blockSize = static_cast<quorel::pod::uint32>(blockSize);
  limits.maxDiscard = 1ULL << 30;
  if (stat.is(typeid(quorel::sal::fs::i::stat::type::UnixBlockDevice))) {
    const uint64 most = quorel::sal::fs::QueueLimits::of(path).maxDiscard();
    if (most >= static_cast<uint64>(blockSize)) limits.maxDiscard = most;
  }
  long long done = 0;
  try {
    done = static_cast<long long>(xio::scsi::Transfer(dispatcher, endpoint, limits)
                                      .discard(static_cast<uint64>(length), static_cast<uint64>(offset)));
  } catch (const quorel::Exception& e) {
    return failed(e.asSimpleString(), deviceAdvice(path, e.code(), true));
  }
  const char* name = how == "--unmap" ? "SCSI UNMAP" : how == "--trim" ? "ATA TRIM" : "ATA TRIM (SATL)";
  if (options.json) {
    std::cout << json::Object()
                     .add("path", path)
                     .add("offset", offset)
                     .add("bytes", done)
                     .add("method", name)
                     .add("blockSize", blockSize)
                     .str()
              << "\n";
  } else {
    std::cout << "discarded " << bytesText(done) << " at " << offset << " of " << path << " by " << name
              << " in " << blockSize << "-byte blocks\n";
  }
  return 0;
}

}  // namespace tool
