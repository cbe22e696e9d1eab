// Walks a directory tree with fs::Listing and sums the sizes of its files,
// then tidies a scratch copy away with fs::removeAll. Links are counted as
// links and never followed, so a tree that links to itself ends.
//
//   disk_usage [DIR]    (default: /usr/share/doc)
#include <sys/stat.h>

#include <iostream>
#include <vector>

#include <quorel/quorel.h>

using namespace quorel::sal;

int main(int argc, char** argv) {
  const fs::Path top = argc > 1 ? argv[1] : "/usr/share/doc";
  try {
    quorel::pod::uint64 files = 0, directories = 0, links = 0, bytes = 0;
    std::vector<fs::Path> pending{top};
    while (!pending.empty()) {
      const fs::Path dir = pending.back();
      pending.pop_back();
      ++directories;
      for (const fs::Entry& entry : fs::Listing(dir)) {
        if (entry.type() == fs::i::entry::kDirectory) {
          pending.push_back(dir / entry.name());
        } else if (entry.type() == fs::i::entry::kSymbolicLink) {
          ++links;
        } else if (entry.type() == fs::i::entry::kRegularFile) {
          ++files;
          bytes += fs::Stat((dir / entry.name()).text()).size();
        }
      }
    }
    std::cout << top << ": " << directories << " directories, " << files << " files (" << bytes << " bytes), "
              << links << " links\n";

    // A scratch tree of our own, gone with the TemporaryDirectory.
    fs::TemporaryDirectory scratch;
    fs::dir::createAll(scratch.path() / "a/b/c");
    std::cout << "scratch " << scratch.path() << ": removed " << fs::removeAll(scratch.path() / "a")
              << " directories\n";
    return 0;
  } catch (const quorel::Exception& e) {
    std::cerr << e.asString() << "\n";
    return 1;
  }
}
