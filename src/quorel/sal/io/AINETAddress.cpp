// Socket addresses by role.
#include <quorel/sal/io/AINETAddress.h>

namespace quorel {
namespace sal {
namespace io {

namespace {

// The family a host text is resolved in: IPv6 for text with a ':', IPv4 for
// any other (names too, so that "localhost" is 127.0.0.1 for servers and
// clients alike).
int familyOfHost(const std::string& host) { return host.find(':') != std::string::npos ? AF_INET6 : AF_INET; }

AINETAddress::Handle bindingAddress(const std::string& host, const std::string& service, impl::inet::transport t) {
  return AINETAddress::Handle(impl::inet::newBindingAddress(host, service, familyOfHost(host), t));
}

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

TCPConnectingAddress::TCPConnectingAddress(const std::string& host, unsigned short port)
    : TCPConnectingAddress(host, std::to_string(port)) {}
TCPConnectingAddress::TCPConnectingAddress(const std::string& host, const std::string& service)
    : AINETAddress(Handle(impl::inet::newPeerAddress(host, service, familyOfHost(host), impl::inet::TCP))) {}

TCPBindingAddress::TCPBindingAddress(const std::string& host, unsigned short port)
    : TCPBindingAddress(host, std::to_string(port)) {}
TCPBindingAddress::TCPBindingAddress(const std::string& host, const std::string& service)
    : ABindingAddressOf(bindingAddress(host, service, impl::inet::TCP)) {}

UDPBindingAddress::UDPBindingAddress(const std::string& host, unsigned short port)
    : UDPBindingAddress(host, std::to_string(port)) {}
UDPBindingAddress::UDPBindingAddress(const std::string& host, const std::string& service)
    : ABindingAddressOf(bindingAddress(host, service, impl::inet::UDP)) {}

UDPPeerAddress UDPPeerAddress::newBroadcastAddressOn(unsigned short port) {
  return UDPPeerAddress(Handle(impl::inet::newBroadcastAddressOn(port)));
}

}  // namespace io
}  // namespace sal
}  // namespace quorel
