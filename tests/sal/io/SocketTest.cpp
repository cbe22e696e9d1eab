// The BSD socket layer, socket addresses and TCP sockets, on loopback only.
#include <netdb.h>
#include <sys/socket.h>

#include <cerrno>
#include <functional>
#include <list>
#include <locale>
#include <optional>
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
using test::Connection;

const char kConnect[] =
    "void quorel::sal::sys::io::BSDSocket::connect(const sockaddr&, quorel::sal::sys::io::socket::length, int)";
const char kConnectionWaitFor[] = "void quorel::sal::sys::io::BSDSocket::connectionWaitFor(int)";
const char kInitiateConnection[] =
    "void quorel::sal::sys::io::BSDSocket::initiateConnection(const sockaddr&, quorel::sal::sys::io::socket::length)";
const char kAccept[] =
    "quorel::sal::sys::io::socket::descriptor quorel::sal::sys::io::BSDSocket::accept(sockaddr&, "
    "quorel::sal::sys::io::socket::length&, int)";

template <class E>
void expectWhere(const std::optional<E>& e, const char* where) {
  if (e) {
    EXPECT_STREQ(e->where(), where);
  }
}

// Stand-ins for select(): nothing ready at once (recording the time-out it was
// given), or everything asked for ready at once.
timeval lastTimeout;
int nothingReady(int, fd_set*, fd_set*, fd_set*, timeval* timeout) {
  lastTimeout = *timeout;
  return 0;
}
int allReady(int, fd_set*, fd_set*, fd_set*, timeval*) { return 1; }

TEST(TCPSocket, ExchangesBytesBothWaysOnBothFamilies) {
  for (int family : {AF_INET, AF_INET6}) {
    if (family == AF_INET6 && !test::hasIPv6Loopback()) GTEST_SKIP() << "no IPv6 loopback (::1) on this host";
    Connection c(family);  // the server listens on the loopback address alone
    EXPECT_EQ(c.server.selfAddress().numericalName(), test::loopbackHost(family));
    EXPECT_EQ(c.client.put("ping", 4), 4);
    char buffer[16] = {};
    EXPECT_EQ(c.accepted.get(buffer, sizeof buffer, 5000), 4);
    EXPECT_STREQ(buffer, "ping");
    EXPECT_EQ(c.accepted.put("pong!", 5, 5000), 5);
    EXPECT_EQ(c.client.get(buffer, sizeof buffer), 5);
    EXPECT_EQ(c.accepted.peerAddress().numericalName(), test::loopbackHost(family));
  }
}

TEST(TCPSocket, GetReturnsZeroOnceThePeerClosedClosingTwiceIsHarmlessAndEmptySocketsThrow) {
  Connection c;
  c.client.close();
  c.client.close(false);
  char buffer[8];
  EXPECT_EQ(c.accepted.get(buffer, sizeof buffer, 5000), 0);
  EXPECT_EQ(c.client.id(), ~0ULL);
  TCPClientSocket empty;
  QUOREL_EXPECT_THROW(empty.get(buffer, 1), NULLDereferenceException, "this handle does not contain a valid object", 0,
                      0);
}

