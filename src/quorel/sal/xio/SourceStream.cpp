// SourceStream: exact-length reads with a sticky end of file.
#include <cstring>

#include <quorel/sal/xio/Exception.h>
#include <quorel/sal/xio/Stream.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace xio {

namespace impl {

SourceStream::SourceStream(const Channel& channel, int size)
    : channel_(channel), buffer_(static_cast<size_t>(size > 0 ? size : 1), 0), fill_(0), position_(0), endOfFile_(false) {}

int SourceStream::get(void* buffer, int count) {
  char* out = static_cast<char*>(buffer);
  const int unread = fill_ - position_;
  if (unread >= count) {
    std::memcpy(out, buffer_.data() + position_, static_cast<size_t>(count));
    position_ += count;
    return count;
  }
  std::memcpy(out, buffer_.data() + position_, static_cast<size_t>(unread));
  int done = unread;
  fill_ = position_ = 0;
  if (endOfFile_) return done;
  const int size = static_cast<int>(buffer_.size());
  // Large requests go straight into the caller's memory.
  while (count - done > size) {
    const int n = channel_.read(out + done, count - done);
    if (n == 0) {
      endOfFile_ = true;
      return done;
    }
    done += n;
  }
  while (done < count) {
    const int n = channel_.read(buffer_.data(), size);
    fill_ = n;
    if (n == 0) {
      endOfFile_ = true;
      return done;
    }
    const int wanted = count - done;
    if (n >= wanted) {
      std::memcpy(out + done, buffer_.data(), static_cast<size_t>(wanted));
      position_ = wanted;
      return count;
    }
    std::memcpy(out + done, buffer_.data(), static_cast<size_t>(n));
    done += n;
    fill_ = position_ = 0;
  }
  return done;
}

}  // namespace impl

SourceStream::SourceStream(const Channel& channel, int bufferSize)
    : handle_(new impl::SourceStream(channel, bufferSize)) {}

SourceStream& SourceStream::get(void* buffer, int count) {
  if (handle_->get(buffer, count) != count) {
    QUOREL_THROW(EOFException)("End-of-file reached", sal::i::err::domain::kApplication, 0);
  }
  return *this;
}

int SourceStream::read(void* buffer, int count) { return handle_->get(buffer, count); }

}  // namespace xio
}  // namespace sal
}  // namespace quorel
