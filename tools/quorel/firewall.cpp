// quorel fw: the inbound firewall chain through inet::fw::Chain.
//
//   quorel fw install|uninstall|list|flush
//   quorel fw allow|deny tcp|udp PORT[:LAST] [from ADDRESS[/PREFIX]]
//   quorel fw remove allow|deny tcp|udp PORT[:LAST] [from ADDRESS[/PREFIX]]
#include <iostream>
#include <list>
#include <string>
#include <vector>

#include <quorel/quorel.h>

#include "command.h"
#include "json.h"

namespace tool {

namespace {

namespace fw = quorel::sal::inet::fw;
namespace family = quorel::sal::inet::i::family;
using quorel::sal::inet::Address;

const char kRuleWords[] = "allow|deny tcp|udp PORT[:LAST] [from ADDRESS[/PREFIX]]";

// The rule of words such as "allow tcp 22 from 10.0.0.0/8". The library
// checks the ports and the prefix.
fw::DynamicRule ruleOf(const std::vector<std::string>& words) {
  if (words.size() != 3 && !(words.size() == 5 && words[3] == "from")) {
    throw UsageError{std::string("a rule is ") + kRuleWords};
  }
  if (words[0] != "allow" && words[0] != "deny") throw UsageError{"invalid action '" + words[0] + "' (allow or deny)"};
  if (words[1] != "tcp" && words[1] != "udp") throw UsageError{"invalid protocol '" + words[1] + "' (tcp or udp)"};
  const fw::i::action::code action = words[0] == "allow" ? fw::i::action::kAccept : fw::i::action::kDrop;
  const fw::i::protocol::code protocol = words[1] == "tcp" ? fw::i::protocol::kTCP : fw::i::protocol::kUDP;
  const size_t colon = words[2].find(':');
  const int first = parseInteger(words[2].substr(0, colon), "port");
  const int last = colon == std::string::npos ? first : parseInteger(words[2].substr(colon + 1), "port");
  if (words.size() == 3) return fw::DynamicRule(action, protocol, first, last);
  const std::string& source = words[4];
  const size_t slash = source.find('/');
  const family::code which = source.find(':') != std::string::npos ? family::kIPv6 : family::kIPv4;
  const int prefix = slash == std::string::npos ? (which == family::kIPv4 ? 32 : 128)
                                                : parseInteger(source.substr(slash + 1), "prefix length");
  return fw::DynamicRule(action, protocol, first, last, Address(source.substr(0, slash), which), prefix);
}

std::string jsonOf(const fw::DynamicRule& rule) {
  json::Object object;
  object.add("action", rule.action() == fw::i::action::kAccept ? "allow" : "deny")
      .add("protocol", rule.protocol() == fw::i::protocol::kTCP ? "tcp" : "udp")
      .add("firstPort", rule.firstPort())
      .add("lastPort", rule.lastPort());
  if (rule.family() == family::kUnspecified) return object.raw("source", "null").str();
  return object.add("source", rule.source().asString() + "/" + std::to_string(rule.prefixLength()))
      .add("family", rule.family() == family::kIPv4 ? "IPv4" : "IPv6")
      .str();
}

// A rule in the words the command takes.
std::string wordsOf(const fw::DynamicRule& rule) {
  const std::string text = rule.asString();  // "accept tcp 22 ..." or "drop ..."
  return (rule.action() == fw::i::action::kAccept ? "allow" : "deny") + text.substr(text.find(' '));
}

}  // namespace

int firewall(const std::vector<std::string>& args) {
  if (args.empty()) throw UsageError{"fw takes install, uninstall, list, flush, allow, deny or remove"};
  const std::string& what = args[0];
  const std::vector<std::string> rest(args.begin() + 1, args.end());
  fw::Chain chain;
  std::string done;
  if (what == "list") {
    if (!rest.empty()) throw UsageError{"fw list takes no arguments"};
    std::vector<std::string> items;
    for (const fw::DynamicRule& rule : chain.list()) {
      if (options.json) {
        items.push_back(jsonOf(rule));
      } else {
        std::cout << wordsOf(rule) << "\n";
      }
    }
    if (options.json) std::cout << json::array(items) << "\n";
    return 0;
  }
  if (what == "install" || what == "uninstall" || what == "flush") {
    if (!rest.empty()) throw UsageError{"fw " + what + " takes no arguments"};
    if (what == "install") chain.install();
    if (what == "uninstall") chain.uninstall();
    if (what == "flush") chain.flush();
    done = what == "flush" ? "flushed" : what + "ed";
  } else if (what == "allow" || what == "deny") {
    const fw::DynamicRule rule = ruleOf(args);
    chain.add(rule);
    done = "added " + wordsOf(rule);
  } else if (what == "remove") {
    const fw::DynamicRule rule = ruleOf(rest);
    chain.remove(rule);
    done = "removed " + wordsOf(rule);
  } else {
    throw UsageError{"unknown fw operation '" + what + "'"};
  }
  if (options.json) {
    std::cout << json::Object().add("chain", fw::Chain::name()).add("done", done).str() << "\n";
  } else {
    std::cout << fw::Chain::name() << ": " << done << "\n";
  }
  return 0;
}

}  // namespace tool
