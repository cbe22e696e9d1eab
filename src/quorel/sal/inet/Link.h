/// \file
/// Link: a network link (interface) of the host, with its addresses.
///
///   for (const inet::Link& link : inet::Link::list()) {
///     std::cout << link.index() << ' ' << link.name() << " mtu " << link.mtu() << '\n';
///     for (const inet::LinkAddress& a : link.addresses())
///       std::cout << "  " << a.address().asString() << '/' << a.prefixLength() << '\n';
///   }
///   inet::Link lo = inet::Link::byName("lo");
///   inet::Link owner = inet::Link::holding(inet::Address("127.0.0.1", inet::i::family::kIPv4));
///
/// The links are read from the kernel's routing socket: see impl/Link.h for
/// why not from "getifaddrs()". Each list is one consistent snapshot.
#ifndef QUOREL_SAL_INET_LINK_H
#define QUOREL_SAL_INET_LINK_H

#include <list>
#include <map>
#include <string>
#include <vector>

#include <quorel/sal/AtomicCounter.h>
#include <quorel/sal/inet/Address.h>
#include <quorel/sal/inet/LinkAddress.h>
#include <quorel/sal/inet/impl/Link.h>
#include <quorel/util/AHandleTo.h>
#include <quorel/util/pod.h>

namespace quorel {
namespace sal {
namespace inet {

/// A snapshot of one link as enumeration found it. Copies share it.
class Link {
 public:
  typedef util::AHandleTo<impl::Link, AtomicCounter> Handle;

  explicit Link(const Handle& handle) : handle_(handle) {}

  /// The kernel's name for the link, e.g. "lo", "eth0".
  const std::string& name() const;
  /// The kernel's interface index (1 for the loopback on Linux).
  int index() const;
  /// The IFF_* flags (IFF_UP, IFF_RUNNING, IFF_LOOPBACK, ...).
  unsigned int flags() const;
  bool isUp() const;
  /// Up and able to pass traffic (the carrier is there).
  bool isRunning() const;
  bool isLoopback() const;
  bool isPointToPoint() const;
  bool isMulticast() const;
  unsigned int mtu() const;
  /// The link-layer type (ARPHRD_ETHER, ARPHRD_LOOPBACK, ARPHRD_NONE for tun, ...).
  unsigned short type() const;
  /// The kind of a virtual link ("veth", "bridge", "tun", "wireguard", ...);
  /// empty for a plain device.
  const std::string& kind() const;
  /// The link-layer address bytes; empty when the link has none (tun, ipip).
  const std::string& hardwareAddress() const;
  /// The same as "aa:bb:cc:dd:ee:ff"; empty when there is none.
  std::string hardwareAddressText() const;
  /// The 48-bit hardware (MAC) address, most significant byte first in bits
  /// 40-47; 0 for the loopback and for links without a 6-byte address.
  pod::uint64 address() const;
  /// The link's IPv4 and IPv6 addresses, IPv4 first, each family in the
  /// kernel's order (the primary address first).
  const std::vector<LinkAddress>& addresses() const;

  /// The host's links, sorted by index: every link, also those that are
  /// down, have no hardware address or no IPv4 address.
  /// Throws inet::Exception: "::socket(AF_NETLINK, NETLINK_ROUTE) failed",
  /// "::sendto(RTM_GETLINK) failed", "::recvmsg(RTM_GETADDR) failed" and the
  /// like in the system-call domain with errno; in the interface enumeration
  /// domain "the kernel refused the RTM_GETLINK dump" (its errno), "the
  /// RTM_GETADDR answer is malformed" (EPROTO) and "the link enumeration was
  /// interrupted 8 times in a row" (EAGAIN: links kept changing while the
  /// kernel answered).
  static std::vector<Link> list();
  /// Replaces the contents of links and byName with the host's links, in
  /// list() order (the loopback, index 1, first). Throws as list().
  static void fill(std::list<Link>& links, std::map<std::string, Link>& byName);
  /// The link of that name or index. Throws inet::Exception "no link is named
  /// '<name>'" / "no link has index <n>" (interface enumeration domain,
  /// ENODEV), or as list().
  static Link byName(const std::string& name);
  static Link byIndex(int index);
  /// The link that has the address as one of its own (ports ignored; an IPv6
  /// link-local address must name its link by scope id). Throws
  /// inet::Exception "no link holds the address '<address>'" (interface
  /// enumeration domain, EADDRNOTAVAIL), or as list().
  static Link holding(const Address& address);

 private:
  Handle handle_;
};

}  // namespace inet
}  // namespace sal
}  // namespace quorel

#endif
