// TCP sockets over BSDSocket and the socket addresses.
#include <quorel/sal/io/TCPSocket.h>

namespace quorel {
namespace sal {
namespace io {

namespace {
const int kDefaultConnectTimeout = 30000;  // milliseconds
}  // namespace

ATCPIOSocket::~ATCPIOSocket() = default;

int ATCPIOSocket::receive(void* buffer, unsigned int size, int timeout, bool returnOnTimeout) {
  return static_cast<int>(socket().receive(buffer, size, timeout, returnOnTimeout));
}
int ATCPIOSocket::get(void* buffer, int size) { return receive(buffer, static_cast<unsigned int>(size), 0, false); }
int ATCPIOSocket::get(void* buffer, int size, int timeout) {
  return receive(buffer, static_cast<unsigned int>(size), timeout, false);
}
int ATCPIOSocket::send(const void* buffer, unsigned int size, int timeout, bool returnOnTimeout) {
  return static_cast<int>(socket().send(buffer, size, timeout, returnOnTimeout));
}
int ATCPIOSocket::put(const void* buffer, int size) { return send(buffer, static_cast<unsigned int>(size), 0, false); }
int ATCPIOSocket::put(const void* buffer, int size, int timeout) {
  return send(buffer, static_cast<unsigned int>(size), timeout, false);
}
void ATCPIOSocket::disableTCPCoalescing() { sys::io::socket::disableTCPCoalescing(socket().descriptor()); }

TCPClientSocket::TCPClientSocket(const TCPConnectingAddress& address, bool connectNow, bool unused)
    : ATCPIOSocket(address, unused) {
  if (connectNow) connectTo(address, kDefaultConnectTimeout);
}

TCPClientSocket::TCPClientSocket(const TCPBindingAddress& local, const TCPConnectingAddress& address, bool connectNow,
                                 bool unused, bool reuse)
    : ATCPIOSocket(address, unused) {
  if (reuse) reuseAddress();
  local.impl()->bind(socket());
  if (connectNow) connectTo(address, kDefaultConnectTimeout);
}

void TCPClientSocket::connectTo(const TCPConnectingAddress& address, int timeout) {
  address.impl()->connect(socket(), timeout);
}

void TCPClientSocket::initiateConnection(const TCPConnectingAddress& address) {
  address.impl()->initiateConnection(socket());
}

void TCPClientSocket::connectionWaitFor(int timeout) { socket().connectionWaitFor(timeout); }

TCPServerSocket::TCPServerSocket(const TCPBindingAddress& address, bool unused) : ASocketEndpoint(address, unused) {
  reuseAddress();
  address.impl()->bind(socket());
  socket().listen();
}

ATCPIOSocket TCPServerSocket::accept(AINETAddress& peer, int timeout) {
  impl::Socket& listener = socket();
  const sys::io::socket::descriptor fd = peer.impl()->accept(listener, timeout);
  try {
    return ATCPIOSocket(Handle(new impl::Socket(fd, listener.family(), listener.type(), listener.protocol(), false)));
  } catch (...) {
    sys::io::socket::close(fd, false);
    throw;
  }
}

ATCPIOSocket TCPServerSocket::accept(int timeout) {
  AINETAddress peer = newPeerAddressForAccept();
  return accept(peer, timeout);
}

AINETAddress TCPServerSocket::newPeerAddressForAccept() {
  return AINETAddress(AINETAddress::Handle(impl::inet::newAddressFrom(socket())));
}

}  // namespace io
}  // namespace sal
}  // namespace quorel
