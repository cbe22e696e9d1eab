// quorel: command-line access to the library's diagnostics.
//
//   quorel [info]                the host: system, processor, memory, firmware, build
//   quorel explain DOMAIN CODE   texts of an error code
//   quorel clock                 the wall clock and the monotonic tick
//   quorel uuid [N]              N new identifiers (default 1)
//   quorel version TEXT          a dotted version number as the library reads it
//   quorel resolve HOST [SERVICE] what the resolver makes of a host name
//   quorel addr TEXT/PREFIX      network, mask and broadcast address of a prefix
//   quorel links [NAME]          the host's links with their addresses
//   quorel net-bench [OPTIONS]   echo round trips per second over loopback through the selector
//   quorel cat [--bs N] FILE...  files to standard output through the streams
//   quorel sense HEX...          decodes SCSI sense bytes
//   quorel stat PATH...          existence, type, owner access, size and block size
//   quorel ls [PATH]             the entries of a directory with their types
//   quorel rm [-r] PATH...       removes files, and with -r directories with their contents
//   quorel read [PATH] [OPTIONS] reads through a dispatcher and reports IOPS, MB/s and latency
//   quorel discard PATH ...      UNMAP or TRIM of a byte range
//   quorel nvme id|smart|read|discard|status ...  NVMe pass-through
//   quorel run [OPTIONS] PROGRAM ARGS...  starts a program and exits with its status
//   quorel lock NAME PROGRAM ARGS...      runs a program while holding a named mutex
//   quorel fw OPERATION [RULE]            keeps the inbound firewall chain
//
// Exit status: 0 success, 1 a library operation failed, 2 bad usage.
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <locale>
#include <string>
#include <vector>

#include <sys/socket.h>

#include <quorel/quorel.h>

#include "command.h"
#include "json.h"

namespace json = tool::json;
using tool::options;
using tool::parseInteger;
using tool::parseSize;
using tool::UsageError;

