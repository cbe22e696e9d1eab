/// \file
/// Network: an IPv4 or IPv6 network (an address with a prefix length) and
/// the networks the host's links are on.
///
///   for (const inet::Network& net : inet::Network::list())
///     std::cout << net.asString() << " on " << net.links().size() << " link(s)\n";
///   inet::Network lan(inet::Address("192.168.1.20", inet::i::family::kIPv4), 24);  // 192.168.1.0/24
///   bool inside = lan.contains(inet::Address("192.168.1.7", inet::i::family::kIPv4));
///
/// A Network and its copies share one unsynchronised record: keep them to
/// one thread (copy the address and prefix length to hand a network to
/// another thread).
#ifndef QUOREL_SAL_INET_NETWORK_H
#define QUOREL_SAL_INET_NETWORK_H

#include <string>
#include <vector>

#include <quorel/sal/inet/Address.h>
#include <quorel/sal/inet/Link.h>
#include <quorel/sal/inet/impl/Network.h>
#include <quorel/util/AHandleTo.h>

namespace quorel {
namespace sal {
namespace inet {

class Network {
 public:
  typedef util::AHandleTo<impl::Network, int> Handle;

  /// The network of address with that prefix: a copy of the address with
  /// the host bits cleared (its port cleared too; an IPv6 scope id kept, so
  /// link-local networks of different links differ). Throws
  /// InvalidArgumentException "prefix length must be [0, 32]" / "[0, 128]"
  /// (code the length) or "invalid address family specified" for an
  /// address without a family.
  Network(const Address& address, int prefixLength);
  explicit Network(const Handle& handle) : handle_(handle) {}

  /// The network address (host bits zero).
  const Address& address() const;
  int prefixLength() const;
  i::family::code family() const;
  /// The mask of the prefix (255.255.255.0 for /24).
  Address mask() const;
  /// True when address lies in the network (same family, same prefix bits
  /// and, for a scoped network, the same scope id).
  bool contains(const Address& address) const;
  /// The indexes of the host's links with an address in the network,
  /// ascending; empty for a network made by the constructor.
  const std::vector<int>& links() const;
  /// "192.168.1.0/24", "2001:db8::/32", "fe80::%eth0/64" (a scoped network
  /// names its link as Address::asString() does).
  std::string asString() const;

  /// By family, address, then prefix length; links are not compared.
  bool operator<(const Network& other) const;
  bool operator==(const Network& other) const;

  /// The networks the host's links are on, each once with every link that
  /// has an address in it, sorted. Throws as Link::list().
  static std::vector<Network> list();
  /// The same for links already listed.
  static std::vector<Network> of(const std::vector<Link>& links);

 private:
  Handle handle_;
};

}  // namespace inet
}  // namespace sal
}  // namespace quorel

#endif
