/// \file
/// DynamicRule: one rule of the inbound firewall chain (accept or drop TCP or
/// UDP traffic to a port or a port range, from any source or from one
/// network).
#ifndef QUOREL_SAL_INET_FW_DYNAMICRULE_H
#define QUOREL_SAL_INET_FW_DYNAMICRULE_H

#include <string>

#include <quorel/sal/AtomicCounter.h>
#include <quorel/sal/inet/Address.h>
#include <quorel/sal/inet/fw/i/rule.h>
#include <quorel/sal/inet/i/family.h>
#include <quorel/sal/inet/impl/fw/DynamicRule.h>
#include <quorel/util/ADeallocatorOf.h>
#include <quorel/util/AHandleTo.h>

namespace quorel {
namespace sal {
namespace inet {
namespace fw {

/// A rule value: what to do with inbound packets of a protocol to a
/// destination port range, from a source network or from anywhere. Copies
/// share the record, which never changes after construction, so copies may
/// be used on any threads.
///
/// A rule from any source belongs to both families: fw::Chain gives it to
/// iptables and to ip6tables. A rule with a source belongs to the source's
/// family alone; 0.0.0.0/0 and ::/0 are "any source of that family".
///
///   fw::DynamicRule ssh(fw::i::action::kAccept, fw::i::protocol::kTCP, 22, 22,
///                       Address("10.0.0.0", inet::i::family::kIPv4), 8);
///   fw::DynamicRule games(fw::i::action::kDrop, fw::i::protocol::kUDP, 27000, 27015);
///
/// Every constructor checks its arguments before anything else happens and
/// throws InvalidArgumentException (application domain): "unrecognized rule
/// action" or "unrecognized rule protocol" (code the value), "a port must be
/// from 1 to 65535" (code the port), "the first port must not be above the
/// last" (code the first port), "the source address has no family" (code 0),
/// "prefix length must be [0, 32]" or "[0, 128]" (code the length).
class DynamicRule {
 public:
  typedef util::AHandleTo<impl::fw::DynamicRule, AtomicCounter, util::ADeallocatorOf<impl::fw::DynamicRule>>
      Handle;

  /// From any source, in both families, to the ports firstPort to lastPort.
  DynamicRule(i::action::code action, i::protocol::code protocol, int firstPort, int lastPort);
  /// From source/prefixLength alone, in the source's family. The source's
  /// host bits are cleared (10.1.2.3/8 is kept as 10.0.0.0/8) and its port
  /// is ignored.
  DynamicRule(i::action::code action, i::protocol::code protocol, int firstPort, int lastPort,
              const Address& source, int prefixLength);
  explicit DynamicRule(const Handle& handle) : handle_(handle) {}

  i::action::code action() const { return handle_->action; }
  i::protocol::code protocol() const { return handle_->protocol; }
  unsigned short firstPort() const { return handle_->firstPort; }
  unsigned short lastPort() const { return handle_->lastPort; }
  /// kIPv4 or kIPv6 for a rule with a source, kUnspecified (both) without.
  inet::i::family::code family() const;
  /// An independent copy of the source network's address; without a source,
  /// an Address without a family.
  Address source() const;
  /// The source's prefix length; 0 without a source.
  int prefixLength() const { return handle_->prefixLength; }

  /// "accept tcp 22 from 10.0.0.0/8", "drop udp 27000:27015".
  std::string asString() const;

  /// Same action, protocol, ports and source network (family included).
  bool operator==(const DynamicRule& other) const;
  bool operator!=(const DynamicRule& other) const { return !(*this == other); }

  const impl::fw::DynamicRule& key() const { return handle_.reference(); }

 private:
  Handle handle_;
};

}  // namespace fw
}  // namespace inet
}  // namespace sal
}  // namespace quorel

#endif
