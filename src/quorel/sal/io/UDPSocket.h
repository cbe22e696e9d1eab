/// \file
/// UDPSocket: datagrams with a default peer or explicit peers, and broadcast.
#ifndef QUOREL_SAL_IO_UDPSOCKET_H
#define QUOREL_SAL_IO_UDPSOCKET_H

#include <string>

#include <quorel/sal/io/ASocketEndpoint.h>

namespace quorel {
namespace sal {
namespace io {

/// A datagram socket bound at construction. Receiving truncates a datagram
/// larger than the buffer (one recv per datagram).
class UDPSocket : public ASocketEndpoint {
 public:
  /// Options applied before binding.
  enum broadcast {
    kNone = 0,            // none
    kReceive = 1,         // share the port with other sockets (SO_REUSEADDR)
    kSend = 2,            // SO_BROADCAST
    kSendAndReceive = 3,  // both
  };

  /// An empty socket (its use throws NULLDereferenceException).
  UDPSocket() = default;
  /// Opens, applies the mode's options and binds. Another mode value closes
  /// the socket and throws io::Exception "invalid broadcast mode" (code the
  /// value).
  UDPSocket(const UDPBindingAddress& address, broadcast mode, bool unused);

  /// Sets the default destination (a plain connect()).
  void connectTo(const UDPPeerAddress& peer);
  /// To the default peer; one untimed send() (-1 on a non-blocking socket
  /// whose buffer is full).
  int send(const void* buffer, unsigned int size);
  /// One sendto(); throws "::sendto() failed" (EACCES: broadcast without
  /// kSend).
  int send(const void* buffer, unsigned int size, const UDPPeerAddress& peer);
  /// One datagram; time-outs as for TCP.
  int receive(void* buffer, unsigned int size, int timeout, bool returnOnTimeout);
  /// The same, writing the sender's address into from, which must be of this
  /// socket's family: another family throws InvalidArgumentException before
  /// anything is received.
  int receive(void* buffer, unsigned int size, UDPPeerAddress& from, int timeout, bool returnOnTimeout);

  /// An empty address of this socket's family, for receive(..., from, ...).
  UDPPeerAddress newPeerAddress() const;
  UDPPeerAddress newPeerAddressAt(const std::string& host, unsigned short port) const;
  UDPPeerAddress newPeerAddressAt(const std::string& host, const std::string& service) const;
};

}  // namespace io
}  // namespace sal
}  // namespace quorel

#endif
