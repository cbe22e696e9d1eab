// Platform half of file opening: the open64 flags and mode, open64 and fcntl.
#include <quorel/sal/xio/impl/Spec.h>

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <quorel/sal/xio/Exception.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace xio {
namespace impl {

namespace {

using sal::i::err::domain::kSystemCall;
namespace fo = i::fopen;

// The permission options in order, with their mode bits and names.
struct Permission {
  int option;
  int bit;
  const char* name;
};
const Permission kPermissions[] = {
    {fo::kUserRead, 0400, "S_IRUSR"},  {fo::kUserWrite, 0200, "S_IWUSR"},  {fo::kUserExec, 0100, "S_IXUSR"},
    {fo::kGroupRead, 040, "S_IRGRP"},  {fo::kGroupWrite, 020, "S_IWGRP"},  {fo::kGroupExec, 010, "S_IXGRP"},
    {fo::kOtherRead, 04, "S_IROTH"},   {fo::kOtherWrite, 02, "S_IWOTH"},   {fo::kOtherExec, 01, "S_IXOTH"},
};

void append(std::string& names, const char* name) {
  if (!names.empty()) names += ' ';
  names += name;
}

}  // namespace

namespace open {

std::string Spec::asString() const {
  std::string names;
  if (!enabled(i::open::kInherit)) append(names, "FD_CLOEXEC");
  if (enabled(i::open::kNonblock)) append(names, "O_NONBLOCK");
  return names;
}

}  // namespace open

namespace fopen {

Spec::Spec(const open::Spec& descriptorOptions) : descriptor(descriptorOptions), flags(0), mode(0) {
  for (int& option : options) option = i::option::kUnspecified;
  for (const Permission& p : kPermissions) options[p.option] = i::option::kDisabled;
  options[fo::kUserRead] = i::option::kEnabled;
  options[fo::kUserWrite] = i::option::kEnabled;
}

void Spec::compute() {
  const bool read = enabled(fo::kRead);
  const bool write = enabled(fo::kWrite);
  flags = read && write ? O_RDWR : write ? O_WRONLY : O_RDONLY;
  if (write) {
    if (enabled(fo::kCreate)) flags |= O_CREAT;
    if (options[fo::kInit] == i::option::kAppend) flags |= O_APPEND;
    if (options[fo::kInit] == i::option::kTruncate) flags |= O_TRUNC;
  }
  if (enabled(fo::kSync)) flags |= O_SYNC;
  if (enabled(fo::kDSync)) flags |= O_DSYNC;
  if (enabled(fo::kRSync)) flags |= O_RSYNC;
  if (enabled(fo::kDirect)) flags |= O_DIRECT;
  flags |= O_LARGEFILE;
  mode = 0;
  if (write && enabled(fo::kCreate)) {
    for (const Permission& p : kPermissions) {
      if (enabled(p.option)) mode |= p.bit;
    }
  }
}

std::string Spec::flagNames(bool exclusive) const {
  const bool read = enabled(fo::kRead);
  const bool write = enabled(fo::kWrite);
  std::string names;
  if (read || write) append(names, read && write ? "O_RDWR" : read ? "O_RDONLY" : "O_WRONLY");
  if (exclusive) append(names, "O_EXCL");
  if (write) {
    if (enabled(fo::kCreate)) append(names, "O_CREAT");
    if (options[fo::kInit] == i::option::kAppend) append(names, "O_APPEND");
    if (options[fo::kInit] == i::option::kTruncate) append(names, "O_TRUNC");
  }
  if (enabled(fo::kSync)) append(names, "O_SYNC");
  if (enabled(fo::kDSync)) append(names, "O_DSYNC");
  if (enabled(fo::kRSync)) append(names, "O_RSYNC");
  if (enabled(fo::kDirect)) append(names, "O_DIRECT");
  append(names, "O_LARGEFILE");
  if (descriptor.enabled(i::open::kNonblock)) append(names, "O_NONBLOCK");
  if (write && enabled(fo::kCreate)) {
    for (const Permission& p : kPermissions) {
      if (enabled(p.option)) append(names, p.name);
    }
  }
  if (!descriptor.enabled(i::open::kInherit)) append(names, "F_SETFD=FD_CLOEXEC");
  return names;
}

i::id::type Spec::open(const std::string& path, bool exclusive) const {
  const int fd = ::open64(path.c_str(), flags | (exclusive ? O_EXCL : 0), mode);
  if (fd == -1) {
    const int error = errno;
    QUOREL_THROW(OpenException)("::open('" + path + "', " + flagNames(exclusive) + ") failed", kSystemCall, error);
  }
  try {
    fcntlOn(fd, path);
  } catch (...) {
    ::close(fd);
    throw;
  }
  return static_cast<i::id::type>(fd);
}

void Spec::fcntlOn(int fd, const std::string& path) const {
  if (descriptor.enabled(i::open::kNonblock) && ::fcntl(fd, F_SETFL, O_NONBLOCK) == -1) {
    const int error = errno;
    QUOREL_THROW(OpenException)("::fcntl('" + path + "', F_SETFL, O_NONBLOCK) failed", kSystemCall, error);
  }
  if (!descriptor.enabled(i::open::kInherit) && ::fcntl(fd, F_SETFD, FD_CLOEXEC) == -1) {
    const int error = errno;
    QUOREL_THROW(OpenException)("::fcntl('" + path + "', F_SETFD, FD_CLOEXEC) failed", kSystemCall, error);
  }
}

}  // namespace fopen
}  // namespace impl
}  // namespace xio
}  // namespace sal
}  // namespace quorel
