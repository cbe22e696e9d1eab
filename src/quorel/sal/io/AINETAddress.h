// Socket addresses by role: binding and connecting addresses for TCP,
// binding and peer addresses for UDP.
#ifndef QUOREL_SAL_IO_AINETADDRESS_H
#define QUOREL_SAL_IO_AINETADDRESS_H

#include <list>
#include <string>

#include <quorel/sal/io/impl/AINETAddress.h>
#include <quorel/util/AHandleTo.h>

namespace quorel {
namespace sal {
namespace io {

// An IPv4 or IPv6 socket address with its socket type and protocol. Copies
// share the address. The role classes below say which socket may take it;
// host names are resolved when an address is made (numeric text first).
// Resolution failures throw sys::Exception "::getaddrinfo(<host>) failed" in
// the address resolution domain.
class AINETAddress {
 public:
  typedef util::AHandleTo<impl::AINETAddress> Handle;

  explicit AINETAddress(const Handle& handle) : handle_(handle) {}
  virtual ~AINETAddress();

  // Host byte order.
  unsigned short port() const;
  // Numeric text ("127.0.0.1", "::1"); cached.
  const std::string& numericalName() const;
  // The host name by reverse lookup; cached. Throws sys::Exception
  // "::getnameinfo() failed to retrieve the canonical host name string".
  const std::string& canonicalName() const;
  bool isIPv4() const;
  bool isIPv6() const;
  // "family:AF_INET(2) type:SOCK_STREAM(1) protocol:IPPROTO_TCP(2)".
  std::string description() const;
  // This host's name. Throws sys::Exception "::gethostname() failed".
  static std::string selfHostName();

  Handle& impl() { return handle_; }
  const Handle& impl() const { return handle_; }

 private:
  Handle handle_;
};

// Where a TCP server listens (or a client binds before connecting).
class TCPBindingAddress : public AINETAddress {
 public:
  // The IPv4 wildcard 0.0.0.0 on port.
  explicit TCPBindingAddress(unsigned short port);
  explicit TCPBindingAddress(const Handle& handle) : AINETAddress(handle) {}
  // The IPv4 or IPv6 wildcard on a port number or service name.
  static TCPBindingAddress anyIPv4(unsigned short port);
  static TCPBindingAddress anyIPv6(unsigned short port);
  static TCPBindingAddress anyIPv4(const std::string& service);
  static TCPBindingAddress anyIPv6(const std::string& service);
  // Appends the wildcard of every family the resolver offers, in its order.
  static void fill(std::list<TCPBindingAddress>& addresses, const std::string& service);
  static void fill(std::list<TCPBindingAddress>& addresses, unsigned short port);
  static void fill(std::list<TCPBindingAddress>& addresses);
};

// Where a TCP client connects: IPv6 if the host text has a ':', else IPv4
// (so "localhost" resolves as IPv4 only).
class TCPConnectingAddress : public AINETAddress {
 public:
  TCPConnectingAddress(const std::string& host, unsigned short port);
  TCPConnectingAddress(const std::string& host, const std::string& service);
  explicit TCPConnectingAddress(const Handle& handle) : AINETAddress(handle) {}
};

// Where a UDP socket is bound.
class UDPBindingAddress : public AINETAddress {
 public:
  explicit UDPBindingAddress(unsigned short port);
  explicit UDPBindingAddress(const Handle& handle) : AINETAddress(handle) {}
  static UDPBindingAddress anyIPv4(unsigned short port);
  static UDPBindingAddress anyIPv6(unsigned short port);
  static UDPBindingAddress anyIPv4(const std::string& service);
  static UDPBindingAddress anyIPv6(const std::string& service);
  static void fill(std::list<UDPBindingAddress>& addresses, const std::string& service);
  static void fill(std::list<UDPBindingAddress>& addresses, unsigned short port);
  static void fill(std::list<UDPBindingAddress>& addresses);
};

// A UDP socket's peer: a destination, or where a datagram came from.
class UDPPeerAddress : public AINETAddress {
 public:
  explicit UDPPeerAddress(const Handle& handle) : AINETAddress(handle) {}
  // 255.255.255.255 on port (IPv4 only).
  static UDPPeerAddress newBroadcastAddressOn(unsigned short port);
};

}  // namespace io
}  // namespace sal
}  // namespace quorel

#endif
