// Platform half of reading, writing, seeking, truncating and syncing: read,
// write, pread64, pwrite64, lseek64, ftruncate64, fsync.
#include <quorel/sal/xio/impl/desc.h>

#include <errno.h>
#include <sys/socket.h>
#include <unistd.h>

#include <quorel/sal/xio/Exception.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace xio {
namespace impl {

namespace fio {

using sal::i::err::domain::kSystemCall;

int read(i::id::type id, void* buffer, int size) {
  const ssize_t count = ::read(static_cast<int>(id), buffer, static_cast<size_t>(size));
  if (count < 0) {
    const int error = errno;
    QUOREL_THROW(ReadException)("::read() failed", kSystemCall, error);
  }
  return static_cast<int>(count);
}

int write(i::id::type id, const void* buffer, int size) {
  const ssize_t count = ::write(static_cast<int>(id), buffer, static_cast<size_t>(size));
  if (count < 0) {
    const int error = errno;
    QUOREL_THROW(WriteException)("::write() failed", kSystemCall, error);
  }
  return static_cast<int>(count);
}

int readAt(i::id::type id, void* buffer, int size, i::offset::type offset) {
  const ssize_t count = ::pread64(static_cast<int>(id), buffer, static_cast<size_t>(size), offset);
  return count < 0 ? -errno : static_cast<int>(count);
}

int writeAt(i::id::type id, const void* buffer, int size, i::offset::type offset) {
  const ssize_t count = ::pwrite64(static_cast<int>(id), buffer, static_cast<size_t>(size), offset);
  return count < 0 ? -errno : static_cast<int>(count);
}

int read(i::id::type id, void* buffer, int size, i::offset::type offset) {
  const int count = readAt(id, buffer, size, offset);
  if (count < 0) QUOREL_THROW(ReadException)("::pread() failed", kSystemCall, -count);
  return count;
}

int write(i::id::type id, const void* buffer, int size, i::offset::type offset) {
  const int count = writeAt(id, buffer, size, offset);
  if (count < 0) QUOREL_THROW(WriteException)("::pwrite() failed", kSystemCall, -count);
  return count;
}

int receiveAll(i::id::type id, void* buffer, int size) {
  char* at = static_cast<char*>(buffer);
  int done = 0;
  while (done < size) {
    const ssize_t count = ::recv(static_cast<int>(id), at + done, static_cast<size_t>(size - done), 0);
    if (count == 0) break;  // the peer closed
    if (count < 0) {
      if (errno == EINTR) continue;
      return -errno;
    }
    done += static_cast<int>(count);
  }
  return done;
}

int sendAll(i::id::type id, const void* buffer, int size) {
  const char* at = static_cast<const char*>(buffer);
  int done = 0;
  while (done < size) {
    const ssize_t count = ::send(static_cast<int>(id), at + done, static_cast<size_t>(size - done), MSG_NOSIGNAL);
    if (count < 0) {
      if (errno == EINTR) continue;
      return -errno;
    }
    done += static_cast<int>(count);
  }
  return done;
}

i::offset::type seek(i::id::type id, i::offset::type offset, int whence) {
  const off64_t position = ::lseek64(static_cast<int>(id), offset, whence);
  if (position < 0) {
    const int error = errno;
    QUOREL_THROW(SeekException)("::lseek() failed", kSystemCall, error);
  }
  return position;
}

}  // namespace fio

namespace fop {

void truncate(i::id::type id, i::offset::type length) {
  if (::ftruncate64(static_cast<int>(id), length) != 0) {
    const int error = errno;
    QUOREL_THROW(TruncateException)("::ftruncate() failed", sal::i::err::domain::kSystemCall, error);
  }
}

void sync(i::id::type id) {
  if (::fsync(static_cast<int>(id)) != 0) {
    const int error = errno;
    QUOREL_THROW(SyncException)("::fsync() failed", sal::i::err::domain::kSystemCall, error);
  }
}

}  // namespace fop

}  // namespace impl
}  // namespace xio
}  // namespace sal
}  // namespace quorel
