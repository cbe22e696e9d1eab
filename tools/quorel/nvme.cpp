// quorel nvme: NVMe pass-through to a controller or a namespace.
//
//   quorel nvme id PATH
//   quorel nvme smart PATH
//   quorel nvme read PATH [--offset O] [--length L] [--bs SIZE]
//   quorel nvme discard PATH --offset O --length L [--force]
//   quorel nvme status CODE
#include <algorithm>
#include <cerrno>
#include <iomanip>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <quorel/quorel.h>

#include "buffer.h"
#include "command.h"
#include "json.h"

namespace tool {

namespace {

namespace xio = quorel::sal::xio;
namespace nvme = quorel::sal::xio::nvme;
namespace tick = quorel::sal::time::tick;
using quorel::pod::uint32;
using quorel::pod::uint64;

std::string versionText(uint32 version) {
  if (version == 0) return "not reported";
  return std::to_string(version >> 16) + "." + std::to_string(version >> 8 & 0xff) + "." +
         std::to_string(version & 0xff);
}

std::string hexText(unsigned value, int digits) {
  std::ostringstream out;
  out << "0x" << std::hex << std::setw(digits) << std::setfill('0') << value;
  return out.str();
}

int identify(const std::string& path) {
  nvme::Device device(path);
  const nvme::Controller c = device.identifyController();
  const bool space = device.namespaceID() != 0;
  nvme::Namespace n;
  if (space) n = device.identifyNamespace();
  if (options.json) {
    json::Object o;
    o.add("path", path).add("model", c.model).add("serial", c.serial).add("firmware", c.firmware);
    o.add("vendor", c.vendor).add("version", versionText(c.version)).add("mdts", c.mdts);
    o.add("maxTransfer", c.maxTransfer()).add("namespaces", c.namespaces);
    if (space) {
      o.raw("namespace", json::Object()
                             .add("id", n.id)
                             .add("bytes", n.bytes())
                             .add("blocks", n.size)
                             .add("capacity", n.capacity)
                             .add("utilization", n.utilization)
                             .add("blockSize", n.blockSize)
                             .add("metadataSize", n.metadataSize)
                             .add("format", n.format)
                             .str());
    }
    std::cout << o.str() << "\n";
    return 0;
  }
  std::cout << path << "\n"
            << "  model       " << c.model << "\n"
            << "  serial      " << c.serial << "\n"
            << "  firmware    " << c.firmware << "\n"
            << "  vendor      " << hexText(c.vendor, 4) << "\n"
            << "  version     " << versionText(c.version) << "\n"
            << "  mdts        " << +c.mdts << " ("
            << (c.maxTransfer() == 0 ? std::string("no limit") : bytesText(c.maxTransfer()) + " per command") << ")\n"
            << "  namespaces  " << c.namespaces << "\n";
  if (space) {
    std::cout << "  namespace   " << n.id << ": " << n.bytes() << " bytes, " << n.size << " blocks of " << n.blockSize
              << " (LBA format " << +n.format << ", "
              << (n.metadataSize == 0 ? std::string("no metadata")
                                      : std::to_string(n.metadataSize) + " bytes of metadata")
              << "), " << n.utilization << " in use\n";
  }
  return 0;
}

int smart(const std::string& path) {
  nvme::Device device(path);
  const nvme::Health h = device.health();
  // Data units are thousands of 512-byte units.
  const auto bytes = [](uint64 units) {
    return units <= ~0ULL / 512000 ? " (" + std::to_string(units * 512000) + " bytes)" : std::string();
  };
  if (options.json) {
    std::vector<std::string> sensors;
    for (quorel::pod::uint16 t : h.temperatureSensors) {
      if (t != 0) sensors.push_back(std::to_string(t));
    }
    std::cout << json::Object()
                     .add("path", path)
                     .add("criticalWarning", h.criticalWarning)
                     .add("temperatureKelvin", h.temperature)
                     .add("availableSpare", h.availableSpare)
                     .add("availableSpareThreshold", h.availableSpareThreshold)
                     .add("percentageUsed", h.percentageUsed)
                     .add("dataUnitsRead", h.dataUnitsRead)
                     .add("dataUnitsWritten", h.dataUnitsWritten)
                     .add("hostReadCommands", h.hostReadCommands)
                     .add("hostWriteCommands", h.hostWriteCommands)
                     .add("controllerBusyMinutes", h.controllerBusyTime)
                     .add("powerCycles", h.powerCycles)
                     .add("powerOnHours", h.powerOnHours)
                     .add("unsafeShutdowns", h.unsafeShutdowns)
                     .add("mediaErrors", h.mediaErrors)
                     .add("errorLogEntries", h.errorLogEntries)
                     .add("warningTemperatureMinutes", h.warningTemperatureTime)
                     .add("criticalTemperatureMinutes", h.criticalTemperatureTime)
                     .raw("temperatureSensorsKelvin", json::array(sensors))
                     .str()
              << "\n";
    return 0;
  }
  std::cout << path << "\n"
            << "  critical warning     " << hexText(h.criticalWarning, 2) << "\n"
            << "  temperature          " << static_cast<int>(h.temperature) - 273 << " C (" << h.temperature
            << " K)\n"
            << "  available spare      " << +h.availableSpare << "% (threshold " << +h.availableSpareThreshold
            << "%)\n"
            << "  percentage used      " << +h.percentageUsed << "%\n"
            << "  data units read      " << h.dataUnitsRead << bytes(h.dataUnitsRead) << "\n"
            << "  data units written   " << h.dataUnitsWritten << bytes(h.dataUnitsWritten) << "\n"
            << "  host read commands   " << h.hostReadCommands << "\n"
            << "  host write commands  " << h.hostWriteCommands << "\n"
            << "  busy time            " << h.controllerBusyTime << " minutes\n"
            << "  power cycles         " << h.powerCycles << "\n"
            << "  power-on hours       " << h.powerOnHours << "\n"
            << "  unsafe shutdowns     " << h.unsafeShutdowns << "\n"
            << "  media errors         " << h.mediaErrors << "\n"
            << "  error log entries    " << h.errorLogEntries << "\n"
            << "  over warning temp.   " << h.warningTemperatureTime << " minutes\n"
            << "  over critical temp.  " << h.criticalTemperatureTime << " minutes\n";
  return 0;
}

// Counts what the requests read and keeps the first failure.
class Reads : public xio::AHandler {
 public:
  void on(xio::i::op::Read, int result, xio::Request&) override { bytes += result; }
  void on(xio::i::op::Write, int, xio::Request&) override {}
  void on(xio::AIOCompletionException& e, xio::Request&) override { keep(e); }
  void on(xio::AIORequestException& e, xio::Request&) override { keep(e); }
  void on(xio::AIOCancellationException& e, xio::Request&) override { keep(e); }
  void on(xio::ReadException& e, xio::Request&) override { keep(e); }
  void on(xio::WriteException& e, xio::Request&) override { keep(e); }

