// What the quorel tool's commands share: usage errors and argument parsing.
#ifndef QUOREL_TOOLS_QUOREL_COMMAND_H
#define QUOREL_TOOLS_QUOREL_COMMAND_H

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

namespace tool {

// Options of every command: --json (machine-readable results) and --verbose
// (a failure's whole diagnostic line).
struct Options {
  bool json = false;
  bool verbose = false;
};
extern Options options;

// The help texts (help.cpp): the usage summary, one command's help, the
// manual page, all from one table.
std::string usage();
bool isCommand(const std::string& name);
std::string helpFor(const std::string& name);
std::string manualPage();

// A byte count in the largest unit that divides it: "8 MiB", "1 GiB", "100 bytes".
std::string bytesText(long long bytes);

// Advice after a failure (diagnose.cpp): lines that say why the kernel
// refused and what to change, or "" when nothing found explains it.
// aioAdvice: an asynchronous dispatcher of `depth` requests whose context the
// kernel refused (fs.aio-nr against fs.aio-max-nr). deviceAdvice: a device
// that refused the tool with EACCES or EPERM (the node's owner and mode, and
// for pass-through commands CAP_SYS_RAWIO).
std::string aioAdvice(int depth);
std::string deviceAdvice(const std::string& path, int error, bool passThrough);

// A usage error: reported on one line, exit status 2.
struct UsageError {
  std::string message;
};

// Ends a command at once with this exit status, its messages written.
struct Exit {
  int status;
};

// Parses a 32-bit error code: decimal (possibly negative) or 0x-prefixed
// hexadecimal, where values above 0x7fffffff give their two's-complement int.
inline int parseInteger(const std::string& text, const char* what) {
  const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  const char* begin = text.c_str() + (hex ? 2 : 0);
  char* end = nullptr;
  errno = 0;
  const long long value = std::strtoll(begin, &end, hex ? 16 : 10);
  const bool fits = hex ? value >= 0 && value <= 0xffffffffLL : value >= -2147483648LL && value <= 2147483647LL;
  if (text.empty() || *begin == '\0' || *end != '\0' || errno != 0 || !fits || (hex && *begin == '-')) {
    throw UsageError{std::string("invalid ") + what + " '" + text + "'"};
  }
  return static_cast<int>(static_cast<unsigned int>(value));
}

// A byte count or offset with an optional K, M, G or T suffix (powers of
// 1024), from 0 up to 2^62.
inline long long parseBytes(const std::string& text, const char* what) {
  static const char kSuffixes[] = "KMGT";
  std::string digits = text;
  long long scale = 1;
  for (int n = 0; n < 4 && !text.empty(); ++n) {
    if (text.back() == kSuffixes[n] || text.back() == kSuffixes[n] + ('a' - 'A')) {
      scale = 1LL << (10 * (n + 1));
      digits = text.substr(0, text.size() - 1);
    }
  }
  char* end = nullptr;
  errno = 0;
  const long long value = std::strtoll(digits.c_str(), &end, 10);
  if (digits.empty() || *end != '\0' || errno != 0 || value < 0 || value > (1LL << 62) / scale) {
    throw UsageError{std::string("invalid ") + what + " '" + text + "'"};
  }
  return value * scale;
}

// A buffer or request size: parseBytes' syntax, 1 byte to 64 MiB.
inline int parseSize(const std::string& text) {
  const long long value = parseBytes(text, "size");
  if (value < 1 || value > 64LL * 1024 * 1024) throw UsageError{"invalid size '" + text + "'"};
  return static_cast<int>(value);
}

// The commands that run requests through dispatchers.
int read(const std::vector<std::string>& args);
int discard(const std::vector<std::string>& args);

// NVMe pass-through (nvme.cpp), and for stat the size Identify Namespace
// gives a namespace node: false for any other node, error set when the
// node is one but Identify failed.
int nvme(const std::vector<std::string>& args);
bool nvmeSize(const std::string& path, std::uint64_t& size, std::uint32_t& blockSize, std::uint32_t& nsid,
              std::string& error);

// The commands on directories.
int ls(const std::vector<std::string>& args);
int rm(const std::vector<std::string>& args);

// The echo check of the selector over loopback.
int netBench(const std::vector<std::string>& args);

// The host's links with their addresses.
int links(const std::vector<std::string>& args);

// The commands that start programs.
int run(const std::vector<std::string>& args);
int lock(const std::vector<std::string>& args);

// The inbound firewall chain.
int firewall(const std::vector<std::string>& args);

}  // namespace tool

#endif
