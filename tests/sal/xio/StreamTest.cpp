// Buffered streams: exact-length reads, the sticky end of file, direct paths.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

#include "support/expect.h"
#include "support/fault.h"

namespace quorel {
namespace {

using namespace sal::xio;

// A pipe whose write end the test fills; reads come through a SourceStream.
struct Fed {
  Pipe pipe{open::Spec(), open::Spec()};
  void feed(const std::string& bytes) { Channel(pipe.forWrite()).write(bytes.data(), static_cast<int>(bytes.size())); }
  void end() { pipe.forWrite().close(); }
};

// Counts the library's calls of a function without failing any of them.
struct CallCounter {
  explicit CallCounter(const char* function) : injection(function, EIO, 1000000), name(function) {}
  int calls() const { return test::fault::calls(name); }
  test::fault::Injection injection;
  const char* name;
};

TEST(SourceStream, GetsExactLengthsAcrossBufferBoundaries) {
  Fed fed;
  fed.feed("0123456789");
  fed.end();
  SourceStream in(Channel(fed.pipe.forRead()), 4);
  char buffer[8] = {};
  in.get(buffer, 3).get(buffer + 3, 3).get(buffer + 6, 2);
  EXPECT_EQ(std::string(buffer, 8), "01234567");
  std::memset(buffer, 0, sizeof buffer);
  auto e = QUOREL_EXPECT_THROW(in.get(buffer, 5), EOFException, "End-of-file reached", 0, 0);
  EXPECT_EQ(std::string(buffer, 2), "89");  // what there was stays delivered
}

TEST(SourceStream, EndOfFileIsSticky) {
  Fed fed;
  fed.feed("ab");
  SourceStream in(Channel(fed.pipe.forRead()), 4);
  char buffer[4];
  fed.end();
  EXPECT_EQ(in.read(buffer, 4), 2);
  CallCounter reads("read");
  EXPECT_THROW(in.get(buffer, 1), EOFException);
  EXPECT_EQ(in.read(buffer, 4), 0);
  EXPECT_EQ(reads.calls(), 0);  // no further read after the end
}

TEST(SourceStream, LargeRequestsReadStraightIntoTheCallersMemory) {
  Fed fed;
  fed.feed("0123456789");
  fed.end();
  SourceStream in(Channel(fed.pipe.forRead()), 4);
  char buffer[10];
  CallCounter reads("read");
  in.get(buffer, 10);
  EXPECT_EQ(std::string(buffer, 10), "0123456789");
  EXPECT_EQ(reads.calls(), 1);
}

TEST(SinkStream, BuffersUpToTheFreeSpaceAndFlushesBeforeMore) {
  Fed fed;
  SinkStream out(Channel(fed.pipe.forWrite()), 4);
  CallCounter writes("write");
  out.put("ab", 2).put("cd", 2);  // exactly the free space: buffered
  EXPECT_EQ(writes.calls(), 0);
  out.put("e", 1);  // one byte more: the buffer goes first
  EXPECT_EQ(writes.calls(), 1);
  out.flush();
  EXPECT_EQ(writes.calls(), 2);
  char buffer[8] = {};
  EXPECT_EQ(Channel(fed.pipe.forRead()).read(buffer, 8), 5);
  EXPECT_STREQ(buffer, "abcde");
}

TEST(SinkStream, WholeBuffersAreWrittenDirectly) {
  Fed fed;
  SinkStream out(Channel(fed.pipe.forWrite()), 4);
  CallCounter writes("write");
  out.put("v", 1);
  out.put("wxyz", 4);  // does not fit: the buffer goes first, then the whole buffer's worth directly
  EXPECT_EQ(writes.calls(), 2);
  out.flush();
  EXPECT_EQ(writes.calls(), 2);  // nothing was left pending
  out.put("0123456789", 10);     // direct while 4 or more are left, the rest buffered
  out.flush();
  char buffer[16] = {};
  EXPECT_EQ(Channel(fed.pipe.forRead()).read(buffer, 16), 15);
  EXPECT_STREQ(buffer, "vwxyz0123456789");
}

TEST(SinkStream, AFlushRetriedAfterAFailureSendsExactlyTheUnwrittenBytes) {
  Fed fed;
  const int writeEnd = static_cast<int>(fed.pipe.forWrite().id());
  ASSERT_EQ(::fcntl(writeEnd, F_SETPIPE_SZ, 4096), 4096);
  ASSERT_EQ(::fcntl(writeEnd, F_SETFL, O_NONBLOCK), 0);
  std::string data(10000, '\0');
  for (size_t n = 0; n < data.size(); ++n) data[n] = static_cast<char>(n * 7 + n / 251);
  SinkStream out(Channel(fed.pipe.forWrite()), 10000);
  out.put(data.data(), 10000);
  std::string received;
  char chunk[4096];
  const int readEnd = static_cast<int>(fed.pipe.forRead().id());
  ASSERT_EQ(::fcntl(readEnd, F_SETFL, O_NONBLOCK), 0);
  const auto drain = [&] {
    for (ssize_t n; (n = ::read(readEnd, chunk, sizeof chunk)) > 0;) received.append(chunk, static_cast<size_t>(n));
  };
  // 4096 bytes fit, then the pipe is full.
  QUOREL_EXPECT_THROW(out.flush(), WriteException, "::write() failed", 2, EAGAIN);
  drain();
  {
    // The next 4096 go, then a signal interrupts the write after them.
    test::fault::Injection interrupted("write", EINTR, 2);
    QUOREL_EXPECT_THROW(out.flush(), WriteException, "::write() failed", 2, EINTR);
  }
  drain();
  out.flush();
  drain();
  ASSERT_EQ(received.size(), data.size());
  EXPECT_TRUE(received == data);
}

}  // namespace
}  // namespace quorel