namespace {

int explain(const std::vector<std::string>& args) {
  if (args.size() != 2) throw UsageError{"explain takes DOMAIN and CODE"};
  const auto domain = static_cast<quorel::sal::i::err::domain::code>(parseInteger(args[0], "domain"));
  const int code = parseInteger(args[1], "code");
  if (options.json) {
    std::cout << json::Object()
                     .add("domain", static_cast<int>(domain))
                     .add("domainText", quorel::sal::err::asString(domain))
                     .add("code", code)
                     .add("text", quorel::sal::err::asString(code, domain))
                     .str()
              << "\n";
    return 0;
  }
  std::cout << "domain " << static_cast<int>(domain) << ": " << quorel::sal::err::asString(domain)
            << "\n"
            << "code " << code << " (0x" << std::hex << static_cast<unsigned int>(code) << std::dec
            << "): " << quorel::sal::err::asString(code, domain) << "\n";
  return 0;
}

int clock(const std::vector<std::string>& args) {
  if (!args.empty()) throw UsageError{"clock takes no arguments"};
  namespace time = quorel::sal::time;
  const time::absolute micro = time::micro::now();
  if (options.json) {
    std::cout << json::Object()
                     .add("micro", micro)
                     .add("milli", micro / 1000)
                     .add("seconds", micro / 1000000)
                     .add("tick", time::tick::now())
                     .str()
              << "\n";
    return 0;
  }
  std::cout << "micro  " << micro << " us since the epoch\n"
            << "milli  " << micro / 1000 << " ms since the epoch\n"
            << "now    " << micro / 1000000 << " s since the epoch\n"
            << "tick   " << time::tick::now() << " ns of the monotonic clock\n";
  return 0;
}

int uuid(const std::vector<std::string>& args) {
  if (args.size() > 1) throw UsageError{"uuid takes at most one count"};
  const int count = args.empty() ? 1 : parseInteger(args[0], "count");
  if (count < 0) throw UsageError{"invalid count '" + args[0] + "'"};
  std::vector<std::string> ids;
  for (int i = 0; i < count; ++i) ids.push_back(quorel::util::UUID().asString());
  if (options.json) {
    for (std::string& id : ids) id = json::item(id);
    std::cout << json::array(ids) << "\n";
    return 0;
  }
  for (const std::string& id : ids) std::cout << id << "\n";
  return 0;
}

int version(const std::vector<std::string>& args) {
  if (args.size() != 1) throw UsageError{"version takes one TEXT"};
  try {
    const quorel::util::Version v(args[0]);
    if (options.json) {
      std::cout << json::Object()
                       .add("version", v.asString())
                       .add("major", v.majorNumber())
                       .add("minor", v.minorNumber())
                       .add("patch", v.patch())
                       .add("build", v.build())
                       .str()
                << "\n";
    } else {
      std::cout << v.asString() << "\n";
    }
  } catch (const quorel::util::str::Exception&) {
    throw UsageError{"invalid version '" + args[0] + "'"};
  }
  return 0;
}

int resolve(const std::vector<std::string>& args) {
  if (args.empty() || args.size() > 2) throw UsageError{"resolve takes HOST and an optional SERVICE"};
  const char* service = args.size() == 2 ? args[1].c_str() : nullptr;
  const quorel::sal::sys::io::SocketAddressInfo info(args[0].c_str(), service, AF_UNSPEC, SOCK_STREAM, 0, false);
  std::vector<std::string> results;
  for (quorel::sal::sys::io::SocketAddressInfo::Iterator it(info); !it.atEnd(); it.step()) {
    const quorel::sal::io::AINETAddress address(
        quorel::sal::io::AINETAddress::Handle(quorel::sal::io::impl::inet::newAddressFrom(*it.current())));
    if (!address.impl()) continue;  // a family other than IPv4 and IPv6
    if (options.json) {
      results.push_back(json::Object()
                            .add("family", address.isIPv4() ? "IPv4" : "IPv6")
                            .add("address", address.numericalName())
                            .add("port", address.port())
                            .add("description", address.description())
                            .str());
      continue;
    }
    std::cout << (address.isIPv4() ? "IPv4  " : "IPv6  ") << address.numericalName() << "  port " << address.port()
              << "  " << address.description() << "\n";
  }
  if (options.json) std::cout << json::array(results) << "\n";
  return 0;
}

int addr(const std::vector<std::string>& args) {
  namespace inet = quorel::sal::inet;
  if (args.size() != 1) throw UsageError{"addr takes one TEXT/PREFIX"};
  const std::string::size_type slash = args[0].find('/');
  if (slash == std::string::npos) throw UsageError{"invalid prefix '" + args[0] + "' (expected TEXT/PREFIX)"};
  const std::string text = args[0].substr(0, slash);
  const inet::i::family::code family =
      text.find(':') != std::string::npos ? inet::i::family::kIPv6 : inet::i::family::kIPv4;
  const int length = parseInteger(args[0].substr(slash + 1), "prefix length");
  try {
    const inet::Address address(text, family);
    const inet::Address mask = inet::Address::createMask(family, length);
    inet::Address network = address.clone();
    network.setMask(mask);
    if (options.json) {
      std::cout << json::Object()
                       .add("address", address.asString())
                       .add("network", network.asString())
                       .add("mask", mask.asString())
                       .add("prefix", mask.prefixLength())
                       .add("broadcast", inet::Address::broadcastAddressFrom(address, mask).asString())
                       .str()
                << "\n";
      return 0;
    }
    std::cout << "address    " << address.asString() << "\n"
              << "network    " << network.asString() << "\n"
              << "mask       " << mask.asString() << "\n"
              << "prefix     " << mask.prefixLength() << "\n"
              << "broadcast  " << inet::Address::broadcastAddressFrom(address, mask).asString() << "\n";
  } catch (const quorel::Exception& e) {
    throw UsageError{"invalid prefix '" + args[0] + "': " + e.why()};
  }
  return 0;
}

int cat(const std::vector<std::string>& args) {
  namespace xio = quorel::sal::xio;
  int bufferSize = 65536;
  std::vector<std::string> files;
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--bs") {
      if (++i == args.size()) throw UsageError{"--bs needs a size"};
      bufferSize = parseSize(args[i]);
    } else {
      files.push_back(args[i]);
    }
  }
  if (files.empty()) throw UsageError{"cat takes at least one FILE"};
  xio::SinkStream out(xio::Channel(xio::Endpoint::wrap(xio::i::stdfd::Output())), bufferSize);
  std::vector<char> buffer(static_cast<size_t>(bufferSize));
  for (const std::string& file : files) {
    xio::SourceStream in(xio::Channel(xio::Endpoint::open(file, xio::fopen::Spec())), bufferSize);
    for (int n; (n = in.read(buffer.data(), bufferSize)) > 0;) out.put(buffer.data(), n);
  }
  out.flush();
  return 0;
}

