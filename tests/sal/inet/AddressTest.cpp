// IPv4 and IPv6 address values: text, masks, prefix lengths, broadcast and
// ordering.
#include <netdb.h>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

#include "support/expect.h"
#include "support/fault.h"

namespace quorel {
namespace {

using sal::inet::Address;
namespace family = sal::inet::i::family;

TEST(InetAddress, TextRoundTripsOverwritesTheConstructorsPortAndAFailedRenderingThrows) {
  const Address v4("10.0.0.1", family::kIPv4, 80);
  EXPECT_EQ(v4.asString(), "10.0.0.1");
  EXPECT_EQ(v4.port(), 0);  // the text's conversion replaced the whole address
  EXPECT_EQ(v4.family(), family::kIPv4);
  Address v6("fe80::1", family::kIPv6);
  v6.setPort(8080);
  v6.setScopeID(4242);  // no such interface: the scope prints as a number
  EXPECT_EQ(v6.asString(), "fe80::1%4242");
  EXPECT_EQ(v6.port(), 8080);
  EXPECT_EQ(v6.scopeID(), 4242u);
  EXPECT_EQ(Address(family::kUnspecified).asString(), "::");
  EXPECT_EQ(Address(family::kIPv4).asString(), "0.0.0.0");
  EXPECT_EQ(Address().asString(), "");
  EXPECT_EQ(Address().port(), 0);
  QUOREL_EXPECT_FAULT("getnameinfo", EAI_FAIL, Address("127.0.0.1", family::kIPv4).asString(), sal::inet::Exception,
                      "failed convert a socket address to string", 4, EAI_FAIL);
}

TEST(InetAddress, RefusesHostNamesAndUnknownFamilies) {
  QUOREL_EXPECT_THROW(Address("localhost", family::kIPv4), sal::inet::Exception, "::getaddrinfo('localhost') failed",
                      4, EAI_NONAME);
  QUOREL_EXPECT_THROW(Address("1.2.3.4", family::kIPv6), sal::inet::Exception, "::getaddrinfo('1.2.3.4') failed", 4,
                      EAI_ADDRFAMILY);
  // A text with a NUL in it is refused whole, never read up to the NUL.
  const std::string embedded("10.0.0.1\0junk", 13);
  QUOREL_EXPECT_THROW(Address(embedded, family::kIPv4), sal::inet::Exception, "::getaddrinfo('" + embedded + "') failed",
                      4, EAI_NONAME);
  for (int code : {3, -1}) {
    auto e = QUOREL_EXPECT_THROW(Address("1.2.3.4", static_cast<family::code>(code), 80), InvalidArgumentException,
                                 "unrecognized address family", 0, code);
    if (e) {
      EXPECT_STREQ(e->where(), "quorel::sal::inet::Address::Address(quorel::sal::inet::i::family::code)");
    }
  }
  QUOREL_EXPECT_THROW(Address::adopt(nullptr).asString(), NULLDereferenceException,
                      "this handle does not contain a valid object", 0, 0);
}

TEST(InetAddress, MasksAndLenientPrefixLengths) {
  EXPECT_EQ(Address::createMask(family::kIPv4, 24).asString(), "255.255.255.0");
  EXPECT_EQ(Address::createMask(family::kIPv4, 24).prefixLength(), 24);
  EXPECT_EQ(Address::createMask(family::kIPv4, 0).asString(), "0.0.0.0");
  EXPECT_EQ(Address::createMask(family::kIPv4, 32).prefixLength(), 32);
  EXPECT_EQ(Address::createMask(family::kIPv6, 64).asString(), "ffff:ffff:ffff:ffff::");
  EXPECT_EQ(Address::createMask(family::kIPv6, 70).prefixLength(), 70);
  EXPECT_EQ(Address::createMask(family::kIPv6, 128).prefixLength(), 128);
  EXPECT_EQ(Address("255.255.0.255", family::kIPv4).prefixLength(), 16);  // non-contiguous: lenient
  EXPECT_EQ(Address("255.255.37.0", family::kIPv4).prefixLength(), 24);
  EXPECT_EQ(Address("255.240.0.0", family::kIPv4).prefixLength(), 12);
  QUOREL_EXPECT_THROW(Address::createMask(family::kIPv4, 33), InvalidArgumentException,
                      "prefix length must be [0, 32]", 0, 33);
  QUOREL_EXPECT_THROW(Address::createMask(family::kIPv4, -1), InvalidArgumentException,
                      "prefix length must be [0, 32]", 0, -1);
  QUOREL_EXPECT_THROW(Address::createMask(family::kIPv6, 129), InvalidArgumentException,
                      "prefix length must be [0, 128]", 0, 129);
  QUOREL_EXPECT_THROW(Address::createMask(family::kUnspecified, 8), InvalidArgumentException,
                      "invalid address family specified", 0, 0);
}

TEST(InetAddress, NetworkAndBroadcastArithmetic) {
  const Address host("192.168.1.20", family::kIPv4);
  const Address mask = Address::createMask(family::kIPv4, 24);
  EXPECT_EQ(Address::broadcastAddressFrom(host, mask).asString(), "192.168.1.255");
  EXPECT_EQ(host.asString(), "192.168.1.20");  // broadcastAddressFrom works on a copy
  Address network = host.clone();
  network.setMask(mask);
  EXPECT_EQ(network.asString(), "192.168.1.0");
  network.setMask(16);
  EXPECT_EQ(network.asString(), "192.168.0.0");
  Address v6("2001:db8:1:2::7", family::kIPv6);
  EXPECT_EQ(Address::broadcastAddressFrom(v6, Address::createMask(family::kIPv6, 64)).asString(),
            "2001:db8:1:2:ffff:ffff:ffff:ffff");
  v6.setMask(48);
  EXPECT_EQ(v6.asString(), "2001:db8:1::");
}

TEST(InetAddress, OrderingAndEqualityIgnorePortsCopiesShareAndClonesDoNot) {
  Address one("10.0.0.1", family::kIPv4), two("10.0.0.1", family::kIPv4);
  one.setPort(1);
  two.setPort(2);
  EXPECT_TRUE(one == two);
  EXPECT_FALSE(one < two);
  EXPECT_FALSE(two < one);
  EXPECT_TRUE(Address("9.255.255.255", family::kIPv4) < Address("10.0.0.0", family::kIPv4));
  EXPECT_TRUE(Address("255.255.255.255", family::kIPv4) < Address("::", family::kIPv6));  // IPv4 first
  EXPECT_TRUE(Address("::ffff", family::kIPv6) < Address("1::", family::kIPv6));
  Address scoped("fe80::1", family::kIPv6);
  scoped.setScopeID(2);
  EXPECT_FALSE(scoped == Address("fe80::1", family::kIPv6));
  EXPECT_TRUE(Address("fe80::1", family::kIPv6) < scoped);
  EXPECT_FALSE(Address() == Address());  // no family: never equal
  // Copies share; clones do not.
  Address a("10.0.0.1", family::kIPv4);
  Address shared(a);
  Address independent = a.clone();
  shared.setPort(7);
  EXPECT_EQ(a.port(), 7);
  EXPECT_EQ(independent.port(), 0);
  EXPECT_EQ(a.key().sa_family, AF_INET);
}

}  // namespace
}  // namespace quorel
