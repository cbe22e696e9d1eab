/// \file
/// LinkAddress: one IPv4 or IPv6 address of a link, with its prefix length,
/// broadcast address and scope (see Link::addresses()).
#ifndef QUOREL_SAL_INET_LINKADDRESS_H
#define QUOREL_SAL_INET_LINKADDRESS_H

#include <string>
#include <utility>

#include <quorel/sal/inet/Address.h>
#include <quorel/sal/inet/impl/LinkAddress.h>

namespace quorel {
namespace sal {
namespace inet {

namespace i {
namespace scope {
/// How far an address reaches (the kernel's RT_SCOPE_* values).
enum code : int {
  kGlobal = 0,
  kSite = 200,
  kLink = 253,  // valid on one link only (IPv6 fe80::/10)
  kHost = 254,  // loopback
};
}  // namespace scope
}  // namespace i

/// One address of a link.
class LinkAddress {
 public:
  explicit LinkAddress(impl::LinkAddress entry) : entry_(std::move(entry)) {}

  /// The link's own address. An IPv6 link-scope address carries the link's
  /// index as its scope id, so it can be used to bind or connect as it is.
  const Address& address() const { return entry_.address; }
  /// The network's prefix length (24 for 192.168.1.20/24).
  int prefixLength() const { return entry_.prefixLength; }
  /// The IPv4 broadcast address; an empty Address (asString() "") when the
  /// link has none and for IPv6.
  const Address& broadcast() const { return entry_.broadcast; }
  /// The far end of a point-to-point link; an empty Address otherwise.
  const Address& peer() const { return entry_.peer; }
  i::scope::code scope() const { return static_cast<i::scope::code>(entry_.scope); }
  /// The IFA_F_* flags (IFA_F_TENTATIVE, IFA_F_DEPRECATED, IFA_F_PERMANENT, ...).
  unsigned int flags() const { return entry_.flags; }
  /// The IPv4 label ("eth0:1"); empty for IPv6.
  const std::string& label() const { return entry_.label; }

 private:
  impl::LinkAddress entry_;
};

}  // namespace inet
}  // namespace sal
}  // namespace quorel

#endif
