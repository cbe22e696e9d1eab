/// \file
/// BinaryOutputBuffer builds a message of integers, byte runs and strings;
/// BinaryInputBuffer reads one back. Both move bytes to and from sockets and
/// pipes straight from their own memory.
///
///   io::BinaryOutputBuffer out;
///   out.put<pod::uint16>(7);              // 00 07: network order
///   out.putString("hello");               // 00 00 00 05 'h' 'e' 'l' 'l' 'o'
///   out.send(socket);                     // all of it, then the buffer is empty
///
///   io::BinaryInputBuffer in;
///   while (in.size() < 11 && in.receive(socket) > 0) {
///   }
///   pod::uint16 kind = in.get<pod::uint16>();
///   std::string text = in.getString();    // at most in.limit() bytes
#ifndef QUOREL_SAL_IO_BINARYBUFFER_H
#define QUOREL_SAL_IO_BINARYBUFFER_H

#include <cstddef>
#include <string>
#include <type_traits>

#include <quorel/sal/io/i/buffer.h>
#include <quorel/sal/io/impl/BinaryBuffer.h>
#include <quorel/util/AHandleTo.h>
#include <quorel/util/pod.h>

namespace quorel {
namespace sal {
namespace xio {
class Endpoint;
}  // namespace xio
namespace io {

class ASocketEndpoint;

/// The bytes of a message being built, in one growable block.
///
/// Integers are std::uint8_t to std::int64_t (pod::uint8 ... pod::int64),
/// named at each call: put<pod::uint32>(x) writes 4 bytes, most significant
/// first (network order), or in the processor's order with i::order::Host.
/// Strings carry a length before their bytes: 4 bytes in network order by
/// default, 2 with putString<pod::uint16>.
///
/// Sending consumes what went out; when all has gone, the buffer starts again
/// at the front of its block, and room is made by moving unsent bytes to the
/// front before the block grows, so a long-lived connection's buffer stays
/// within a few times the largest message it held.
///
/// Copies share the buffer. No locks: one thread at a time.
///
/// SIGPIPE: sends to sockets use MSG_NOSIGNAL, so a peer that has gone is a
/// ConnectionResetException. write() to a pipe has no such flag: a write to
/// a pipe whose reader has gone raises SIGPIPE, which ends the program unless
/// it ignores the signal (signal(SIGPIPE, SIG_IGN), or sigaction with
/// SIG_IGN); then the write fails with xio::WriteException, code EPIPE. The
/// socket classes' own put and send (flags 0) raise SIGPIPE too.
class BinaryOutputBuffer {
 public:
  typedef util::AHandleTo<impl::BinaryOutputBuffer> Handle;

  /// An empty buffer of capacity bytes (0: the first put allocates 256).
  explicit BinaryOutputBuffer(std::size_t capacity = 0) : handle_(new impl::BinaryOutputBuffer(capacity)) {}
  explicit BinaryOutputBuffer(const Handle& handle) : handle_(handle) {}
  /// Copies share the buffer: what one puts, the other sends.
  BinaryOutputBuffer(const BinaryOutputBuffer&) = default;
  BinaryOutputBuffer& operator=(const BinaryOutputBuffer&) = default;

  /// Appends an integer in network order (most significant byte first).
  template <class T>
  void put(impl::wire::Explicit<T> value) {
    handle_->put(impl::wire::swapped(value));
  }
  template <class T>
  void put(impl::wire::Explicit<T> value, i::order::Network) {
    handle_->put(impl::wire::swapped(value));
  }
  /// Appends an integer in the processor's order.
  template <class T>
  void put(impl::wire::Explicit<T> value, i::order::Host) {
    handle_->put(value);
  }
  /// Appends count bytes as they are.
  void putBytes(const void* bytes, std::size_t count) { handle_->putBytes(bytes, count); }
  void putBytes(const std::string& bytes) { handle_->putBytes(bytes.data(), bytes.size()); }
  /// Appends text's length as a Length (pod::uint32 or pod::uint16) in
  /// network order, then text's bytes. A text too long for its length throws
  /// InvalidArgumentException "a string of 70000 bytes does not fit a 2-byte
  /// length" (domain 0, code 0), and nothing is appended.
  template <class Length = pod::uint32>
  void putString(const std::string& text) {
    static_assert(std::is_same<Length, pod::uint32>::value || std::is_same<Length, pod::uint16>::value,
                  "a string's length is a pod::uint32 or a pod::uint16");
    handle_->putString(text.data(), text.size(), sizeof(Length));
  }

