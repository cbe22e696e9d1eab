// Binary buffers: layout, short reads, the string limit, growth, and transfers
// over loopback TCP and pipes.
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <limits>
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

// What call returns while the next call of function fails with error.
template <class F>
auto failing(const char* function, int error, F call) {
  test::fault::Injection injected(function, error);
  return call();
}

TEST(BinaryBuffer, EveryWidthRoundTripsInNetworkAndHostOrder) {
  BinaryOutputBuffer out;
  BinaryOutputBuffer shared = out;  // copies share the buffer
  out.put<pod::uint8>(0x01);
  out.put<std::int16_t>(-3);
  shared.put<pod::uint32>(0x04050607u, i::order::Network());
  out.put<pod::uint64>(0x08090a0b0c0d0e0full);
  out.put<pod::uint32>(0x12131415u, i::order::Host());
  out.putBytes("ab", 2);
  out.putBytes(std::string("c"));
  out.putString("hello");
  out.putString<pod::uint16>("");
  const std::vector<unsigned char> expected = {0x01, 0xff, 0xfd, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0a, 0x0b,
                                               0x0c, 0x0d, 0x0e, 0x0f, 0x15, 0x14, 0x13, 0x12, 'a',  'b',  'c',
                                               0,    0,    0,    5,    'h',  'e',  'l',  'l',  'o',  0,    0};
  EXPECT_EQ(std::vector<unsigned char>(shared.data(), shared.data() + shared.size()), expected);

  BinaryInputBuffer in;
  in.append(out.data(), out.size());
  EXPECT_EQ(in.get<pod::uint8>(), 0x01);
  EXPECT_EQ(in.get<std::int16_t>(), -3);
  EXPECT_EQ(in.get<pod::uint32>(i::order::Network()), 0x04050607u);
  EXPECT_EQ(in.get<pod::uint64>(), 0x08090a0b0c0d0e0full);
  EXPECT_EQ(in.get<pod::uint32>(i::order::Host()), 0x12131415u);
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
  in.append("\x01\x02\x03", 3);
  QUOREL_EXPECT_THROW(in.get<pod::uint32>(), sal::xio::EOFException,
                      "a 4-byte integer was asked for and 3 bytes remain", 0, 4);
  QUOREL_EXPECT_THROW(in.getString(), sal::xio::EOFException,
                      "a 4-byte string length was asked for and 3 bytes remain", 0, 4);
  in.skip(2);
  char buffer[2];
  QUOREL_EXPECT_THROW(in.getBytes(buffer, 2), sal::xio::EOFException, "2 bytes were asked for and 1 byte remains", 0,
                      2);
  in.skip(1);

  // A string's length arrived, its bytes not all: the length stays unread.
  in.append(std::string("\x00\x00\x00\x0a", 4) + "abcdef");
  auto e = QUOREL_EXPECT_THROW(in.getString(), sal::xio::EOFException,
                               "a 4-byte length and a string of 10 bytes were asked for and 10 bytes remain", 0, 14);
  if (e) {
    EXPECT_STREQ(e->where(), "void quorel::sal::io::impl::BinaryInputBuffer::underflow(std::size_t, long long "
                             "unsigned int, What) const");
  }
  in.append("ghij");
  EXPECT_EQ(in.getString(), "abcdefghij");
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
  in.append(std::string("\x00\x10", 2) + std::string(16, 'w'));
  EXPECT_EQ(in.getString<pod::uint16>(), std::string(16, 'w'));  // the limit itself is allowed

  BinaryOutputBuffer out;
  out.put<pod::uint8>(7);
  QUOREL_EXPECT_THROW(out.putString<pod::uint16>(std::string(65536, 'x')), InvalidArgumentException,
                      "a string of 65536 bytes does not fit a 2-byte length", 0, 0);
  const std::string huge = std::to_string(std::numeric_limits<std::size_t>::max());
  QUOREL_EXPECT_THROW(out.reserve(std::numeric_limits<std::size_t>::max()), sal::io::Exception,
                      "a buffer of 1 byte cannot grow by " + huge + " bytes", 0, 0);
  QUOREL_EXPECT_THROW(in.reserve(std::numeric_limits<std::size_t>::max()), sal::io::Exception,
                      "a buffer of 0 bytes cannot grow by " + huge + " bytes", 0, 0);
  out.putString<pod::uint16>(std::string(65535, 'x'));
  EXPECT_EQ(out.size(), 1u + 2u + 65535u);
}

