// Sockets on the loopback interface only (127.0.0.1, ::1), on ports the
// kernel chooses.
#ifndef QUOREL_TESTS_SUPPORT_LOOPBACK_H
#define QUOREL_TESTS_SUPPORT_LOOPBACK_H

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

#include <quorel/quorel.h>

namespace quorel {
namespace test {

inline const char* loopbackHost(int family) { return family == AF_INET6 ? "::1" : "127.0.0.1"; }

inline sal::io::TCPBindingAddress loopbackBinding(int family, unsigned short port = 0) {
  return sal::io::TCPBindingAddress(loopbackHost(family), port);
}

inline sal::io::UDPBindingAddress loopbackUDPBinding(int family, unsigned short port = 0) {
  return sal::io::UDPBindingAddress(loopbackHost(family), port);
}

// Whether a socket can be bound to ::1 (a host without IPv6, or with it
// disabled on lo, cannot).
inline bool hasIPv6Loopback() {
  const int fd = ::socket(AF_INET6, SOCK_DGRAM, 0);
  if (fd < 0) return false;
  sockaddr_in6 address{};
  address.sin6_family = AF_INET6;
  address.sin6_addr = in6addr_loopback;
  const bool bound = ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  ::close(fd);
  return bound;
}

// A listening server and a connected client with its accepted peer.
struct Connection {
  explicit Connection(int family = AF_INET)
      : server(loopbackBinding(family), false),
        client(sal::io::TCPConnectingAddress(loopbackHost(family), server.selfAddress().port()), true, false),
        accepted(server.accept(5000)) {}

  sal::io::TCPServerSocket server;
  sal::io::TCPClientSocket client;
  sal::io::ATCPIOSocket accepted;
};

// A loopback port where nothing listens (a server's, just closed).
inline unsigned short closedPort() {
  sal::io::TCPServerSocket server(loopbackBinding(AF_INET), false);
  return server.selfAddress().port();
}

inline bool isNonBlocking(unsigned long long fd) {
  return (::fcntl(static_cast<int>(fd), F_GETFL) & O_NONBLOCK) != 0;
}
inline bool isCloseOnExec(unsigned long long fd) {
  return (::fcntl(static_cast<int>(fd), F_GETFD) & FD_CLOEXEC) != 0;
}

}  // namespace test
}  // namespace quorel

#endif
