/// \file
/// Socket addresses by role: binding and connecting addresses for TCP,
/// binding and peer addresses for UDP.
#ifndef QUOREL_SAL_IO_AINETADDRESS_H
#define QUOREL_SAL_IO_AINETADDRESS_H

#include <list>
#include <string>

#include <quorel/sal/io/impl/AINETAddress.h>
#include <quorel/util/AHandleTo.h>

namespace quorel {
namespace sal {
namespace io {

/// An IPv4 or IPv6 socket address with its socket type and protocol. Copies
/// share the address. The role classes below say which socket may take it;
/// host names are resolved when an address is made (numeric text first).
/// Resolution failures throw sys::Exception "::getaddrinfo(<host>) failed" in
/// the address resolution domain.
class AINETAddress {
 public:
  typedef util::AHandleTo<impl::AINETAddress> Handle;

  explicit AINETAddress(const Handle& handle) : handle_(handle) {}
  virtual ~AINETAddress();

  /// Host byte order.
  unsigned short port() const;
  /// Numeric text ("127.0.0.1", "::1"); cached.
  const std::string& numericalName() const;
  /// The host name by reverse lookup; cached. Throws sys::Exception
  /// "::getnameinfo() failed to retrieve the canonical host name string".
  const std::string& canonicalName() const;
  bool isIPv4() const;
  bool isIPv6() const;
  /// "family:AF_INET(2) type:SOCK_STREAM(1) protocol:IPPROTO_TCP(2)".
  std::string description() const;
  /// This host's name. Throws sys::Exception "::gethostname() failed".
  static std::string selfHostName();

  Handle& impl() { return handle_; }
  const Handle& impl() const { return handle_; }

 private:
  Handle handle_;
};

/// The wildcard addresses and resolver enumerations that TCP and UDP binding
/// addresses share; Transport is impl::inet::TCP or UDP.
template <class Derived, impl::inet::transport Transport>
class ABindingAddressOf : public AINETAddress {
 public:
  /// The IPv4 or IPv6 wildcard on a port number or service name.
  static Derived anyIPv4(unsigned short port) { return anyIPv4(std::to_string(port)); }
  static Derived anyIPv6(unsigned short port) { return anyIPv6(std::to_string(port)); }
  static Derived anyIPv4(const std::string& service) { return wildcard(service, AF_INET); }
  static Derived anyIPv6(const std::string& service) { return wildcard(service, AF_INET6); }
  /// Appends the wildcard of every family the resolver offers, in its order.
  static void fill(std::list<Derived>& addresses, const std::string& service) {
    const sys::io::SocketAddressInfo info(nullptr, service.c_str(), 0, impl::inet::socketTypeFrom(Transport),
                                          impl::inet::protocolFrom(Transport), true);
    for (sys::io::SocketAddressInfo::Iterator it(info); !it.atEnd(); it.step()) {
      addresses.push_back(Derived(Handle(impl::inet::newAddressFrom(*it.current()))));
    }
  }
  static void fill(std::list<Derived>& addresses, unsigned short port) { fill(addresses, std::to_string(port)); }
  static void fill(std::list<Derived>& addresses) { fill(addresses, "0"); }

 protected:
  explicit ABindingAddressOf(const Handle& handle) : AINETAddress(handle) {}
  /// The wildcard of a family on a service ("0" when empty).
  static Derived wildcard(const std::string& service, int family) {
    return Derived(Handle(impl::inet::newBindingAddress("", service, family, Transport)));
  }
};

/// Where a TCP server listens (or a client binds before connecting).
class TCPBindingAddress : public ABindingAddressOf<TCPBindingAddress, impl::inet::TCP> {
 public:
  /// The IPv4 wildcard 0.0.0.0 on port.
  explicit TCPBindingAddress(unsigned short port) : TCPBindingAddress(anyIPv4(port)) {}
  /// One address of this host, on a port number or a service name. host is a
  /// name or numeric text ("127.0.0.1", "::1", "localhost"), resolved as IPv6
  /// if it has a ':' and as IPv4 otherwise, as TCPConnectingAddress resolves
  /// it: a server on "localhost" listens where a client of "localhost"
  /// connects. An empty host is the IPv4 wildcard. A host that does not
  /// resolve throws sys::Exception "::getaddrinfo(<host>) failed" (address
  /// resolution domain, the resolver's code).
  TCPBindingAddress(const std::string& host, unsigned short port);
  TCPBindingAddress(const std::string& host, const std::string& service);
  explicit TCPBindingAddress(const Handle& handle) : ABindingAddressOf(handle) {}
};

/// Where a TCP client connects: IPv6 if the host text has a ':', else IPv4
/// (so "localhost" resolves as IPv4 only).
class TCPConnectingAddress : public AINETAddress {
 public:
  TCPConnectingAddress(const std::string& host, unsigned short port);
  TCPConnectingAddress(const std::string& host, const std::string& service);
  explicit TCPConnectingAddress(const Handle& handle) : AINETAddress(handle) {}
};

/// Where a UDP socket is bound.
class UDPBindingAddress : public ABindingAddressOf<UDPBindingAddress, impl::inet::UDP> {
 public:
  /// The IPv4 wildcard 0.0.0.0 on port.
  explicit UDPBindingAddress(unsigned short port) : UDPBindingAddress(anyIPv4(port)) {}
  /// One address of this host, resolved as TCPBindingAddress resolves it.
  UDPBindingAddress(const std::string& host, unsigned short port);
  UDPBindingAddress(const std::string& host, const std::string& service);
  explicit UDPBindingAddress(const Handle& handle) : ABindingAddressOf(handle) {}
};

/// A UDP socket's peer: a destination, or where a datagram came from.
class UDPPeerAddress : public AINETAddress {
 public:
  explicit UDPPeerAddress(const Handle& handle) : AINETAddress(handle) {}
  /// 255.255.255.255 on port (IPv4 only).
  static UDPPeerAddress newBroadcastAddressOn(unsigned short port);
};

}  // namespace io
}  // namespace sal
}  // namespace quorel

#endif
