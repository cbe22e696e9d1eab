// Platform half of selectors: epoll_create1, epoll_ctl, epoll_wait and the
// eventfd calls.
#include <quorel/sal/sys/io/epoll.h>

#include <errno.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <string>

#include <quorel/sal/xio/err.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace sys {
namespace io {
namespace epoll {

using xio::SocketException;

int create() {
  const int fd = ::epoll_create1(EPOLL_CLOEXEC);
  if (fd < 0) {
    const int error = errno;
    xio::err::raise(QUOREL_EXCEPTION(SocketException), "::epoll_create1() failed", error);
  }
  return fd;
}

void control(int epfd, int op, int fd, epoll_event& event) {
  if (::epoll_ctl(epfd, op, fd, &event) != 0) {
    const int error = errno;
    xio::err::raise(QUOREL_EXCEPTION(SocketException),
                    std::string("::epoll_ctl(") + (op == EPOLL_CTL_ADD ? "ADD" : "MOD") + ", " +
                        std::to_string(fd) + ") failed",
                    error);
  }
}

int remove(int epfd, int fd) noexcept {
  epoll_event unused = {};
  return ::epoll_ctl(epfd, EPOLL_CTL_DEL, fd, &unused) == 0 ? 0 : errno;
}

int wait(int epfd, epoll_event* events, int capacity, int timeout) {
  const int count = ::epoll_wait(epfd, events, capacity, timeout);
  if (count < 0) {
    const int error = errno;
    if (error == EINTR) return -1;
    xio::err::raise(QUOREL_EXCEPTION(SocketException), "::epoll_wait() failed", error);
  }
  return count;
}

int createEvent() {
  const int fd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (fd < 0) {
    const int error = errno;
    xio::err::raise(QUOREL_EXCEPTION(SocketException), "::eventfd() failed", error);
  }
  return fd;
}

void post(int fd) noexcept {
  const unsigned long long one = 1;
  const int saved = errno;
  if (::write(fd, &one, sizeof one) < 0) errno = saved;
}

void drain(int fd) noexcept {
  unsigned long long count;
  const int saved = errno;
  if (::read(fd, &count, sizeof count) < 0) errno = saved;
}

}  // namespace epoll
}  // namespace io
}  // namespace sys
}  // namespace sal
}  // namespace quorel
