// Platform half of the io_uring dispatcher: the ring's system calls (glibc
// wraps none of them), the mappings of its rings, the eventfd that ends a
// wait from another thread, and the kernel.io_uring_disabled setting.
#include <errno.h>
#include <fcntl.h>
#include <linux/io_uring.h>
#include <linux/time_types.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <quorel/sal/xio/Exception.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace xio {
namespace impl {
namespace uring {

using sal::i::err::domain::kSystemCall;

// io_uring_setup: the ring's descriptor, or -1 with errno. params goes in
// with the flags and comes back with the offsets of the rings' fields.
inline int setup(unsigned int entries, io_uring_params& params) {
  return static_cast<int>(::syscall(__NR_io_uring_setup, static_cast<long>(entries), &params));
}

// io_uring_enter: the submission entries the kernel consumed, or -1 with
// errno (ETIME when the time of argument ran out, EINTR when a signal
// arrived first).
inline int enter(int ring, unsigned int toSubmit, unsigned int least, unsigned int flags, const void* argument,
                 size_t size) {
  return static_cast<int>(::syscall(__NR_io_uring_enter, static_cast<long>(ring), static_cast<long>(toSubmit),
                                    static_cast<long>(least), static_cast<long>(flags), argument,
                                    static_cast<long>(size)));
}

// Maps length bytes of the ring at offset, shared with the kernel and
// populated. Throws AIOException "::mmap() failed".
inline void* map(int ring, size_t length, unsigned long long offset) {
  void* address = ::mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, ring,
                         static_cast<off_t>(offset));
  if (address == MAP_FAILED) {
    const int error = errno;
    QUOREL_THROW(AIOException)("::mmap() failed", kSystemCall, error);
  }
  return address;
}

// munmap; never throws.
inline void unmap(void* address, size_t length) noexcept {
  const int saved = errno;
  ::munmap(address, length);
  errno = saved;
}

// close; never throws.
inline void close(int fd) noexcept {
  const int saved = errno;
  ::close(fd);
  errno = saved;
}

// eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK): throws AIOException "::eventfd() failed".
inline int createEvent() {
  const int fd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (fd < 0) {
    const int error = errno;
    QUOREL_THROW(AIOException)("::eventfd() failed", kSystemCall, error);
  }
  return fd;
}

// Adds one to the event's counter (write); never throws: a counter that is
// already set wakes the same.
inline void post(int fd) noexcept {
  const unsigned long long one = 1;
  const int saved = errno;
  if (::write(fd, &one, sizeof one) < 0) errno = saved;
}

// Reads the event's counter back to zero (read); never throws.
inline void drain(int fd) noexcept {
  unsigned long long count;
  const int saved = errno;
  if (::read(fd, &count, sizeof count) < 0) errno = saved;
}

// open(path, O_RDONLY | O_CLOEXEC): the descriptor, or -1 with errno; never
// throws.
inline int openForReading(const char* path) noexcept { return ::open(path, O_RDONLY | O_CLOEXEC); }

// read: the bytes read, or -1 with errno; never throws.
inline long readSome(int fd, void* buffer, size_t size) noexcept { return static_cast<long>(::read(fd, buffer, size)); }

}  // namespace uring
}  // namespace impl
}  // namespace xio
}  // namespace sal
}  // namespace quorel
