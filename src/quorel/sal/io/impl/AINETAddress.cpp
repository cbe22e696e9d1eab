// Socket addresses by family, and the factories that resolve them.
#include <quorel/sal/io/impl/AINETAddress.h>

#include <quorel/sal/inet/impl/addr.h>
#include <quorel/sal/io/Exception.h>
#include <quorel/util/Exception.h>
#include <quorel/util/Throw.h>

#include <quorel/sal/sys/io/BSDSocket.inl>
#include <quorel/sal/sys/io/endpoint.inl>

namespace quorel {
namespace sal {
namespace io {
namespace impl {

namespace {

const char* familyName(int family) {
  return family == AF_INET ? "AF_INET" : family == AF_INET6 ? "AF_INET6" : "UNKNOWN";
}

// The refusal of an address that would receive the address of a socket of
// another family: the kernel would write a structure of the socket's family
// into this address's smaller or differently laid out one.
std::string mismatchOf(int addressFamily, int socketFamily) {
  return "address family " + std::string(familyName(addressFamily)) + "(" + std::to_string(addressFamily) +
         ") does not match the socket's family " + familyName(socketFamily) + "(" + std::to_string(socketFamily) +
         ")";
}

}  // namespace

template <class S>
const std::string& AINETAddressOf<S>::canonicalName() const {
  if (canonicalName_.empty()) sys::io::SocketAddressInfo::canonicalNameFrom(any(), sizeof(S), canonicalName_);
  return canonicalName_;
}

template <class S>
const std::string& AINETAddressOf<S>::numericalName() const {
  if (numericalName_.empty()) numericalName_ = sal::inet::impl::addr::str::from(any());
  return numericalName_;
}

template <class S>
void AINETAddressOf<S>::selfAddressOf(const Socket& socket) {
  if (socket.family() != family_) {
    QUOREL_THROW(InvalidArgumentException)(mismatchOf(family_, socket.family()), sal::i::err::domain::kApplication,
                                           family_);
  }
  resetNames();
  sys::io::socket::length length = sizeof(S);
  socket.selfAddress(any(), length);
}

template <class S>
void AINETAddressOf<S>::peerAddressOf(const Socket& socket) {
  if (socket.family() != family_) {
    QUOREL_THROW(InvalidArgumentException)(mismatchOf(family_, socket.family()), sal::i::err::domain::kApplication,
                                           family_);
  }
  resetNames();
  sys::io::socket::length length = sizeof(S);
  socket.peerAddress(any(), length);
}

template <class S>
void AINETAddressOf<S>::bind(Socket& socket) const {
  socket.bind(any(), sizeof(S));
}

template <class S>
sys::io::socket::descriptor AINETAddressOf<S>::accept(Socket& socket, int timeout) {
  if (socket.family() != family_) {
    QUOREL_THROW(InvalidArgumentException)(mismatchOf(family_, socket.family()), sal::i::err::domain::kApplication,
                                           family_);
  }
  resetNames();
  sys::io::socket::length length = sizeof(S);
  return socket.accept(any(), length, timeout);
}

template <class S>
void AINETAddressOf<S>::connect(Socket& socket, int timeout) const {
  socket.connect(any(), sizeof(S), timeout);
}

template <class S>
void AINETAddressOf<S>::initiateConnection(Socket& socket) const {
  socket.initiateConnection(any(), sizeof(S));
}

template <class S>
int AINETAddressOf<S>::send(Socket& socket, const void* buffer, unsigned int size) const {
  return static_cast<int>(socket.send(buffer, size, any(), sizeof(S)));
}

template <class S>
int AINETAddressOf<S>::receive(Socket& socket, void* buffer, unsigned int size, int timeout, bool returnOnTimeout) {
  if (socket.family() != family_) {
    QUOREL_THROW(InvalidArgumentException)(mismatchOf(family_, socket.family()), sal::i::err::domain::kApplication,
                                           family_);
  }
  resetNames();
  sys::io::socket::length length = sizeof(S);
  return static_cast<int>(socket.receive(buffer, size, any(), length, timeout, returnOnTimeout));
}

template class AINETAddressOf<sockaddr_in>;
template class AINETAddressOf<sockaddr_in6>;

namespace inet {

int protocolFrom(transport t) {
  if (t == TCP) return IPPROTO_TCP;
  if (t == UDP) return IPPROTO_UDP;
  QUOREL_THROW(io::Exception)("unknown INET protocol", sal::i::err::domain::kApplication, t);
}

int socketTypeFrom(transport t) {
  if (t == TCP) return SOCK_STREAM;
  if (t == UDP) return SOCK_DGRAM;
  QUOREL_THROW(io::Exception)("unknown INET protocol", sal::i::err::domain::kApplication, t);
}

AINETAddress* newAddressFrom(const addrinfo& result) {
  if (result.ai_family == AF_INET) {
    return new IPv4Address(result.ai_socktype, result.ai_protocol,
                           *reinterpret_cast<const sockaddr_in*>(result.ai_addr));
  }
  if (result.ai_family == AF_INET6) {
    return new IPv6Address(result.ai_socktype, result.ai_protocol,
                           *reinterpret_cast<const sockaddr_in6*>(result.ai_addr));
  }
  return nullptr;
}

namespace {

AINETAddress* firstOf(const char* host, const char* service, int family, transport t, bool passive) {
  const int type = socketTypeFrom(t);  // first, so that a bad transport is always reported from here
  const sys::io::SocketAddressInfo info(host, service, family, type, protocolFrom(t), passive);
  return info.head() != nullptr ? newAddressFrom(*info.head()) : nullptr;
}

}  // namespace

AINETAddress* newBindingAddress(const std::string& host, const std::string& service, int family, transport t) {
  return firstOf(host.empty() ? nullptr : host.c_str(), service.empty() ? "0" : service.c_str(), family, t, true);
}

AINETAddress* newPeerAddress(const std::string& host, const std::string& service, int family, transport t) {
  return firstOf(host.empty() ? nullptr : host.c_str(), service.empty() ? nullptr : service.c_str(), family, t,
                 false);
}

AINETAddress* newAddressFrom(const Socket& socket) {
  if (socket.family() == AF_INET) {
    sockaddr_in empty;
    std::memset(&empty, 0, sizeof empty);
    empty.sin_family = AF_INET;
    return new IPv4Address(socket.type(), socket.protocol(), empty);
  }
  if (socket.family() == AF_INET6) {
    sockaddr_in6 empty;
    std::memset(&empty, 0, sizeof empty);
    empty.sin6_family = AF_INET6;
    return new IPv6Address(socket.type(), socket.protocol(), empty);
  }
  QUOREL_THROW(io::Exception)("unknown INET address family", sal::i::err::domain::kApplication, socket.family());
}

namespace {

// A new address of the socket's family refilled by refill; deleted if that fails.
AINETAddress* refilledFrom(const Socket& socket, void (AINETAddress::*refill)(const Socket&)) {
  AINETAddress* address = newAddressFrom(socket);
  try {
    (address->*refill)(socket);
  } catch (...) {
    delete address;
    throw;
  }
  return address;
}

}  // namespace

AINETAddress* newPeerAddressOf(const Socket& socket) { return refilledFrom(socket, &AINETAddress::peerAddressOf); }

AINETAddress* newSelfAddressOf(const Socket& socket) { return refilledFrom(socket, &AINETAddress::selfAddressOf); }

AINETAddress* newBroadcastAddressOn(unsigned short port) {
  sockaddr_in broadcast;
  std::memset(&broadcast, 0, sizeof broadcast);
  broadcast.sin_family = AF_INET;
  broadcast.sin_addr.s_addr = htonl(INADDR_BROADCAST);
  broadcast.sin_port = htons(port);
  return new IPv4Address(SOCK_DGRAM, IPPROTO_UDP, broadcast);
}

}  // namespace inet
}  // namespace impl
}  // namespace io
}  // namespace sal
}  // namespace quorel
