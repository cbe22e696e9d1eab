/// \file
/// The platform layer of sockets: one BSD socket descriptor, the socket
/// functions and name resolution.
#ifndef QUOREL_SAL_SYS_IO_BSDSOCKET_H
#define QUOREL_SAL_SYS_IO_BSDSOCKET_H

#include <netdb.h>
#include <sys/socket.h>
#include <sys/types.h>

#include <cstddef>
#include <string>

namespace quorel {
namespace sal {
namespace sys {
namespace io {

namespace socket {

typedef int descriptor;  // -1: none
typedef socklen_t length;
typedef ssize_t size;    // -1: nothing transferred

/// socket(family, type, protocol); the descriptor or -1. The bool has no effect.
descriptor open(int family, int type, int protocol, bool);
/// shutdown(SHUT_RDWR) first when graceful, then close(); results ignored.
void close(descriptor fd, bool graceful);
void shutdown(descriptor fd);
void shutdownRead(descriptor fd);
void shutdownWrite(descriptor fd);
/// Sets or clears O_NONBLOCK; the caller's errno survives. Throws
/// sys::Exception "::fcntl() failed to retrieve flags" / "... to set flags".
void setNonblocking(descriptor fd, bool on);
/// SO_REUSEADDR; throws "::setsockopt() failed for SO_REUSEADDR".
void reuseAddress(descriptor fd);
/// SO_BROADCAST; throws "::setsockopt() failed for SO_BROADCAST".
void enableBroadcastTx(descriptor fd);
/// Receiving broadcasts means letting several sockets share the port: this
/// sets SO_REUSEADDR and nothing else.
void enableBroadcastRx(descriptor fd);
/// SO_LINGER on, 0 s: closing resets the connection. Never throws.
void enableForcefulClose(descriptor fd);
/// TCP_NODELAY. Never throws.
void disableTCPCoalescing(descriptor fd);
/// One recv() / send() with the given flags (MSG_DONTWAIT, MSG_NOSIGNAL):
/// the byte count, or -1 with errno set. Never throws: the selector's users
/// turn the error into the exception their operation reports.
size receiveSome(descriptor fd, void* buffer, size_t count, int flags);
size sendSome(descriptor fd, const void* buffer, size_t count, int flags);
/// True for EAGAIN (EWOULDBLOCK) and EINPROGRESS.
bool wouldBlock(int error);
int lastError();
void setLastError(int error);
/// gethostname(); throws "::gethostname() failed".
const std::string selfHostName();
/// "family:AF_INET(2) type:SOCK_STREAM(1) protocol:IPPROTO_TCP(2)": the number
/// in the protocol's parentheses is the family's, as this text always had it.
std::string describe(int family, int type, int protocol);

}  // namespace socket

/// One socket descriptor and the blocking mode it is in.
///
/// Every operation with a time-out (milliseconds; 0 or less: none) switches
/// the socket to non-blocking mode for the duration, waits with one select()
/// and restores the mode the caller had. Time-outs throw
/// sal::io::TimeoutException (domain 2, code 110) unless asked to return -1;
/// failed calls throw sys::Exception naming the call, with errno. One thread
/// uses a socket at a time.
class BSDSocket {
 public:
  /// Opens a socket, close-on-exec. Throws "::socket() failed". The bool has
  /// no effect.
  BSDSocket(int family, int type, int protocol, bool);
  /// Adopts an open descriptor; with notOwned, it is never closed here.
  BSDSocket(socket::descriptor fd, int family, int type, int protocol, bool notOwned);
  BSDSocket(const BSDSocket&) = delete;
  BSDSocket& operator=(const BSDSocket&) = delete;
  /// close(true).
  ~BSDSocket();

  socket::descriptor descriptor() const { return descriptor_; }
  int family() const { return family_; }
  int type() const { return type_; }
  int protocol() const { return protocol_; }
  bool isNonBlocking() const { return nonBlocking_; }

