/// \file
/// The shared state of the binary buffers: one growable block of bytes with
/// its positions. The integer puts and gets are inline (a bounds test, a copy
/// and a pointer step); growth, byte runs, strings and I/O are out of line.
#ifndef QUOREL_SAL_IO_IMPL_BINARYBUFFER_H
#define QUOREL_SAL_IO_IMPL_BINARYBUFFER_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>

#include <quorel/sal/io/i/buffer.h>
#include <quorel/sal/sys/io/BSDSocket.h>
#include <quorel/sal/sys/io/endpoint.h>

namespace quorel {
namespace sal {
namespace io {
namespace impl {

namespace wire {

/// The integer types a buffer moves: the eight fixed-width ones, so that a
/// message has the same layout on 32- and 64-bit hosts (a size_t or a long
/// would not).
template <class T>
struct Integer {
  static constexpr bool value =
      std::is_same<T, std::uint8_t>::value || std::is_same<T, std::int8_t>::value ||
      std::is_same<T, std::uint16_t>::value || std::is_same<T, std::int16_t>::value ||
      std::is_same<T, std::uint32_t>::value || std::is_same<T, std::int32_t>::value ||
      std::is_same<T, std::uint64_t>::value || std::is_same<T, std::int64_t>::value;
};

/// The type of an integer argument, named explicitly by the caller
/// (put<pod::uint32>(x)): a message's layout never depends on the type an
/// expression happens to have.
template <class T>
struct Checked {
  static_assert(Integer<T>::value, "buffers move std::uint8_t to std::int64_t (fixed-width integers only)");
  typedef T type;
};
template <class T>
using Explicit = typename Checked<T>::type;

/// value with its bytes swapped between host and network order (the same
/// operation both ways).
template <class T>
inline T swapped(T value) {
  typedef typename std::make_unsigned<T>::type U;
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  if constexpr (sizeof(T) == 2) return static_cast<T>(__builtin_bswap16(static_cast<U>(value)));
  if constexpr (sizeof(T) == 4) return static_cast<T>(__builtin_bswap32(static_cast<U>(value)));
  if constexpr (sizeof(T) == 8) return static_cast<T>(__builtin_bswap64(static_cast<U>(value)));
#endif
  return value;
}

/// An integer at any address. Stored through this type rather than with
/// memcpy, an integer is known not to overwrite the buffer's own positions,
/// so that a run of puts keeps them in registers; memcpy's bytes could be
/// anything.
template <class T>
struct __attribute__((packed)) Unaligned {
  T value;
};

/// What one read() or send() is asked to move at most: Linux's own limit per
/// call, which keeps every count an int.
const std::size_t kMaxTransfer = 0x7ffff000;

}  // namespace wire

/// One block of capacity bytes with a used span:
///
///   data_ ........ first_ ======== last_ ........ end_
///      (consumed)        (used)          (free)
///
/// Bytes are appended at last_ and consumed from first_; an empty span starts
/// again at data_ before room is made. Room is made by moving the used span
/// to the start when that frees at least as much as it moves, and otherwise
/// to a block twice as large (or as large as needed).
class Block {
 public:
  /// Allocates capacity bytes (none for 0: the first growth allocates).
  explicit Block(std::size_t capacity);
  ~Block();
  Block(const Block&) = delete;
  Block& operator=(const Block&) = delete;

  std::size_t size() const { return static_cast<std::size_t>(last_ - first_); }
  std::size_t capacity() const { return static_cast<std::size_t>(end_ - data_); }
  const unsigned char* data() const { return first_; }
  /// Makes room for at least room more bytes without further growth.
  void reserve(std::size_t room) {
    if (first_ == last_) clear();
    if (static_cast<std::size_t>(end_ - last_) < room) makeRoom(room);
  }
  void compact();
  void clear() { first_ = last_ = data_; }
  void append(const void* bytes, std::size_t count);

