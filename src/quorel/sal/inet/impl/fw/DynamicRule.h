/// \file
/// The record behind fw::DynamicRule.
#ifndef QUOREL_SAL_INET_IMPL_FW_DYNAMICRULE_H
#define QUOREL_SAL_INET_IMPL_FW_DYNAMICRULE_H

#include <quorel/sal/inet/fw/i/rule.h>
#include <quorel/sal/inet/impl/Address.h>

namespace quorel {
namespace sal {
namespace inet {
namespace impl {
namespace fw {

/// One inbound rule as checked by its constructor: ports 1 to 65535 with
/// firstPort <= lastPort, and a source whose host bits are clear. A source
/// without a family (sa_family 0) means any source, in both families.
class DynamicRule {
 public:
  DynamicRule(inet::fw::i::action::code what, inet::fw::i::protocol::code on, unsigned short first,
              unsigned short last)
      : action(what), protocol(on), firstPort(first), lastPort(last), prefixLength(0) {}

  inet::fw::i::action::code action;
  inet::fw::i::protocol::code protocol;
  unsigned short firstPort;
  unsigned short lastPort;
  Address source;
  int prefixLength;  // of source; 0 for any source
};

}  // namespace fw
}  // namespace impl
}  // namespace inet
}  // namespace sal
}  // namespace quorel

#endif