TEST(TCPSocket, TimedReceiveAndSendReturnMinusOneOrThrowAndKeepTheMode) {
  Connection c;
  char buffer[8];
  EXPECT_EQ(c.accepted.receive(buffer, sizeof buffer, 20, true), -1);
  EXPECT_FALSE(test::isNonBlocking(c.accepted.id()));
  auto e = QUOREL_EXPECT_THROW(c.accepted.get(buffer, sizeof buffer, 50), sal::io::TimeoutException,
                               "::select() timed-out for ::recv()", 2, ETIMEDOUT);
  ASSERT_TRUE(e);
  EXPECT_STREQ(e->where(), "quorel::sal::sys::io::socket::size quorel::sal::sys::io::BSDSocket::receive(void*, size_t, int, bool)");
  EXPECT_STREQ(e->file(), "sal/sys/io/BSDSocket.inl");
  EXPECT_FALSE(test::isNonBlocking(c.accepted.id()));
  c.accepted.beNonblocking();
  EXPECT_EQ(c.accepted.get(buffer, sizeof buffer), -1);  // nothing to read: -1 at once
  EXPECT_TRUE(test::isNonBlocking(c.accepted.id()));

  // A timed send throws when the buffer stays full.
  c.client.beNonblocking();
  std::vector<char> chunk(65536, 'x');
  int filled = 0;
  for (int i = 0; i < 1000 && c.client.put(chunk.data(), static_cast<int>(chunk.size())) > 0; ++i) ++filled;
  ASSERT_LT(filled, 1000) << "the send buffer never filled";
  EXPECT_EQ(c.client.send(chunk.data(), 1, 20, true), -1);
  c.client.beBlocking();
  QUOREL_EXPECT_THROW(c.client.put(chunk.data(), 1, 20), sal::io::TimeoutException, "::select() timed-out for ::send()",
                      2, ETIMEDOUT);
  EXPECT_FALSE(test::isNonBlocking(c.client.id()));
}

TEST(TCPSocket, AcceptTimesOutAndAcceptedSocketsAreBlockingAndCloseOnExec) {
  TCPServerSocket server(test::loopbackBinding(AF_INET), false);
  QUOREL_EXPECT_THROW(server.accept(50), sal::io::TimeoutException, "::select() timed-out for ::accept()", 2,
                      ETIMEDOUT);
  server.beNonblocking();
  TCPClientSocket client(TCPConnectingAddress("127.0.0.1", server.selfAddress().port()), true, false);
  AINETAddress peer = server.newPeerAddressForAccept();
  ATCPIOSocket accepted = server.accept(peer, 5000);
  EXPECT_TRUE(test::isNonBlocking(server.id()));
  EXPECT_FALSE(test::isNonBlocking(accepted.id()));
  EXPECT_TRUE(test::isCloseOnExec(accepted.id()));
  EXPECT_EQ(peer.port(), client.selfAddress().port());
}

TEST(TCPSocket, RefusedConnectionsThrowAndLeaveNoDescriptor) {
  const unsigned short port = test::closedPort();
  const int descriptors = test::openDescriptorCount();
  TCPClientSocket client(TCPConnectingAddress("127.0.0.1", port), false, false);
  expectWhere(QUOREL_EXPECT_THROW(client.connectTo(TCPConnectingAddress("127.0.0.1", port), 1000),
                                  sal::sys::Exception, "non-blocking ::connect() failed", 2, ECONNREFUSED),
              kConnect);
  EXPECT_FALSE(test::isNonBlocking(client.id()));
  client.close();
  TCPClientSocket twoPhase(TCPConnectingAddress("127.0.0.1", port), false, false);
  twoPhase.initiateConnection(TCPConnectingAddress("127.0.0.1", port));
  expectWhere(QUOREL_EXPECT_THROW(twoPhase.connectionWaitFor(5000), sal::sys::Exception,
                                  "non-blocking ::connect() failed", 2, ECONNREFUSED),
              kConnectionWaitFor);
  twoPhase.close();
  TCPClientSocket blocking(TCPConnectingAddress("127.0.0.1", port), false, false);
  QUOREL_EXPECT_THROW(blocking.connectTo(TCPConnectingAddress("127.0.0.1", port), 0), sal::sys::Exception,
                      "::connect() failed", 2, ECONNREFUSED);
  blocking.close();
  TCPServerSocket busy(test::loopbackBinding(AF_INET), false);
  QUOREL_EXPECT_THROW(TCPServerSocket(test::loopbackBinding(AF_INET, busy.selfAddress().port()), false),
                      sal::sys::Exception, "::bind() failed", 2, EADDRINUSE);
  busy.close();
  EXPECT_EQ(test::openDescriptorCount(), descriptors);
}