int sense(const std::vector<std::string>& args) {
  std::string digits;
  for (const std::string& arg : args) digits += arg;
  std::string bytes;
  std::string pair;
  for (char c : digits) {
    if (c == ' ' || c == ':') continue;
    if (!std::isxdigit(static_cast<unsigned char>(c))) throw UsageError{"invalid sense data (not hexadecimal)"};
    pair += c;
    if (pair.size() == 2) {
      bytes += static_cast<char>(std::stoi(pair, nullptr, 16));
      pair.clear();
    }
  }
  if (bytes.empty() || !pair.empty()) throw UsageError{"sense takes whole bytes in hexadecimal"};
  namespace sense = quorel::sal::xio::scsi::sense;
  std::string padded(bytes);
  padded.resize(std::max<size_t>(padded.size(), 32), '\0');  // short sense reads as zeros
  if (options.json) {
    std::cout << json::Object()
                     .add("description", sense::kcq::descriptionFrom(padded.data()))
                     .add("bytes", sense::hexStringFrom(bytes.data(), static_cast<int>(bytes.size())))
                     .str()
              << "\n";
    return 0;
  }
  std::cout << "key/asc/ascq  " << sense::kcq::descriptionFrom(padded.data()) << "\n"
            << "bytes         " << sense::hexStringFrom(bytes.data(), static_cast<int>(bytes.size())) << "\n";
  return 0;
}

int stat(const std::vector<std::string>& args) {
  if (args.empty()) throw UsageError{"stat takes at least one PATH"};
  static const char* const kTypes[] = {"undetermined",     "directory",        "regular file",
                                       "device",           "tape device",      "block device",
                                       "character device"};
  std::vector<std::string> reports;
  for (const std::string& path : args) {
    const quorel::sal::fs::Stat s(path);
    if (options.json) {
      json::Object o;
      o.add("path", path).add("exists", s.exists());
      if (s.exists()) {
        const int t = s.type() >= 0 && s.type() <= 6 ? s.type() : 0;
        o.add("type", kTypes[t]).add("ownerRead", s.readAccess() != 0).add("ownerWrite", s.writeAccess() != 0);
        o.add("size", s.size()).add("blockSize", s.blockSize());
        if (t == 5 || t == 6) {
          o.add("sizeByRC10", s.sizeByRC()).add("blockSizeByRC10", s.blockSizeByRC()).add("errorRC10", s.errorRC());
          o.add("sizeByRC16", s.sizeByRC16()).add("blockSizeByRC16", s.blockSizeByRC16());
          o.add("errorRC16", s.errorRC16()).add("kernelError", s.error());
          std::uint64_t size = 0;
          std::uint32_t block = 0, nsid = 0;
          std::string error;
          if (t == 5 && tool::nvmeSize(path, size, block, nsid, error)) {
            o.add("nvmeNamespace", nsid).add("sizeByIdentify", size).add("blockSizeByIdentify", block);
            o.add("errorIdentify", error);
          }
        }
      }
      reports.push_back(o.str());
      continue;
    }
    std::cout << path << "\n";
    if (!s.exists()) {
      std::cout << "  exists      no\n";
      continue;
    }
    const int type = s.type() >= 0 && s.type() <= 6 ? s.type() : 0;
    std::cout << "  type        " << kTypes[type] << "\n"
              << "  owner       " << (s.readAccess() ? "r" : "-") << (s.writeAccess() ? "w" : "-") << "\n"
              << "  size        " << s.size() << "\n"
              << "  block size  " << s.blockSize() << "\n";
    if (type == 5 || type == 6) {
      const auto line = [](const char* label, quorel::pod::uint64 size, quorel::pod::uint32 block,
                           const std::string& error) {
        std::cout << "  " << label;
        if (error.empty()) {
          std::cout << size << " bytes in blocks of " << block << "\n";
        } else {
          std::cout << error << "\n";
        }
      };
      line("RC(10)      ", s.sizeByRC(), s.blockSizeByRC(), s.errorRC());
      if (!s.errorRC().empty()) line("RC(16)      ", s.sizeByRC16(), s.blockSizeByRC16(), s.errorRC16());
      if (!s.error().empty()) std::cout << "  kernel      " << s.error() << "\n";
      std::uint64_t size = 0;
      std::uint32_t block = 0, nsid = 0;
      std::string error;
      if (type == 5 && tool::nvmeSize(path, size, block, nsid, error)) {
        line("Identify    ", size, block, error);  // of the NVMe namespace
      }
    }
  }
  if (options.json) std::cout << json::array(reports) << "\n";
  return 0;
}

