// The host's links and networks: what the kernel reports, odd answers from
// it, and links configured in network namespaces of the tests' own.
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <net/if_arp.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <list>
#include <map>
#include <set>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

#include "support/expect.h"
#include "support/fault.h"
#include "support/netns.h"
#include "support/process.h"
#include "support/rtnetlink.h"

namespace quorel {
namespace {

using sal::inet::Address;
using sal::inet::Link;
using sal::inet::LinkAddress;
using sal::inet::Network;
namespace family = sal::inet::i::family;
namespace scope = sal::inet::i::scope;

std::string sysfs(const std::string& name, const char* file) {
  std::ifstream in("/sys/class/net/" + name + "/" + file);
  std::string text;
  std::getline(in, text);
  return text;
}

std::vector<std::string> namesOf(const std::vector<Link>& links) {
  std::vector<std::string> names;
  for (const Link& link : links) names.push_back(link.name());
  return names;
}

// The address entry of a link in that family and scope, or null.
const LinkAddress* entryOf(const Link& link, family::code f, scope::code s = scope::kGlobal) {
  for (const LinkAddress& entry : link.addresses()) {
    if (entry.address().family() == f && entry.scope() == s) return &entry;
  }
  return nullptr;
}

TEST(Link, ListsEveryLinkOfTheHostInIndexOrderAsTheKernelShowsIt) {
  const std::vector<Link> links = Link::list();
  ASSERT_FALSE(links.empty());
  EXPECT_EQ(links.front().name(), "lo");
  EXPECT_EQ(links.front().index(), 1);
  EXPECT_EQ(links.front().address(), 0u);
  EXPECT_TRUE(links.front().isLoopback());
  int previous = 0;
  for (const Link& link : links) {
    EXPECT_GT(link.index(), previous);
    previous = link.index();
    EXPECT_EQ(static_cast<int>(::if_nametoindex(link.name().c_str())), link.index());
    EXPECT_EQ(link.hardwareAddressText(), sysfs(link.name(), "address")) << link.name();
    EXPECT_EQ(std::to_string(link.mtu()), sysfs(link.name(), "mtu")) << link.name();
    EXPECT_EQ(std::to_string(link.type()), sysfs(link.name(), "type")) << link.name();
  }
  // Every link in /sys/class/net is listed.
  std::set<std::string> listed;
  for (const Link& link : links) listed.insert(link.name());
  EXPECT_EQ(listed.size(), links.size());
  EXPECT_EQ(test::entriesOf("/sys/class/net"), static_cast<int>(links.size()));

  // The loopback's address, its lookups, and the list kept for identifiers.
  const Link lo = Link::byName("lo");
  const LinkAddress* v4 = entryOf(lo, family::kIPv4, scope::kHost);
  ASSERT_NE(v4, nullptr);
  EXPECT_EQ(v4->address().asString(), "127.0.0.1");
  EXPECT_EQ(v4->prefixLength(), 8);
  EXPECT_EQ(Link::holding(Address("127.0.0.1", family::kIPv4)).index(), 1);
  EXPECT_EQ(Link::byIndex(1).name(), "lo");
  std::list<Link> all;
  std::map<std::string, Link> byName;
  Link::fill(all, byName);
  EXPECT_EQ(all.size(), links.size());
  EXPECT_EQ(byName.at("lo").index(), 1);

  QUOREL_EXPECT_THROW(Link::byName("no-such-link0"), sal::inet::Exception, "no link is named 'no-such-link0'", 6,
                      ENODEV);
  QUOREL_EXPECT_THROW(Link::byIndex(0), sal::inet::Exception, "no link has index 0", 6, ENODEV);
  QUOREL_EXPECT_THROW(Link::holding(Address("192.0.2.77", family::kIPv4)), sal::inet::Exception,
                      "no link holds the address '192.0.2.77'", 6, EADDRNOTAVAIL);
}

TEST(Network, MasksTheAddressComparesAndListsTheHostsNetworks) {
  const Network lan(Address("192.168.1.20", family::kIPv4), 24);
  EXPECT_EQ(lan.asString(), "192.168.1.0/24");
  EXPECT_EQ(lan.mask().asString(), "255.255.255.0");
  EXPECT_TRUE(lan.contains(Address("192.168.1.255", family::kIPv4)));
  EXPECT_FALSE(lan.contains(Address("192.168.2.1", family::kIPv4)));
  EXPECT_FALSE(lan.contains(Address("::ffff:192.168.1.1", family::kIPv6)));
  EXPECT_TRUE(lan.links().empty());
  EXPECT_TRUE(Network(Address("192.168.1.0", family::kIPv4), 24) == lan);
  EXPECT_TRUE(Network(Address("192.168.1.0", family::kIPv4), 16) < lan);
  EXPECT_TRUE(lan < Network(Address("::", family::kIPv6), 0));

  Address linkLocal("fe80::1:2", family::kIPv6);
  linkLocal.setScopeID(3);
  const Network scoped(linkLocal, 64);
  // The address's own text names the scope (by the link's name where index 3 exists).
  EXPECT_EQ(scoped.asString(), scoped.address().asString() + "/64");
  EXPECT_EQ(scoped.asString().rfind("fe80::%", 0), 0u);
  EXPECT_FALSE(scoped.contains(Address("fe80::1:2", family::kIPv6)));  // another link's
  EXPECT_TRUE(scoped.contains(linkLocal));

  QUOREL_EXPECT_THROW(Network(Address("10.0.0.1", family::kIPv4), 33), InvalidArgumentException,
                      "prefix length must be [0, 32]", 0, 33);
  QUOREL_EXPECT_THROW(Network(Address(), 8), InvalidArgumentException, "invalid address family specified", 0, 0);

  const std::vector<Network> networks = Network::list();
  EXPECT_TRUE(std::is_sorted(networks.begin(), networks.end()));
  const auto loopback = std::find(networks.begin(), networks.end(), Network(Address("127.0.0.0", family::kIPv4), 8));
  ASSERT_NE(loopback, networks.end());
  EXPECT_EQ(loopback->links(), std::vector<int>{1});
}

TEST(Link, FailedCallsNameTheCallAndLeaveNoDescriptor) {
  const int before = test::openDescriptorCount();
  QUOREL_EXPECT_THROW(
      {
        test::fault::Injection fail("socket", EMFILE);
        Link::list();
      },
      sal::inet::Exception, "::socket(AF_NETLINK, NETLINK_ROUTE) failed", 2, EMFILE);
  QUOREL_EXPECT_THROW(
      {
        test::fault::Injection fail("sendto", ENOBUFS, 2);  // the link dump's request
        Link::list();
      },
      sal::inet::Exception, "::sendto(RTM_GETLINK) failed", 2, ENOBUFS);
  auto e = QUOREL_EXPECT_THROW(
      {
        test::fault::Injection fail("recvmsg", ENOBUFS);
        Link::list();
      },
      sal::inet::Exception, "::recvmsg(RTM_GETADDR) failed", 2, ENOBUFS);
  ASSERT_TRUE(e);
  EXPECT_STREQ(e->file(), "sal/inet/impl/link.inl");
  EXPECT_EQ(test::openDescriptorCount(), before);
}

TEST(Link, OddAnswersAreReadAgainLeftOutOrReported) {
  const std::vector<std::string> names = namesOf(Link::list());

  {  // An interrupted dump is read again, whole.
    test::rtnetlink::Rewrite interrupt([](char* answer, ssize_t size, int call) {
      if (call <= 2) test::rtnetlink::first(answer)->nlmsg_flags |= NLM_F_DUMP_INTR;
      return size;
    });
    EXPECT_EQ(namesOf(Link::list()), names);
  }
  {  // An answer larger than the buffer is noticed and read again with room.
    test::rtnetlink::Rewrite cut([](char*, ssize_t size, int call) { return call == 1 ? 1 << 20 : size; });
    EXPECT_EQ(namesOf(Link::list()), names);
  }
  {  // An entry without a valid index is left out; the rest stay.
    test::rtnetlink::Rewrite odd([](char* answer, ssize_t size, int) {
      nlmsghdr* message = test::rtnetlink::first(answer);
      if (message->nlmsg_type == RTM_NEWLINK) static_cast<ifinfomsg*>(NLMSG_DATA(message))->ifi_index = 0;
      return size;
    });
    const std::vector<std::string> listed = namesOf(Link::list());
    EXPECT_EQ(listed.size() + 1, names.size());
    EXPECT_EQ(std::count(listed.begin(), listed.end(), names.front()), 0);
  }
  {  // Links that never stop changing.
    test::rtnetlink::Rewrite forever([](char* answer, ssize_t size, int) {
      test::rtnetlink::first(answer)->nlmsg_flags |= NLM_F_DUMP_INTR;
      return size;
    });
    QUOREL_EXPECT_THROW(Link::list(), sal::inet::Exception, "the link enumeration was interrupted 8 times in a row", 6,
                        EAGAIN);
  }
  {  // The kernel's refusal of the link dump, and an address answer that cannot be walked.
    test::rtnetlink::Rewrite refuse([](char* answer, ssize_t size, int) {
      nlmsghdr* header = test::rtnetlink::first(answer);
      if (header->nlmsg_type != RTM_NEWLINK) return size;
      test::rtnetlink::endOfDump(answer);
      header->nlmsg_type = NLMSG_ERROR;
      header->nlmsg_len = NLMSG_LENGTH(sizeof(nlmsgerr));
      static_cast<nlmsgerr*>(NLMSG_DATA(header))->error = -EPERM;
      return static_cast<ssize_t>(header->nlmsg_len);
    });
    QUOREL_EXPECT_THROW(Link::list(), sal::inet::Exception, "the kernel refused the RTM_GETLINK dump", 6, EPERM);
  }
  {
    test::rtnetlink::Rewrite garble([](char* answer, ssize_t size, int) {
      test::rtnetlink::first(answer)->nlmsg_len = static_cast<__u32>(size) + 4;
      return size;
    });
    QUOREL_EXPECT_THROW(Link::list(), sal::inet::Exception, "the RTM_GETADDR answer is malformed", 6, EPROTO);
  }
}

// Links configured in a namespace of the test's own: root only.
TEST(NetNSLink, ConfiguredLinksShowTheirStateAndAddresses) {
  QUOREL_NETNS_OR_SKIP();
  test::netns::Namespace ns;
  ns.run([] {
    ASSERT_TRUE(test::netns::ip("link add qa0 mtu 1400 address 02:00:00:00:00:01 type veth peer name qb0"));
    test::netns::ip("link set qa0 up");
    test::netns::ip("link set qb0 up");
    test::netns::ip("addr add 10.1.2.3/24 brd + dev qa0");
    test::netns::ip("addr add 2001:db8::5/64 dev qa0 nodad");
    test::netns::ip("addr add fe80::1:5/64 dev qa0 nodad");
    // A link without a hardware address, and one that is down with no address.
    test::netns::ip("tuntap add mode tun name qt0");
    test::netns::ip("link add qd0 type veth peer name qe0");

    const std::vector<Link> links = Link::list();
    EXPECT_EQ(namesOf(links), (std::vector<std::string>{"lo", "qb0", "qa0", "qt0", "qe0", "qd0"}));
    const Link qa = Link::byName("qa0");
    EXPECT_EQ(qa.index(), static_cast<int>(::if_nametoindex("qa0")));
    EXPECT_EQ(qa.mtu(), 1400u);
    EXPECT_EQ(qa.kind(), "veth");
    EXPECT_EQ(qa.type(), ARPHRD_ETHER);
    EXPECT_EQ(qa.hardwareAddressText(), "02:00:00:00:00:01");
    EXPECT_EQ(qa.address(), 0x020000000001ull);
    EXPECT_TRUE(qa.isUp() && qa.isRunning() && qa.isMulticast());
    EXPECT_FALSE(qa.isLoopback() || qa.isPointToPoint());

    const LinkAddress* v4 = entryOf(qa, family::kIPv4);
    ASSERT_NE(v4, nullptr);
    EXPECT_EQ(v4->address().asString(), "10.1.2.3");
    EXPECT_EQ(v4->prefixLength(), 24);
    EXPECT_EQ(v4->broadcast().asString(), "10.1.2.255");
    EXPECT_EQ(v4->label(), "qa0");
    const LinkAddress* v6 = entryOf(qa, family::kIPv6);
    ASSERT_NE(v6, nullptr);
    EXPECT_EQ(v6->address().asString(), "2001:db8::5");
    EXPECT_EQ(v6->address().scopeID(), 0u);
    EXPECT_EQ(v6->prefixLength(), 64);
    EXPECT_EQ(v6->broadcast().asString(), "");
    const LinkAddress* local = entryOf(qa, family::kIPv6, scope::kLink);
    ASSERT_NE(local, nullptr);
    EXPECT_EQ(local->address().scopeID(), static_cast<unsigned int>(qa.index()));
    Address scoped("fe80::1:5", family::kIPv6);
    scoped.setScopeID(static_cast<unsigned int>(qa.index()));
    EXPECT_EQ(Link::holding(scoped).name(), "qa0");
    EXPECT_EQ(Link::holding(Address("2001:db8::5", family::kIPv6)).name(), "qa0");

    const Link tun = Link::byName("qt0");
    EXPECT_EQ(tun.hardwareAddress(), "");
    EXPECT_EQ(tun.type(), ARPHRD_NONE);
    EXPECT_TRUE(tun.isPointToPoint());
    const Link down = Link::byName("qd0");
    EXPECT_FALSE(down.isUp());
    EXPECT_TRUE(down.addresses().empty());

    const std::vector<Network> networks = Network::list();
    const auto lan = std::find(networks.begin(), networks.end(), Network(Address("10.1.2.0", family::kIPv4), 24));
    ASSERT_NE(lan, networks.end());
    EXPECT_EQ(lan->links(), std::vector<int>{qa.index()});
    EXPECT_TRUE(std::find(networks.begin(), networks.end(), Network(scoped, 64)) != networks.end());
  });
}

TEST(NetNSLink, TwoHundredLinksAreEachListedOnce) {
  QUOREL_NETNS_OR_SKIP();
  test::netns::Namespace ns;
  ns.run([] {
    char path[] = "/tmp/quorel-links-XXXXXX";
    const int fd = ::mkstemp(path);
    ASSERT_GE(fd, 0);
    std::string batch;
    for (int i = 0; i < 100; ++i) batch += "link add qa" + std::to_string(i) + " type veth peer name qb" + std::to_string(i) + "\n";
    ASSERT_EQ(::write(fd, batch.data(), batch.size()), static_cast<ssize_t>(batch.size()));
    ::close(fd);
    std::string output;
    const int status = test::netns::command({"ip", "-batch", path}, &output);
    ::unlink(path);
    ASSERT_EQ(status, 0) << output;

    const std::vector<Link> links = Link::list();
    ASSERT_EQ(links.size(), 201u);
    std::set<std::string> names;
    for (const Link& link : links) {
      names.insert(link.name());
      EXPECT_EQ(static_cast<int>(::if_nametoindex(link.name().c_str())), link.index());
    }
    EXPECT_EQ(names.size(), 201u);
    EXPECT_TRUE(names.count("qa99") && names.count("qb0"));
  });
}

}  // namespace
}  // namespace quorel