 protected:
  /// Room for room more bytes. Throws io::Exception when the size would pass
  /// what a pointer difference holds.
  void makeRoom(std::size_t room);

  unsigned char* data_;
  unsigned char* first_;
  unsigned char* last_;
  unsigned char* end_;
};

/// The bytes of a message being built: putting appends to the block's span,
/// sending consumes from its front.
class BinaryOutputBuffer : public Block {
 public:
  explicit BinaryOutputBuffer(std::size_t capacity) : Block(capacity) {}

  /// Appends value's bytes as they lie in memory (the caller has ordered them).
  template <class T>
  void put(T value) {
    unsigned char* const at = last_;
    // When the block is full, the out-of-line byte run grows it and appends
    // the value: nothing but the value's address is kept across that call.
    if (__builtin_expect(static_cast<std::size_t>(end_ - at) < sizeof(T), 0)) return putBytes(&value, sizeof(T));
    reinterpret_cast<wire::Unaligned<T>*>(at)->value = value;
    last_ = at + sizeof(T);
  }
  void putBytes(const void* bytes, std::size_t count) { append(bytes, count); }
  /// A lengthBytes-byte (2 or 4) network-order length, then the bytes.
  void putString(const void* bytes, std::size_t count, std::size_t lengthBytes);

  /// Sends or writes everything, a call after another (restarted after a
  /// signal), until all is gone or the descriptor would block; the count.
  std::size_t send(sys::io::socket::descriptor fd);
  std::size_t write(sys::io::endpoint::handle fd);
  /// One send() / write(); the count, or -1 if the descriptor would block.
  int sendSome(sys::io::socket::descriptor fd);
  int writeSome(sys::io::endpoint::handle fd);

 private:
  void consume(std::size_t count) {
    first_ += count;
    if (first_ == last_) clear();
  }
  std::size_t chunk() const { return size() < wire::kMaxTransfer ? size() : wire::kMaxTransfer; }
};

/// The bytes of received messages: receiving appends to the block's span,
/// getting consumes from its front; nothing outside the span is ever read.
class BinaryInputBuffer : public Block {
 public:
  BinaryInputBuffer(std::size_t capacity, std::size_t limit) : Block(capacity), limit_(limit) {}

  std::size_t limit() const { return limit_; }
  void setLimit(std::size_t limit) { limit_ = limit; }

  /// The next sizeof(T) bytes as they lie (the caller orders them). Throws
  /// xio::EOFException, consuming nothing, when fewer remain.
  template <class T>
  T get() {
    if (__builtin_expect(size() < sizeof(T), 0)) underflow(sizeof(T), 0, kInteger);
    const T value = reinterpret_cast<const wire::Unaligned<T>*>(first_)->value;
    first_ += sizeof(T);
    return value;
  }
  void getBytes(void* into, std::size_t count);
  void getBytes(std::string& into, std::size_t count);
  /// A lengthBytes-byte (2 or 4) network-order length, then that many bytes.
  void getString(std::string& into, std::size_t lengthBytes);
  void skip(std::size_t count);

  /// At least room free bytes, then one recv() / read() into all the free
  /// tail (restarted after a signal): the count appended, 0 at the peer's
  /// end, -1 if the descriptor would block.
  int receive(sys::io::socket::descriptor fd, std::size_t room);
  int read(sys::io::endpoint::handle fd, std::size_t room);

 private:
  /// What a get that ran short was reading.
  enum What { kInteger, kBytes, kLength, kString };
  /// Throws xio::EOFException for a get of asked bytes (a string: asked
  /// length bytes and a string of body bytes) that finds fewer.
  [[noreturn]] void underflow(std::size_t asked, unsigned long long body, What what) const;
  std::size_t freeChunk() const {
    const std::size_t room = static_cast<std::size_t>(end_ - last_);
    return room < wire::kMaxTransfer ? room : wire::kMaxTransfer;
  }

  std::size_t limit_;
};

}  // namespace impl
}  // namespace io
}  // namespace sal
}  // namespace quorel

#endif
