// Host information: the snapshot taken when the library is loaded (sysconf,
// uname, /proc/cpuinfo, the release files) and the firmware identity (DMI).
#include <quorel/sal/impl/hostinfo.h>

#include <fcntl.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <list>
#include <sstream>
#include <vector>

#include <quorel/util/str.h>

namespace quorel {
namespace sal {
namespace impl {
namespace hostinfo {

namespace {

// The whole of a small text file, or "" if it cannot be read.
std::string contentOf(const std::string& path) {
  std::ifstream in(path);
  std::ostringstream text;
  text << in.rdbuf();
  return in ? text.str() : std::string();
}

std::string trimmed(const std::string& text) { return util::str::trim(text, std::locale::classic()); }

}  // namespace

namespace parse {

void cpuInfo(const std::string& text, std::string& name, bool& hypervisor) {
  std::istringstream lines(text);
  std::string line, family, model, stepping;
  while (std::getline(lines, line)) {
    std::string key, value;
    util::str::split(trimmed(line), key, value, ':');
    key = util::str::lower(trimmed(key), std::locale::classic());
    value = trimmed(value);
    if (key == "model name") name = value;
    if (key == "cpu family") family = value;
    if (key == "model") model = value;
    if (key == "stepping") stepping = value;
    if (key == "flags" && (" " + value + " ").find(" hypervisor ") != std::string::npos) hypervisor = true;
  }
  if (name.empty()) return;
  std::string detail;
  const auto add = [&detail](const char* label, const std::string& part) {
    if (part.empty()) return;
    if (!detail.empty()) detail += ' ';
    detail += label + part;
  };
  add("Family ", family);
  add("Model ", model);
  add("Stepping ", stepping);
  if (!detail.empty()) name += " (" + detail + ")";
}

std::string valueOf(const std::string& text, const std::string& key) {
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    std::string name, value;
    if (util::str::split(line, name, value, '=') && trimmed(name) == key) return trimmed(value);
  }
  return std::string();
}

std::string firstLine(const std::string& text) { return text.substr(0, text.find('\n')); }

std::string distribution(std::string (*contentOf)(const std::string& path)) {
  std::string description = valueOf(contentOf("/etc/os-release"), "PRETTY_NAME");
  if (description.empty()) description = valueOf(contentOf("/etc/lsb-release"), "DISTRIB_DESCRIPTION");
  for (const char* file : {"/etc/system-release", "/etc/SuSE-release", "/etc/redhat-release", "/etc/fedora-release"}) {
    if (description.empty()) description = firstLine(contentOf(file));
  }
  return description;
}

std::string osName(const std::string& systemName, const std::string& description) {
  if (description.empty()) return systemName;
  if (description[0] == '"') return systemName + " " + description;
  return systemName + " \"" + description + "\"";
}

util::Version kernelVersion(const std::string& release) {
  return util::Version(release.substr(0, release.find_first_not_of("0123456789.")));
}

}  // namespace parse

namespace mem {
unsigned int thePageSize = 0;
}  // namespace mem
namespace cpu {
std::string theName;
}  // namespace cpu
namespace os {
std::string theName;
util::Version theVersion;
std::string theMachine;
}  // namespace os
namespace env {
std::string theAppStage;
std::string theTempDirectory;
bool theVM = false;
std::string theVMDetail;
}  // namespace env

namespace {

// The snapshot, taken during static initialisation; every step is silent on
// failure.
struct Snapshot {
  Snapshot() {
    const long pageSize = ::sysconf(_SC_PAGESIZE);
    mem::thePageSize = pageSize > 0 ? static_cast<unsigned int>(pageSize) : 0;
    cpu::theName = "X86";
    utsname names;
    const bool named = ::uname(&names) == 0;
    if (named) {
      os::theName = names.sysname;
      os::theMachine = names.machine;
    }
    bool hypervisor = false;
    try {
      parse::cpuInfo(contentOf("/proc/cpuinfo"), cpu::theName, hypervisor);
    } catch (...) {
    }
    env::theVM = hypervisor;
    if (hypervisor) env::theVMDetail = "the processor reports a hypervisor";
    os::theName = parse::osName(os::theName, parse::distribution(contentOf));
    if (named) {
      try {
        os::theVersion = parse::kernelVersion(names.release);
      } catch (...) {
      }
    }
    env::theAppStage = "/var";
    env::theTempDirectory = "/tmp";
  }
} snapshot;

}  // namespace

namespace cpu {

void processorsFrom(const std::string& list, std::set<int>& processors) {
  std::list<std::string> pieces;
  util::str::cut(trimmed(list), ',', pieces);
  for (const std::string& piece : pieces) {
    std::string first, last;
    const bool range = util::str::split(piece, first, last, '-');
    try {
      unsigned int from = 0, to = 0;
      util::str::to(from, first);
      to = from;
      if (range) util::str::to(to, last);
      for (unsigned int cpu = from; cpu <= to && cpu < 65536; ++cpu) processors.insert(static_cast<int>(cpu));
    } catch (...) {
    }
  }
}

void count(std::set<int>& processors) { processorsFrom(contentOf("/sys/devices/system/cpu/online"), processors); }

}  // namespace cpu

namespace dmi {

namespace {

const size_t kBuffer = 65536;

// One read of at most room bytes of a file into at. The descriptor is
// close-on-exec from the start: a program started by another thread
// meanwhile never inherits it.
size_t readInto(const std::string& path, unsigned char* at, size_t room) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd == -1) return 0;
  const ssize_t n = ::read(fd, at, room);
  ::close(fd);
  return n > 0 ? static_cast<size_t>(n) : 0;
}

// String number `index` (1-based) of the string set that starts at strings
// and ends before end; "" if there is no such string.
std::string stringOf(const unsigned char* strings, const unsigned char* end, unsigned char index) {
  if (index == 0) return std::string();
  const unsigned char* s = strings;
  for (unsigned char i = 1; s < end; ++i) {
    const unsigned char* stop = static_cast<const unsigned char*>(std::memchr(s, 0, static_cast<size_t>(end - s)));
    if (stop == nullptr) return std::string();  // unterminated
    if (stop == s) return std::string();        // the set's end
    if (i == index) return std::string(reinterpret_cast<const char*>(s), static_cast<size_t>(stop - s));
    s = stop + 1;
  }
  return std::string();
}

}  // namespace

std::string identityFrom(const unsigned char* table, size_t length) {
  std::string identity;
  if (table == nullptr || length == 0) return identity;
  const unsigned char* at = table;
  const unsigned char* end = table + length;
  while (at + 4 <= end) {
    const unsigned char type = at[0];
    const unsigned char formatted = at[1];
    if (type == 127 || formatted < 4 || at + formatted > end) break;
    // The string set follows the formatted part and ends with two zero bytes.
    const unsigned char* strings = at + formatted;
    const unsigned char* next = strings;
    while (next + 1 < end && !(next[0] == 0 && next[1] == 0)) ++next;
    const unsigned char* stringsEnd = next + 1 < end ? next + 1 : end;
    if ((type == 1 || type == 2) && formatted >= 8) {
      for (int field = 4; field <= 7; ++field) {
        const std::string s = stringOf(strings, stringsEnd, at[field]);
        if (s.empty()) continue;
        if (!identity.empty()) identity += " / ";
        identity += s;
      }
    }
    if (next + 1 >= end) break;
    at = next + 2;
  }
  return identity;
}

namespace {

// True when the length bytes at p add up to 0 (mod 256), as every entry
// point's checksummed part must.
bool sumsToZero(const unsigned char* p, size_t length) {
  unsigned char sum = 0;
  for (size_t n = 0; n < length; ++n) sum = static_cast<unsigned char>(sum + p[n]);
  return sum == 0;
}

// The legacy DMI entry point, alone or inside an SMBIOS 2 one: 15 bytes
// whose sum is 0, giving the table's length (16 bits) and address (32 bits).
bool legacyEntry(const unsigned char* p, size_t room, pod::uint64& address, pod::uint32& tableLength) {
  if (room < 15 || std::memcmp(p, "_DMI_", 5) != 0 || !sumsToZero(p, 15)) return false;
  pod::uint16 len;
  pod::uint32 base;
  std::memcpy(&len, p + 6, 2);
  std::memcpy(&base, p + 8, 4);
  tableLength = len;
  address = base;
  return true;
}

}  // namespace

bool tableFrom(const unsigned char* area, size_t length, pod::uint64& address, pod::uint32& tableLength) {
  if (area == nullptr) return false;
  // Every anchor is checked against its checksum, so that stray bytes that
  // happen to spell one are passed over.
  for (size_t at = 0; at + 32 <= length; at += 16) {
    const unsigned char* p = area + at;
    const size_t room = length - at;
    if (std::memcmp(p, "_SM3_", 5) == 0) {
      // Byte 5 is the checksum, byte 6 the entry point's length (24).
      const size_t entry = p[6];
      if (entry < 24 || entry > room || !sumsToZero(p, entry)) continue;
      std::memcpy(&tableLength, p + 12, 4);
      std::memcpy(&address, p + 16, 8);
      return true;
    }
    if (std::memcmp(p, "_SM_", 4) == 0) {
      // Byte 5 is the entry point's length (0x1F; 0x1E in some firmware);
      // the legacy entry point inside it, at 16, has its own checksum.
      const size_t entry = p[5];
      if (entry < 0x1E || entry > 0x20 || !sumsToZero(p, entry)) continue;
      if (legacyEntry(p + 16, room - 16, address, tableLength)) return true;
      continue;
    }
    if (legacyEntry(p, room, address, tableLength)) return true;
  }
  return false;
}

std::string identityOfHost(const std::string& entriesDirectory, const std::string& tableFile,
                           const std::string& memoryDevice) {
  std::vector<unsigned char> buffer(kBuffer);
  size_t used = readInto(entriesDirectory + "1-0/raw", buffer.data(), kBuffer);
  used += readInto(entriesDirectory + "2-0/raw", buffer.data() + used, kBuffer - used);
  if (used == 0) used = readInto(tableFile, buffer.data(), kBuffer);
  if (used == 0) {
    // The firmware area 0xF0000-0xFFFFF of physical memory holds the entry point.
    const int fd = ::open(memoryDevice.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd == -1) return std::string();
    std::vector<unsigned char> area(0x10000);
    pod::uint64 address = 0;
    pod::uint32 length = 0;
    if (::pread64(fd, area.data(), area.size(), 0xF0000) == static_cast<ssize_t>(area.size()) &&
        tableFrom(area.data(), area.size(), address, length)) {
      const ssize_t n = ::pread64(fd, buffer.data(), length < kBuffer ? length : kBuffer, static_cast<off64_t>(address));
      used = n > 0 ? static_cast<size_t>(n) : 0;
    }
    ::close(fd);
  }
  return identityFrom(buffer.data(), used);
}

}  // namespace dmi
}  // namespace hostinfo
}  // namespace impl
}  // namespace sal
}  // namespace quorel
