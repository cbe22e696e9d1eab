/// \file
/// Host information: the load-time snapshot and the parsers behind it, which
/// take text so that they can be tried on any sample.
#ifndef QUOREL_SAL_IMPL_HOSTINFO_H
#define QUOREL_SAL_IMPL_HOSTINFO_H

#include <cstddef>
#include <set>
#include <string>

#include <quorel/util/Version.h>
#include <quorel/util/pod.h>

namespace quorel {
namespace sal {
namespace impl {
namespace hostinfo {

namespace mem {
extern unsigned int thePageSize;
}  // namespace mem
namespace cpu {
extern std::string theName;
/// The processors the kernel has online (/sys/devices/system/cpu/online).
void count(std::set<int>& processors);
/// "0-3,6,8-9" -> {0,1,2,3,6,8,9}; malformed pieces are skipped.
void processorsFrom(const std::string& list, std::set<int>& processors);
}  // namespace cpu
namespace os {
extern std::string theName;
extern util::Version theVersion;
extern std::string theMachine;  // uname's machine field
}  // namespace os
namespace env {
extern std::string theAppStage;
extern std::string theTempDirectory;
extern bool theVM;
extern std::string theVMDetail;
}  // namespace env

namespace parse {
/// The processor name with its " (Family F Model M Stepping S)" detail, and
/// whether a "flags" line names "hypervisor", from /proc/cpuinfo text.
/// Later blocks' values win; a name stays "X86" if the text has none.
void cpuInfo(const std::string& text, std::string& name, bool& hypervisor);
/// The trimmed value of key in KEY=value text ("" if absent).
std::string valueOf(const std::string& text, const std::string& key);
/// The first line of a text.
std::string firstLine(const std::string& text);
/// The distribution description from the release files in their order of
/// preference, read through contentOf(path): os-release's PRETTY_NAME,
/// lsb-release's DISTRIB_DESCRIPTION, then the first line of system-release,
/// SuSE-release, redhat-release or fedora-release.
std::string distribution(std::string (*contentOf)(const std::string& path));
/// The system name and the distribution description, quoted once.
std::string osName(const std::string& systemName, const std::string& description);
/// The kernel release cut at the first character outside "0123456789.".
util::Version kernelVersion(const std::string& release);
}  // namespace parse

namespace dmi {
/// The identity composed from the type 1 (System Information) and type 2
/// (Base Board) strings at bytes 4-7 of a structure table: the non-empty
/// strings in table order, joined by " / ". Every length and string number is
/// checked: a truncated or hostile table yields what could be read safely.
std::string identityFrom(const unsigned char* table, size_t length);
/// Finds an SMBIOS 2.x ("_SM_"), 3.x ("_SM3_") or legacy ("_DMI_") entry
/// point in a firmware area (16-byte aligned anchors) whose checksums hold
/// (for "_SM_", both its own and that of the "_DMI_" part inside it); gives
/// the structure table's physical address and maximum length.
bool tableFrom(const unsigned char* area, size_t length, pod::uint64& address, pod::uint32& tableLength);
/// The identity from the firmware of this host: the sysfs entries under
/// entriesDirectory (1-0/raw, 2-0/raw), else the whole table file, else an
/// entry point in memoryDevice. Every file is opened close-on-exec.
std::string identityOfHost(const std::string& entriesDirectory, const std::string& tableFile,
                           const std::string& memoryDevice);
}  // namespace dmi

}  // namespace hostinfo
}  // namespace impl
}  // namespace sal
}  // namespace quorel

#endif
