// ASocketEndpoint over the shared BSDSocket.
#include <quorel/sal/io/ASocketEndpoint.h>

namespace quorel {
namespace sal {
namespace io {

ASocketEndpoint::ASocketEndpoint() = default;

ASocketEndpoint::ASocketEndpoint(const AINETAddress& address, bool unused)
    : handle_(new impl::Socket(address.impl()->family(), address.impl()->type(), address.impl()->protocol(), unused)) {}

ASocketEndpoint::ASocketEndpoint(unsigned long long descriptor, int family, int type, int protocol)
    : handle_(new impl::Socket(static_cast<sys::io::socket::descriptor>(descriptor), family, type, protocol, false)) {}

ASocketEndpoint::ASocketEndpoint(const Handle& handle) : handle_(handle) {}

ASocketEndpoint::~ASocketEndpoint() = default;

unsigned long long ASocketEndpoint::id() const {
  return static_cast<unsigned long long>(static_cast<long long>(socket().descriptor()));
}

void ASocketEndpoint::close() { close(true); }
void ASocketEndpoint::close(bool graceful) { socket().close(graceful); }
void ASocketEndpoint::shutdown() { sys::io::socket::shutdown(socket().descriptor()); }
void ASocketEndpoint::shutdownRead() { sys::io::socket::shutdownRead(socket().descriptor()); }
void ASocketEndpoint::shutdownWrite() { sys::io::socket::shutdownWrite(socket().descriptor()); }
void ASocketEndpoint::beBlocking() { socket().beBlocking(); }
void ASocketEndpoint::beNonblocking() { socket().beNonBlocking(); }
void ASocketEndpoint::enableForcefulClose() { sys::io::socket::enableForcefulClose(socket().descriptor()); }
void ASocketEndpoint::reuseAddress() { sys::io::socket::reuseAddress(socket().descriptor()); }

AINETAddress ASocketEndpoint::peerAddress() const {
  return AINETAddress(AINETAddress::Handle(impl::inet::newPeerAddressOf(socket())));
}

AINETAddress ASocketEndpoint::selfAddress() const {
  return AINETAddress(AINETAddress::Handle(impl::inet::newSelfAddressOf(socket())));
}

}  // namespace io
}  // namespace sal
}  // namespace quorel
