/// \file
/// Endpoint, Channel, File and Pipe: synchronous byte movement over open
/// specs.
#ifndef QUOREL_SAL_XIO_ENDPOINT_H
#define QUOREL_SAL_XIO_ENDPOINT_H

#include <memory>
#include <string>

#include <quorel/sal/io/AINETAddress.h>
#include <quorel/sal/xio/Spec.h>
#include <quorel/sal/xio/impl/AOpenSpec.h>
#include <quorel/util/AHandleTo.h>

namespace quorel {
namespace sal {
namespace xio {

namespace impl {
/// Owns one open spec, deleted with the last handle (which closes
/// owned descriptors and discards errors).
class Endpoint {
 public:
  explicit Endpoint(AOpenSpec* owned) : spec(owned) {}
  /// Selectors forget the endpoint before its descriptor closes.
  ~Endpoint() { watchers.closing(); }

  /// The descriptor a selector watches (-1: none).
  int descriptor() const { return spec->descriptor(); }
  /// The list selectors join: a socket endpoint's is its socket's, so that
  /// closing the socket through any of its objects is seen.
  io::impl::Watchers& watchersOf() {
    io::impl::Socket* socket = spec->socket();
    return socket != nullptr ? socket->watchers : watchers;
  }

  std::unique_ptr<AOpenSpec> spec;
  io::impl::Watchers watchers;
};
}  // namespace impl

/// A shared reference to one open thing: a file, a wrapped or adopted
/// descriptor, memory, nothing, or a TCP connection. Copies share it: closing
/// or reopening through one copy is seen by all. Endpoint() holds nothing and
/// any use throws NULLDereferenceException. One thread at a time.
class Endpoint {
 public:
  typedef util::AHandleTo<impl::Endpoint> Handle;

  Endpoint() = default;
  explicit Endpoint(const Handle& handle) : handle_(handle) {}

  /// A null endpoint / a memory endpoint.
  static Endpoint open(const std::string& name);
  static Endpoint open(const std::string& name, void* address, unsigned int length);
  /// Opens the file now. Throws OpenException "::open('<path>', <flag names>) failed".
  static Endpoint open(const std::string& path, const fopen::Spec& spec);
  /// Connects now.
  static Endpoint open(const io::TCPBindingAddress& binding, const io::TCPConnectingAddress& connecting);
  /// An endpoint over a socket (a connected or accepted TCP socket, a UDP
  /// socket): it shares the socket's descriptor, which closes with the last of
  /// the endpoint and the socket's copies, or at close() of either. Cannot be
  /// cloned (an empty Endpoint). Throws NULLDereferenceException for an empty
  /// socket.
  static Endpoint open(const io::ASocketEndpoint& socket);
  /// A descriptor the caller keeps (wrap) or hands over (adopt). Throw
  /// AdoptException (wrap) / WrapException (adopt) for i::id::kNone.
  static Endpoint wrap(unsigned int id, const open::Spec& spec);
  static Endpoint adopt(unsigned int id, const open::Spec& spec);
  /// "STDIN", "STDOUT", "STDERR" over 0, 1, 2; fail as above if closed.
  static Endpoint wrap(i::stdfd::Input);
  static Endpoint wrap(i::stdfd::Output);
  static Endpoint wrap(i::stdfd::Error);
  static Endpoint adopt(i::stdfd::Input);
  static Endpoint adopt(i::stdfd::Output);
  static Endpoint adopt(i::stdfd::Error);

  void open();
  void close();
  void reopen();
  /// A new endpoint over a duplicate: close-on-exec unless both this
  /// endpoint's and the requested inherit option are Enabled. A TCP endpoint
  /// gives an empty Endpoint.
  Endpoint clone(i::open::inherit::Enabled) const;
  Endpoint clone(i::open::inherit::Disabled) const;

  i::id::type id() const;
  const std::string& name() const;
  std::string specString() const;
  const impl::AOpenSpec& key() const;
  /// The shared record (for requests, which read the identifier when they run).
  const impl::Endpoint& record() const { return handle_.reference(); }

 private:
  Handle handle_;
};

/// Sequential reads and writes at the endpoint's current position; each moves
/// what one call moves (0 from read: end of file). Throw ReadException
/// "::read() failed" / WriteException "::write() failed" with errno.
class Channel {
 public:
  Channel() = default;
  explicit Channel(const Endpoint& endpoint) : endpoint_(endpoint) {}
  virtual ~Channel();

  int read(void* buffer, int size);
  int read(void* buffer, unsigned int size);
  int write(const void* buffer, int size);
  int write(const void* buffer, unsigned int size);

  Endpoint& endpoint() { return endpoint_; }
  const Endpoint& endpoint() const { return endpoint_; }

 protected:
  Endpoint endpoint_;
};

/// A channel with positioned I/O, seeking, truncation and flushing.
class File : public Channel {
 public:
  File() = default;
  explicit File(const Endpoint& endpoint) : Channel(endpoint) {}
  ~File() override;

  /// Replaces the endpoint with Endpoint::open(path, spec).
  void open(const std::string& path, const fopen::Spec& spec);
  using Channel::read;
  using Channel::write;
  /// At an absolute offset; the position is unchanged. Throw "::pread() failed"
  /// / "::pwrite() failed".
  int read(void* buffer, int size, long long offset);
  int read(void* buffer, unsigned int size, long long offset);
  int write(const void* buffer, int size, long long offset);
  int write(const void* buffer, unsigned int size, long long offset);
  /// The new offset. Throws SeekException "::lseek() failed".
  long long seek(long long offset, i::fseek::from::Begin);
  long long seek(long long offset, i::fseek::from::Current);
  long long seek(long long offset, i::fseek::from::End);
  /// Cuts the file at the current position (seek there first). Throws
  /// TruncateException "::ftruncate() failed".
  void truncate();
  /// Throws SyncException "::fsync() failed".
  void sync();
};

/// Two endpoints joined by a pipe, both owned.
class Pipe {
 public:
  /// Throws OpenException "::pipe() failed" or a failed option's fcntl.
  Pipe(const open::Spec& readSpec, const open::Spec& writeSpec);

  Endpoint& forRead() { return read_; }
  const Endpoint& forRead() const { return read_; }
  Endpoint& forWrite() { return write_; }
  const Endpoint& forWrite() const { return write_; }

 private:
  Endpoint read_;
  Endpoint write_;
};

}  // namespace xio
}  // namespace sal
}  // namespace quorel

#endif
