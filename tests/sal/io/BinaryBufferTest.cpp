// Binary buffers: layout, short reads, the string limit, growth, and transfers
// over loopback TCP and pipes.
#include <signal.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

#include "support/expect.h"
#include "support/fault.h"
#include "support/loopback.h"
#include "support/process.h"

namespace quorel {
namespace {

using namespace sal::io;
using sal::xio::Endpoint;
using sal::xio::Pipe;

template <class E>
void expectWhere(const std::optional<E>& e, const char* where) {
  if (e) {
    EXPECT_STREQ(e->where(), where);
  }
}

std::vector<unsigned char> bytesOf(const BinaryOutputBuffer& out) {
  return std::vector<unsigned char>(out.data(), out.data() + out.size());
}

// An input buffer holding what out holds.
BinaryInputBuffer copyOf(const BinaryOutputBuffer& out) {
  BinaryInputBuffer in;
  in.append(out.data(), out.size());
  return in;
}

TEST(BinaryBuffer, EveryWidthRoundTripsInNetworkAndHostOrder) {
  BinaryOutputBuffer out;
  BinaryOutputBuffer shared = out;  // copies share the buffer
  out.put<pod::uint8>(0x01);
  out.put<std::int8_t>(-2);
  out.put<pod::uint16>(0x0203);
  out.put<std::int16_t>(-3);
  shared.put<pod::uint32>(0x04050607u);
  out.put<pod::int32>(-4, i::order::Network());
  out.put<pod::uint64>(0x08090a0b0c0d0e0full);
  out.put<pod::int64>(std::numeric_limits<pod::int64>::min());
  out.put<pod::uint16>(0x1011, i::order::Host());
  out.put<pod::uint32>(0x12131415u, i::order::Host());
  out.put<pod::uint64>(0x161718191a1b1c1dull, i::order::Host());
  out.putBytes("ab", 2);
  out.putBytes(std::string("c"));
  out.putString("hello");
  out.putString<pod::uint16>("");
  const std::vector<unsigned char> expected = {
      0x01, 0xfe, 0x02, 0x03, 0xff, 0xfd, 0x04, 0x05, 0x06, 0x07, 0xff, 0xff, 0xff, 0xfc,
      0x08, 0x09, 0x0a, 0x0b, 0x0c, 0x0d, 0x0e, 0x0f, 0x80, 0, 0, 0, 0, 0, 0, 0,
      0x11, 0x10, 0x15, 0x14, 0x13, 0x12, 0x1d, 0x1c, 0x1b, 0x1a, 0x19, 0x18, 0x17, 0x16,
      'a', 'b', 'c', 0, 0, 0, 5, 'h', 'e', 'l', 'l', 'o', 0, 0};
  EXPECT_EQ(bytesOf(shared), expected);

  BinaryInputBuffer in = copyOf(out);
  EXPECT_EQ(in.get<pod::uint8>(), 0x01);
  EXPECT_EQ(in.get<std::int8_t>(), -2);
  EXPECT_EQ(in.get<pod::uint16>(), 0x0203);
  EXPECT_EQ(in.get<std::int16_t>(), -3);
  EXPECT_EQ(in.get<pod::uint32>(), 0x04050607u);
  EXPECT_EQ(in.get<pod::int32>(i::order::Network()), -4);
  EXPECT_EQ(in.get<pod::uint64>(), 0x08090a0b0c0d0e0full);
  EXPECT_EQ(in.get<pod::int64>(), std::numeric_limits<pod::int64>::min());
  EXPECT_EQ(in.get<pod::uint16>(i::order::Host()), 0x1011);
  EXPECT_EQ(in.get<pod::uint32>(i::order::Host()), 0x12131415u);
  EXPECT_EQ(in.get<pod::uint64>(i::order::Host()), 0x161718191a1b1c1dull);
  char two[2];
  in.getBytes(two, 2);
  std::string text;
  in.getBytes(text, 1);
  EXPECT_EQ(std::string(two, 2) + text, "abc");
  EXPECT_EQ(in.getString(), "hello");
  EXPECT_EQ(in.getString<pod::uint16>(), "");
  EXPECT_TRUE(in.empty());
}

TEST(BinaryBuffer, ShortReadsThrowEOFAndConsumeNothing) {
  BinaryInputBuffer in;
  in.append(std::string("\x00\x00\x00\x0a\x01\x02\x03", 7));
  in.get<pod::uint32>();
  QUOREL_EXPECT_THROW(in.get<pod::uint32>(), sal::xio::EOFException,
                      "a 4-byte integer was asked for and 3 bytes remain", 0, 4);
  char buffer[8];
  QUOREL_EXPECT_THROW(in.getBytes(buffer, 5), sal::xio::EOFException, "5 bytes were asked for and 3 bytes remain", 0,
                      5);
  QUOREL_EXPECT_THROW(in.skip(4), sal::xio::EOFException, "4 bytes were asked for and 3 bytes remain", 0, 4);
  QUOREL_EXPECT_THROW(in.getString(), sal::xio::EOFException,
                      "a 4-byte string length was asked for and 3 bytes remain", 0, 4);
  EXPECT_EQ(in.size(), 3u);
  in.skip(2);
  QUOREL_EXPECT_THROW(in.getBytes(buffer, 2), sal::xio::EOFException, "2 bytes were asked for and 1 byte remains", 0,
                      2);
  in.skip(1);
  QUOREL_EXPECT_THROW(in.get<pod::uint8>(), sal::xio::EOFException, "a 1-byte integer was asked for and 0 bytes remain",
                      0, 1);

  // A string's length arrived, its bytes not all: the length stays unread.
  in.append(std::string("\x00\x00\x00\x0a", 4) + "abcdef");
  auto e = QUOREL_EXPECT_THROW(in.getString(), sal::xio::EOFException,
                               "a 4-byte length and a string of 10 bytes were asked for and 10 bytes remain", 0, 14);
  expectWhere(e, "void quorel::sal::io::impl::BinaryInputBuffer::underflow(std::size_t, long long unsigned int, "
                 "What) const");
  in.append("ghij");
  EXPECT_EQ(in.getString(), "abcdefghij");

  // Bytes consumed before are never read again: the buffer holds 2 new ones.
  in.append("\x01\x02", 2);
  QUOREL_EXPECT_THROW(in.get<pod::uint32>(), sal::xio::EOFException,
                      "a 4-byte integer was asked for and 2 bytes remain", 0, 4);
}

TEST(BinaryBuffer, StringLimitsRefuseBeforeAllocatingAndLengthsNeverWrap) {
  BinaryInputBuffer in(0, 16);
  in.append(std::string("\xff\xff\xff\xff", 4) + "abc");
  std::string into = "kept";
  const std::size_t capacity = into.capacity();
  QUOREL_EXPECT_THROW(in.getString(into), sal::xio::ReadException,
                      "a string of 4294967295 bytes was announced and the limit is 16 bytes", 0, 0);
  EXPECT_EQ(into, "kept");
  EXPECT_EQ(into.capacity(), capacity);
  EXPECT_EQ(in.size(), 7u);
  in.clear();
  in.setLimit(3);
  in.append(std::string("\x00\x04wxyz", 6));
  QUOREL_EXPECT_THROW(in.getString<pod::uint16>(), sal::xio::ReadException,
                      "a string of 4 bytes was announced and the limit is 3 bytes", 0, 0);
  in.setLimit(4);
  EXPECT_EQ(in.getString<pod::uint16>(), "wxyz");
  EXPECT_EQ(in.limit(), 4u);

  BinaryOutputBuffer out;
  out.put<pod::uint8>(7);
  QUOREL_EXPECT_THROW(out.putString<pod::uint16>(std::string(65536, 'x')), InvalidArgumentException,
                      "a string of 65536 bytes does not fit a 2-byte length", 0, 0);
  const std::string huge = std::to_string(std::numeric_limits<std::size_t>::max());
  QUOREL_EXPECT_THROW(out.reserve(std::numeric_limits<std::size_t>::max()), sal::io::Exception,
                      "a buffer of 1 byte cannot grow by " + huge + " bytes", 0, 0);
  QUOREL_EXPECT_THROW(in.reserve(std::numeric_limits<std::size_t>::max()), sal::io::Exception,
                      "a buffer of 0 bytes cannot grow by " + huge + " bytes", 0, 0);
  EXPECT_EQ(out.size(), 1u);
  out.putString<pod::uint16>(std::string(65535, 'x'));
  EXPECT_EQ(out.size(), 1u + 2u + 65535u);
}

TEST(BinaryBuffer, GrowsAcrossItsCapacityAndCompactionKeepsTheUnreadBytes) {
  BinaryOutputBuffer out(8);
  for (pod::uint32 n = 0; n < 1000; ++n) out.put<pod::uint32>(n * 7919u);
  EXPECT_GE(out.capacity(), 4000u);
  BinaryInputBuffer in(16);
  in.append(out.data(), out.size());
  for (pod::uint32 n = 0; n < 1000; ++n) ASSERT_EQ(in.get<pod::uint32>(), n * 7919u);

  in.append("0123456789", 10);
  in.skip(6);
  const std::size_t capacity = in.capacity();
  in.compact();
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(in.data()), in.size()), "6789");
  EXPECT_EQ(in.capacity(), capacity);

