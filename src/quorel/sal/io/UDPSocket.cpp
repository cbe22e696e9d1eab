// UDPSocket over BSDSocket and the socket addresses.
#include <quorel/sal/io/UDPSocket.h>

#include <quorel/sal/io/Exception.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace io {

UDPSocket::UDPSocket(const UDPBindingAddress& address, broadcast mode, bool unused)
    : ASocketEndpoint(address, unused) {
  const sys::io::socket::descriptor fd = socket().descriptor();
  switch (mode) {
    case kNone: break;
    case kReceive: sys::io::socket::enableBroadcastRx(fd); break;
    case kSend: sys::io::socket::enableBroadcastTx(fd); break;
    case kSendAndReceive:
      sys::io::socket::enableBroadcastRx(fd);
      sys::io::socket::enableBroadcastTx(fd);
      break;
    default:
      close(false);
      QUOREL_THROW(io::Exception)("invalid broadcast mode", sal::i::err::domain::kApplication, mode);
  }
  address.impl()->bind(socket());
}

void UDPSocket::connectTo(const UDPPeerAddress& peer) { peer.impl()->connect(socket(), 0); }

int UDPSocket::send(const void* buffer, unsigned int size) {
  return static_cast<int>(socket().send(buffer, size, 0, true));
}

int UDPSocket::send(const void* buffer, unsigned int size, const UDPPeerAddress& peer) {
  return peer.impl()->send(socket(), buffer, size);
}

int UDPSocket::receive(void* buffer, unsigned int size, int timeout, bool returnOnTimeout) {
  return static_cast<int>(socket().receive(buffer, size, timeout, returnOnTimeout));
}

int UDPSocket::receive(void* buffer, unsigned int size, UDPPeerAddress& from, int timeout, bool returnOnTimeout) {
  return from.impl()->receive(socket(), buffer, size, timeout, returnOnTimeout);
}

UDPPeerAddress UDPSocket::newPeerAddress() const {
  return UDPPeerAddress(AINETAddress::Handle(impl::inet::newAddressFrom(socket())));
}

UDPPeerAddress UDPSocket::newPeerAddressAt(const std::string& host, unsigned short port) const {
  return newPeerAddressAt(host, std::to_string(port));
}

UDPPeerAddress UDPSocket::newPeerAddressAt(const std::string& host, const std::string& service) const {
  return UDPPeerAddress(
      AINETAddress::Handle(impl::inet::newPeerAddress(host, service, socket().family(), impl::inet::UDP)));
}

}  // namespace io
}  // namespace sal
}  // namespace quorel