  /// The bytes not yet sent: size() of them from data(), valid until the next
  /// put, send or compaction.
  std::size_t size() const { return handle_.reference().size(); }
  bool empty() const { return size() == 0; }
  const unsigned char* data() const { return handle_.reference().data(); }
  std::size_t capacity() const { return handle_.reference().capacity(); }
  /// Room for room more bytes, so that the puts that fill it never grow the
  /// block. A size beyond what the block can hold throws io::Exception "a
  /// buffer of 10 bytes cannot grow by 4294967295 bytes" (domain 0, code 0);
  /// an allocation that fails throws std::bad_alloc.
  void reserve(std::size_t room) { handle_->reserve(room); }
  /// Moves the unsent bytes to the front of the block.
  void compact() { handle_->compact(); }
  /// Forgets every unsent byte; the block stays.
  void clear() { handle_->clear(); }

  /// Sends everything with one send() after another (MSG_NOSIGNAL; a call
  /// interrupted by a signal is made again) and returns the count. Blocks on
  /// a blocking socket until all has gone; on a non-blocking one it stops
  /// when the socket would block, the rest staying buffered. A failed send()
  /// throws the class of xio::err for its errno, "::send() failed" (domain 2):
  /// ConnectionResetException for a peer that has gone (EPIPE, ECONNRESET),
  /// SocketException for what has no class of its own; what was sent before
  /// is consumed. An empty socket object throws NULLDereferenceException.
  std::size_t send(const ASocketEndpoint& socket);
  /// One send(): the count sent (0 when nothing is buffered), or -1 when a
  /// non-blocking socket would block. Failures as for send.
  int sendSome(const ASocketEndpoint& socket);
  /// The same with write() on the endpoint's descriptor (a pipe's end, a
  /// file). A failure throws xio::WriteException "::write() failed" (domain
  /// 2, errno); see SIGPIPE above. An endpoint over a TCP connection is sent
  /// to as a socket. A memory or null endpoint throws
  /// InvalidArgumentException "the endpoint '<name>' is closed or has no descriptor".
  std::size_t send(const xio::Endpoint& endpoint);
  int sendSome(const xio::Endpoint& endpoint);

  impl::BinaryOutputBuffer& key() { return *handle_.operator->(); }

 private:
  Handle handle_;
};

/// The bytes of received messages, in one growable block: a read position
/// and a write end at which received bytes are appended.
///
/// Gets consume from the read position and never see a byte that was not
/// received or appended. A get that finds too few bytes throws
/// xio::EOFException, domain 0, whose code is the number of bytes it asked
/// for (INT_MAX beyond that) and whose message names what was asked and what
/// remains, "a 4-byte integer was asked for and 3 bytes remain"; it consumes
/// nothing, so a reader can receive more and try again.
///
/// A length-prefixed string is checked against limit() before anything is
/// allocated or consumed: a longer one throws xio::ReadException "a string of
/// 5000 bytes was announced and the limit is 1024 bytes" (domain 0, code 0).
///
/// Copies share the buffer. No locks: one thread at a time.
class BinaryInputBuffer {
 public:
  typedef util::AHandleTo<impl::BinaryInputBuffer> Handle;

  /// The default limit of a length-prefixed string: 1 MiB.
  static constexpr std::size_t kDefaultLimit = 1u << 20;
  /// The least free room a receive makes by default.
  static constexpr std::size_t kReceiveRoom = 4096;

