// Socket addresses by role.
#include <quorel/sal/io/AINETAddress.h>

namespace quorel {
namespace sal {
namespace io {

namespace {

using impl::inet::transport;

AINETAddress::Handle binding(const std::string& service, int family, transport t) {
  return AINETAddress::Handle(impl::inet::newBindingAddress("", service, family, t));
}

template <class Address>
void fillWildcards(std::list<Address>& addresses, const std::string& service, transport t) {
  const sys::io::SocketAddressInfo info(nullptr, service.c_str(), 0, impl::inet::socketTypeFrom(t),
                                        impl::inet::protocolFrom(t), true);
  for (sys::io::SocketAddressInfo::Iterator it(info); !it.atEnd(); it.step()) {
    addresses.push_back(Address(AINETAddress::Handle(impl::inet::newAddressFrom(*it.current()))));
  }
}

int familyOfHost(const std::string& host) { return host.find(':') != std::string::npos ? AF_INET6 : AF_INET; }

}  // namespace

AINETAddress::~AINETAddress() = default;

unsigned short AINETAddress::port() const { return static_cast<unsigned short>(handle_->port()); }
const std::string& AINETAddress::numericalName() const { return handle_->numericalName(); }
const std::string& AINETAddress::canonicalName() const { return handle_->canonicalName(); }
bool AINETAddress::isIPv4() const { return handle_->family() == AF_INET; }
bool AINETAddress::isIPv6() const { return handle_->family() == AF_INET6; }
std::string AINETAddress::description() const {
  return sys::io::socket::describe(handle_->family(), handle_->type(), handle_->protocol());
}
std::string AINETAddress::selfHostName() { return sys::io::socket::selfHostName(); }

TCPBindingAddress::TCPBindingAddress(unsigned short port)
    : AINETAddress(binding(std::to_string(port), AF_INET, impl::inet::TCP)) {}
TCPBindingAddress TCPBindingAddress::anyIPv4(unsigned short port) { return anyIPv4(std::to_string(port)); }
TCPBindingAddress TCPBindingAddress::anyIPv6(unsigned short port) { return anyIPv6(std::to_string(port)); }
TCPBindingAddress TCPBindingAddress::anyIPv4(const std::string& service) {
  return TCPBindingAddress(binding(service, AF_INET, impl::inet::TCP));
}
TCPBindingAddress TCPBindingAddress::anyIPv6(const std::string& service) {
  return TCPBindingAddress(binding(service, AF_INET6, impl::inet::TCP));
}
void TCPBindingAddress::fill(std::list<TCPBindingAddress>& addresses, const std::string& service) {
  fillWildcards(addresses, service, impl::inet::TCP);
}
void TCPBindingAddress::fill(std::list<TCPBindingAddress>& addresses, unsigned short port) {
  fill(addresses, std::to_string(port));
}
void TCPBindingAddress::fill(std::list<TCPBindingAddress>& addresses) { fill(addresses, "0"); }

TCPConnectingAddress::TCPConnectingAddress(const std::string& host, unsigned short port)
    : TCPConnectingAddress(host, std::to_string(port)) {}
TCPConnectingAddress::TCPConnectingAddress(const std::string& host, const std::string& service)
    : AINETAddress(Handle(impl::inet::newPeerAddress(host, service, familyOfHost(host), impl::inet::TCP))) {}

UDPBindingAddress::UDPBindingAddress(unsigned short port)
    : AINETAddress(binding(std::to_string(port), AF_INET, impl::inet::UDP)) {}
UDPBindingAddress UDPBindingAddress::anyIPv4(unsigned short port) { return anyIPv4(std::to_string(port)); }
UDPBindingAddress UDPBindingAddress::anyIPv6(unsigned short port) { return anyIPv6(std::to_string(port)); }
UDPBindingAddress UDPBindingAddress::anyIPv4(const std::string& service) {
  return UDPBindingAddress(binding(service, AF_INET, impl::inet::UDP));
}
UDPBindingAddress UDPBindingAddress::anyIPv6(const std::string& service) {
  return UDPBindingAddress(binding(service, AF_INET6, impl::inet::UDP));
}
void UDPBindingAddress::fill(std::list<UDPBindingAddress>& addresses, const std::string& service) {
  fillWildcards(addresses, service, impl::inet::UDP);
}
void UDPBindingAddress::fill(std::list<UDPBindingAddress>& addresses, unsigned short port) {
  fill(addresses, std::to_string(port));
}
void UDPBindingAddress::fill(std::list<UDPBindingAddress>& addresses) { fill(addresses, "0"); }

UDPPeerAddress UDPPeerAddress::newBroadcastAddressOn(unsigned short port) {
  return UDPPeerAddress(Handle(impl::inet::newBroadcastAddressOn(port)));
}

}  // namespace io
}  // namespace sal
}  // namespace quorel