TEST(TCPSocket, TwoPhaseConnectRetriesWhileNoLocalPortIsFree) {
  QUOREL_REQUIRE_FAULT_POINT("pthread_cond_timedwait");
  TCPServerSocket server(test::loopbackBinding(AF_INET), false);
  const TCPConnectingAddress address("127.0.0.1", server.selfAddress().port());
  TCPClientSocket client(address, false, false);
  {
    test::fault::Injection busyPorts("connect", EADDRNOTAVAIL);  // the first attempt only
    test::fault::Injection pauses("pthread_cond_timedwait", ETIMEDOUT, 1, 100);  // one-second pauses end at once
    client.initiateConnection(address);
    EXPECT_EQ(test::fault::calls("pthread_cond_timedwait"), 1);  // one pause before the second attempt
  }
  client.connectionWaitFor(5000);
  EXPECT_FALSE(test::isNonBlocking(client.id()));
  EXPECT_EQ(server.accept(5000).peerAddress().port(), client.selfAddress().port());
  TCPClientSocket late(address, false, false);
  test::fault::Injection busyPorts("connect", EADDRNOTAVAIL, 1, 100);
  test::fault::Injection pauses("pthread_cond_timedwait", ETIMEDOUT, 1, 100);
  expectWhere(QUOREL_EXPECT_THROW(late.initiateConnection(address), sal::sys::Exception,
                                  "non-blocking ::connect() failed", 2, EADDRNOTAVAIL),
              kInitiateConnection);
  EXPECT_EQ(test::fault::calls("connect"), 60);
  EXPECT_EQ(test::fault::calls("pthread_cond_timedwait"), 59);
  EXPECT_FALSE(test::isNonBlocking(late.id()));
}

// Every failure after the wait of a connect names the operation that waited.
TEST(TCPSocket, ConnectFailuresNameTheConnectingOperation) {
  TCPServerSocket server(test::loopbackBinding(AF_INET), false);
  const TCPConnectingAddress address("127.0.0.1", server.selfAddress().port());
  const int descriptors = test::openDescriptorCount();
  TCPClientSocket client(address, false, false);
  test::fault::Injection inProgress("connect", EINPROGRESS, 1, 100);  // no connect reaches the kernel
  {
    test::fault::StandIn timeout("select", reinterpret_cast<void*>(&nothingReady));
    expectWhere(QUOREL_EXPECT_THROW(TCPClientSocket(address, true, false), sal::io::TimeoutException,
                                    "::select() timed-out for ::connect()", 2, ETIMEDOUT),
                kConnect);
    EXPECT_EQ(lastTimeout.tv_sec, 30);  // the connecting constructors' default
    EXPECT_EQ(lastTimeout.tv_usec, 0);
    client.initiateConnection(address);
    expectWhere(QUOREL_EXPECT_THROW(client.connectionWaitFor(0), sal::io::TimeoutException,
                                    "::select() timed-out for ::connect()", 2, ETIMEDOUT),
                kConnectionWaitFor);
    EXPECT_FALSE(test::isNonBlocking(client.id()));
  }
  // The same failures after the wait of a timed connect and of the second phase.
  const std::function<void()> waits[] = {[&] { client.connectTo(address, 1000); },
                                         [&] { client.connectionWaitFor(1000); }};
  const char* const wheres[] = {kConnect, kConnectionWaitFor};
  for (int i = 0; i < 2; ++i) {
    {
      test::fault::Injection fail("select", EINTR);
      expectWhere(QUOREL_EXPECT_THROW(waits[i](), sal::sys::Exception, "::select() failed", 2, EINTR), wheres[i]);
    }
    test::fault::StandIn ready("select", reinterpret_cast<void*>(&allReady));
    test::fault::Injection fail("getsockopt", ENOBUFS);
    expectWhere(QUOREL_EXPECT_THROW(waits[i](), sal::sys::Exception, "::getsockopt(SOL_ERROR) failed", 2, ENOBUFS),
                wheres[i]);
  }
  EXPECT_FALSE(test::isNonBlocking(client.id()));
  client.close();
  EXPECT_EQ(test::openDescriptorCount(), descriptors);
}