  /// An empty buffer of capacity bytes (0: the first receive or append
  /// allocates) whose strings are at most limit bytes long.
  explicit BinaryInputBuffer(std::size_t capacity = 0, std::size_t limit = kDefaultLimit)
      : handle_(new impl::BinaryInputBuffer(capacity, limit)) {}
  explicit BinaryInputBuffer(const Handle& handle) : handle_(handle) {}
  /// Copies share the buffer: what one receives, the other reads.
  BinaryInputBuffer(const BinaryInputBuffer&) = default;
  BinaryInputBuffer& operator=(const BinaryInputBuffer&) = default;

  /// The next integer, sent in network order (or in the processor's order
  /// with i::order::Host). Throws xio::EOFException as above.
  template <class T>
  T get() {
    return impl::wire::swapped(handle_->get<impl::wire::Explicit<T>>());
  }
  template <class T>
  T get(i::order::Network) {
    return impl::wire::swapped(handle_->get<impl::wire::Explicit<T>>());
  }
  template <class T>
  T get(i::order::Host) {
    return handle_->get<impl::wire::Explicit<T>>();
  }
  /// The next count bytes, into memory or replacing a string's contents.
  void getBytes(void* into, std::size_t count) { handle_->getBytes(into, count); }
  void getBytes(std::string& into, std::size_t count) { handle_->getBytes(into, count); }
  /// A string put by putString<Length>: its length is checked against
  /// limit(), then the whole string must have arrived; into is untouched
  /// when either check throws.
  template <class Length = pod::uint32>
  void getString(std::string& into) {
    static_assert(std::is_same<Length, pod::uint32>::value || std::is_same<Length, pod::uint16>::value,
                  "a string's length is a pod::uint32 or a pod::uint16");
    handle_->getString(into, sizeof(Length));
  }
  template <class Length = pod::uint32>
  std::string getString() {
    std::string text;
    getString<Length>(text);
    return text;
  }
  /// Consumes count bytes unread.
  void skip(std::size_t count) { handle_->skip(count); }

  /// The unread bytes: size() of them from data(), valid until the next
  /// append, receive or compaction.
  std::size_t size() const { return handle_.reference().size(); }
  bool empty() const { return size() == 0; }
  const unsigned char* data() const { return handle_.reference().data(); }
  std::size_t capacity() const { return handle_.reference().capacity(); }
  std::size_t limit() const { return handle_.reference().limit(); }
  void setLimit(std::size_t limit) { handle_->setLimit(limit); }

  /// Appends count bytes at the write end, as a receive would.
  void append(const void* bytes, std::size_t count) { handle_->append(bytes, count); }
  void append(const std::string& bytes) { handle_->append(bytes.data(), bytes.size()); }
  /// Room for room more bytes at the write end (io::Exception or
  /// std::bad_alloc as for the output buffer).
  void reserve(std::size_t room) { handle_->reserve(room); }
  /// Moves the unread bytes to the front of the block, keeping them.
  void compact() { handle_->compact(); }
  /// Forgets every unread byte; the block stays.
  void clear() { handle_->clear(); }

  /// Makes at least room free bytes (at least 1), then one recv() (flags 0;
  /// made again if a signal interrupts it) into all the free room. Returns
  /// the count appended, 0 when the peer has ended the connection, -1 when a
  /// non-blocking socket has nothing. A failure throws the class of xio::err
  /// for its errno, "::recv() failed" (domain 2), e.g. ConnectionResetException.
  int receive(const ASocketEndpoint& socket, std::size_t room = kReceiveRoom);
  /// The same with one read() on the endpoint's descriptor (0: end of file or
  /// the pipe's writers have gone). A failure throws xio::ReadException
  /// "::read() failed" (domain 2, errno). An endpoint over a TCP connection is
  /// received from as a socket; a memory or null endpoint throws as for send.
  int receive(const xio::Endpoint& endpoint, std::size_t room = kReceiveRoom);

  impl::BinaryInputBuffer& key() { return *handle_.operator->(); }

 private:
  Handle handle_;
};

}  // namespace io
}  // namespace sal
}  // namespace quorel

#endif
