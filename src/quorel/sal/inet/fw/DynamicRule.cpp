// DynamicRule: checking a rule's parts and rendering it.
#include <quorel/sal/inet/fw/DynamicRule.h>

#include <cstring>

#include <quorel/util/Exception.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace inet {
namespace fw {

using sal::i::err::domain::kApplication;

namespace {

// The checked record: everything but the source.
impl::fw::DynamicRule* newRecord(i::action::code action, i::protocol::code protocol, int firstPort, int lastPort) {
  if (action != i::action::kAccept && action != i::action::kDrop) {
    QUOREL_THROW(InvalidArgumentException)("unrecognized rule action", kApplication, action);
  }
  if (protocol != i::protocol::kTCP && protocol != i::protocol::kUDP) {
    QUOREL_THROW(InvalidArgumentException)("unrecognized rule protocol", kApplication, protocol);
  }
  for (int port : {firstPort, lastPort}) {
    if (port < 1 || port > 65535) QUOREL_THROW(InvalidArgumentException)("a port must be from 1 to 65535", kApplication, port);
  }
  if (firstPort > lastPort) {
    QUOREL_THROW(InvalidArgumentException)("the first port must not be above the last", kApplication, firstPort);
  }
  return new impl::fw::DynamicRule(action, protocol, static_cast<unsigned short>(firstPort),
                                   static_cast<unsigned short>(lastPort));
}

}  // namespace

DynamicRule::DynamicRule(i::action::code action, i::protocol::code protocol, int firstPort, int lastPort)
    : handle_(newRecord(action, protocol, firstPort, lastPort)) {}

DynamicRule::DynamicRule(i::action::code action, i::protocol::code protocol, int firstPort, int lastPort,
                         const Address& source, int prefixLength)
    : handle_(newRecord(action, protocol, firstPort, lastPort)) {
  if (source.family() == inet::i::family::kUnspecified) {
    QUOREL_THROW(InvalidArgumentException)("the source address has no family", kApplication, 0);
  }
  Address network = source.clone();
  network.setMask(prefixLength);  // refuses a prefix the family cannot have
  network.setPort(0);
  std::memcpy(&handle_->source.storage, &network.key(), sizeof handle_->source.storage);
  handle_->prefixLength = prefixLength;
}

inet::i::family::code DynamicRule::family() const {
  switch (handle_->source.storage.any.sa_family) {
    case AF_INET: return inet::i::family::kIPv4;
    case AF_INET6: return inet::i::family::kIPv6;
  }
  return inet::i::family::kUnspecified;
}

Address DynamicRule::source() const { return Address::adopt(new impl::Address(handle_->source)); }

std::string DynamicRule::asString() const {
  const impl::fw::DynamicRule& r = handle_.reference();
  std::string text = r.action == i::action::kAccept ? "accept " : "drop ";
  text += r.protocol == i::protocol::kTCP ? "tcp " : "udp ";
  text += std::to_string(r.firstPort);
  if (r.lastPort != r.firstPort) text += ":" + std::to_string(r.lastPort);
  if (family() != inet::i::family::kUnspecified) {
    text += " from " + source().asString() + "/" + std::to_string(r.prefixLength);
  }
  return text;
}

bool DynamicRule::operator==(const DynamicRule& other) const {
  const impl::fw::DynamicRule& a = handle_.reference();
  const impl::fw::DynamicRule& b = other.handle_.reference();
  if (a.action != b.action || a.protocol != b.protocol || a.firstPort != b.firstPort || a.lastPort != b.lastPort ||
      a.prefixLength != b.prefixLength || family() != other.family()) {
    return false;
  }
  return family() == inet::i::family::kUnspecified || source() == other.source();
}

}  // namespace fw
}  // namespace inet
}  // namespace sal
}  // namespace quorel
