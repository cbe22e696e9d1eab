/// \file
/// Chain: the inbound firewall chain "quorel.inet.fw.inbound", kept in the
/// filter table of iptables and ip6tables and hooked into "INPUT"; Spec and
/// the op options say which programs keep it and how long they may take.
#ifndef QUOREL_SAL_INET_FW_CHAIN_H
#define QUOREL_SAL_INET_FW_CHAIN_H

#include <list>
#include <string>

#include <quorel/sal/inet/fw/DynamicRule.h>
#include <quorel/sal/inet/i/family.h>
#include <quorel/sal/inet/impl/fw/Chain.h>
#include <quorel/util/AHandleTo.h>

namespace quorel {
namespace sal {
namespace inet {
namespace fw {

namespace op {

/// The programs that keep one family's half of the chain: the rule tool
/// ("iptables", "ip6tables") and its batch loader ("iptables-restore",
/// "ip6tables-restore"). A name without "/" is looked for on PATH.
struct Programs {
  Programs(inet::i::family::code which, const std::string& toolName, const std::string& restoreName)
      : family(which), tool(toolName), restore(restoreName) {}
  inet::i::family::code family;
  std::string tool;
  std::string restore;
};
/// How long a program waits for the xtables lock that another holds, in
/// seconds (its "-w"), 1 to 3600.
struct LockWait {
  explicit LockWait(int value) : seconds(value) {}
  int seconds;
};
/// How long one program may run, in milliseconds, 1 to 3600000; at the
/// deadline it is killed. Keep it above the lock wait, or a program that
/// queues for the lock is ended before its wait is over.
struct Deadline {
  explicit Deadline(int value) : milliseconds(value) {}
  int milliseconds;
};

}  // namespace op

/// How a Chain runs its programs. By default "iptables" and
/// "iptables-restore" for IPv4, "ip6tables" and "ip6tables-restore" for
/// IPv6, a lock wait of 5 seconds and a deadline of 20 seconds. Copies share
/// one record; a Chain takes a copy of the settings when it is made.
///
///   fw::Spec spec;
///   spec.set(fw::op::Programs(inet::i::family::kIPv4, "iptables-legacy", "iptables-legacy-restore"))
///       .set(fw::op::LockWait(10));
///
/// set() checks its option before storing it and throws
/// InvalidArgumentException (application domain): "unrecognized address
/// family" (code the family), "a program name must not be empty", "the lock
/// wait must be from 1 to 3600 seconds" or "the deadline must be from 1 to
/// 3600000 milliseconds" (code the value).
class Spec {
 public:
  Spec();

  Spec& set(const op::Programs& option);
  Spec& set(const op::LockWait& option);
  Spec& set(const op::Deadline& option);

  const impl::fw::Spec& key() const { return handle_.reference(); }

 private:
  util::AHandleTo<impl::fw::Spec> handle_;
};

/// The chain "quorel.inet.fw.inbound" in the filter table of both families,
/// hooked once into "INPUT" by a jump at its head: every inbound packet
/// passes the chain's rules, in the order they were added, before the rest
/// of INPUT; the first rule that matches decides, and a packet that no rule
/// matches goes on through INPUT. Rules of other tools, and their chains,
/// are never touched.
///
///   fw::Chain chain;                 // the default Spec
///   chain.install();                 // idempotent
///   chain.add(fw::DynamicRule(fw::i::action::kDrop, fw::i::protocol::kTCP, 23, 23));
///   for (const fw::DynamicRule& rule : chain.list()) std::cout << rule.asString() << "\n";
///   chain.uninstall();
///
/// Every operation runs the family's programs through exec::Process with an
/// argument vector (never a shell), "-w <lock wait>" always, an environment
/// holding only PATH, and standard output and error read through pipes. A
/// program still running at the deadline is killed (SIGKILL to its process
/// group) and reaped. An operation that covers both families (install,
/// uninstall, flush, list, a rule from any source) does IPv4 first and
/// stops at the first failure; when the IPv6 half fails after the IPv4 half
/// was done, the message ends with " (the IPv4 half was done)".
///
/// Failures throw inet::Exception in the application domain:
/// - a program not found: "program '<name>' not found" (code 0);
/// - a program that fails: "'<command line>' exited with status <n>: <its
///   standard error>" with the exit status as the code; the command line is
///   the program's name and arguments as given, the standard error's lines
///   joined by "; " and without a final full stop;
/// - a program killed at the deadline: "'<command line>' ran past its
///   deadline of <n> ms and was killed" (code -1);
/// - the chain hooked into INPUT through the other backend ("iptables
///   --version" says "(nf_tables)" or "(legacy)"; the other is the name with
///   "-legacy" or "-nft"): "the chain is already hooked into INPUT through
///   <program>" (code 0).
/// A rule set too large for a pipe (a batch of many thousands of rules)
/// throws inet::Exception "::fcntl(F_SETPIPE_SZ) failed" (domain 2, errno).
///
/// Copies share the settings; operations may run on any threads and in any
/// processes at once: the xtables lock (which "-w" waits for) serialises
/// the programs, and install() and uninstall() also hold the named mutex
/// "quorel.inet.fw.inbound" (exec::NamedMutex) around what they read and
/// change, so that concurrent installs hook the chain once. A program of
/// this process that makes its own NamedMutex of that name breaks this.
class Chain {
 public:
  /// "quorel.inet.fw.inbound".
  static const char* name();

  explicit Chain(const Spec& spec = Spec());

  /// Creates the chain where it is missing and adds the jump from INPUT
  /// where there is none; an installed chain keeps its rules. Throws, before
  /// changing anything in a family, when that family's chain is hooked
  /// through the other backend.
  void install();
  /// Deletes every plain jump from INPUT to the chain, then the chain and
  /// its rules, in one batch per family; nothing to do is no failure. A
  /// rule of another chain that still jumps here makes the batch fail and
  /// leaves that family as it was.
  void uninstall();

  /// Appends the rule: "-A" for each of its families. Adding a rule twice
  /// makes two rules.
  void add(const DynamicRule& rule);
  /// Appends the rules in order, each family's in one batch ("-restore
  /// --noflush"): all of a family's rules or none of them.
  void add(const std::list<DynamicRule>& rules);
  /// Deletes one such rule: "-D" for each of its families. Throws (status 1
  /// with the program's text) where a family has none.
  void remove(const DynamicRule& rule);
  /// Deletes the rules, each family's in one batch.
  void remove(const std::list<DynamicRule>& rules);
  /// The chain's rules: the IPv4 rules in chain order, then the IPv6 rules
  /// that are not the IPv6 half of a rule from any source. A rule without
  /// a source found in both families (matched one to one, in order) comes
  /// back as a rule from any source; found in one family only, with the
  /// source 0.0.0.0/0 or ::/0. Lines the programs print that are no rule
  /// of this class's form (comments such as "# Warning: iptables-legacy
  /// tables present", a rule put into the chain by hand) are skipped. A
  /// family without the chain fails with the program's status 1.
  std::list<DynamicRule> list() const;
  /// Deletes every rule of the chain; it stays installed.
  void flush();

 private:
  util::AHandleTo<impl::fw::Chain> handle_;
};

}  // namespace fw
}  // namespace inet
}  // namespace sal
}  // namespace quorel

#endif
