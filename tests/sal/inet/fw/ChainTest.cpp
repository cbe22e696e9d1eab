// The inbound firewall chain, each test in network namespaces of its own
// (suite Firewall), and the checks of rules and settings (suite FirewallRule).
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iostream>
#include <list>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

#include "support/expect.h"
#include "support/netns.h"
#include "support/process.h"

namespace quorel {
namespace {

namespace fw = sal::inet::fw;
using sal::inet::Address;
using sal::i::err::domain::kApplication;
namespace family = sal::inet::i::family;
const fw::i::action::code kAccept = fw::i::action::kAccept, kDrop = fw::i::action::kDrop;
const fw::i::protocol::code kTCP = fw::i::protocol::kTCP, kUDP = fw::i::protocol::kUDP;

// "<program> -w 5 -S <chain>" in the calling thread's namespace; "" when it fails.
std::string listing(const std::string& program, const std::string& chain) {
  std::string text;
  return test::netns::command({program, "-w", "5", "-S", chain}, &text) == 0 ? text : std::string();
}

// How often INPUT jumps to the chain in a family.
int jumps(const std::string& program) {
  const std::string text = listing(program, "INPUT");
  int count = 0;
  for (size_t at = 0; (at = text.find("-A INPUT -j quorel.inet.fw.inbound\n", at)) != std::string::npos; ++at) ++count;
  return count;
}

// Why firewall tests cannot run here ("" when they can): no namespaces, or no
// working iptables and ip6tables in one. Found out once.
const std::string& firewallUnavailable() {
  static const std::string reason = [] {
    std::string why = test::netns::unavailable();
    if (!why.empty()) return why;
    test::netns::Namespace ns;
    ns.run([&] {
      for (const char* program : {"iptables", "ip6tables"}) {
        std::string text;
        if (why.empty() && test::netns::command({program, "-w", "5", "-S"}, &text) != 0) {
          why = std::string(program) + " does not work here (no netfilter in the kernel, or not installed): " + text;
        }
      }
    });
    return why;
  }();
  return reason;
}

// Why the legacy backend cannot be used beside the default one ("" when it
// can): not installed, or the kernel has no legacy tables.
const std::string& legacyUnavailable() {
  static const std::string reason = [] {
    if (sal::sys::exec::proc::resolve("iptables-legacy").empty()) return std::string("iptables-legacy is not installed");
    std::string why;
    test::netns::Namespace ns;
    ns.run([&] {
      for (const char* program : {"iptables-legacy", "ip6tables-legacy"}) {
        std::string text;
        if (why.empty() && test::netns::command({program, "-w", "5", "-S"}, &text) != 0)
          why = std::string(program) + " does not work here (no legacy tables in the kernel): " + text;
      }
    });
    return why;
  }();
  return reason;
}

#define QUOREL_FIREWALL_OR_SKIP()                                                           \
  do {                                                                                      \
    if (!firewallUnavailable().empty()) GTEST_SKIP() << "skipped: " << firewallUnavailable(); \
  } while (0)

// A shell script of this process's own (removed with the object).
struct Script {
  explicit Script(const std::string& name, const std::string& body)
      : path("/tmp/quorel-fw-" + name + "-" + std::to_string(::getpid())) {
    std::ofstream(path) << "#!/bin/sh\n" << body << "\n";
    ::chmod(path.c_str(), 0755);
  }
  ~Script() { ::unlink(path.c_str()); }
  std::string path;
};

TEST(FirewallRule, BadRulesAndSettingsAreRefusedBeforeAnyProgramRuns) {
  QUOREL_EXPECT_THROW(fw::DynamicRule(kAccept, kTCP, 0, 0), InvalidArgumentException, "a port must be from 1 to 65535",
                      kApplication, 0);
  QUOREL_EXPECT_THROW(fw::DynamicRule(kAccept, kTCP, 1, 65536), InvalidArgumentException,
                      "a port must be from 1 to 65535", kApplication, 65536);
  QUOREL_EXPECT_THROW(fw::DynamicRule(kDrop, kUDP, 90, 80), InvalidArgumentException,
                      "the first port must not be above the last", kApplication, 90);
  QUOREL_EXPECT_THROW(fw::DynamicRule(static_cast<fw::i::action::code>(7), kUDP, 1, 1), InvalidArgumentException,
                      "unrecognized rule action", kApplication, 7);
  QUOREL_EXPECT_THROW(fw::DynamicRule(kDrop, static_cast<fw::i::protocol::code>(0), 1, 1), InvalidArgumentException,
                      "unrecognized rule protocol", kApplication, 0);
  QUOREL_EXPECT_THROW(fw::DynamicRule(kDrop, kTCP, 1, 1, Address("10.0.0.0", family::kIPv4), 33),
                      InvalidArgumentException, "prefix length must be [0, 32]", kApplication, 33);
  QUOREL_EXPECT_THROW(fw::DynamicRule(kDrop, kTCP, 1, 1, Address("::", family::kIPv6), 129), InvalidArgumentException,
                      "prefix length must be [0, 128]", kApplication, 129);
  QUOREL_EXPECT_THROW(fw::DynamicRule(kDrop, kTCP, 1, 1, Address(), 0), InvalidArgumentException,
                      "the source address has no family", kApplication, 0);
  fw::Spec spec;
  QUOREL_EXPECT_THROW(spec.set(fw::op::LockWait(0)), InvalidArgumentException,
                      "the lock wait must be from 1 to 3600 seconds", kApplication, 0);
  QUOREL_EXPECT_THROW(spec.set(fw::op::Deadline(-5)), InvalidArgumentException,
                      "the deadline must be from 1 to 3600000 milliseconds", kApplication, -5);
  QUOREL_EXPECT_THROW(spec.set(fw::op::Programs(family::kUnspecified, "a", "b")), InvalidArgumentException,
                      "unrecognized address family", kApplication, 0);
  QUOREL_EXPECT_THROW(spec.set(fw::op::Programs(family::kIPv6, "", "b")), InvalidArgumentException,
                      "a program name must not be empty", kApplication, 0);

  // A source keeps its network only, in its own family.
  const fw::DynamicRule net(kAccept, kUDP, 5000, 5010, Address("10.1.2.3", family::kIPv4), 8);
  EXPECT_EQ(net.asString(), "accept udp 5000:5010 from 10.0.0.0/8");
  EXPECT_EQ(net.family(), family::kIPv4);
  EXPECT_EQ(net, fw::DynamicRule(kAccept, kUDP, 5000, 5010, Address("10.0.0.0", family::kIPv4), 8));
  const fw::DynamicRule any(kDrop, kTCP, 23, 23);
  EXPECT_EQ(any.asString(), "drop tcp 23");
  EXPECT_EQ(any.family(), family::kUnspecified);
  EXPECT_NE(any, fw::DynamicRule(kDrop, kTCP, 23, 23, Address("0.0.0.0", family::kIPv4), 0));
}

TEST(Firewall, InstallsOnceListsWhatWasAddedAndUninstallsToTheFormerInput) {
  QUOREL_FIREWALL_OR_SKIP();
  test::netns::Namespace ns;
  ns.run([] {
    // Another tool's rule in INPUT: it stays where it is.
    ASSERT_EQ(test::netns::command({"iptables", "-w", "5", "-A", "INPUT", "-p", "tcp", "--dport", "9", "-j", "ACCEPT"}), 0);
    const std::string before[2] = {listing("iptables", "INPUT"), listing("ip6tables", "INPUT")};
    fw::Chain chain;
    chain.install();
    chain.install();
    EXPECT_EQ(jumps("iptables"), 1);
    EXPECT_EQ(jumps("ip6tables"), 1);
    EXPECT_TRUE(chain.list().empty());

    const fw::DynamicRule ssh(kAccept, kTCP, 22, 22), dns(kDrop, kUDP, 53, 53),
        games(kDrop, kUDP, 5000, 5010, Address("10.1.2.3", family::kIPv4), 8),
        web(kAccept, kTCP, 443, 443, Address("2001:db8::", family::kIPv6), 32),
        anyFour(kDrop, kTCP, 7, 7, Address("0.0.0.0", family::kIPv4), 0);
    chain.add(ssh);
    chain.add({games, web, dns, anyFour});
    EXPECT_EQ(listing("iptables", "quorel.inet.fw.inbound"),
              "-N quorel.inet.fw.inbound\n"
              "-A quorel.inet.fw.inbound -p tcp -m tcp --dport 22 -j ACCEPT\n"
              "-A quorel.inet.fw.inbound -s 10.0.0.0/8 -p udp -m udp --dport 5000:5010 -j DROP\n"
              "-A quorel.inet.fw.inbound -p udp -m udp --dport 53 -j DROP\n"
              "-A quorel.inet.fw.inbound -p tcp -m tcp --dport 7 -j DROP\n");
    // IPv4 in chain order, then what IPv6 holds beside the any-source halves.
    EXPECT_EQ(chain.list(), (std::list<fw::DynamicRule>{ssh, games, dns, anyFour, web}));

    // Deleting one at a time and in a batch, which is all or nothing.
    chain.remove(games);
    const auto failed = test::caught<sal::inet::Exception>([&] { chain.remove({ssh, games}); });
    ASSERT_TRUE(failed);
    EXPECT_EQ(failed->why().rfind("'iptables-restore --noflush -w 5' exited with status 1: ", 0), 0u) << failed->why();
    EXPECT_EQ(failed->code(), 1);
    chain.remove({ssh, anyFour});
    EXPECT_EQ(chain.list(), (std::list<fw::DynamicRule>{dns, web}));
    chain.flush();
    EXPECT_TRUE(chain.list().empty());
    EXPECT_EQ(jumps("iptables"), 1);

    chain.uninstall();
    chain.uninstall();
    EXPECT_EQ(listing("iptables", "INPUT"), before[0]);
    EXPECT_EQ(listing("ip6tables", "INPUT"), before[1]);
    EXPECT_EQ(listing("iptables", "quorel.inet.fw.inbound"), "");
  });
}

// Whether a TCP connection from the client's namespace to host:port opens
// within timeout milliseconds.
bool connects(test::netns::Namespace& client, const std::string& host, unsigned short port, int timeout) {
  bool open = false;
  client.run([&] {
    const sal::io::TCPConnectingAddress address(host, port);
    sal::io::TCPClientSocket socket(address, false, false);
    try {
      socket.connectTo(address, timeout);
      open = true;
    } catch (const sal::Exception&) {
    }
  });
  return open;
}

TEST(Firewall, ADropRuleStopsConnectionsBetweenNamespacesUntilItIsRemoved) {
  QUOREL_FIREWALL_OR_SKIP();
  test::netns::Namespace server, client;
  std::unique_ptr<sal::io::TCPServerSocket> listeners[2];
  unsigned short ports[2] = {0, 0};
  const char* hosts[2] = {"10.213.0.1", "fd00:213::1"};
  server.run([&] {
    ASSERT_TRUE(test::netns::ip("link add fwa type veth peer name fwb netns " + std::to_string(client.tid())));
    test::netns::ip("addr add 10.213.0.1/24 dev fwa");
    test::netns::ip("-6 addr add fd00:213::1/64 dev fwa nodad");
    test::netns::ip("link set fwa up");
    for (int f = 0; f < 2; ++f) {
      listeners[f].reset(new sal::io::TCPServerSocket(sal::io::TCPBindingAddress(hosts[f], 0), false));
      ports[f] = listeners[f]->selfAddress().port();
    }
  });
  client.run([] {
    test::netns::ip("addr add 10.213.0.2/24 dev fwb");
    test::netns::ip("-6 addr add fd00:213::2/64 dev fwb nodad");
    test::netns::ip("link set fwb up");
  });
  for (int f = 0; f < 2; ++f) EXPECT_TRUE(connects(client, hosts[f], ports[f], 5000)) << hosts[f];

  fw::Chain chain;
  const fw::DynamicRule drops[2] = {fw::DynamicRule(kDrop, kTCP, ports[0], ports[0]),
                                    fw::DynamicRule(kDrop, kTCP, ports[1] - 1, ports[1],
                                                    Address("fd00:213::2", family::kIPv6), 64)};
  server.run([&] {
    chain.install();
    chain.add(drops[0]);
    chain.add(drops[1]);
  });
  for (int f = 0; f < 2; ++f) EXPECT_FALSE(connects(client, hosts[f], ports[f], 300)) << hosts[f];
  server.run([&] {
    chain.remove(drops[0]);
    chain.remove(drops[1]);
  });
  for (int f = 0; f < 2; ++f) EXPECT_TRUE(connects(client, hosts[f], ports[f], 5000)) << hosts[f];
}

TEST(Firewall, ProcessesInstallingAndAddingAtOnceAllSucceed) {
  QUOREL_FIREWALL_OR_SKIP();
  // Both backends where both are installed: the legacy programs take the
  // xtables lock for each change, which concurrent callers queue for.
  std::vector<std::string> backends = {""};
  if (legacyUnavailable().empty()) {
    backends.push_back("-legacy");
  } else {
    std::cout << "[   NOTE   ] the legacy backend is not tried: " << legacyUnavailable() << "\n";
  }
  for (const std::string& backend : backends) {
    SCOPED_TRACE("iptables" + backend);
    fw::Spec spec;
    for (const char* tool : {"iptables", "ip6tables"}) {
      spec.set(fw::op::Programs(tool[2] == '6' ? family::kIPv6 : family::kIPv4, tool + backend,
                                tool + backend + "-restore"));
    }
    test::netns::Namespace ns;
    ns.run([&] {
      // Three installers at once: two child processes and this thread, each
      // adding ten rules one by one.
      auto work = [&spec](int first) {
        fw::Chain chain(spec);
        chain.install();
        for (int port = first; port < first + 10; ++port) chain.add(fw::DynamicRule(kAccept, kTCP, port, port));
      };
      pid_t children[2];
      for (int n = 0; n < 2; ++n) {
        children[n] = ::fork();
        if (children[n] == 0) {
          try {
            work(1000 * (n + 1));
          } catch (const quorel::Exception& e) {
            std::fprintf(stderr, "child %d: %s\n", n, e.asString().c_str());
            ::_exit(1);
          }
          ::_exit(0);
        }
        ASSERT_GT(children[n], 0);
      }
      work(3000);
      for (pid_t child : children) {
        int status = -1;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
      }
      EXPECT_EQ(jumps("iptables" + backend), 1);
      EXPECT_EQ(jumps("ip6tables" + backend), 1);
      EXPECT_EQ(fw::Chain(spec).list().size(), 30u);
    });
  }
}

TEST(Firewall, FailuresNameTheProgramItsStatusAndTheDeadline) {
  QUOREL_FIREWALL_OR_SKIP();
  test::netns::Namespace ns;
  ns.run([] {
    fw::Spec noIPv6;
    noIPv6.set(fw::op::Programs(family::kIPv6, "/nonexistent/ip6tables", "/nonexistent/ip6tables-restore"));
    fw::Chain halfChain(noIPv6);
    QUOREL_EXPECT_THROW(halfChain.install(), sal::inet::Exception,
                        "program '/nonexistent/ip6tables' not found (the IPv4 half was done)", kApplication, 0);
    EXPECT_EQ(jumps("iptables"), 1);
    QUOREL_EXPECT_THROW(halfChain.list(), sal::inet::Exception, "program '/nonexistent/ip6tables' not found",
                        kApplication, 0);

    // The program's status and its own words.
    fw::Chain chain;
    const std::vector<std::string> args = {"iptables", "-w", "5", "-D", "quorel.inet.fw.inbound", "-p", "tcp",
                                           "--dport", "7", "-j", "ACCEPT"};
    std::string words;
    ASSERT_EQ(test::netns::command(args, &words), 1);
    while (!words.empty() && (words.back() == '\n' || words.back() == '.')) words.pop_back();
    QUOREL_EXPECT_THROW(chain.remove(fw::DynamicRule(kAccept, kTCP, 7, 7, Address("0.0.0.0", family::kIPv4), 0)),
                        sal::inet::Exception,
                        "'iptables -w 5 -D quorel.inet.fw.inbound -s 0.0.0.0/0 -p tcp --dport 7 -j ACCEPT' exited with status 1: " +
                            words,
                        kApplication, 1);

    // Programs that hang, with their outputs open or closed, end at the deadline.
    const Script hangs("hangs", "exec sleep 30"), hangsClosed("hangs-closed", "exec >&- 2>&-; exec sleep 30");
    const int descriptors = test::openDescriptorCount();
    for (const Script* script : {&hangs, &hangsClosed}) {
      fw::Spec spec;
      spec.set(fw::op::Programs(family::kIPv4, script->path, script->path)).set(fw::op::Deadline(300));
      QUOREL_EXPECT_THROW(fw::Chain(spec).flush(), sal::inet::Exception,
                          "'" + script->path + " -w 5 -F quorel.inet.fw.inbound' ran past its deadline of 300 ms "
                          "and was killed",
                          kApplication, -1);
    }
    EXPECT_EQ(test::openDescriptorCount(), descriptors);
  });
}

TEST(Firewall, AChainHookedThroughTheOtherBackendIsReportedAndCommentsAreSkipped) {
  QUOREL_FIREWALL_OR_SKIP();
  std::string version;
  test::netns::command({"iptables", "--version"}, &version);
  if (version.find("(nf_tables)") == std::string::npos || !legacyUnavailable().empty()) {
    GTEST_SKIP() << "skipped: needs iptables on nf_tables and a working iptables-legacy beside it; iptables is "
                 << version << legacyUnavailable();
  }
  test::netns::Namespace ns;
  ns.run([] {
    // A tool that warns on its standard output, as some versions do.
    const Script warning("warning", "echo '# Warning: iptables-legacy tables present, use iptables-legacy to see them'\n"
                                    "exec iptables \"$@\"");
    fw::Spec spec;
    spec.set(fw::op::Programs(family::kIPv4, warning.path, "iptables-restore"));
    fw::Chain chain(spec);
    chain.install();
    const fw::DynamicRule rule(kAccept, kUDP, 53, 53, Address("10.0.0.0", family::kIPv4), 8);
    chain.add(rule);
    EXPECT_EQ(chain.list(), std::list<fw::DynamicRule>{rule});

    for (const char* step : {"-N", "-I"}) {
      const std::vector<std::string> args =
          step[1] == 'N' ? std::vector<std::string>{"iptables-legacy", "-w", "5", "-N", "quorel.inet.fw.inbound"}
                         : std::vector<std::string>{"iptables-legacy", "-w", "5", "-I", "INPUT", "-j",
                                                    "quorel.inet.fw.inbound"};
      ASSERT_EQ(test::netns::command(args), 0);
    }
    QUOREL_EXPECT_THROW(fw::Chain().install(), sal::inet::Exception,
                        "the chain is already hooked into INPUT through 'iptables-legacy'", kApplication, 0);
    EXPECT_EQ(chain.list(), std::list<fw::DynamicRule>{rule});
  });
}

}  // namespace
}  // namespace quorel