  // A reader that always leaves a few bytes unread: the block stays small.
  BinaryInputBuffer stream;
  for (int round = 0; round < 1000; ++round) {
    const std::string chunk(300, static_cast<char>('a' + round % 26));
    stream.append(chunk);
    stream.skip(stream.size() - 10);
    ASSERT_EQ(std::string(reinterpret_cast<const char*>(stream.data()), 10), chunk.substr(0, 10));
  }
  EXPECT_LE(stream.capacity(), 4u * 310u);
}

TEST(BinaryBuffer, SendsAndReceivesOverLoopbackTCPPipesAndTCPEndpoints) {
  test::Connection c;
  BinaryOutputBuffer out;
  out.put<pod::uint16>(0xbeef);
  out.putString("over tcp");
  const std::size_t message = out.size();
  EXPECT_EQ(out.send(c.client), message);
  EXPECT_TRUE(out.empty());
  EXPECT_EQ(out.sendSome(c.client), 0);
  BinaryInputBuffer in;
  while (in.size() < message) ASSERT_GT(in.receive(c.accepted), 0);
  EXPECT_EQ(in.get<pod::uint16>(), 0xbeef);
  EXPECT_EQ(in.getString(), "over tcp");

  // Non-blocking: nothing to read is -1; sends stop when the socket is full.
  c.accepted.beNonblocking();
  EXPECT_EQ(in.receive(c.accepted), -1);
  c.client.beNonblocking();
  const std::size_t kBulk = std::size_t(32) << 20;  // more than both socket buffers hold
  out.putBytes(std::string(kBulk, 'q'));
  std::size_t sent = out.send(c.client);
  EXPECT_GT(out.size(), 0u);
  EXPECT_EQ(out.sendSome(c.client), -1);
  c.client.beBlocking();
  c.accepted.beBlocking();
  std::size_t received = 0;
  std::thread reader([&] {
    BinaryInputBuffer sink;
    for (int count; (count = sink.receive(c.accepted, 1 << 16)) > 0; sink.clear()) received += count;
  });
  sent += out.send(c.client);
  c.client.shutdownWrite();
  reader.join();
  EXPECT_EQ(sent, kBulk);
  EXPECT_EQ(received, kBulk);

  // A pipe; its reader sees the end once the writer is closed.
  Pipe pipe{sal::xio::open::Spec(), sal::xio::open::Spec()};
  out.put<pod::uint32>(42);
  EXPECT_EQ(out.sendSome(pipe.forWrite()), 4);
  EXPECT_EQ(in.receive(pipe.forRead(), 1), 4);
  EXPECT_EQ(in.get<pod::uint32>(), 42u);
  pipe.forWrite().close();
  EXPECT_EQ(in.receive(pipe.forRead()), 0);

  // An endpoint over a TCP connection is a socket; memory has no descriptor.
  const Endpoint tcp = Endpoint::open(test::loopbackBinding(AF_INET),
                                      TCPConnectingAddress("127.0.0.1", c.server.selfAddress().port()));
  ATCPIOSocket peer = c.server.accept(5000);
  out.putString("endpoint");
  EXPECT_EQ(out.send(tcp), 12u);
  while (in.size() < 12) ASSERT_GT(in.receive(peer), 0);
  EXPECT_EQ(in.getString(), "endpoint");
  out.putString("back");
  out.send(peer);
  while (in.size() < 8) ASSERT_GT(in.receive(tcp), 0);
  EXPECT_EQ(in.getString(), "back");
  char memory[4];
  const Endpoint inMemory = Endpoint::open("scratch", memory, sizeof memory);
  QUOREL_EXPECT_THROW(in.receive(inMemory), InvalidArgumentException,
                      "the endpoint 'scratch' is closed or has no descriptor", 0, 0);
}

