// The host's links, read through the rtnetlink enumeration of impl/Link.
#include <quorel/sal/inet/Link.h>

#include <errno.h>
#include <net/if.h>

#include <cstdio>

#include <quorel/sal/inet/Exception.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace inet {

const std::string& Link::name() const { return handle_->name; }
int Link::index() const { return handle_->index; }
unsigned int Link::flags() const { return handle_->flags; }
bool Link::isUp() const { return (flags() & IFF_UP) != 0; }
bool Link::isRunning() const { return (flags() & IFF_RUNNING) != 0; }
bool Link::isLoopback() const { return (flags() & IFF_LOOPBACK) != 0; }
bool Link::isPointToPoint() const { return (flags() & IFF_POINTOPOINT) != 0; }
bool Link::isMulticast() const { return (flags() & IFF_MULTICAST) != 0; }
unsigned int Link::mtu() const { return handle_->mtu; }
unsigned short Link::type() const { return handle_->type; }
const std::string& Link::kind() const { return handle_->kind; }
const std::string& Link::hardwareAddress() const { return handle_->hardware; }
const std::vector<LinkAddress>& Link::addresses() const { return handle_->addresses; }

std::string Link::hardwareAddressText() const {
  std::string text;
  for (const char byte : hardwareAddress()) {
    char digits[4];
    std::snprintf(digits, sizeof digits, text.empty() ? "%02x" : ":%02x", static_cast<unsigned char>(byte));
    text += digits;
  }
  return text;
}

pod::uint64 Link::address() const {
  const std::string& bytes = hardwareAddress();
  if (bytes.size() != 6) return 0;
  pod::uint64 address = 0;
  for (const char byte : bytes) address = (address << 8) | static_cast<unsigned char>(byte);
  return address;
}

std::vector<Link> Link::list() {
  std::vector<impl::Link> found = impl::link::enumerate();
  std::vector<Link> links;
  links.reserve(found.size());
  for (impl::Link& link : found) {
    links.push_back(Link(Handle(new impl::Link(std::move(link)))));
  }
  return links;
}

void Link::fill(std::list<Link>& links, std::map<std::string, Link>& byName) {
  std::vector<impl::Link> found = impl::link::enumerate();
  std::list<Link> listed;
  std::map<std::string, Link> named;
  for (impl::Link& link : found) {
    listed.push_back(Link(Handle(new impl::Link(std::move(link)))));
    named.emplace(listed.back().name(), listed.back());
  }
  links.swap(listed);
  byName.swap(named);
}

Link Link::byName(const std::string& name) {
  for (const Link& link : list()) {
    if (link.name() == name) return link;
  }
  QUOREL_THROW(inet::Exception)("no link is named '" + name + "'", sal::i::err::domain::kInterfaceEnumeration, ENODEV);
}

Link Link::byIndex(int index) {
  for (const Link& link : list()) {
    if (link.index() == index) return link;
  }
  QUOREL_THROW(inet::Exception)("no link has index " + std::to_string(index), sal::i::err::domain::kInterfaceEnumeration,
                                ENODEV);
}

Link Link::holding(const Address& address) {
  for (const Link& link : list()) {
    for (const LinkAddress& entry : link.addresses()) {
      if (entry.address() == address) return link;
    }
  }
  QUOREL_THROW(inet::Exception)("no link holds the address '" + address.asString() + "'",
                                sal::i::err::domain::kInterfaceEnumeration, EADDRNOTAVAIL);
}

}  // namespace inet
}  // namespace sal
}  // namespace quorel
