// The chain's operations in the programs' terms: the rule arguments and the
// restore batches written, the "-S" listings read back, the backend check,
// and the named mutex around installing and uninstalling.
#include <quorel/sal/inet/impl/fw/Chain.h>

#include <fstream>
#include <sstream>
#include <vector>

#include <quorel/sal/exec/NamedMutex.h>
#include <quorel/sal/inet/impl/fw/run.inl>
#include <quorel/util/ALockLatchFor.h>

namespace quorel {
namespace sal {
namespace inet {
namespace impl {
namespace fw {

namespace {

namespace family = inet::i::family;
namespace action = inet::fw::i::action;
namespace protocol = inet::fw::i::protocol;
using Rules = std::list<inet::fw::DynamicRule>;

const char kChain[] = "quorel.inet.fw.inbound";
const char kHook[] = "-A INPUT -j quorel.inet.fw.inbound";  // the jump install() adds, as "-S" prints it
const family::code kFamilies[2] = {family::kIPv4, family::kIPv6};
// Appended to the messages of an IPv6 half that fails after its IPv4 half.
const char kAfterIPv4[] = " (the IPv4 half was done)";

int indexOf(family::code which) { return which == family::kIPv4 ? 0 : 1; }

bool covers(const inet::fw::DynamicRule& rule, family::code which) {
  return rule.family() == family::kUnspecified || rule.family() == which;
}

std::list<std::string> lines(const std::string& text) {
  std::list<std::string> result;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) result.push_back(line);
  return result;
}

// "-s <net> -p tcp --dport 80:90 -j DROP": a rule's part after "-A <chain>"
// in one family (a rule from any source has no "-s").
std::list<std::string> argumentsOf(const inet::fw::DynamicRule& rule) {
  const DynamicRule& r = rule.key();
  std::list<std::string> args;
  if (rule.family() != family::kUnspecified) {
    args = {"-s", rule.source().asString() + "/" + std::to_string(r.prefixLength)};
  }
  std::string ports = std::to_string(r.firstPort);
  if (r.lastPort != r.firstPort) ports += ":" + std::to_string(r.lastPort);
  args.insert(args.end(), {"-p", r.protocol == protocol::kTCP ? "tcp" : "udp", "--dport", ports, "-j",
                           r.action == action::kAccept ? "ACCEPT" : "DROP"});
  return args;
}

// A number of "-S" output, 0 to 65535 in decimal digits, else -1.
int numberOf(const std::string& text) {
  if (text.empty() || text.size() > 5 || text.find_first_not_of("0123456789") != std::string::npos) return -1;
  const int number = std::stoi(text);
  return number <= 65535 ? number : -1;
}

// A rule of a family's "-S <chain>" listing.
struct Listed {
  bool anySource;
  inet::fw::DynamicRule rule;  // from 0.0.0.0/0 or ::/0 when anySource
};

// Adds the rule of a "-S <chain>" line to into when it is one of the form
// this class writes, as the programs print it back ("-s" first, "-m tcp"
// after "-p tcp"); other lines (comments, the "-N" line, rules put into the
// chain by hand) add nothing.
void parse(const std::string& line, family::code which, std::list<Listed>& into) {
  std::istringstream words(line);
  std::vector<std::string> w;
  for (std::string word; words >> word;) w.push_back(word);
  if (w.size() < 2 || w[0] != "-A" || w[1] != kChain) return;
  std::string source, proto, ports, target;
  for (size_t at = 2; at + 1 < w.size(); at += 2) {
    const std::string& option = w[at];
    const std::string& value = w[at + 1];
    if (option == "-s" && source.empty()) {
      source = value;
    } else if (option == "-p" && proto.empty()) {
      proto = value;
    } else if (option == "-m" && value == proto) {
      // the protocol's own match, which "--dport" brings
    } else if (option == "--dport" && ports.empty()) {
      ports = value;
    } else if (option == "-j" && target.empty()) {
      target = value;
    } else {
      return;
    }
  }
  if (w.size() % 2 != 0 || (proto != "tcp" && proto != "udp") || (target != "ACCEPT" && target != "DROP")) return;
  const size_t colon = ports.find(':');
  const int first = numberOf(ports.substr(0, colon));
  const int last = colon == std::string::npos ? first : numberOf(ports.substr(colon + 1));
  if (first < 1 || last < 1 || first > last) return;
  const bool any = source.empty();
  if (any) source = which == family::kIPv4 ? "0.0.0.0/0" : "::/0";
  const size_t slash = source.find('/');
  const int prefix = slash == std::string::npos ? -1 : numberOf(source.substr(slash + 1));
  if (prefix < 0 || prefix > (which == family::kIPv4 ? 32 : 128)) return;
  into.push_back(Listed{any, inet::fw::DynamicRule(target == "ACCEPT" ? action::kAccept : action::kDrop,
                                                   proto == "tcp" ? protocol::kTCP : protocol::kUDP, first, last,
                                                   inet::Address(source.substr(0, slash), which), prefix)});
}

// The one NamedMutex of this process for the chain: a second object of the
// same name would release the process's record lock when it went.
exec::NamedMutex& chainMutex() {
  static exec::NamedMutex mutex(kChain);
  return mutex;
}

// What "-S" says of the chain: whether it exists and its plain jumps from INPUT.
struct Hook {
  bool chain = false;
  int jumps = 0;
};

Hook hookIn(const std::string& listing) {
  Hook hook;
  for (const std::string& line : lines(listing)) {
    if (line == std::string("-N ") + kChain) hook.chain = true;
    if (line == kHook) ++hook.jumps;
  }
  return hook;
}

// Whether the legacy backend has a filter table of the family, from the list
// the kernel keeps. Running the legacy program to find out would make one.
// The list is the calling thread's network namespace's ("/proc/net" is that
// of the process's first thread); kernels before 3.17 have only "/proc/net".
bool legacyFilterTable(family::code which) {
  const std::string file = which == family::kIPv4 ? "ip_tables_names" : "ip6_tables_names";
  std::ifstream names("/proc/thread-self/net/" + file);
  if (!names.is_open()) names.open("/proc/net/" + file);
  for (std::string name; std::getline(names, name);) {
    if (name == "filter") return true;
  }
  return false;
}

/// Throws when the chain is hooked into INPUT through the backend that the
/// family's tool does not use. The other backend's program is the tool's
/// name with "-legacy" or "-nft" (in place of either suffix the name has);
/// where it is missing, or cannot list its table, it holds no rules to find.
void checkBackend(const Spec& spec, family::code which, const std::string& note) {
  const int f = indexOf(which);
  const int deadline = spec.deadlineMilliseconds;
  const std::string version = outputOf(Run{spec.tool[f], {"--version"}, "", deadline, note});
  const bool nft = version.find("(nf_tables)") != std::string::npos;
  std::string other = spec.tool[f];
  for (const std::string suffix : {"-nft", "-legacy"}) {
    if (other.size() > suffix.size() && other.compare(other.size() - suffix.size(), suffix.size(), suffix) == 0) {
      other.erase(other.size() - suffix.size());
    }
  }
  other += nft ? "-legacy" : "-nft";
  if (sys::exec::proc::resolve(other).empty() || (nft && !legacyFilterTable(which))) return;
  const Outcome listing =
      launch(Run{other, {"-w", std::to_string(spec.lockWaitSeconds), "-S", "INPUT"}, "", deadline, note});
  if (listing.status == 0 && hookIn(listing.output).jumps > 0) {
    QUOREL_THROW(inet::Exception)("the chain is already hooked into INPUT through '" + other + "'" + note,
                                  kApplication, 0);
  }
}

}  // namespace

void Chain::install() const {
  util::ALockLatchFor<exec::NamedMutex> latch(chainMutex());
  for (family::code which : kFamilies) {
    const int f = indexOf(which);
    const std::string note = which == family::kIPv6 ? kAfterIPv4 : "";
    const std::string wait = std::to_string(spec.lockWaitSeconds);
    checkBackend(spec, which, note);
    const Hook hook = hookIn(outputOf(Run{spec.tool[f], {"-w", wait, "-S"}, "", spec.deadlineMilliseconds, note}));
    std::string batch;
    if (!hook.chain) batch += std::string("-N ") + kChain + "\n";
    if (hook.jumps == 0) batch += std::string("-I INPUT -j ") + kChain + "\n";
    if (batch.empty()) continue;
    outputOf(Run{spec.restore[f], {"--noflush", "-w", wait}, "*filter\n" + batch + "COMMIT\n",
                 spec.deadlineMilliseconds, note});
  }
}

void Chain::uninstall() const {
  util::ALockLatchFor<exec::NamedMutex> latch(chainMutex());
  for (family::code which : kFamilies) {
    const int f = indexOf(which);
    const std::string note = which == family::kIPv6 ? kAfterIPv4 : "";
    const std::string wait = std::to_string(spec.lockWaitSeconds);
    const Hook hook = hookIn(outputOf(Run{spec.tool[f], {"-w", wait, "-S"}, "", spec.deadlineMilliseconds, note}));
    std::string batch;
    for (int n = 0; n < hook.jumps; ++n) batch += std::string("-D INPUT -j ") + kChain + "\n";
    if (hook.chain) batch += std::string("-F ") + kChain + "\n-X " + kChain + "\n";
    if (batch.empty()) continue;
    outputOf(Run{spec.restore[f], {"--noflush", "-w", wait}, "*filter\n" + batch + "COMMIT\n",
                 spec.deadlineMilliseconds, note});
  }
}

namespace {

// Appends ("-A") or deletes ("-D") rules: each rule in each of its families
// by the tool, or each family's rules in one batch by its restore program.
void change(const Spec& spec, const char* how, const Rules& rules, bool batch) {
  const std::string wait = std::to_string(spec.lockWaitSeconds);
  if (!batch) {
    for (const inet::fw::DynamicRule& rule : rules) {
      for (family::code which : kFamilies) {
        if (!covers(rule, which)) continue;
        std::list<std::string> args = {"-w", wait, how, kChain};
        args.splice(args.end(), argumentsOf(rule));
        const bool second = which == family::kIPv6 && covers(rule, family::kIPv4);
        outputOf(Run{spec.tool[indexOf(which)], args, "", spec.deadlineMilliseconds, second ? kAfterIPv4 : ""});
      }
    }
    return;
  }
  bool done = false;
  for (family::code which : kFamilies) {
    std::string text;
    for (const inet::fw::DynamicRule& rule : rules) {
      if (!covers(rule, which)) continue;
      text += std::string(how) + " " + kChain;
      for (const std::string& arg : argumentsOf(rule)) text += " " + arg;
      text += "\n";
    }
    if (text.empty()) continue;
    outputOf(Run{spec.restore[indexOf(which)], {"--noflush", "-w", wait}, "*filter\n" + text + "COMMIT\n",
                 spec.deadlineMilliseconds, done ? kAfterIPv4 : ""});
    done = true;
  }
}

}  // namespace

void Chain::add(const Rules& rules, bool batch) const { change(spec, "-A", rules, batch); }

void Chain::remove(const Rules& rules, bool batch) const { change(spec, "-D", rules, batch); }

Rules Chain::list() const {
  std::list<Listed> found[2];
  for (family::code which : kFamilies) {
    const int f = indexOf(which);
    const std::string listing = outputOf(Run{
        spec.tool[f], {"-w", std::to_string(spec.lockWaitSeconds), "-S", kChain}, "", spec.deadlineMilliseconds, ""});
    for (const std::string& line : lines(listing)) parse(line, which, found[f]);
  }
  // A rule from any source is in both lists: its IPv6 half is the first
  // IPv6 rule without a source that matches it and is not taken yet.
  Rules rules;
  for (const Listed& v4 : found[0]) {
    const DynamicRule& r = v4.rule.key();
    auto half = found[1].end();
    for (auto at = found[1].begin(); v4.anySource && at != found[1].end(); ++at) {
      const DynamicRule& s = at->rule.key();
      if (at->anySource && s.action == r.action && s.protocol == r.protocol && s.firstPort == r.firstPort &&
          s.lastPort == r.lastPort) {
        half = at;
        break;
      }
    }
    if (half == found[1].end()) {
      rules.push_back(v4.rule);
      continue;
    }
    found[1].erase(half);
    rules.push_back(inet::fw::DynamicRule(r.action, r.protocol, r.firstPort, r.lastPort));
  }
  for (const Listed& v6 : found[1]) rules.push_back(v6.rule);
  return rules;
}

void Chain::flush() const {
  for (family::code which : kFamilies) {
    const int f = indexOf(which);
    outputOf(Run{spec.tool[f], {"-w", std::to_string(spec.lockWaitSeconds), "-F", kChain}, "",
                 spec.deadlineMilliseconds, which == family::kIPv6 ? kAfterIPv4 : ""});
  }
}

}  // namespace fw
}  // namespace impl
}  // namespace inet
}  // namespace sal
}  // namespace quorel