TEST(SocketAddresses, RolesChooseFamilyAndWildcardAndTheResolverIterates) {
  const TCPConnectingAddress named("localhost", "80");
  EXPECT_EQ(named.numericalName(), "127.0.0.1");
  EXPECT_EQ(named.canonicalName(), "localhost");
  EXPECT_EQ(TCPBindingAddress(8080).description(), "family:AF_INET(2) type:SOCK_STREAM(1) protocol:IPPROTO_TCP(2)");
  EXPECT_EQ(TCPBindingAddress::anyIPv6("8080").numericalName(), "::");
  // One address of the host: a name takes the family a client of that name
  // connects in; an empty host is the wildcard.
  EXPECT_EQ(TCPBindingAddress("localhost", "8080").numericalName(), "127.0.0.1");
  EXPECT_TRUE(TCPBindingAddress("::1", 0).isIPv6());
  EXPECT_EQ(UDPBindingAddress("", "5000").numericalName(), "0.0.0.0");
  QUOREL_EXPECT_THROW(UDPBindingAddress("bad..host", "80"), sal::sys::Exception, "::getaddrinfo(bad..host) failed",
                      4, EAI_NONAME);
  std::list<UDPBindingAddress> wildcards;
  UDPBindingAddress::fill(wildcards, 5000);
  ASSERT_FALSE(wildcards.empty());
  for (const UDPBindingAddress& a : wildcards) EXPECT_EQ(a.port(), 5000);
  const UDPPeerAddress broadcast = UDPPeerAddress::newBroadcastAddressOn(9);
  EXPECT_EQ(broadcast.numericalName(), "255.255.255.255");
  EXPECT_EQ(broadcast.description(), "family:AF_INET(2) type:SOCK_DGRAM(2) protocol:IPPROTO_UDP(2)");

  sal::sys::io::SocketAddressInfo info(nullptr, "80", AF_INET, SOCK_STREAM, IPPROTO_TCP, true);
  sal::sys::io::SocketAddressInfo::Iterator it(info);
  ASSERT_FALSE(it.atEnd());
  EXPECT_EQ(sal::inet::impl::addr::str::from(*it.current()->ai_addr), "0.0.0.0");
  while (!it.atEnd()) it.step();
  QUOREL_EXPECT_THROW(it.step(), NULLDereferenceException, "iteration passed the end", 0, 0);
  EXPECT_EQ(sal::sys::io::socket::describe(AF_INET6, 7, 99),
            "family:AF_INET6(10) type:UNKNOWN(7) protocol:UNKNOWN(10)");
  EXPECT_FALSE(AINETAddress::selfHostName().empty());
}

// Address texts never follow the global locale, even one that groups digits.
TEST(SocketAddresses, TextsKeepTheClassicLocale) {
  struct Grouping : std::numpunct<char> {
    char do_thousands_sep() const override { return ','; }
    std::string do_grouping() const override { return "\3"; }
  };
  struct GlobalLocale {
    std::locale previous = std::locale::global(std::locale(std::locale::classic(), new Grouping));
    ~GlobalLocale() { std::locale::global(previous); }
  } grouping;
  EXPECT_EQ(TCPBindingAddress::anyIPv6(12345).port(), 12345);
  EXPECT_EQ(sal::sys::io::socket::describe(1234, 5678, 9),
            "family:UNKNOWN(1234) type:UNKNOWN(5678) protocol:UNKNOWN(1234)");
  sal::inet::Address scoped("fe80::1", sal::inet::i::family::kIPv6);
  scoped.setScopeID(4242);
  EXPECT_EQ(scoped.asString(), "fe80::1%4242");
  EXPECT_EQ(sal::inet::Address::createMask(sal::inet::i::family::kIPv6, 120).prefixLength(), 120);
}

