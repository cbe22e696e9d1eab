/// \file
/// hostinfo: the operating system, processor, memory, environment and build.
#ifndef QUOREL_SAL_HOSTINFO_H
#define QUOREL_SAL_HOSTINFO_H

#include <string>

#include <quorel/util/Version.h>
#include <quorel/util/pod.h>

namespace quorel {
namespace sal {
namespace hostinfo {

// Taken when the library is loaded; nothing here throws.
namespace os {
/// The system name and the distribution description in double quotes:
/// Linux "Debian GNU/Linux 12 (bookworm)".
const std::string& name();
/// The kernel release cut at its first character outside "0123456789."
/// (2.6.32-754.el6 gives 2.6.32).
const util::Version& version();
/// The word size of this build of the library: 32 (64 for a native x86_64
/// build), whatever the kernel's own (see machine()).
int bits();
/// The kernel's machine name (uname): "x86_64" for a 64-bit kernel, which
/// also runs this 32-bit library.
const std::string& machine();
}  // namespace os

namespace cpu {
/// The model name with its family, model and stepping, or "X86".
const std::string& name();
/// The processors the kernel has online (/sys/devices/system/cpu/online).
int count();
}  // namespace cpu

namespace mem {
unsigned int pageSize();
/// Physical memory in bytes: sysconf's physical pages times the page size.
pod::uint64 size();
}  // namespace mem

namespace env {
/// The firmware's identity: the manufacturer, product, version and serial
/// strings of the System Information and Base Board structures, joined by
/// " / " in table order. Read on first use and kept; "" if no table could
/// be read.
std::string id();
/// Whether the processor reports a hypervisor.
bool isVM();
bool isVM(std::string& detail);
const std::string& execPath();     // "" on this platform
const std::string& appStage();     // "/var"
const std::string& tempDirectory();  // "/tmp"
bool isInWindowStation();          // false on this platform
}  // namespace env

namespace build {
std::string os();    // "linux26"
std::string cpu();   // "ia32", or "x86_64" for a native x86_64 build
std::string arch();  // "i386", or "x86_64" for a native x86_64 build
}  // namespace build

}  // namespace hostinfo
}  // namespace sal
}  // namespace quorel

#endif
