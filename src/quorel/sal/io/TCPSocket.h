/// \file
/// TCP sockets: the connected stream, the client and the listener.
#ifndef QUOREL_SAL_IO_TCPSOCKET_H
#define QUOREL_SAL_IO_TCPSOCKET_H

#include <quorel/sal/io/ASocketEndpoint.h>

namespace quorel {
namespace sal {
namespace io {

/// A connected byte stream. Each call moves at most what one recv() or send()
/// moves and returns that count (0 from get: the peer closed); callers that
/// need every byte loop. Time-outs are milliseconds; a time-out throws
/// TimeoutException (code 110) unless returnOnTimeout asks for -1.
class ATCPIOSocket : public i::Source, public i::Sink, public ASocketEndpoint {
 public:
  explicit ATCPIOSocket(const Handle& handle) : ASocketEndpoint(handle) {}
  ~ATCPIOSocket() override;

  int receive(void* buffer, unsigned int size, int timeout, bool returnOnTimeout);
  /// Blocking; on a non-blocking socket with nothing to read, -1 at once.
  int get(void* buffer, int size) override;
  int get(void* buffer, int size, int timeout) override;
  int send(const void* buffer, unsigned int size, int timeout, bool returnOnTimeout);
  int put(const void* buffer, int size) override;
  int put(const void* buffer, int size, int timeout) override;
  /// TCP_NODELAY.
  void disableTCPCoalescing();

 protected:
  ATCPIOSocket() = default;
  ATCPIOSocket(const AINETAddress& address, bool unused) : ASocketEndpoint(address, unused) {}
};

/// A TCP client. The connecting constructors wait at most 30 seconds.
class TCPClientSocket : public ATCPIOSocket {
 public:
  /// An empty client (its use throws NULLDereferenceException).
  TCPClientSocket() = default;
  /// Opens a socket of the address's family and, with connectNow, connects
  /// within 30 s. A failure closes the socket before the exception leaves.
  TCPClientSocket(const TCPConnectingAddress& address, bool connectNow, bool unused);
  /// The same, bound first to local (with SO_REUSEADDR when reuse).
  TCPClientSocket(const TCPBindingAddress& local, const TCPConnectingAddress& address, bool connectNow, bool unused,
                  bool reuse);

  /// Connects within timeout milliseconds (0 or less: without limit), keeping
  /// the socket's blocking mode. Throws "non-blocking ::connect() failed"
  /// (ECONNREFUSED, ...) or TimeoutException "::select() timed-out for ::connect()".
  void connectTo(const TCPConnectingAddress& address, int timeout);
  /// Two-phase connecting: start now, finish with connectionWaitFor.
  void initiateConnection(const TCPConnectingAddress& address);
  void connectionWaitFor(int timeout);
};

/// A TCP listener: SO_REUSEADDR always, bound, backlog 128.
class TCPServerSocket : public ASocketEndpoint {
 public:
  TCPServerSocket(const TCPBindingAddress& address, bool unused);

  /// A connection, blocking and close-on-exec whatever this socket's mode;
  /// peer receives the client's address (a peer of another family throws
  /// InvalidArgumentException and leaves the connection queued). Time-out in
  /// milliseconds (0 or less: wait without limit); throws TimeoutException
  /// "::select() timed-out for ::accept()".
  ATCPIOSocket accept(AINETAddress& peer, int timeout);
  ATCPIOSocket accept(int timeout);
  /// An empty address of this socket's family, for accept().
  AINETAddress newPeerAddressForAccept();
};

}  // namespace io
}  // namespace sal
}  // namespace quorel

#endif