// Failure rows of the socket layer that need a failing system call.
TEST(SocketFailures, FailedCallsThrowWithTheirMessages) {
  const int descriptors = test::openDescriptorCount();
  QUOREL_EXPECT_FAULT("socket", EMFILE, TCPServerSocket(test::loopbackBinding(AF_INET), false), sal::sys::Exception,
                      "::socket() failed", 2, EMFILE);
  QUOREL_EXPECT_FAULT("fcntl", EBADF, TCPServerSocket(test::loopbackBinding(AF_INET), false), sal::sys::Exception,
                      "::fcntl() failed", 2, EBADF);  // the close-on-exec flag of a new socket
  QUOREL_EXPECT_FAULT("setsockopt", ENOPROTOOPT, TCPServerSocket(test::loopbackBinding(AF_INET), false),
                      sal::sys::Exception, "::setsockopt() failed for SO_REUSEADDR", 2, ENOPROTOOPT);
  QUOREL_EXPECT_FAULT("setsockopt", ENOPROTOOPT, UDPSocket(test::loopbackUDPBinding(AF_INET), UDPSocket::kSend, false),
                      sal::sys::Exception, "::setsockopt() failed for SO_BROADCAST", 2, ENOPROTOOPT);
  EXPECT_EQ(test::openDescriptorCount(), descriptors);
  Connection c;
  char buffer[4];
  QUOREL_EXPECT_FAULT("fcntl", EBADF, c.accepted.get(buffer, 4, 10), sal::sys::Exception,
                      "::fcntl() failed to retrieve flags", 2, EBADF);
  {
    test::fault::Injection fail("fcntl", EBADF, 2);
    QUOREL_EXPECT_THROW(c.accepted.get(buffer, 4, 10), sal::sys::Exception, "::fcntl() failed to set flags", 2, EBADF);
  }
  {
    test::fault::Injection fail("select", EINTR);
    QUOREL_EXPECT_THROW(c.accepted.get(buffer, 4, 10), sal::sys::Exception, "::select() failed", 2, EINTR);
    EXPECT_FALSE(test::isNonBlocking(c.accepted.id()));
  }
  QUOREL_EXPECT_FAULT("gethostname", EFAULT, AINETAddress::selfHostName(), sal::sys::Exception,
                      "::gethostname() failed", 2, EFAULT);
  {
    test::fault::Injection fail("getaddrinfo", EAI_FAIL, 1, 2);  // the numeric try and the host-name retry
    QUOREL_EXPECT_THROW(TCPConnectingAddress("127.0.0.1", 80), sal::sys::Exception, "::getaddrinfo(127.0.0.1) failed",
                        4, EAI_FAIL);
  }
  QUOREL_EXPECT_FAULT("getnameinfo", EAI_AGAIN, TCPConnectingAddress("127.0.0.1", 80).canonicalName(),
                      sal::sys::Exception, "::getnameinfo() failed to retrieve the canonical host name string", 4,
                      EAI_AGAIN);
}