// Ignores SIGPIPE for its lifetime.
class NoSigpipe {
 public:
  NoSigpipe() {
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    ::sigaction(SIGPIPE, &ignore, &saved_);
  }
  ~NoSigpipe() { ::sigaction(SIGPIPE, &saved_, nullptr); }

 private:
  struct sigaction saved_;
};

TEST(BinaryBuffer, APeerClosingMidMessageIsAnEndForTheReaderAndAResetForTheSender) {
  test::Connection c;
  BinaryOutputBuffer out;
  out.put<pod::uint32>(12);
  out.putBytes("half", 4);
  out.send(c.client);
  c.client.close();
  BinaryInputBuffer in;
  int count;
  while ((count = in.receive(c.accepted)) > 0) {
  }
  EXPECT_EQ(count, 0);
  EXPECT_EQ(in.get<pod::uint32>(), 12u);
  EXPECT_EQ(in.size(), 4u);

  // SIGPIPE keeps its default action here: were it raised, the test would die.
  // The sends go through an endpoint sharing the socket, which is a socket too.
  const Endpoint shared = Endpoint::open(c.accepted);
  bool reset = false;
  for (int i = 0; i < 200 && !reset; ++i) {
    if (i > 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));  // the peer's reset arrives
    out.putBytes(std::string(4096, 'x'));
    try {
      out.send(shared);
    } catch (const sal::xio::ConnectionResetException& e) {
      reset = true;
      EXPECT_EQ(e.why(), "::send() failed");
      EXPECT_TRUE(e.code() == EPIPE || e.code() == ECONNRESET) << e.asString();
    }
  }
  EXPECT_TRUE(reset);

  NoSigpipe ignored;
  Pipe pipe{sal::xio::open::Spec(), sal::xio::open::Spec()};
  pipe.forRead().close();
  QUOREL_EXPECT_THROW(out.send(pipe.forWrite()), sal::xio::WriteException, "::write() failed", 2, EPIPE);
}