  long long bytes = 0;
  std::string failure;

 private:
  void keep(const quorel::Exception& e) {
    if (failure.empty()) failure = options.verbose ? e.asString() : e.asSimpleString();
  }
};

struct Range {
  long long offset = -1;
  long long length = -1;
  int bs = 1 << 20;
  bool force = false;
};

Range rangeOf(const std::vector<std::string>& args, size_t from, bool discard) {
  Range r;
  for (size_t i = from; i < args.size(); ++i) {
    const std::string& a = args[i];
    auto value = [&]() -> const std::string& {
      if (++i == args.size()) throw UsageError{a + " needs a value"};
      return args[i];
    };
    if (a == "--offset") {
      r.offset = parseBytes(value(), "offset");
    } else if (a == "--length") {
      r.length = parseBytes(value(), "length");
    } else if (a == "--bs" && !discard) {
      r.bs = parseSize(value());
    } else if (a == "--force" && discard) {
      r.force = true;
    } else if (!a.empty() && a[0] == '-') {
      throw UsageError{"unknown option '" + a + "'"};
    } else {
      throw UsageError{std::string("nvme ") + (discard ? "discard" : "read") + " takes one PATH"};
    }
  }
  return r;
}

void requireWholeBlocks(const Range& r, uint32 blockSize) {
  if (r.offset % blockSize != 0 || r.length % blockSize != 0 || (r.bs % blockSize != 0)) {
    throw UsageError{"offset, length and --bs must be multiples of the block size (" + std::to_string(blockSize) +
                     ")"};
  }
}

int readThrough(const std::string& path, Range r) {
  nvme::Device device(path);
  const uint64 size = device.size();
  if (r.offset < 0) r.offset = 0;
  if (static_cast<uint64>(r.offset) > size) throw UsageError{"--offset lies past the namespace's end"};
  if (r.length < 0) r.length = static_cast<long long>(std::min<uint64>(64ULL << 20, size - r.offset));
  requireWholeBlocks(r, device.blockSize());
  xio::Dispatcher dispatcher = xio::Dispatcher::createNVMe(device);
  Reads handler;
  Buffer buffer(static_cast<size_t>(r.bs));
  std::unique_ptr<xio::Request> request(dispatcher.newRequestFor(&handler, device.endpoint()));
  long long requests = 0;
  const uint64 started = tick::now();
  for (long long at = 0; at < r.length && handler.failure.empty(); at += r.bs, ++requests) {
    request->submit(xio::i::op::Read(), buffer.data(), static_cast<int>(std::min<long long>(r.bs, r.length - at)),
                    r.offset + at);
    dispatcher.wait();
  }
  const double elapsed = static_cast<double>(tick::as::nano(started, tick::now())) / 1e9;
  const double rate = elapsed > 0 ? handler.bytes / elapsed / 1e6 : 0;
  if (options.json) {
    std::cout << json::Object()
                     .add("path", path)
                     .add("offset", r.offset)
                     .add("bytes", handler.bytes)
                     .add("requests", requests)
                     .add("requestSize", r.bs)
                     .add("maxTransfer", device.maxTransfer())
                     .add("megabytesPerSecond", rate)
                     .add("elapsedSeconds", elapsed)
                     .add("failure", handler.failure)
                     .str()
              << "\n";
  } else {
    std::cout << "read " << bytesText(handler.bytes) << " at " << r.offset << " of " << path << " by NVMe Read in "
              << requests << (requests == 1 ? " request" : " requests") << " of " << bytesText(r.bs) << " (at most " << bytesText(device.maxTransfer())
              << " per command): " << std::fixed << std::setprecision(1) << rate << " MB/s in "
              << std::setprecision(3) << elapsed << " s\n";
  }
  if (!handler.failure.empty()) {
    std::cerr << "quorel: " << handler.failure << "\n";
    return 1;
  }
  return 0;
}

int deallocate(const std::string& path, const Range& r) {
  if (r.offset < 0 || r.length < 0) throw UsageError{"nvme discard takes PATH --offset O --length L"};
  // An exclusive open fails while the namespace is mounted or held by another
  // exclusive opener: what is deallocated there would be lost to its user.
  std::unique_ptr<nvme::Device> device;
  try {
    device.reset(r.force ? new nvme::Device(path, nvme::i::open::ReadWrite())
                         : new nvme::Device(path, nvme::i::open::Exclusive()));
  } catch (const xio::OpenException& e) {
    if (e.code() != EBUSY) throw;
    std::cerr << "quorel: '" << path << "' is in use (mounted, or held open exclusively): nothing was deallocated "
              << "(--force deallocates anyway)\n";
    return 1;
  }
  requireWholeBlocks(r, device->blockSize());
  const uint64 commands = device->discard(static_cast<uint64>(r.offset), static_cast<uint64>(r.length));
  if (options.json) {
    std::cout << json::Object()
                     .add("path", path)
                     .add("offset", r.offset)
                     .add("bytes", r.length)
                     .add("method", "NVMe Dataset Management")
                     .add("blockSize", device->blockSize())
                     .add("commands", commands)
                     .str()
              << "\n";
  } else {
    std::cout << "deallocated " << bytesText(r.length) << " at " << r.offset << " of " << path
              << " by NVMe Dataset Management in " << device->blockSize() << "-byte blocks (" << commands
              << (commands == 1 ? " command" : " commands") << ")\n";
  }
  return 0;
}

int decode(const std::string& text) {
  const int value = parseInteger(text, "status");
  if (value < 0 || value > 0x7fff) throw UsageError{"invalid status '" + text + "' (0 to 0x7fff)"};
  namespace st = nvme::status;
  if (options.json) {
    std::cout << json::Object()
                     .add("status", value)
                     .add("type", st::typeOf(value))
                     .add("typeText", st::typeDescriptionFor(st::typeOf(value)))
                     .add("code", st::codeOf(value))
                     .add("text", st::descriptionFor(value))
                     .add("retryDelay", st::retryDelayOf(value))
                     .add("more", st::more(value))
                     .add("doNotRetry", st::doNotRetry(value))
                     .str()
              << "\n";
    return 0;
  }
  std::cout << "status " << hexText(static_cast<unsigned>(value), 4) << ": " << st::asString(value) << "\n"
            << "type " << st::typeOf(value) << ": " << st::typeDescriptionFor(st::typeOf(value)) << "\n";
  return 0;
}

}  // namespace

int nvme(const std::vector<std::string>& args) {
  if (args.empty()) throw UsageError{"nvme takes id, smart, read, discard or status"};
  const std::string& what = args[0];
  if (what == "status") {
    if (args.size() != 2) throw UsageError{"nvme status takes one CODE"};
    return decode(args[1]);
  }
  if (what != "id" && what != "smart" && what != "read" && what != "discard") {
    throw UsageError{"unknown nvme operation '" + what + "'"};
  }
  if (args.size() < 2 || args[1].empty() || args[1][0] == '-') throw UsageError{"nvme " + what + " takes a PATH"};
  const std::string& path = args[1];
  if (what == "id" || what == "smart") {
    if (args.size() != 2) throw UsageError{"nvme " + what + " takes one PATH"};
    return what == "id" ? identify(path) : smart(path);
  }
  const Range range = rangeOf(args, 2, what == "discard");
  return what == "read" ? readThrough(path, range) : deallocate(path, range);
}

bool nvmeSize(const std::string& path, uint64& size, uint32& blockSize, uint32& nsid, std::string& error) {
  std::unique_ptr<nvme::Device> device;
  try {
    device.reset(new nvme::Device(path));
  } catch (const quorel::Exception&) {
    return false;  // no NVMe node, or none that opens here
  }
  nsid = device->namespaceID();
  if (nsid == 0) return false;
  try {
    const nvme::Namespace n = device->identifyNamespace();
    size = n.bytes();
    blockSize = n.blockSize;
  } catch (const quorel::Exception& e) {
    error = e.asSimpleString();
  }
  return true;
}

}  // namespace tool