// The failure rows of listening, accepting, transfers and address queries.
TEST(SocketFailures, ListenAcceptTransfersAndAddressQueries) {
  const int descriptors = test::openDescriptorCount();
  QUOREL_EXPECT_FAULT("listen", EADDRINUSE, TCPServerSocket(test::loopbackBinding(AF_INET), false),
                      sal::sys::Exception, "::listen() failed", 2, EADDRINUSE);
  EXPECT_EQ(test::openDescriptorCount(), descriptors);
  Connection c;
  const TCPClientSocket waiting(TCPConnectingAddress("127.0.0.1", c.server.selfAddress().port()), true, false);
  {
    test::fault::Injection fail("accept", EMFILE, 1, 2);
    expectWhere(QUOREL_EXPECT_THROW(c.server.accept(0), sal::sys::Exception, "::accept() failed", 2, EMFILE), kAccept);
    expectWhere(QUOREL_EXPECT_THROW(c.server.accept(5000), sal::sys::Exception, "::accept() failed", 2, EMFILE),
                kAccept);
  }
  EXPECT_EQ(c.server.accept(5000).peerAddress().port(), waiting.selfAddress().port());  // still queued
  char buffer[8];
  ASSERT_EQ(c.client.put("data", 4), 4);
  {
    test::fault::Injection fail("recv", ECONNRESET, 1, 2);
    QUOREL_EXPECT_THROW(c.accepted.get(buffer, 8), sal::sys::Exception, "::recv() failed", 2, ECONNRESET);
    QUOREL_EXPECT_THROW(c.accepted.get(buffer, 8, 5000), sal::sys::Exception, "non-blocking ::recv() failed", 2,
                        ECONNRESET);
  }
  {
    test::fault::Injection fail("send", EPIPE, 1, 2);
    QUOREL_EXPECT_THROW(c.accepted.put(buffer, 4), sal::sys::Exception, "::send() failed", 2, EPIPE);
    QUOREL_EXPECT_THROW(c.accepted.put(buffer, 4, 5000), sal::sys::Exception, "non-blocking ::send() failed", 2,
                        EPIPE);
  }
  EXPECT_FALSE(test::isNonBlocking(c.accepted.id()));
  UDPSocket u(test::loopbackUDPBinding(AF_INET), UDPSocket::kNone, false);
  ASSERT_EQ(u.send("x", 1, u.newPeerAddressAt("127.0.0.1", u.selfAddress().port())), 1);
  UDPPeerAddress from = u.newPeerAddress();
  {
    test::fault::Injection fail("recvfrom", ECONNREFUSED, 1, 2);
    QUOREL_EXPECT_THROW(u.receive(buffer, 8, from, 0, false), sal::sys::Exception, "::recvfrom() failed", 2,
                        ECONNREFUSED);
    QUOREL_EXPECT_THROW(u.receive(buffer, 8, from, 5000, false), sal::sys::Exception,
                        "non-blocking ::recvfrom() failed", 2, ECONNREFUSED);
  }
  QUOREL_EXPECT_THROW(c.server.peerAddress(), sal::sys::Exception, "::getpeername() failed", 2, ENOTCONN);
  QUOREL_EXPECT_FAULT("getsockname", ENOBUFS, c.server.selfAddress(), sal::sys::Exception, "::getsockname() failed",
                      2, ENOBUFS);
  // Switching the mode keeps the caller's errno.
  errno = EDOM;
  c.accepted.beNonblocking();
  c.accepted.beBlocking();
  EXPECT_EQ(errno, EDOM);
  // An address of another family is refused before the call: the connection stays queued.
  if (!test::hasIPv6Loopback()) GTEST_SKIP() << "no IPv6 loopback (::1): the family mismatch is not checked";
  TCPServerSocket v6(test::loopbackBinding(AF_INET6), false);
  const TCPClientSocket client6(TCPConnectingAddress("::1", v6.selfAddress().port()), true, false);
  AINETAddress v4 = c.server.newPeerAddressForAccept();
  const char* const mismatch = "address family AF_INET(2) does not match the socket's family AF_INET6(10)";
  QUOREL_EXPECT_THROW(v6.accept(v4, 5000), InvalidArgumentException, mismatch, 0, AF_INET);
  QUOREL_EXPECT_THROW(v4.impl()->selfAddressOf(v6.impl().reference()), InvalidArgumentException, mismatch, 0, AF_INET);
  EXPECT_EQ(v4.numericalName(), "0.0.0.0");
  EXPECT_EQ(v6.accept(5000).peerAddress().port(), client6.selfAddress().port());
}

TEST(SocketFailures, UnknownFamiliesAndTransports) {
  const ASocketEndpoint foreign(~0ULL, AF_UNIX, SOCK_STREAM, 0);
  expectWhere(QUOREL_EXPECT_THROW(foreign.selfAddress(), sal::io::Exception, "unknown INET address family", 0, AF_UNIX),
              "quorel::sal::io::impl::AINETAddress* quorel::sal::io::impl::inet::newAddressFrom(const "
              "quorel::sal::io::impl::Socket&)");
  const auto bogus = static_cast<impl::inet::transport>(2);
  expectWhere(QUOREL_EXPECT_THROW(impl::inet::newPeerAddress("127.0.0.1", "80", AF_INET, bogus), sal::io::Exception,
                                  "unknown INET protocol", 0, 2),
              "int quorel::sal::io::impl::inet::socketTypeFrom(transport)");
  expectWhere(QUOREL_EXPECT_THROW(impl::inet::protocolFrom(bogus), sal::io::Exception, "unknown INET protocol", 0, 2),
              "int quorel::sal::io::impl::inet::protocolFrom(transport)");
}

}  // namespace
}  // namespace quorel
