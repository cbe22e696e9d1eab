// Why the kernel refused a dispatcher or a device, and what to change: the
// library reports the failed call; the tool looks at the limits, rights and
// permissions behind it.
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "command.h"

namespace tool {

namespace {

// The first number in a file of /proc, or -1.
long long numberIn(const std::string& path) {
  std::ifstream in(path);
  long long value = -1;
  in >> value;
  return in ? value : -1;
}

// Whether this process holds a capability in its effective set.
bool holdsCapability(int capability) {
  std::ifstream in("/proc/self/status");
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind("CapEff:", 0) != 0) continue;
    const unsigned long long set = std::strtoull(line.c_str() + 7, nullptr, 16);
    return (set >> capability & 1) != 0;
  }
  return false;
}

std::string userName(uid_t uid) {
  const passwd* entry = ::getpwuid(uid);
  return entry != nullptr ? entry->pw_name : std::to_string(uid);
}

std::string groupName(gid_t gid) {
  const group* entry = ::getgrgid(gid);
  return entry != nullptr ? entry->gr_name : std::to_string(gid);
}

constexpr int kSysRawIO = 17;  // CAP_SYS_RAWIO

}  // namespace

std::string aioAdvice(int depth) {
  const long long used = numberIn("/proc/sys/fs/aio-nr");
  const long long most = numberIn("/proc/sys/fs/aio-max-nr");
  if (used < 0 || most < 0 || used + depth <= most) return std::string();
  std::ostringstream text;
  text << "the kernel's limit on asynchronous I/O requests is reached: fs.aio-nr is " << used
       << " (held by every program's AIO contexts) and fs.aio-max-nr " << most << ", so a context for "
       << depth << " more was refused.\n"
       << "  Raise the limit (as root: sysctl -w fs.aio-max-nr=" << (used + depth) * 2
       << "; in /etc/sysctl.d to keep it) or ask for less with --depth.\n";
  return text.str();
}

std::string deviceAdvice(const std::string& path, int error, bool passThrough) {
  if (error != EACCES && error != EPERM) return std::string();
  std::ostringstream text;
  struct stat node;
  const bool found = ::stat(path.c_str(), &node) == 0;
  const bool writable = ::access(path.c_str(), R_OK | W_OK) == 0;
  if (found && !writable) {
    char mode[8];
    std::snprintf(mode, sizeof mode, "%04o", static_cast<unsigned int>(node.st_mode & 07777));
    text << path << " is owned by " << userName(node.st_uid) << ":" << groupName(node.st_gid) << " with mode " << mode
         << ", which does not let this user (" << userName(::geteuid()) << ") read and write it.\n"
         << "  Run as root, join the group '" << groupName(node.st_gid)
         << "', or give the user access to the node (a udev rule).\n";
  }
  if (passThrough && !holdsCapability(kSysRawIO)) {
    text << "this process lacks CAP_SYS_RAWIO, which the kernel requires for pass-through commands outside "
            "its short list of harmless ones (ATA PASS-THROUGH among them).\n"
         << "  Run as root, or give the program the capability (setcap cap_sys_rawio+ep on its file).\n";
  }
  if (passThrough && text.str().empty()) {
    text << "the kernel refused the command although the node is open for reading and writing and this process "
            "holds CAP_SYS_RAWIO: a security module (SELinux, AppArmor) or a container's device rules may "
            "forbid it.\n";
  }
  return text.str();
}

}  // namespace tool
