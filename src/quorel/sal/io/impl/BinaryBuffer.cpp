// The binary buffers' growth, byte runs, strings and transfers.
#include <quorel/sal/io/impl/BinaryBuffer.h>

#include <cerrno>
#include <climits>
#include <limits>

#include <quorel/sal/io/Exception.h>
#include <quorel/sal/xio/Exception.h>
#include <quorel/sal/xio/err.h>
#include <quorel/util/Exception.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace io {
namespace impl {

namespace {

using sal::i::err::domain::kApplication;
using sal::i::err::domain::kSystemCall;

// The largest block: what a pointer difference can hold.
const std::size_t kMaxSize = static_cast<std::size_t>(std::numeric_limits<std::ptrdiff_t>::max());
// The first block of a buffer made with no capacity.
const std::size_t kFirstCapacity = 256;

// "1 byte", "3 bytes".
std::string inBytes(unsigned long long count) {
  return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

// Moves the used span [first, last) of the block [data, end) so that room
// bytes follow it: to the start of the block when that frees at least as
// many bytes as it moves (so each byte is moved at most once per byte put or
// received, and the block stays within about four times the most it held),
// or else to a new block twice as large or as large as needed.
void relocate(unsigned char*& data, unsigned char*& first, unsigned char*& last, unsigned char*& end,
              std::size_t room) {
  const std::size_t used = static_cast<std::size_t>(last - first);
  const std::size_t capacity = static_cast<std::size_t>(end - data);
  const std::size_t need = used + room;
  if (need <= capacity && static_cast<std::size_t>(first - data) >= used) {
    if (used != 0) std::memmove(data, first, used);
    first = data;
    last = data + used;
    return;
  }
  std::size_t grown = capacity <= kMaxSize / 2 ? capacity * 2 : kMaxSize;
  if (grown < need) grown = need;
  if (grown < kFirstCapacity) grown = kFirstCapacity;
  unsigned char* block = new unsigned char[grown];
  if (used != 0) std::memcpy(block, first, used);
  delete[] data;
  data = block;
  first = block;
  last = block + used;
  end = block + grown;
}

// The length prefix of a string, most significant byte first.
void storeLength(unsigned char* at, std::size_t length, std::size_t lengthBytes) {
  for (std::size_t i = lengthBytes; i-- > 0; length >>= 8) at[i] = static_cast<unsigned char>(length);
}
unsigned long long loadLength(const unsigned char* at, std::size_t lengthBytes) {
  unsigned long long length = 0;
  for (std::size_t i = 0; i < lengthBytes; ++i) length = length << 8 | at[i];
  return length;
}

}  // namespace

Block::Block(std::size_t capacity)
    : data_(capacity != 0 ? new unsigned char[capacity] : nullptr), first_(data_), last_(data_), end_(data_ + capacity) {}

Block::~Block() { delete[] data_; }

void Block::makeRoom(std::size_t room) {
  if (room > kMaxSize - size()) {
    QUOREL_THROW(io::Exception)("a buffer of " + inBytes(size()) + " cannot grow by " + inBytes(room), kApplication, 0);
  }
  relocate(data_, first_, last_, end_, room);
}

void Block::compact() {
  const std::size_t used = size();
  if (first_ != data_ && used != 0) std::memmove(data_, first_, used);
  first_ = data_;
  last_ = data_ + used;
}

void Block::append(const void* bytes, std::size_t count) {
  if (count == 0) return;
  reserve(count);
  std::memcpy(last_, bytes, count);
  last_ += count;
}

void BinaryOutputBuffer::putString(const void* bytes, std::size_t count, std::size_t lengthBytes) {
  const unsigned long long largest = (1ULL << (8 * lengthBytes)) - 1;
  if (count > largest) {
    QUOREL_THROW(InvalidArgumentException)("a string of " + inBytes(count) + " does not fit a " +
                                               std::to_string(lengthBytes) + "-byte length",
                                           kApplication, 0);
  }
  reserve(count <= kMaxSize - lengthBytes ? count + lengthBytes : std::numeric_limits<std::size_t>::max());
  storeLength(last_, count, lengthBytes);
  if (count != 0) std::memcpy(last_ + lengthBytes, bytes, count);
  last_ += lengthBytes + count;
}

namespace {

// Calls some (a sendSome or a writeSome) until the buffer is empty or the
// descriptor would block; the bytes moved.
template <class Some>
std::size_t untilEmpty(const Block& buffer, Some some) {
  std::size_t moved = 0;
  while (buffer.size() != 0) {
    const int count = some();
    if (count < 0) break;
    moved += static_cast<std::size_t>(count);
  }
  return moved;
}

}  // namespace

std::size_t BinaryOutputBuffer::send(sys::io::socket::descriptor fd) {
  return untilEmpty(*this, [this, fd] { return sendSome(fd); });
}

int BinaryOutputBuffer::sendSome(sys::io::socket::descriptor fd) {
  if (first_ == last_) return 0;
  for (;;) {
    // MSG_NOSIGNAL: a peer that has gone is an exception, not SIGPIPE.
    const sys::io::socket::size count = sys::io::socket::sendSome(fd, first_, chunk(), MSG_NOSIGNAL);
    if (count >= 0) {
      consume(static_cast<std::size_t>(count));
      return static_cast<int>(count);
    }
    const int error = errno;
    if (error == EINTR) continue;
    if (sys::io::socket::wouldBlock(error)) return -1;
    xio::err::raise(QUOREL_EXCEPTION(xio::SocketException), "::send() failed", error);
  }
}

std::size_t BinaryOutputBuffer::write(sys::io::endpoint::handle fd) {
  return untilEmpty(*this, [this, fd] { return writeSome(fd); });
}

int BinaryOutputBuffer::writeSome(sys::io::endpoint::handle fd) {
  if (first_ == last_) return 0;
  for (;;) {
    const ssize_t count = sys::io::endpoint::writeSome(fd, first_, chunk());
    if (count >= 0) {
      consume(static_cast<std::size_t>(count));
      return static_cast<int>(count);
    }
    const int error = errno;
    if (error == EINTR) continue;
    if (error == EAGAIN || error == EWOULDBLOCK) return -1;
    QUOREL_THROW(xio::WriteException)("::write() failed", kSystemCall, error);
  }
}

void BinaryInputBuffer::underflow(std::size_t asked, unsigned long long body, What what) const {
  const unsigned long long total = asked + body;
  std::string why;
  switch (what) {
    case kInteger: why = "a " + std::to_string(asked) + "-byte integer was asked for"; break;
    case kBytes: why = inBytes(asked) + (asked == 1 ? " was asked for" : " were asked for"); break;
    case kLength: why = "a " + std::to_string(asked) + "-byte string length was asked for"; break;
    case kString:
      why = "a " + std::to_string(asked) + "-byte length and a string of " + inBytes(body) + " were asked for";
      break;
  }
  why += " and " + inBytes(size()) + (size() == 1 ? " remains" : " remain");
  QUOREL_THROW(xio::EOFException)(why, kApplication, total < INT_MAX ? static_cast<int>(total) : INT_MAX);
}

void BinaryInputBuffer::getBytes(void* into, std::size_t count) {
  if (size() < count) underflow(count, 0, kBytes);
  if (count != 0) std::memcpy(into, first_, count);
  first_ += count;
}

void BinaryInputBuffer::getBytes(std::string& into, std::size_t count) {
  if (size() < count) underflow(count, 0, kBytes);
  into.assign(reinterpret_cast<const char*>(first_), count);
  first_ += count;
}

void BinaryInputBuffer::skip(std::size_t count) {
  if (size() < count) underflow(count, 0, kBytes);
  first_ += count;
}

void BinaryInputBuffer::getString(std::string& into, std::size_t lengthBytes) {
  if (size() < lengthBytes) underflow(lengthBytes, 0, kLength);
  // The announced length is judged before anything is allocated or consumed.
  const unsigned long long length = loadLength(first_, lengthBytes);
  if (length > limit_) {
    QUOREL_THROW(xio::ReadException)("a string of " + inBytes(length) + " was announced and the limit is " +
                                         inBytes(limit_),
                                     kApplication, 0);
  }
  if (size() - lengthBytes < length) underflow(lengthBytes, length, kString);
  into.assign(reinterpret_cast<const char*>(first_ + lengthBytes), static_cast<std::size_t>(length));
  first_ += lengthBytes + static_cast<std::size_t>(length);
}

int BinaryInputBuffer::receive(sys::io::socket::descriptor fd, std::size_t room) {
  reserve(room != 0 ? room : 1);
  for (;;) {
    const sys::io::socket::size count = sys::io::socket::receiveSome(fd, last_, freeChunk(), 0);
    if (count >= 0) {
      last_ += count;
      return static_cast<int>(count);
    }
    const int error = errno;
    if (error == EINTR) continue;
    if (sys::io::socket::wouldBlock(error)) return -1;
    xio::err::raise(QUOREL_EXCEPTION(xio::SocketException), "::recv() failed", error);
  }
}

int BinaryInputBuffer::read(sys::io::endpoint::handle fd, std::size_t room) {
  reserve(room != 0 ? room : 1);
  for (;;) {
    const ssize_t count = sys::io::endpoint::readSome(fd, last_, freeChunk());
    if (count >= 0) {
      last_ += count;
      return static_cast<int>(count);
    }
    const int error = errno;
    if (error == EINTR) continue;
    if (error == EAGAIN || error == EWOULDBLOCK) return -1;
    QUOREL_THROW(xio::ReadException)("::read() failed", kSystemCall, error);
  }
}

}  // namespace impl
}  // namespace io
}  // namespace sal
}  // namespace quorel
