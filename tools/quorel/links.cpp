// quorel links: the host's links with their addresses, like a short "ip addr".
//
//   quorel links [NAME]
#include <iostream>
#include <string>
#include <vector>

#include <quorel/quorel.h>

#include "command.h"
#include "json.h"

namespace tool {

namespace {

namespace inet = quorel::sal::inet;

std::vector<std::string> stateOf(const inet::Link& link) {
  std::vector<std::string> words;
  if (link.isUp()) words.push_back("up");
  if (link.isRunning()) words.push_back("running");
  if (link.isLoopback()) words.push_back("loopback");
  if (link.isPointToPoint()) words.push_back("point-to-point");
  if (link.isMulticast()) words.push_back("multicast");
  return words;
}

const char* scopeName(inet::i::scope::code scope) {
  switch (scope) {
    case inet::i::scope::kGlobal:
      return "global";
    case inet::i::scope::kSite:
      return "site";
    case inet::i::scope::kLink:
      return "link";
    case inet::i::scope::kHost:
      return "host";
  }
  return "other";
}

std::string jsonOf(const inet::Link& link) {
  std::vector<std::string> state;
  for (const std::string& word : stateOf(link)) state.push_back(json::quote(word));
  std::vector<std::string> addresses;
  for (const inet::LinkAddress& entry : link.addresses()) {
    json::Object object;
    object.add("family", entry.address().family() == inet::i::family::kIPv4 ? "inet" : "inet6")
        .add("address", entry.address().asString())
        .add("prefix", entry.prefixLength())
        .add("scope", scopeName(entry.scope()));
    if (!entry.broadcast().asString().empty()) object.add("broadcast", entry.broadcast().asString());
    if (!entry.peer().asString().empty()) object.add("peer", entry.peer().asString());
    addresses.push_back(object.str());
  }
  return json::Object()
      .add("index", link.index())
      .add("name", link.name())
      .raw("state", json::array(state))
      .add("mtu", link.mtu())
      .add("type", link.type())
      .add("kind", link.kind())
      .add("hardware", link.hardwareAddressText())
      .raw("addresses", json::array(addresses))
      .str();
}

void print(const inet::Link& link) {
  std::string state;
  for (const std::string& word : stateOf(link)) state += (state.empty() ? "" : ",") + word;
  std::cout << link.index() << ": " << link.name() << " <" << state << "> mtu " << link.mtu();
  if (!link.kind().empty()) std::cout << " " << link.kind();
  if (!link.hardwareAddress().empty()) std::cout << " link " << link.hardwareAddressText();
  std::cout << "\n";
  for (const inet::LinkAddress& entry : link.addresses()) {
    const bool v4 = entry.address().family() == inet::i::family::kIPv4;
    std::cout << "    " << (v4 ? "inet " : "inet6 ") << entry.address().asString();
    if (!entry.peer().asString().empty()) std::cout << " peer " << entry.peer().asString();
    std::cout << "/" << entry.prefixLength();
    if (!entry.broadcast().asString().empty()) std::cout << " brd " << entry.broadcast().asString();
    std::cout << " scope " << scopeName(entry.scope()) << "\n";
  }
}

}  // namespace

int links(const std::vector<std::string>& args) {
  if (args.size() > 1) throw UsageError{"links takes at most one NAME"};
  std::vector<inet::Link> shown;
  if (args.empty()) {
    shown = inet::Link::list();
  } else {
    shown.push_back(inet::Link::byName(args[0]));
  }
  std::vector<std::string> objects;
  for (const inet::Link& link : shown) {
    if (options.json) {
      objects.push_back(jsonOf(link));
    } else {
      print(link);
    }
  }
  if (options.json) std::cout << json::array(objects) << "\n";
  return 0;
}

}  // namespace tool
