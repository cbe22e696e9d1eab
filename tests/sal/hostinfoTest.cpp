// Host information: the parsers on real-world samples, the DMI walker on
// good and broken tables, and the snapshot against the host.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>

#include <algorithm>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <quorel/quorel.h>
#include <quorel/sal/impl/hostinfo.h>

#include "support/fault.h"

namespace quorel {
namespace {

namespace parse = sal::impl::hostinfo::parse;
namespace dmi = sal::impl::hostinfo::dmi;

const char kVirtualCpuInfo[] =
    "processor\t: 0\ncpu family\t: 6\nmodel\t\t: 207\nmodel name\t: Intel(R) Xeon(R) Processor\nstepping\t: 2\n"
    "flags\t\t: fpu vme de pse tsc hypervisor lahf_lm\n\nprocessor\t: 1\ncpu family\t: 6\nmodel\t\t: 207\n"
    "model name\t: Intel(R) Xeon(R) Processor\nstepping\t: 2\nflags\t\t: fpu hypervisor\n";
const char kArmCpuInfo[] = "processor\t: 0\nBogoMIPS\t: 48.00\nFeatures\t: fp asimd evtstrm\nCPU part\t: 0xd08\n";

TEST(HostParsers, ProcessorNamesWithDetailAndTheHypervisorFlag) {
  std::string name = "X86";
  bool vm = false;
  parse::cpuInfo(kVirtualCpuInfo, name, vm);
  EXPECT_EQ(name, "Intel(R) Xeon(R) Processor (Family 6 Model 207 Stepping 2)");
  EXPECT_TRUE(vm);
  name = "X86";
  vm = false;
  parse::cpuInfo(kArmCpuInfo, name, vm);
  EXPECT_EQ(name, "X86");
  parse::cpuInfo("flags: hypervisorish\n", name, vm);
  EXPECT_FALSE(vm);  // a whole flag, not a part of one
}

std::map<std::string, std::string> files;
std::string fromFiles(const std::string& path) { return files.count(path) ? files[path] : std::string(); }

TEST(HostParsers, DistributionFromTheFirstReleaseFileThatAnswersKernelVersionsAndProcessorLists) {
  files = {{"/etc/os-release", "NAME=\"Debian GNU/Linux\"\nPRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\n"},
           {"/etc/lsb-release", "DISTRIB_DESCRIPTION=\"Ubuntu 22.04\"\n"}};
  EXPECT_EQ(parse::osName("Linux", parse::distribution(fromFiles)), "Linux \"Debian GNU/Linux 12 (bookworm)\"");
  files = {{"/etc/os-release", "PRETTY_NAME = Alpine Linux v3.19 \n"}};
  EXPECT_EQ(parse::osName("Linux", parse::distribution(fromFiles)), "Linux \"Alpine Linux v3.19\"");
  files = {{"/etc/lsb-release", "DISTRIB_ID=Ubuntu\nDISTRIB_DESCRIPTION=\"Ubuntu 10.04.4 LTS\"\n"}};
  EXPECT_EQ(parse::distribution(fromFiles), "\"Ubuntu 10.04.4 LTS\"");
  files = {{"/etc/redhat-release", "CentOS release 6.10 (Final)\nsecond line\n"}};
  EXPECT_EQ(parse::osName("Linux", parse::distribution(fromFiles)), "Linux \"CentOS release 6.10 (Final)\"");
  files.clear();
  EXPECT_EQ(parse::osName("Linux", parse::distribution(fromFiles)), "Linux");

  EXPECT_EQ(parse::kernelVersion("2.6.32-754.el6.x86_64").asString(), "2.6.32");
  std::set<int> cpus;
  sal::impl::hostinfo::cpu::processorsFrom("0-3,6,8-9\n", cpus);
  EXPECT_EQ(cpus, (std::set<int>{0, 1, 2, 3, 6, 8, 9}));
  cpus.clear();
  sal::impl::hostinfo::cpu::processorsFrom("x,2-y,5", cpus);
  EXPECT_EQ(cpus, (std::set<int>{5}));
}

// A structure: type, the formatted part (bytes 4.. after the header) and its strings.
std::vector<unsigned char> structure(unsigned char type, const std::vector<unsigned char>& fields,
                                     const std::vector<std::string>& strings) {
  std::string bytes;
  bytes += static_cast<char>(type);
  bytes += static_cast<char>(4 + fields.size());
  bytes += std::string(2, '\0');
  for (unsigned char f : fields) bytes += static_cast<char>(f);
  for (const std::string& text : strings) bytes += text + '\0';
  if (strings.empty()) bytes += '\0';
  bytes += '\0';
  return std::vector<unsigned char>(bytes.begin(), bytes.end());
}

std::vector<unsigned char> operator+(const std::vector<unsigned char>& a, const std::vector<unsigned char>& b) {
  std::string joined(a.begin(), a.end());
  joined.append(b.begin(), b.end());
  return std::vector<unsigned char>(joined.begin(), joined.end());
}

TEST(DMIWalker, SystemAndBaseBoardStringsAndBrokenTablesNeverReadOutOfBounds) {
  const auto table = structure(0, {1, 2, 3, 4}, {"BIOS vendor"}) +
                     structure(1, {1, 2, 3, 4, 0, 0, 0, 0}, {"QEMU", "Standard PC", "pc-7.2", "SN-1"}) +
                     structure(2, {1, 2, 0, 3}, {"Board Inc", "B-1", "BSN"}) + structure(127, {}, {}) +
                     structure(1, {1, 0, 0, 0}, {"after the end"});
  EXPECT_EQ(dmi::identityFrom(table.data(), table.size()), "QEMU / Standard PC / pc-7.2 / SN-1 / Board Inc / B-1 / BSN");

  // Broken tables are never read out of bounds.
  const auto good = structure(1, {1, 2, 0, 0}, {"Maker", "Product"});
  for (size_t cut = 0; cut <= good.size(); ++cut) {
    std::vector<unsigned char> truncated(good.begin(), good.begin() + static_cast<long>(cut));
    truncated.shrink_to_fit();  // so that a sanitizer sees any read past the end
    dmi::identityFrom(truncated.data(), truncated.size());
  }
  EXPECT_EQ(dmi::identityFrom(nullptr, 0), "");  // found by fuzzing: no arithmetic on a null table
  pod::uint64 address = 0;
  pod::uint32 length = 0;
  EXPECT_FALSE(dmi::tableFrom(nullptr, 0, address, length));
  const auto missingString = structure(1, {1, 5, 0, 0}, {"Maker"});  // string 5 does not exist
  EXPECT_EQ(dmi::identityFrom(missingString.data(), missingString.size()), "Maker");
  const std::vector<unsigned char> tooShort{1, 2, 0, 0, 0, 0};  // a length below the header's
  EXPECT_EQ(dmi::identityFrom(tooShort.data(), tooShort.size()), "");
}

// Sets byte at of an entry point so that its first length bytes sum to 0.
void checksum(unsigned char* entry, size_t length, size_t at) {
  entry[at] = 0;
  unsigned char sum = 0;
  for (size_t n = 0; n < length; ++n) sum = static_cast<unsigned char>(sum + entry[n]);
  entry[at] = static_cast<unsigned char>(-sum);
}

// An SMBIOS 3 entry point (table at 0xF1000, 0x1234 bytes at most), an
// SMBIOS 2 one (table at 0xE8000, 0x140 bytes) and a bare legacy "_DMI_" one
// (table at 0xE0000, 0x80 bytes), each with good checksums.
struct EntryPoints {
  unsigned char smbios3[24] = {'_', 'S', 'M', '3', '_', 0, 24, 3, 2, 0, 1, 0, 0x34, 0x12, 0, 0,
                               0x00, 0x10, 0x0F, 0, 0, 0, 0, 0};
  unsigned char smbios2[31] = {'_', 'S', 'M', '_', 0, 0x1f, 2, 8, 0, 0, 0, 0, 0, 0, 0, 0,
                               '_', 'D', 'M', 'I', '_', 0, 0x40, 0x01, 0x00, 0x80, 0x0E, 0x00, 0, 0, 0x28};
  unsigned char legacy[15] = {'_', 'D', 'M', 'I', '_', 0, 0x80, 0, 0x00, 0x00, 0x0E, 0x00, 0, 0, 0x24};
  EntryPoints() {
    checksum(smbios3, 24, 5);
    checksum(smbios2 + 16, 15, 5);
    checksum(smbios2, 31, 4);
    checksum(legacy, 15, 5);
  }
  // A firmware area with one entry point at offset 0x40.
  template <size_t n>
  static std::vector<unsigned char> areaWith(const unsigned char (&entry)[n]) {
    std::vector<unsigned char> area(0x100, 0);
    std::copy(entry, entry + n, area.begin() + 0x40);
    return area;
  }
};

TEST(DMIWalker, EntryPointsAreTakenOnlyWithGoodChecksums) {
  EntryPoints good;
  pod::uint64 address = 0;
  pod::uint32 length = 0;
  const std::vector<unsigned char> areas[] = {EntryPoints::areaWith(good.smbios3), EntryPoints::areaWith(good.smbios2),
                                              EntryPoints::areaWith(good.legacy)};
  const std::pair<pod::uint64, pod::uint32> tables[] = {{0xF1000, 0x1234}, {0xE8000, 0x140}, {0xE0000, 0x80}};
  for (int n = 0; n < 3; ++n) {
    ASSERT_TRUE(dmi::tableFrom(areas[n].data(), areas[n].size(), address, length)) << n;
    EXPECT_EQ(address, tables[n].first);
    EXPECT_EQ(length, tables[n].second);
  }
  EXPECT_FALSE(dmi::tableFrom(areas[0].data(), 0x40, address, length));
  // One byte off in each checksummed part: the anchor is ignored.
  EntryPoints bad;
  ++bad.smbios3[20];
  --bad.legacy[8];
  for (const auto& broken : {EntryPoints::areaWith(bad.smbios3), EntryPoints::areaWith(bad.legacy)}) {
    EXPECT_FALSE(dmi::tableFrom(broken.data(), broken.size(), address, length));
  }
  EntryPoints badInner;
  ++badInner.smbios2[24];
  checksum(badInner.smbios2, 31, 4);  // the outer sum right, the inner one wrong
  auto area = EntryPoints::areaWith(badInner.smbios2);
  EXPECT_FALSE(dmi::tableFrom(area.data(), area.size(), address, length));
  // A good legacy anchor later in the area is still found.
  area = EntryPoints::areaWith(bad.legacy);
  std::copy(good.legacy, good.legacy + 15, area.begin() + 0x80);
  ASSERT_TRUE(dmi::tableFrom(area.data(), area.size(), address, length));
  EXPECT_EQ(address, 0xE0000u);
}

// Record whether each descriptor the library reads from is close-on-exec,
// after the call, so that it is no tail call (which would come back here).
std::vector<bool> readsCloseOnExec;
ssize_t noted(int fd, ssize_t n) {
  readsCloseOnExec.push_back((::fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0);
  return n;
}
ssize_t checkedRead(int fd, void* buffer, size_t size) { return noted(fd, ::read(fd, buffer, size)); }
ssize_t checkedPread(int fd, void* buffer, size_t size, off64_t at) { return noted(fd, ::pread64(fd, buffer, size, at)); }

// A scratch directory standing in for the firmware's files.
class FirmwareFiles {
 public:
  FirmwareFiles() : root_("/tmp/quorel-dmi-" + std::to_string(::getpid())) {
    for (const std::string& d : {root_, root_ + "/entries", root_ + "/entries/1-0", root_ + "/entries/2-0"}) {
      ::mkdir(d.c_str(), 0700);
    }
  }
  ~FirmwareFiles() {
    for (const char* f : {"/entries/1-0/raw", "/entries/2-0/raw", "/DMI", "/mem"}) ::unlink((root_ + f).c_str());
    for (const char* d : {"/entries/1-0", "/entries/2-0", "/entries", ""}) ::rmdir((root_ + d).c_str());
  }
  std::string path(const std::string& name) const { return root_ + "/" + name; }
  // Writes bytes at an offset of the file (a sparse file below it).
  void write(const std::string& name, const std::vector<unsigned char>& bytes, off_t at = 0) const {
    const int fd = ::open(path(name).c_str(), O_WRONLY | O_CREAT, 0600);
    EXPECT_EQ(::pwrite(fd, bytes.data(), bytes.size(), at), static_cast<ssize_t>(bytes.size()));
    ::close(fd);
  }

 private:
  std::string root_;
};

TEST(DMIWalker, TheHostIdentityComesFromTheFirstSourceWithBytes) {
  const FirmwareFiles scratch;
  const std::string entries = scratch.path("entries/");
  const auto identity = [&] { return dmi::identityOfHost(entries, scratch.path("DMI"), scratch.path("mem")); };
  // Every firmware file is read through a close-on-exec descriptor.
  test::fault::StandIn reads("read", reinterpret_cast<void*>(&checkedRead));
  test::fault::StandIn preads("pread64", reinterpret_cast<void*>(&checkedPread));
  readsCloseOnExec.clear();
  EXPECT_EQ(identity(), "");  // nothing anywhere
  // A memory device: an SMBIOS 3 entry point in the firmware area, the table at 1 MiB.
  const auto fromMemory = structure(1, {1, 0, 0, 0}, {"From memory"});
  std::vector<unsigned char> entry{'_', 'S', 'M', '3', '_', 0, 24, 3, 2, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0x10, 0, 0, 0, 0, 0};
  entry[12] = static_cast<unsigned char>(fromMemory.size());
  checksum(entry.data(), entry.size(), 5);
  scratch.write("mem", entry, 0xF0000 + 0x20);
  scratch.write("mem", fromMemory, 0x100000);
  EXPECT_EQ(identity(), "From memory");
  scratch.write("DMI", {});
  EXPECT_EQ(identity(), "From memory");  // an empty table file counts as none
  scratch.write("DMI", structure(1, {1, 0, 0, 0}, {"From the table"}));
  EXPECT_EQ(identity(), "From the table");
  scratch.write("entries/2-0/raw", structure(2, {1, 0, 0, 0}, {"Board"}));
  EXPECT_EQ(identity(), "Board");  // either entry alone is enough
  scratch.write("entries/1-0/raw", structure(1, {1, 2, 0, 0}, {"Maker", "Product"}));
  EXPECT_EQ(identity(), "Maker / Product / Board");
  EXPECT_GE(readsCloseOnExec.size(), 5u);
  EXPECT_EQ(readsCloseOnExec, std::vector<bool>(readsCloseOnExec.size(), true));
}

// Serves the system entry from a scratch file; every other firmware file is missing.
std::string systemEntry;
int opens = 0;
int firmwareOpen(const char* path, int flags, int mode) {
  ++opens;
  if (!systemEntry.empty() && std::string(path) == "/sys/firmware/dmi/entries/1-0/raw") {
    return ::open(systemEntry.c_str(), flags, mode);
  }
  errno = ENOENT;
  return -1;
}

TEST(HostInfo, TheFirmwareIdentityIsLookedForUntilFoundAndThenKept) {
  QUOREL_REQUIRE_FAULT_POINT("open");
  const FirmwareFiles scratch;
  test::fault::StandIn firmware("open", reinterpret_cast<void*>(&firmwareOpen));
  systemEntry.clear();
  opens = 0;
  if (!sal::hostinfo::env::id().empty() && opens == 0) GTEST_SKIP() << "this process already keeps an identity";
  EXPECT_GT(opens, 0);
  const int first = opens;
  EXPECT_EQ(sal::hostinfo::env::id(), "");  // nothing kept: looked for again
  EXPECT_EQ(opens, 2 * first);
  scratch.write("entries/1-0/raw", structure(1, {1, 2, 0, 0}, {"Maker", "Product"}));
  systemEntry = scratch.path("entries/1-0/raw");
  EXPECT_EQ(sal::hostinfo::env::id(), "Maker / Product");
  opens = 0;
  EXPECT_EQ(sal::hostinfo::env::id(), "Maker / Product");
  EXPECT_EQ(opens, 0);  // kept
}

TEST(HostInfo, SnapshotAgreesWithTheHost) {
  utsname names;
  ASSERT_EQ(::uname(&names), 0);
  EXPECT_EQ(sal::hostinfo::os::name().rfind(names.sysname, 0), 0u);
  EXPECT_EQ(sal::hostinfo::os::version().asString(), parse::kernelVersion(names.release).asString());
  EXPECT_EQ(sal::hostinfo::mem::pageSize(), static_cast<unsigned int>(::sysconf(_SC_PAGESIZE)));
  EXPECT_EQ(sal::hostinfo::os::bits(), static_cast<int>(sizeof(void*) * 8));
  EXPECT_EQ(sal::hostinfo::os::machine(), names.machine);
  EXPECT_EQ(sal::hostinfo::build::cpu(), sizeof(void*) == 4 ? "ia32" : "x86_64");
}

}  // namespace
}  // namespace quorel
