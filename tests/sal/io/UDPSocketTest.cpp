// UDP sockets on loopback: peers, sender addresses, truncation, broadcast modes.
#include <cerrno>
#include <cstring>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

#include "support/expect.h"
#include "support/loopback.h"
#include "support/process.h"

namespace quorel {
namespace {

using namespace sal::io;

TEST(UDPSocket, ExchangesDatagramsWithExplicitAndDefaultPeers) {
  for (int family : {AF_INET, AF_INET6}) {
    if (family == AF_INET6 && !test::hasIPv6Loopback()) GTEST_SKIP() << "no IPv6 loopback (::1) on this host";
    UDPSocket a(test::loopbackUDPBinding(family), UDPSocket::kNone, false);
    UDPSocket b(test::loopbackUDPBinding(family), UDPSocket::kNone, false);
    EXPECT_EQ(b.selfAddress().numericalName(), test::loopbackHost(family));
    const UDPPeerAddress toB = a.newPeerAddressAt(test::loopbackHost(family), b.selfAddress().port());
    EXPECT_EQ(a.send("hello", 5, toB), 5);
    char buffer[16] = {};
    UDPPeerAddress from = b.newPeerAddress();
    EXPECT_EQ(b.receive(buffer, sizeof buffer, from, 5000, false), 5);
    EXPECT_STREQ(buffer, "hello");
    EXPECT_EQ(from.port(), a.selfAddress().port());
    EXPECT_EQ(from.numericalName(), test::loopbackHost(family));
    b.connectTo(from);
    EXPECT_EQ(b.send("back", 4), 4);
    EXPECT_EQ(a.receive(buffer, sizeof buffer, 5000, false), 4);
  }
}

TEST(UDPSocket, TruncatesLongDatagramsAndTimesOut) {
  UDPSocket a(test::loopbackUDPBinding(AF_INET), UDPSocket::kNone, false);
  UDPSocket b(test::loopbackUDPBinding(AF_INET), UDPSocket::kNone, false);
  const char text[] = "0123456789";
  a.send(text, 10, a.newPeerAddressAt("127.0.0.1", b.selfAddress().port()));
  char buffer[4];
  EXPECT_EQ(b.receive(buffer, sizeof buffer, 5000, false), 4);
  EXPECT_EQ(std::memcmp(buffer, "0123", 4), 0);
  UDPPeerAddress from = b.newPeerAddress();
  EXPECT_EQ(b.receive(buffer, sizeof buffer, from, 20, true), -1);  // the rest of the datagram is gone
  QUOREL_EXPECT_THROW(b.receive(buffer, sizeof buffer, from, 20, false), sal::io::TimeoutException,
                      "::select() timed-out for ::recvfrom()", 2, ETIMEDOUT);
}

TEST(UDPSocket, ReceiveModeSocketsShareAPort) {
  UDPSocket first(test::loopbackUDPBinding(AF_INET), UDPSocket::kReceive, false);
  const unsigned short port = first.selfAddress().port();
  UDPSocket second(test::loopbackUDPBinding(AF_INET, port), UDPSocket::kSendAndReceive, false);
  EXPECT_EQ(second.selfAddress().port(), port);
  QUOREL_EXPECT_THROW(UDPSocket(test::loopbackUDPBinding(AF_INET, port), UDPSocket::kNone, false),
                      sal::sys::Exception, "::bind() failed", 2, EADDRINUSE);
  // Broadcasting needs the send mode. The loopback network's broadcast address
  // keeps the datagram on this machine even if it were sent.
  QUOREL_EXPECT_THROW(first.send("x", 1, first.newPeerAddressAt("127.255.255.255", port)), sal::sys::Exception,
                      "::sendto() failed", 2, EACCES);
}

TEST(UDPSocket, SenderAddressOfAnotherFamilyIsRefusedBeforeReceiving) {
  if (!test::hasIPv6Loopback()) GTEST_SKIP() << "no IPv6 loopback (::1)";
  UDPSocket v4(test::loopbackUDPBinding(AF_INET), UDPSocket::kNone, false);
  UDPSocket v6(test::loopbackUDPBinding(AF_INET6), UDPSocket::kNone, false);
  ASSERT_EQ(v6.send("hello", 5, v6.newPeerAddressAt("::1", v6.selfAddress().port())), 5);
  UDPPeerAddress from = v4.newPeerAddress();
  char buffer[8];
  auto e = QUOREL_EXPECT_THROW(v6.receive(buffer, sizeof buffer, from, 5000, false), InvalidArgumentException,
                               "address family AF_INET(2) does not match the socket's family AF_INET6(10)", 0, AF_INET);
  if (e) {
    EXPECT_STREQ(e->where(), "int quorel::sal::io::impl::AINETAddressOf<S>::receive(quorel::sal::io::impl::Socket&, "
                             "void*, unsigned int, int, bool) [with S = sockaddr_in]");
  }
  EXPECT_TRUE(from.isIPv4());
  EXPECT_EQ(from.numericalName(), "0.0.0.0");
  from = v6.newPeerAddress();
  EXPECT_EQ(v6.receive(buffer, sizeof buffer, from, 5000, false), 5);  // the datagram is still there
  EXPECT_EQ(from.numericalName(), "::1");
}

TEST(UDPSocket, InvalidBroadcastModeLeavesNoDescriptor) {
  const int descriptors = test::openDescriptorCount();
  for (int mode : {4, -1}) {
    QUOREL_EXPECT_THROW(UDPSocket(test::loopbackUDPBinding(AF_INET), static_cast<UDPSocket::broadcast>(mode), false),
                        sal::io::Exception, "invalid broadcast mode", 0, mode);
  }
  EXPECT_EQ(test::openDescriptorCount(), descriptors);
}

}  // namespace
}  // namespace quorel
