// Enumeration of the host's network links.
#include <net/if.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <list>
#include <map>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

#include "support/expect.h"
#include "support/fault.h"

namespace quorel {
namespace {

using sal::inet::Link;

// The address the kernel shows for a link, as a 48-bit number.
pod::uint64 sysfsAddressOf(const std::string& name) {
  std::ifstream in("/sys/class/net/" + name + "/address");
  std::string text;
  std::getline(in, text);
  unsigned int b[6];
  if (std::sscanf(text.c_str(), "%x:%x:%x:%x:%x:%x", &b[0], &b[1], &b[2], &b[3], &b[4], &b[5]) != 6) return 0;
  pod::uint64 address = 0;
  for (unsigned int byte : b) address = (address << 8) | byte;
  return address;
}

TEST(Link, ListsTheHostsLinksInIndexOrderLoopbackFirst) {
  std::list<Link> links;
  std::map<std::string, Link> byName;
  Link::fill(links, byName);
  ASSERT_FALSE(links.empty());
  EXPECT_EQ(links.front().name(), "lo");
  EXPECT_EQ(links.front().index(), 1);
  EXPECT_EQ(links.front().address(), 0u);
  EXPECT_TRUE(links.front().flags() & IFF_LOOPBACK);
  EXPECT_EQ(byName.size(), links.size());
  int previous = 0;
  for (const Link& link : links) {
    EXPECT_GT(link.index(), previous);
    previous = link.index();
    EXPECT_EQ(static_cast<int>(::if_nametoindex(link.name().c_str())), link.index());
    EXPECT_EQ(link.address(), sysfsAddressOf(link.name())) << link.name();
    EXPECT_EQ(byName.at(link.name()).index(), link.index());
  }
}

TEST(Link, FillReplacesPreviousContents) {
  std::list<Link> links;
  std::map<std::string, Link> byName;
  Link::fill(links, byName);
  const size_t count = links.size();
  Link::fill(links, byName);
  EXPECT_EQ(links.size(), count);
}

TEST(Link, EnumerationFailureThrowsInTheInterfaceDomain) {
  test::fault::Injection fail("getifaddrs", EMFILE);
  std::list<Link> links;
  std::map<std::string, Link> byName;
  auto e = QUOREL_EXPECT_THROW(Link::fill(links, byName), sal::inet::Exception, "::getifaddrs() failed", 6,
                               EMFILE);
  ASSERT_TRUE(e);
  EXPECT_STREQ(e->file(), "sal/inet/impl/link.inl");
  EXPECT_NE(e->asString().find("domain='network interface enumeration error (6)'"), std::string::npos);
}

}  // namespace
}  // namespace quorel
