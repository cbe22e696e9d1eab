// SinkStream: buffered writes with a direct path for large ones.
#include <cstring>

#include <quorel/sal/xio/Stream.h>

namespace quorel {
namespace sal {
namespace xio {

namespace impl {

SinkStream::SinkStream(const Channel& channel, int size)
    : channel_(channel), buffer_(static_cast<size_t>(size > 0 ? size : 1), 0), pending_(0) {}

void SinkStream::put(const void* buffer, int count) {
  const char* in = static_cast<const char*>(buffer);
  const int size = static_cast<int>(buffer_.size());
  if (size - pending_ >= count) {
    std::memcpy(buffer_.data() + pending_, in, static_cast<size_t>(count));
    pending_ += count;
    return;
  }
  flush();
  int left = count;
  while (left >= size) {
    left -= channel_.write(in + (count - left), left);
  }
  std::memcpy(buffer_.data(), in + (count - left), static_cast<size_t>(left));
  pending_ = left;
}

void SinkStream::flush() {
  int written = 0;
  try {
    while (pending_ > 0) {
      const int n = channel_.write(buffer_.data() + written, pending_);
      pending_ -= n;
      written += n;
    }
  } catch (...) {
    // A write failed after others took part of the buffer: the unwritten
    // tail moves to the front, where the next flush starts.
    std::memmove(buffer_.data(), buffer_.data() + written, static_cast<size_t>(pending_));
    throw;
  }
}

}  // namespace impl

SinkStream::SinkStream(const Channel& channel, int bufferSize) : handle_(new impl::SinkStream(channel, bufferSize)) {}

SinkStream& SinkStream::put(const void* buffer, int count) {
  handle_->put(buffer, count);
  return *this;
}

SinkStream& SinkStream::flush() {
  handle_->flush();
  return *this;
}

}  // namespace xio
}  // namespace sal
}  // namespace quorel
