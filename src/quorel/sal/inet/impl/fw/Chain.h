/// \file
/// The settings behind fw::Spec and the chain's operations behind fw::Chain.
#ifndef QUOREL_SAL_INET_IMPL_FW_CHAIN_H
#define QUOREL_SAL_INET_IMPL_FW_CHAIN_H

#include <list>
#include <string>

#include <quorel/sal/inet/fw/DynamicRule.h>

namespace quorel {
namespace sal {
namespace inet {
namespace impl {
namespace fw {

/// The programs of each family (index 0 IPv4, 1 IPv6), the xtables lock
/// wait and the deadline of one program's run.
class Spec {
 public:
  Spec()
      : tool{"iptables", "ip6tables"},
        restore{"iptables-restore", "ip6tables-restore"},
        lockWaitSeconds(5),
        deadlineMilliseconds(20000) {}

  std::string tool[2];
  std::string restore[2];
  int lockWaitSeconds;
  int deadlineMilliseconds;
};

/// The chain's operations, each run through the programs of spec; the
/// settings never change after construction.
class Chain {
 public:
  explicit Chain(const Spec& settings) : spec(settings) {}

  void install() const;
  void uninstall() const;
  /// Appends (add) or deletes (remove) rules: one program run per rule and
  /// family, or, batched, one restore run per family.
  void add(const std::list<inet::fw::DynamicRule>& rules, bool batch) const;
  void remove(const std::list<inet::fw::DynamicRule>& rules, bool batch) const;
  std::list<inet::fw::DynamicRule> list() const;
  void flush() const;

  const Spec spec;
};

}  // namespace fw
}  // namespace impl
}  // namespace inet
}  // namespace sal
}  // namespace quorel

#endif
