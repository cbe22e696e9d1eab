/// \file
/// Address: one IPv4 or IPv6 address, with port and scope, also used as a mask.
#ifndef QUOREL_SAL_INET_ADDRESS_H
#define QUOREL_SAL_INET_ADDRESS_H

#include <string>

#include <quorel/sal/inet/i/family.h>
#include <quorel/sal/inet/impl/Address.h>
#include <quorel/util/pod.h>
#include <quorel/util/AHandleTo.h>

namespace quorel {
namespace sal {
namespace inet {

/// Copies share one address (setPort on a copy changes the original); clone()
/// makes an independent one. Text conversion is numeric only: host names are
/// refused. Equality and ordering ignore ports; IPv4 sorts before IPv6.
///
///   Address net("192.168.1.20", i::family::kIPv4);
///   net.setMask(24);                                         // 192.168.1.0
///   Address::broadcastAddressFrom(net, Address::createMask(i::family::kIPv4, 24));
class Address {
 public:
  typedef util::AHandleTo<impl::Address> Handle;

  /// All zero, no family: asString() is "".
  Address();
  /// The zero address of the family (0.0.0.0 or ::), port 0. kUnspecified
  /// means IPv6. Other codes throw InvalidArgumentException
  /// "unrecognized address family" (code the value).
  explicit Address(i::family::code family);
  /// The numeric text in that family. The text's conversion replaces the
  /// whole socket address, so the port given here is overwritten with 0: set
  /// ports with setPort() afterwards. Throws inet::Exception
  /// "::getaddrinfo('<text>') failed" (address resolution domain).
  Address(const std::string& text, i::family::code family, unsigned short port);
  Address(const std::string& text, i::family::code family);
  explicit Address(const Handle& handle);

  /// A mask of prefixLength leading one bits. Throws InvalidArgumentException
  /// "prefix length must be [0, 32]" / "[0, 128]" (code the length) or
  /// "invalid address family specified".
  static Address createMask(i::family::code family, int prefixLength);
  /// address with every host bit of mask set.
  static Address broadcastAddressFrom(const Address& address, const Address& mask);
  /// Wraps an implementation object the caller hands over (null: an empty
  /// Address whose use throws NULLDereferenceException).
  static Address adopt(impl::Address* address);

  /// An independent copy.
  Address clone() const;
  /// The stored socket address (the key of interface and network tables).
  const sockaddr& key() const;

  i::family::code family() const;
  /// Host order; 0 without a family.
  unsigned short port() const;
  unsigned int scopeID() const;
  void setPort(unsigned short port);
  void setScopeID(unsigned int scopeID);

  /// The leading one bits, read leniently (see impl::addr::prefixLengthOf).
  int prefixLength() const;
  /// ANDs the address with mask, or with createMask(family(), prefixLength).
  void setMask(const Address& mask);
  void setMask(int prefixLength);

  /// Numeric text without port; "" without a family.
  std::string asString() const;

  bool operator<(const Address& other) const;
  bool operator==(const Address& other) const;
  bool operator!=(const Address& other) const { return !(*this == other); }

 private:
  Handle handle_;
};

}  // namespace inet
}  // namespace sal
}  // namespace quorel

#endif
