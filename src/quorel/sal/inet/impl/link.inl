// Platform half of link enumeration: the routing socket, its requests and answers.
#include <quorel/sal/inet/impl/Link.h>

#include <errno.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include <quorel/sal/inet/Exception.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace inet {
namespace impl {
namespace link {

int open() {
  const int fd = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
  if (fd < 0) {
    const int error = errno;
    QUOREL_THROW(inet::Exception)("::socket(AF_NETLINK, NETLINK_ROUTE) failed", sal::i::err::domain::kSystemCall, error);
  }
  return fd;
}

void close(int socket) { ::close(socket); }

void request(int socket, const void* message, std::size_t size, const char* what) {
  sockaddr_nl kernel;
  std::memset(&kernel, 0, sizeof kernel);
  kernel.nl_family = AF_NETLINK;
  ssize_t sent;
  do {
    sent = ::sendto(socket, message, size, 0, reinterpret_cast<const sockaddr*>(&kernel), sizeof kernel);
  } while (sent < 0 && errno == EINTR);
  if (sent < 0) {
    const int error = errno;
    QUOREL_THROW(inet::Exception)("::sendto(" + std::string(what) + ") failed", sal::i::err::domain::kSystemCall, error);
  }
}

std::size_t receive(int socket, void* buffer, std::size_t size, const char* what) {
  iovec part = {buffer, size};
  msghdr message;
  std::memset(&message, 0, sizeof message);
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  ssize_t received;
  do {
    // MSG_TRUNC: the result is the answer's whole length even when it did not fit.
    received = ::recvmsg(socket, &message, MSG_TRUNC);
  } while (received < 0 && errno == EINTR);
  if (received < 0) {
    const int error = errno;
    QUOREL_THROW(inet::Exception)("::recvmsg(" + std::string(what) + ") failed", sal::i::err::domain::kSystemCall, error);
  }
  return static_cast<std::size_t>(received);
}

}  // namespace link
}  // namespace impl
}  // namespace inet
}  // namespace sal
}  // namespace quorel
