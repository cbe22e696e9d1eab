/// \file
/// SourceStream and SinkStream: buffered exact-length reads and buffered writes.
#ifndef QUOREL_SAL_XIO_STREAM_H
#define QUOREL_SAL_XIO_STREAM_H

#include <vector>

#include <quorel/sal/xio/Endpoint.h>
#include <quorel/util/AHandleTo.h>

namespace quorel {
namespace sal {
namespace xio {

namespace impl {

/// The buffer behind xio::SourceStream.
class SourceStream {
 public:
  SourceStream(const Channel& channel, int size);
  /// Delivers up to count bytes, fewer only at the end of the data.
  int get(void* buffer, int count);

 private:
  Channel channel_;
  std::vector<char> buffer_;
  int fill_;
  int position_;
  bool endOfFile_;
};

/// The buffer behind xio::SinkStream.
class SinkStream {
 public:
  SinkStream(const Channel& channel, int size);
  void put(const void* buffer, int count);
  void flush();

 private:
  Channel channel_;
  std::vector<char> buffer_;
  int pending_;
};

}  // namespace impl

/// Reads exact lengths through a buffer of fixed size; requests larger than
/// the buffer read straight into the caller's memory. Copies share the
/// buffer. One thread at a time.
class SourceStream {
 public:
  SourceStream(const Channel& channel, int bufferSize);

  /// Exactly count bytes, or EOFException "End-of-file reached" after
  /// delivering what there was. The end of file is sticky: later gets throw at
  /// once without reading again.
  SourceStream& get(void* buffer, int count);
  /// Up to count bytes; fewer (0 after the end) only at the end of the data.
  int read(void* buffer, int count);

 private:
  util::AHandleTo<impl::SourceStream> handle_;
};

/// Collects writes in a buffer of fixed size; what does not fit flushes the
/// buffer first, and whole buffers' worth is written straight from the
/// caller's memory. The last handle discards unflushed bytes: flush() first.
class SinkStream {
 public:
  SinkStream(const Channel& channel, int bufferSize);

  SinkStream& put(const void* buffer, int count);
  SinkStream& flush();

 private:
  util::AHandleTo<impl::SinkStream> handle_;
};

}  // namespace xio
}  // namespace sal
}  // namespace quorel

#endif
