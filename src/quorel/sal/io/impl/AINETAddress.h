/// \file
/// Socket addresses by family: every socket operation that needs an address
/// is a virtual operation of the address, which knows its sockaddr layout.
#ifndef QUOREL_SAL_IO_IMPL_AINETADDRESS_H
#define QUOREL_SAL_IO_IMPL_AINETADDRESS_H

#include <netinet/in.h>

#include <cstring>
#include <string>

#include <quorel/sal/io/impl/Socket.h>
#include <quorel/sal/sys/io/BSDSocket.h>

namespace quorel {
namespace sal {
namespace io {
namespace impl {

/// The socket address behind io::AINETAddress, of either family.
class AINETAddress {
 public:
  AINETAddress(int family, int type, int protocol) : family_(family), type_(type), protocol_(protocol) {}
  virtual ~AINETAddress() = 0;

  /// Reverse lookup and numeric text; cached until the address is refilled.
  virtual const std::string& canonicalName() const = 0;
  virtual const std::string& numericalName() const = 0;
  /// Host byte order.
  virtual int port() const = 0;
  /// Refill the address from the socket's own or its peer's address. These,
  /// accept and receive write an address of the socket's family into this
  /// object, so a socket of another family is refused before the call with
  /// InvalidArgumentException "address family AF_INET(2) does not match the
  /// socket's family AF_INET6(10)" (code this address's family).
  virtual void selfAddressOf(const Socket& socket) = 0;
  virtual void peerAddressOf(const Socket& socket) = 0;
  virtual void bind(Socket& socket) const = 0;
  /// Accepts a connection, writing the peer's address into this object.
  virtual sys::io::socket::descriptor accept(Socket& socket, int timeout) = 0;
  virtual void connect(Socket& socket, int timeout) const = 0;
  virtual void initiateConnection(Socket& socket) const = 0;
  /// One sendto() to this address.
  virtual int send(Socket& socket, const void* buffer, unsigned int size) const = 0;
  /// One recvfrom(), writing the sender's address into this object.
  virtual int receive(Socket& socket, void* buffer, unsigned int size, int timeout, bool returnOnTimeout) = 0;

  int family() const { return family_; }
  int type() const { return type_; }
  int protocol() const { return protocol_; }
  /// Empties the name caches.
  void resetNames() const {
    canonicalName_.clear();
    numericalName_.clear();
  }

 protected:
  int family_;
  int type_;
  int protocol_;
  mutable std::string canonicalName_;
  mutable std::string numericalName_;
};

inline AINETAddress::~AINETAddress() {}

/// The address of one family: S is sockaddr_in or sockaddr_in6.
template <class S>
class AINETAddressOf : public AINETAddress {
 public:
  AINETAddressOf(int family, int type, int protocol, const S& address)
      : AINETAddress(family, type, protocol), address_(address) {}

  const std::string& canonicalName() const override;
  const std::string& numericalName() const override;
  void selfAddressOf(const Socket& socket) override;
  void peerAddressOf(const Socket& socket) override;
  void bind(Socket& socket) const override;
  sys::io::socket::descriptor accept(Socket& socket, int timeout) override;
  void connect(Socket& socket, int timeout) const override;
  void initiateConnection(Socket& socket) const override;
  int send(Socket& socket, const void* buffer, unsigned int size) const override;
  int receive(Socket& socket, void* buffer, unsigned int size, int timeout, bool returnOnTimeout) override;

  const S& address() const { return address_; }

 protected:
  const sockaddr& any() const { return reinterpret_cast<const sockaddr&>(address_); }
  sockaddr& any() { return reinterpret_cast<sockaddr&>(address_); }

  S address_;
};

/// An IPv4 socket address.
class IPv4Address : public AINETAddressOf<sockaddr_in> {
 public:
  IPv4Address(int type, int protocol, const sockaddr_in& address)
      : AINETAddressOf<sockaddr_in>(AF_INET, type, protocol, address) {}
  int port() const override { return ntohs(address_.sin_port); }
};

/// An IPv6 socket address.
class IPv6Address : public AINETAddressOf<sockaddr_in6> {
 public:
  IPv6Address(int type, int protocol, const sockaddr_in6& address)
      : AINETAddressOf<sockaddr_in6>(AF_INET6, type, protocol, address) {}
  int port() const override { return ntohs(address_.sin6_port); }
};

namespace inet {

enum transport { TCP = 0, UDP = 1 };

/// Throw sal::io::Exception "unknown INET protocol" for another transport.
int protocolFrom(transport t);
int socketTypeFrom(transport t);

/// The first result of a passive (binding) or active (peer) resolution; an
/// empty host or service means the wildcard or port 0. Null when the resolver
/// gave a family other than IPv4 and IPv6.
AINETAddress* newBindingAddress(const std::string& host, const std::string& service, int family, transport t);
AINETAddress* newPeerAddress(const std::string& host, const std::string& service, int family, transport t);
/// The address class for a resolver result, or null.
AINETAddress* newAddressFrom(const addrinfo& result);
/// An empty address of the socket's family; throws sal::io::Exception
/// "unknown INET address family" for another family.
AINETAddress* newAddressFrom(const Socket& socket);
AINETAddress* newPeerAddressOf(const Socket& socket);
AINETAddress* newSelfAddressOf(const Socket& socket);
/// 255.255.255.255 on port, UDP.
AINETAddress* newBroadcastAddressOn(unsigned short port);

}  // namespace inet
}  // namespace impl
}  // namespace io
}  // namespace sal
}  // namespace quorel

#endif
