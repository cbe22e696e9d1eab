/// \file
/// Link: a network link (interface) of the host.
#ifndef QUOREL_SAL_INET_LINK_H
#define QUOREL_SAL_INET_LINK_H

#include <list>
#include <map>
#include <string>

#include <quorel/sal/AtomicCounter.h>
#include <quorel/sal/inet/impl/Link.h>
#include <quorel/util/AHandleTo.h>
#include <quorel/util/pod.h>

namespace quorel {
namespace sal {
namespace inet {

/// A snapshot of one link as enumeration found it. Copies share it.
class Link {
 public:
  explicit Link(const util::AHandleTo<impl::Link, AtomicCounter>& handle) : handle_(handle) {}

  /// The kernel's name for the link, e.g. "lo", "eth0".
  const std::string& name() const;
  /// The kernel's interface index (1 for the loopback on Linux).
  int index() const;
  /// The 48-bit hardware (MAC) address, most significant byte first in bits
  /// 40-47; 0 for the loopback and for links without a 6-byte address.
  pod::uint64 address() const;
  /// The IFF_* flags (IFF_UP, IFF_LOOPBACK, ...).
  unsigned int flags() const;

  /// Replaces the contents of links and byName with the host's links.
  ///
  /// Links come in the kernel's enumeration order, which is interface-index
  /// order: the loopback is created first at boot, has index 1 and so comes
  /// first, followed by the hardware and virtual links in the order they
  /// appeared. A link that exists but has no link-layer address record is not
  /// listed.
  ///
  /// Throws inet::Exception "::getifaddrs() failed" (interface enumeration
  /// domain, errno).
  static void fill(std::list<Link>& links, std::map<std::string, Link>& byName);

 private:
  util::AHandleTo<impl::Link, AtomicCounter> handle_;
};

}  // namespace inet
}  // namespace sal
}  // namespace quorel

#endif