  /// Closes an owned descriptor once (after a shutdown when graceful);
  /// further calls do nothing. Never throws.
  void close(bool graceful);
  /// Switch the mode; timed operations restore what these set.
  void beNonBlocking();
  void beBlocking();

  void bind(const sockaddr& address, socket::length length);
  /// Backlog 128.
  void listen();
  void connect(const sockaddr& address, socket::length length, int timeout);
  /// Starts a non-blocking connect, retrying up to 60 times with a one-second
  /// pause while no local port is free (EADDRNOTAVAIL).
  void initiateConnection(const sockaddr& address, socket::length length);
  /// Waits for a connect started by initiateConnection (a time-out of 0 polls).
  void connectionWaitFor(int timeout);
  /// The accepted descriptor, always blocking and close-on-exec.
  socket::descriptor accept(sockaddr& address, socket::length& length, int timeout);
  socket::size receive(void* buffer, size_t size, int timeout, bool returnOnTimeout);
  socket::size receive(void* buffer, size_t size, sockaddr& from, socket::length& length, int timeout,
                       bool returnOnTimeout);
  /// What one send() accepts; no loop completes a partial transfer.
  socket::size send(const void* buffer, size_t size, int timeout, bool returnOnTimeout);
  socket::size send(const void* buffer, size_t size, const sockaddr& to, socket::length length);
  void peerAddress(sockaddr& address, socket::length& length) const;
  void selfAddress(sockaddr& address, socket::length& length) const;

 private:
  /// The wait of every timed operation: one select() with the descriptor in
  /// the chosen sets; returns select()'s result and leaves errno as it set it.
  int waitFor(int timeout, bool read, bool write, bool except, bool& inWrite, bool& inExcept) const;
  /// How the wait for a connect in progress ended, with the message and code
  /// that the connecting operation throws for it. Failures are returned, not
  /// thrown, so that every exception names the operation that waited.
  struct ConnectWait {
    enum Outcome { kConnected, kTimedOut, kSelectFailed, kSOErrorUnreadable, kFailed } outcome;
    int error;  // errno of the failed call, or the pending SO_ERROR
    const char* why() const;
  };
  /// Steps after a connect in progress: one select() on the write and
  /// exception sets, the mode restored when asked, then SO_ERROR.
  ConnectWait awaitConnection(int timeout, bool restoreBlocking);

  socket::descriptor descriptor_;
  int family_;
  int type_;
  int protocol_;
  int notOwned_;
  bool nonBlocking_;
};

/// The results of getaddrinfo(), freed on destruction. Numeric text is tried
/// first; a host name only when that fails.
class SocketAddressInfo {
 public:
  /// Throws sys::Exception "::getaddrinfo(<node>) failed" in the address
  /// resolution domain with the resolver's code.
  SocketAddressInfo(const char* node, const char* service, int family, int type, int protocol, bool passive);
  SocketAddressInfo(const SocketAddressInfo&) = delete;
  SocketAddressInfo& operator=(const SocketAddressInfo&) = delete;
  ~SocketAddressInfo();

  const addrinfo* head() const { return head_; }

  /// Walks the addresses a SocketAddressInfo holds, numeric results first.
  class Iterator {
   public:
    explicit Iterator(const SocketAddressInfo& info) : current_(info.head_) {}
    const addrinfo* current() const { return current_; }
    bool atEnd() const { return current_ == nullptr; }
    /// Throws NULLDereferenceException "iteration passed the end".
    void step();

   private:
    const addrinfo* current_;
  };

  /// The host name of an address (reverse lookup). Throws sys::Exception
  /// "::getnameinfo() failed to retrieve the canonical host name string".
  static void canonicalNameFrom(const sockaddr& address, socket::length length, std::string& name);

 private:
  addrinfo* head_;
};

}  // namespace io
}  // namespace sys
}  // namespace sal
}  // namespace quorel

#endif
