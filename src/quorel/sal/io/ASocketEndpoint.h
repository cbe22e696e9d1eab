/// \file
/// ASocketEndpoint: the base of every socket class, one shared descriptor.
#ifndef QUOREL_SAL_IO_ASOCKETENDPOINT_H
#define QUOREL_SAL_IO_ASOCKETENDPOINT_H

#include <quorel/sal/io/AINETAddress.h>
#include <quorel/sal/io/i/EndPoint.h>
#include <quorel/util/AHandleTo.h>

namespace quorel {
namespace sal {
namespace io {

/// Copies share the descriptor, which is closed (gracefully) with the last
/// copy. No locks: keep one reader and one writer at a time. An empty socket
/// object throws NULLDereferenceException on use.
class ASocketEndpoint : public i::EndPoint {
 public:
  typedef util::AHandleTo<impl::Socket> Handle;

  /// Opens a socket of the address's family, type and protocol, close-on-exec
  /// and blocking. Throws sys::Exception "::socket() failed". The bool has no
  /// effect.
  ASocketEndpoint(const AINETAddress& address, bool unused);
  /// Adopts an open descriptor (owned; recorded as blocking).
  ASocketEndpoint(unsigned long long descriptor, int family, int type, int protocol);
  explicit ASocketEndpoint(const Handle& handle);
  ~ASocketEndpoint() override;

  /// The descriptor (all ones once closed).
  unsigned long long id() const override;
  /// close(true).
  void close() override;
  /// Closes the descriptor once (after a shutdown when graceful); closing
  /// again does nothing. Never throws.
  void close(bool graceful);
  void shutdown();
  void shutdownRead();
  void shutdownWrite();
  /// Switch the mode; timed operations restore the mode these set.
  void beBlocking();
  void beNonblocking();
  /// Closing resets the connection (SO_LINGER 0).
  void enableForcefulClose();
  /// SO_REUSEADDR; throws "::setsockopt() failed for SO_REUSEADDR".
  void reuseAddress();

  AINETAddress peerAddress() const;
  AINETAddress selfAddress() const;

  Handle& impl() { return handle_; }
  const Handle& impl() const { return handle_; }

 protected:
  ASocketEndpoint();
  impl::Socket& socket() { return *handle_.operator->(); }
  const impl::Socket& socket() const { return handle_.reference(); }

  Handle handle_;
};

}  // namespace io
}  // namespace sal
}  // namespace quorel

#endif