TEST(BinaryBuffer, FailingCallsThrowTheirClassesOrReturnMinusOneForWouldBlock) {
  const int descriptors = test::openDescriptorCount();
  {
    test::Connection c;
    Pipe pipe{sal::xio::open::Spec(), sal::xio::open::Spec()};
    BinaryOutputBuffer out;
    out.put<pod::uint32>(1);
    BinaryInputBuffer in;
    auto e = QUOREL_EXPECT_FAULT("send", ECONNRESET, out.send(c.client), sal::xio::ConnectionResetException,
                                 "::send() failed", 2, ECONNRESET);
    expectWhere(e, "int quorel::sal::io::impl::BinaryOutputBuffer::sendSome(quorel::sal::sys::io::socket::descriptor)");
    QUOREL_EXPECT_FAULT("send", ENOBUFS, out.sendSome(c.client), sal::xio::SocketException, "::send() failed", 2,
                        ENOBUFS);
    QUOREL_EXPECT_FAULT("recv", ECONNRESET, in.receive(c.accepted), sal::xio::ConnectionResetException,
                        "::recv() failed", 2, ECONNRESET);
    QUOREL_EXPECT_FAULT("write", EIO, out.send(pipe.forWrite()), sal::xio::WriteException, "::write() failed", 2, EIO);
    QUOREL_EXPECT_FAULT("read", EIO, in.receive(pipe.forRead()), sal::xio::ReadException, "::read() failed", 2, EIO);
    EXPECT_EQ(out.size(), 4u);
    {
      test::fault::Injection full("send", EAGAIN);
      EXPECT_EQ(out.send(c.client), 0u);
    }
    {
      test::fault::Injection full("write", EAGAIN);
      EXPECT_EQ(out.sendSome(pipe.forWrite()), -1);
    }
    {
      test::fault::Injection empty("recv", EAGAIN);
      EXPECT_EQ(in.receive(c.accepted), -1);
    }
    {
      test::fault::Injection empty("read", EAGAIN);
      EXPECT_EQ(in.receive(pipe.forRead()), -1);
    }
    // An interrupted call is made again.
    {
      test::fault::Injection interrupted("send", EINTR);
      EXPECT_EQ(out.send(c.client), 4u);
    }
    {
      test::fault::Injection interrupted("recv", EINTR);
      EXPECT_EQ(in.receive(c.accepted), 4);
    }
    out.put<pod::uint32>(2);
    {
      test::fault::Injection interrupted("write", EINTR);
      EXPECT_EQ(out.send(pipe.forWrite()), 4u);
    }
    {
      test::fault::Injection interrupted("read", EINTR);
      EXPECT_EQ(in.receive(pipe.forRead()), 4);
    }
    EXPECT_EQ(in.get<pod::uint32>(), 1u);
    EXPECT_EQ(in.get<pod::uint32>(), 2u);
  }
  EXPECT_EQ(test::openDescriptorCount(), descriptors);
}

}  // namespace
}  // namespace quorel
