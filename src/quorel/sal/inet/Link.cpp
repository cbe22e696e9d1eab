// Link enumeration from the AF_PACKET records of getifaddrs.
#include <quorel/sal/inet/Link.h>

#include <linux/if_packet.h>
#include <sys/socket.h>

#include <quorel/util/ASimpleFinalizerOf.h>

#include <quorel/sal/inet/impl/link.inl>

namespace quorel {
namespace sal {
namespace inet {

namespace {

pod::uint64 hardwareAddressOf(const sockaddr_ll& ll) {
  if (ll.sll_halen != 6) return 0;
  pod::uint64 address = 0;
  for (int i = 0; i < 6; ++i) address = (address << 8) | ll.sll_addr[i];
  return address;
}

}  // namespace

const std::string& Link::name() const { return handle_->name(); }
int Link::index() const { return handle_->index(); }
pod::uint64 Link::address() const { return handle_->address(); }
unsigned int Link::flags() const { return handle_->flags(); }

void Link::fill(std::list<Link>& links, std::map<std::string, Link>& byName) {
  links.clear();
  byName.clear();
  ifaddrs* entries = impl::link::list();
  util::ASimpleFinalizerOf<ifaddrs*, void (*)(ifaddrs*)> release(entries, impl::link::release);
  // Each link has exactly one AF_PACKET record, in interface-index order.
  for (const ifaddrs* e = entries; e != nullptr; e = e->ifa_next) {
    if (e->ifa_addr == nullptr || e->ifa_addr->sa_family != AF_PACKET) continue;
    const sockaddr_ll& ll = *reinterpret_cast<const sockaddr_ll*>(e->ifa_addr);
    const Link link(util::AHandleTo<impl::Link, AtomicCounter>(
        new impl::Link(e->ifa_name, ll.sll_ifindex, hardwareAddressOf(ll), e->ifa_flags)));
    links.push_back(link);
    byName.insert(std::make_pair(link.name(), link));
  }
}

}  // namespace inet
}  // namespace sal
}  // namespace quorel
