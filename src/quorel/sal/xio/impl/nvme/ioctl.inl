// Platform half of NVMe pass-through: open64, fstat64, and ioctl with
// NVME_IOCTL_ID and the pass-through requests.
#include <errno.h>
#include <fcntl.h>
#include <linux/nvme_ioctl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <cstddef>
#include <string>

#include <quorel/sal/xio/Exception.h>
#include <quorel/sal/xio/nvme/Exception.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace xio {
namespace impl {
namespace nvme {
namespace sys {

// A 32-bit program's requests reach a 64-bit kernel unchanged (the NVMe
// ioctls have no compat translation beyond the user pointers): the layouts
// must be the 64-bit ones, which the __u64 fields at 8-byte offsets give.
static_assert(sizeof(nvme_passthru_cmd) == 72 && offsetof(nvme_passthru_cmd, addr) == 24 &&
                  offsetof(nvme_passthru_cmd, result) == 68,
              "struct nvme_passthru_cmd differs from the kernel's");
static_assert(sizeof(nvme_passthru_cmd64) == 80 && offsetof(nvme_passthru_cmd64, addr) == 24 &&
                  offsetof(nvme_passthru_cmd64, result) == 72,
              "struct nvme_passthru_cmd64 differs from the kernel's");

/// Opens a node with flags (named in the message as names). Throws
/// OpenException "::open('<path>', <names>) failed" (domain 2, errno).
inline int open(const std::string& path, int flags, const char* names) {
  const int fd = ::open64(path.c_str(), flags);
  if (fd == -1) {
    const int error = errno;
    QUOREL_THROW(OpenException)("::open('" + path + "', " + names + ") failed", sal::i::err::domain::kSystemCall,
                                error);
  }
  return fd;
}

/// The file type bits of an open node. Throws nvme::Exception
/// "::fstat('<name>') failed" (domain 2, errno).
inline unsigned int typeOf(int fd, const std::string& name) {
  struct stat64 status;
  if (::fstat64(fd, &status) != 0) {
    const int error = errno;
    QUOREL_THROW(xio::nvme::Exception)("::fstat('" + name + "') failed", sal::i::err::domain::kSystemCall, error);
  }
  return status.st_mode & S_IFMT;
}

/// The namespace identifier of a namespace node, or -errno.
inline int namespaceIdentifier(int fd) {
  const int id = ::ioctl(fd, NVME_IOCTL_ID);
  return id < 0 ? -errno : id;
}

/// One pass-through request: its result (0, or a positive NVMe status), or
/// -errno when the ioctl failed.
inline int passThrough(int fd, unsigned long request, void* command) {
  const int result = ::ioctl(fd, request, command);
  return result < 0 ? -errno : result;
}

}  // namespace sys
}  // namespace nvme
}  // namespace impl
}  // namespace xio
}  // namespace sal
}  // namespace quorel
