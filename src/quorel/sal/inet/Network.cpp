// Networks: addresses with their host bits cleared, and those of the host's links.
#include <quorel/sal/inet/Network.h>

#include <algorithm>

namespace quorel {
namespace sal {
namespace inet {

namespace {

// A copy of address with the host bits of prefixLength cleared (and no port).
Address networkOf(const Address& address, int prefixLength) {
  const Address mask = Address::createMask(address.family(), prefixLength);
  Address network = address.clone();
  network.setMask(mask);
  network.setPort(0);
  return network;
}

}  // namespace

Network::Network(const Address& address, int prefixLength) : handle_(new impl::Network) {
  handle_->address = networkOf(address, prefixLength);
  handle_->prefixLength = prefixLength;
}

const Address& Network::address() const { return handle_->address; }
int Network::prefixLength() const { return handle_->prefixLength; }
i::family::code Network::family() const { return address().family(); }
Address Network::mask() const { return Address::createMask(family(), prefixLength()); }
const std::vector<int>& Network::links() const { return handle_->links; }

bool Network::contains(const Address& address) const {
  if (address.family() != family()) return false;
  return networkOf(address, prefixLength()) == this->address();
}

std::string Network::asString() const {
  return address().asString() + "/" + std::to_string(prefixLength());
}

bool Network::operator<(const Network& other) const {
  if (family() != other.family()) return family() < other.family();
  if (address() < other.address()) return true;
  if (other.address() < address()) return false;
  return prefixLength() < other.prefixLength();
}

bool Network::operator==(const Network& other) const {
  return address() == other.address() && prefixLength() == other.prefixLength();
}

std::vector<Network> Network::list() { return of(Link::list()); }

std::vector<Network> Network::of(const std::vector<Link>& links) {
  std::vector<Network> networks;
  for (const Link& link : links) {
    for (const LinkAddress& entry : link.addresses()) {
      const Network network(entry.address(), entry.prefixLength());
      const auto at = std::lower_bound(networks.begin(), networks.end(), network);
      if (at != networks.end() && *at == network) {
        std::vector<int>& indexes = at->handle_->links;
        if (indexes.back() != link.index()) indexes.push_back(link.index());
      } else {
        networks.insert(at, network)->handle_->links.push_back(link.index());
      }
    }
  }
  return networks;
}

}  // namespace inet
}  // namespace sal
}  // namespace quorel
