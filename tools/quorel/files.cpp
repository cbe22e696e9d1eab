// The commands on directories: ls lists one, rm removes a file or a tree.
#include <iomanip>
#include <iostream>
#include <string>
#include <vector>

#include <quorel/quorel.h>

#include "command.h"
#include "json.h"

namespace tool {

namespace fs = quorel::sal::fs;

int ls(const std::vector<std::string>& args) {
  if (args.size() > 1) throw UsageError{"ls takes at most one PATH"};
  fs::Listing listing(args.empty() ? "." : args[0]);
  std::vector<std::string> entries;
  for (const fs::Entry& entry : listing) {
    const char* type = fs::i::entry::nameOf(entry.type());
    if (options.json) {
      entries.push_back(json::Object().add("name", entry.name()).add("type", type).add("inode", entry.inode()).str());
    } else {
      std::cout << std::left << std::setw(17) << type << entry.name() << "\n";
    }
  }
  if (options.json) std::cout << json::array(entries) << "\n";
  return 0;
}

int rm(const std::vector<std::string>& args) {
  bool recursive = false;
  std::vector<std::string> paths;
  for (const std::string& arg : args) {
    if (arg == "-r" || arg == "-R" || arg == "--recursive") {
      recursive = true;
    } else {
      paths.push_back(arg);
    }
  }
  if (paths.empty()) throw UsageError{"rm takes at least one PATH"};
  std::vector<std::string> reports;
  for (const std::string& path : paths) {
    if (!fs::exists(path)) throw UsageError{"no such file '" + path + "'"};
    if (!recursive && fs::typeOf(path) == fs::i::entry::kDirectory) {
      throw UsageError{"'" + path + "' is a directory (rm -r removes it with its contents)"};
    }
    const quorel::pod::uint64 removed = fs::removeAll(path);
    if (options.json) {
      reports.push_back(json::Object().add("path", path).add("removed", removed).str());
    } else {
      std::cout << path << ": " << removed << (removed == 1 ? " entry" : " entries") << " removed\n";
    }
  }
  if (options.json) std::cout << json::array(reports) << "\n";
  return 0;
}

}  // namespace tool