TEST(BinaryBuffer, GrowsAcrossItsCapacityAndCompactionKeepsTheUnreadBytes) {
  BinaryOutputBuffer out(8);
  for (pod::uint32 n = 0; n < 1000; ++n) out.put<pod::uint32>(n * 7919u);
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

TEST(BinaryBuffer, SendsAndReceivesThroughTCPEndpoints) {
  test::Connection c;
  c.accepted.beNonblocking();
  BinaryInputBuffer in;
  EXPECT_EQ(in.receive(c.accepted), -1);

  // An endpoint over a TCP connection is a socket; memory has no descriptor.
  const Endpoint tcp = Endpoint::open(test::loopbackBinding(AF_INET),
                                      TCPConnectingAddress("127.0.0.1", c.server.selfAddress().port()));
  ATCPIOSocket peer = c.server.accept(5000);
  BinaryOutputBuffer out;
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
  EXPECT_EQ(in.size(), 8u);

  // SIGPIPE keeps its default action here: were it raised, the test would die.
  // The first sender is an endpoint sharing the socket, which is a socket too.
  const Endpoint shared = Endpoint::open(c.accepted);
  const auto resets = [&](auto send) {
    for (int i = 0; i < 200; ++i) {
      if (i > 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));  // the peer's reset arrives
      out.putBytes(std::string(4096, 'x'));
      try {
        send();
      } catch (const sal::xio::ConnectionResetException& e) {
        EXPECT_EQ(e.why(), "::send() failed");
        EXPECT_TRUE(e.code() == EPIPE || e.code() == ECONNRESET) << e.asString();
        return true;
      }
    }
    return false;
  };
  EXPECT_TRUE(resets([&] { out.send(shared); }));
  EXPECT_TRUE(resets([&] { out.send(c.accepted); }));
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
    if (e) {
      EXPECT_STREQ(e->where(),
                   "int quorel::sal::io::impl::BinaryOutputBuffer::sendSome(quorel::sal::sys::io::socket::descriptor)");
    }
    QUOREL_EXPECT_FAULT("recv", ECONNRESET, in.receive(c.accepted), sal::xio::ConnectionResetException,
                        "::recv() failed", 2, ECONNRESET);
    QUOREL_EXPECT_FAULT("write", EIO, out.send(pipe.forWrite()), sal::xio::WriteException, "::write() failed", 2, EIO);
    QUOREL_EXPECT_FAULT("read", EIO, in.receive(pipe.forRead()), sal::xio::ReadException, "::read() failed", 2, EIO);
    EXPECT_EQ(failing("send", EAGAIN, [&] { return out.send(c.client); }), 0u);
    EXPECT_EQ(failing("write", EAGAIN, [&] { return out.sendSome(pipe.forWrite()); }), -1);
    EXPECT_EQ(failing("read", EAGAIN, [&] { return in.receive(pipe.forRead()); }), -1);
    // An interrupted call is made again.
    EXPECT_EQ(failing("send", EINTR, [&] { return out.send(c.client); }), 4u);
    EXPECT_EQ(failing("recv", EINTR, [&] { return in.receive(c.accepted); }), 4);
    out.put<pod::uint32>(2);
    EXPECT_EQ(failing("write", EINTR, [&] { return out.send(pipe.forWrite()); }), 4u);
    EXPECT_EQ(failing("read", EINTR, [&] { return in.receive(pipe.forRead()); }), 4);
    EXPECT_EQ(in.get<pod::uint32>(), 1u);
    EXPECT_EQ(in.get<pod::uint32>(), 2u);
  }
  EXPECT_EQ(test::openDescriptorCount(), descriptors);
}

}  // namespace
}  // namespace quorel