int info(const std::vector<std::string>& args) {
  if (!args.empty()) throw UsageError{"info takes no arguments"};
  namespace h = quorel::sal::hostinfo;
  std::string detail;
  const bool vm = h::env::isVM(detail);
  const std::string firmware = h::env::id();
  if (options.json) {
    std::cout << json::Object()
                     .add("system", h::os::name())
                     .add("kernel", h::os::version().asString())
                     .add("machine", h::os::machine())
                     .add("bits", h::os::bits())
                     .add("processor", h::cpu::name())
                     .add("processors", h::cpu::count())
                     .add("memoryBytes", h::mem::size())
                     .add("pageSize", h::mem::pageSize())
                     .add("virtual", vm)
                     .add("virtualDetail", detail)
                     .add("firmware", firmware)
                     .raw("build", json::Object()
                                       .add("os", h::build::os())
                                       .add("cpu", h::build::cpu())
                                       .add("arch", h::build::arch())
                                       .str())
                     .str()
              << "\n";
    return 0;
  }
  std::cout << "system     " << h::os::name() << ", kernel " << h::os::version().asString() << " ("
            << h::os::machine() << ")\n"
            << "processor  " << h::cpu::name() << ", " << h::cpu::count() << " online\n"
            << "memory     " << h::mem::size() / (1024 * 1024) << " MiB, pages of " << h::mem::pageSize() << " bytes\n"
            << "virtual    " << (vm ? "yes (" + detail + ")" : std::string("no")) << "\n"
            << "firmware   " << (firmware.empty() ? std::string("(no readable DMI table)") : firmware) << "\n"
            << "build      " << h::build::os() << " " << h::build::cpu() << " " << h::build::arch() << ", "
            << h::os::bits() << "-bit library\n";
  return 0;
}

}  // namespace

namespace tool {
Options options;
}  // namespace tool

namespace {

// Takes --json, --verbose and --help out of args (for run and lock only
// before the program, whose own arguments they may be); true for --help.
bool takeCommonOptions(const std::string& command, std::vector<std::string>& args) {
  bool help = false, passing = false, value = false;
  std::vector<std::string> rest;
  for (const std::string& arg : args) {
    if (!passing && !value && (arg == "--json" || arg == "--verbose" || arg == "--help" || arg == "-h")) {
      (arg == "--json" ? options.json : arg == "--verbose" ? options.verbose : help) = true;
      continue;
    }
    rest.push_back(arg);
    if (passing || (command != "run" && command != "lock")) continue;
    if (value) {
      value = false;  // the value of --cwd or --env
    } else if (command == "run" && (arg == "--cwd" || arg == "--env")) {
      value = true;
    } else if (command == "lock" || arg == "--" || arg.empty() || arg[0] != '-') {
      passing = true;  // the program (run) or the mutex's name (lock)
    }
  }
  args = rest;
  return help;
}

int dispatch(const std::string& command, const std::vector<std::string>& args) {
  if (command == "info") return info(args);
  if (command == "explain") return explain(args);
  if (command == "clock") return clock(args);
  if (command == "uuid") return uuid(args);
  if (command == "version") return version(args);
  if (command == "resolve") return resolve(args);
  if (command == "addr") return addr(args);
  if (command == "net-bench") return tool::netBench(args);
  if (command == "links") return tool::links(args);
  if (command == "cat") return cat(args);
  if (command == "sense") return sense(args);
  if (command == "stat") return stat(args);
  if (command == "ls") return tool::ls(args);
  if (command == "rm") return tool::rm(args);
  if (command == "read") return tool::read(args);
  if (command == "discard") return tool::discard(args);
  if (command == "nvme") return tool::nvme(args);
  if (command == "run") return tool::run(args);
  if (command == "lock") return tool::lock(args);
  if (command == "fw") return tool::firewall(args);
  throw UsageError{"unknown command '" + command + "'"};
}

}  // namespace

int main(int argc, char** argv) {
  std::locale::global(std::locale::classic());  // fixed formats: no digit grouping in any stream
  std::cout.imbue(std::locale::classic());
  std::cerr.imbue(std::locale::classic());
  std::vector<std::string> all(argv + 1, argv + argc);
  // Options before the command.
  size_t first = 0;
  for (; first < all.size() && (all[first] == "--json" || all[first] == "--verbose"); ++first) {
    (all[first] == "--json" ? options.json : options.verbose) = true;
  }
  const std::string command = first < all.size() ? all[first] : "info";
  std::vector<std::string> args(first < all.size() ? all.begin() + static_cast<long>(first) + 1 : all.end(),
                                all.end());
  try {
    if (command == "help" || command == "--help" || command == "-h") {
      if (args.size() == 1 && args[0] == "--man") {
        std::cout << tool::manualPage();
      } else if (args.size() == 1) {
        std::cout << tool::helpFor(args[0]);
      } else if (args.empty()) {
        std::cout << tool::usage();
      } else {
        throw UsageError{"help takes at most one COMMAND"};
      }
      return 0;
    }
    if (takeCommonOptions(command, args)) {
      std::cout << tool::helpFor(command);
      return 0;
    }
    return dispatch(command, args);
  } catch (const UsageError& e) {
    std::cerr << "quorel: " << e.message << " (run 'quorel help' for usage)\n";
    return 2;
  } catch (const tool::Exit& e) {
    return e.status;
  } catch (const quorel::Exception& e) {
    std::cerr << "quorel: " << (options.verbose ? e.asString() : e.asSimpleString()) << "\n";
    return 1;
  }
}
