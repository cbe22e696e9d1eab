/// \file
/// What a firewall rule does and which traffic it matches: the action and
/// protocol codes of fw::DynamicRule.
#ifndef QUOREL_SAL_INET_FW_I_RULE_H
#define QUOREL_SAL_INET_FW_I_RULE_H

namespace quorel {
namespace sal {
namespace inet {
namespace fw {
namespace i {

namespace action {
enum code : int {
  kAccept = 1,  // the packet is let in ("-j ACCEPT")
  kDrop = 2,    // the packet is discarded without an answer ("-j DROP")
};
}  // namespace action

namespace protocol {
enum code : int {
  kTCP = 1,
  kUDP = 2,
};
}  // namespace protocol

}  // namespace i
}  // namespace fw
}  // namespace inet
}  // namespace sal
}  // namespace quorel

#endif
