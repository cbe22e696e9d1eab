// Directories: creation, listings, tree removal (links, swaps during the walk,
// depth, failures, denied entries) and temporary directories.
#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

#include "support/expect.h"
#include "support/fault.h"
#include "support/process.h"

namespace quorel {
namespace {

namespace fs = sal::fs;
using fs::Entry;
using fs::Path;
using namespace fs::i::entry;  // the kinds: kDirectory, kRegularFile, ...

using test::openDescriptorCount;

bool there(const std::string& path) {
  struct stat64 status;
  return ::lstat64(path.c_str(), &status) == 0;
}

// Makes entries under root: "name/" a directory, "name|" a fifo, "name>target"
// a symbolic link, anything else an empty file.
void build(const std::string& root, std::initializer_list<std::string> entries) {
  for (const std::string& entry : entries) {
    const std::string::size_type arrow = entry.find('>'), end = entry.back() == '|' ? entry.size() - 1 : arrow;
    const std::string path = root + "/" + entry.substr(0, end);
    int rc = arrow != std::string::npos ? ::symlink(entry.substr(arrow + 1).c_str(), path.c_str())
             : entry.back() == '/'      ? ::mkdir(path.c_str(), 0700)
             : entry.back() == '|'      ? ::mkfifo(path.c_str(), 0600)
                                        : ::open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY, 0600);
    if (rc > 0) rc = ::close(rc);
    EXPECT_EQ(rc, 0) << path << ": " << std::strerror(errno);
  }
}

// The libc function past the test program's interposing one. Stand-ins call
// it: a call through the interposer made as a tail call (as the 64-bit build
// makes it) would pass for the library's own call and come back to them.
template <class F>
F* libc(const char* name) {
  return reinterpret_cast<F*>(::dlsym(RTLD_NEXT, name));
}

// getdents64 as on a file system that records no entry types.
ssize_t untypedEntries(int fd, void* buffer, size_t size) {
  static const auto real = libc<ssize_t(int, void*, size_t)>("getdents64");
  const ssize_t got = real(fd, buffer, size);
  for (ssize_t at = 0; at < got;) {
    auto* record = reinterpret_cast<struct dirent64*>(static_cast<char*>(buffer) + at);
    record->d_type = DT_UNKNOWN;
    at += record->d_reclen;
  }
  return got;
}

// Stand-ins that replace a directory by a link to another one (rename it away,
// link in its place) once, when the removal reaches the entry `when`.
struct Swap {
  std::string directory, away, target, when;
  bool done = false;
  void operator()(const char* name) {
    if (done || when != name) return;
    done = true;
    EXPECT_EQ(::rename(directory.c_str(), away.c_str()), 0);
    EXPECT_EQ(::symlink(target.c_str(), directory.c_str()), 0);
  }
} swapper;
int statThenSwap(int dir, const char* name, struct stat64* status, int flags) {
  static const auto real = libc<int(int, const char*, struct stat64*, int)>("fstatat64");
  const int rc = real(dir, name, status, flags);
  swapper(name);  // after the walk has seen a directory, before it opens it
  return rc;
}
int swapThenUnlink(int dir, const char* name, int flags) {
  swapper(name);
  return libc<int(int, const char*, int)>("unlinkat")(dir, name, flags);
}

// unlinkat failing with deniedError for entries named "victim".
int deniedError = EACCES;
int denyingUnlink(int dir, const char* name, int flags) {
  if (std::strcmp(name, "victim") != 0) return libc<int(int, const char*, int)>("unlinkat")(dir, name, flags);
  errno = deniedError;
  return -1;
}

// fstat64 that records the most descriptors open and runs onCall at a call.
int fstats = 0, mostDescriptors = 0, fstatAt = 0;
std::function<void()> onFstat;
int watchingFstat(int fd, struct stat64* status) {
  mostDescriptors = std::max(mostDescriptors, openDescriptorCount());
  if (++fstats == fstatAt) onFstat();
  static const auto real = libc<int(int, struct stat64*)>("fstat64");
  return real(fd, status);
}

class Dir : public ::testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/quorel-dir-XXXXXX";
    ASSERT_NE(::mkdtemp(name), nullptr);
    base = name;
  }
  void TearDown() override {
    test::fault::clearAll();
    fs::removeAll(base);
    if (!big.empty()) fs::removeAll(big);
  }
  std::string at(const std::string& name) const { return base + "/" + name; }
  // A directory for many entries, on a tmpfs where there is one: a journalled
  // file system takes seconds to make them.
  void makeBig() {
    char shm[] = "/dev/shm/quorel-dir-XXXXXX";
    big = ::mkdtemp(shm) != nullptr ? shm : at("big");
    ::mkdir(big.c_str(), 0700);
  }
  std::string base, big;
};

TEST_F(Dir, CreateAllRacesAndRefusesWhatIsInTheWay) {
  for (int round = 0; round < 20; ++round) {
    const std::string deep = at(std::to_string(round) + "/a/b/c/d/e/f/g");
    std::atomic<int> ready{0}, created{0}, failed{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([&] {
        for (++ready; ready < 4;) std::this_thread::yield();
        try {
          created += fs::dir::createAll(deep, 0750) ? 1 : 0;
        } catch (...) {
          ++failed;
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(created, 1);
    EXPECT_EQ(failed, 0);
  }
  EXPECT_FALSE(fs::dir::createAll(at("0/a/b")));

  build(base, {"file", "target/", "link>target", "dangling>nowhere"});
  QUOREL_EXPECT_THROW(fs::dir::create(at("target")), fs::Exception, "::mkdir('" + at("target") + "') failed", 2,
                      EEXIST);
  for (const char* name : {"file", "link"}) {  // a link to a directory is no directory
    QUOREL_EXPECT_THROW(fs::dir::createAll(at(name)), fs::Exception, "::mkdir('" + at(name) + "') failed", 2, EEXIST);
  }
  QUOREL_EXPECT_THROW(fs::dir::createAll(at("dangling/x")), fs::Exception, "::mkdir('" + at("dangling") + "') failed",
                      2, EEXIST);
  QUOREL_EXPECT_THROW(fs::dir::createAll(at("file/x/y")), fs::Exception, "::mkdir('" + at("file/x/y") + "') failed",
                      2, ENOTDIR);
  EXPECT_FALSE(there(at("nowhere")));
  EXPECT_TRUE(fs::dir::createAll(at(std::string(255, 'n'))));

  // Unusable names go nowhere near the system, whichever call takes them.
  const std::string tooLong = at(std::string(256, 'n')) + "/x";
  const std::pair<std::string, std::string> unusable[] = {
      {"", "the path name is empty"},
      {std::string("a\0b", 3), "the path name holds a NUL byte at offset 1"},
      {tooLong, "the path name '" + tooLong + "' has a component longer than 255 bytes"}};
  const std::function<void(const Path&)> takers[] = {
      [](const Path& p) { fs::dir::create(p); },   [](const Path& p) { fs::dir::createAll(p); },
      [](const Path& p) { fs::removeAll(p); },     [&](const Path& p) { fs::rename(base, p); },
      [](const Path& p) { fs::isDirectory(p); },   [](const Path& p) { fs::Listing{p}; },
      [](const Path& p) { fs::TemporaryDirectory{p}; }};
  for (const auto& name : unusable) {
    for (const auto& take : takers) {
      QUOREL_EXPECT_THROW(take(name.first), fs::PathNameException, name.second, 0, 0);
    }
  }
  // Trees whose removal can only be a mistake are refused before anything goes.
  for (const std::string& mistake : {std::string("/"), std::string("//."), base + "/.", base + "/x/.."}) {
    QUOREL_EXPECT_THROW(fs::removeAll(mistake), fs::PathNameException,
                        "the tree '" + mistake + "' is not removed: it is the root or ends in . or ..", 0, 0);
  }
  EXPECT_TRUE(there(base));
}

TEST_F(Dir, ListingStreamsEveryEntryOnceWithItsKind) {
  for (const Entry& entry : fs::Listing(base)) ADD_FAILURE() << "an empty directory lists " << entry.name();
  makeBig();

  // Mostly links, the cheapest entries to make, with some of every kind.
  const int kEntries = 100000;
  const auto kindOf = [](int i) {
    return i % 500 == 1 ? kFifo : i % 500 == 3 ? kDirectory : i % 2 ? kSymbolicLink : kRegularFile;
  };
  const int fd = ::open(big.c_str(), O_RDONLY | O_DIRECTORY);
  ASSERT_EQ(::close(::openat(fd, "e0", O_CREAT | O_WRONLY, 0600)), 0);
  for (int i = 1; i < kEntries; ++i) {
    const std::string name = "e" + std::to_string(i);
    const type kind = kindOf(i);
    const int rc = kind == kRegularFile    ? ::linkat(fd, "e0", fd, name.c_str(), 0)
                   : kind == kSymbolicLink ? ::symlinkat("e0", fd, name.c_str())
                   : kind == kFifo         ? ::mkfifoat(fd, name.c_str(), 0600)
                                           : ::mkdirat(fd, name.c_str(), 0700);
    ASSERT_EQ(rc, 0) << name << ": " << std::strerror(errno);
  }
  ::close(fd);

  std::vector<char> seen(kEntries, 0);
  int count = 0;
  fs::Listing listing(big);
  for (const Entry& entry : listing) {
    ++count;
    const int i = std::atoi(entry.name().c_str() + 1);
    ASSERT_TRUE(i >= 0 && i < kEntries && entry.name() == "e" + std::to_string(i)) << entry.name();
    ASSERT_EQ(seen[i]++, 0) << entry.name();
    ASSERT_EQ(entry.type(), kindOf(i)) << entry.name();
  }
  EXPECT_EQ(count, kEntries);
  // Removed over many batches, each entry once.
  EXPECT_EQ(fs::removeAll(big), kEntries + 1u);
  EXPECT_FALSE(there(big));
}

TEST_F(Dir, KindsWithoutEntryTypesAndRemovalThatNeverFollowsLinks) {
  build(base, {"outside/", "outside/kept", "outside/sub/", "outside/sub/kept", "elsewhere"});
  for (bool untyped : {false, true}) {
    SCOPED_TRACE(untyped ? "kinds from fstatat" : "kinds from the entries");
    std::optional<test::fault::StandIn> noTypes;
    if (untyped) noTypes.emplace("getdents64", reinterpret_cast<void*>(&untypedEntries));
    build(base, {"t/", "t/dir/", "t/dir/file", "t/dir/deep>../../outside/sub", "t/file", "t/fifo|",
                 "t/link>../elsewhere", "t/dirlink>../outside", "t/dangling>nowhere", "t/loop>loop"});
    std::map<std::string, type> kindOf;
    for (const Entry& entry : fs::Listing(at("t"))) {
      kindOf[entry.name()] = entry.type();
      struct stat64 status;
      ASSERT_EQ(::lstat64(at("t/" + entry.name()).c_str(), &status), 0);
      EXPECT_EQ(entry.inode(), status.st_ino) << entry.name();
    }
    EXPECT_EQ(kindOf, (std::map<std::string, type>{{"dir", kDirectory}, {"file", kRegularFile}, {"fifo", kFifo},
                                                   {"link", kSymbolicLink}, {"dirlink", kSymbolicLink},
                                                   {"dangling", kSymbolicLink}, {"loop", kSymbolicLink}}));
    EXPECT_EQ(fs::targetTypeOf(at("t/loop")), fs::i::entry::kNone);
    EXPECT_EQ(fs::removeAll(at("t")), 10u);
    EXPECT_FALSE(there(at("t")));
    for (const char* kept : {"outside/kept", "outside/sub/kept", "elsewhere"}) EXPECT_TRUE(there(at(kept))) << kept;
  }
  // A trailing slash names the link all the same: the link goes, not what is in its target.
  build(base, {"slashed>outside"});
  EXPECT_NO_THROW(EXPECT_EQ(fs::removeAll(at("slashed//")), 1u));
  EXPECT_FALSE(there(at("slashed")));
  EXPECT_TRUE(there(at("outside/sub/kept")));
}

TEST_F(Dir, RemoveAllLeavesTheTargetOfADirectorySwappedForALinkMeanwhile) {
  struct Case {
    const char* function;
    void* standIn;
    const char* when;  // the entry whose call swaps "t/inner"
    pod::uint64 removed;
  };
  const Case cases[] = {// between the walk's fstatat of inner and its openat: the link goes
                        {"fstatat64", reinterpret_cast<void*>(&statThenSwap), "inner", 3},
                        // inside inner, which then turns out a link when it is to go
                        {"unlinkat", reinterpret_cast<void*>(&swapThenUnlink), "x", 4}};
  build(base, {"outside/", "outside/kept"});
  for (const Case& c : cases) {
    SCOPED_TRACE(c.function);
    build(base, {"t/", "t/inner/", "t/inner/x", "t/file", "away/"});
    swapper = Swap{at("t/inner"), at("away/inner"), at("outside"), c.when};
    const int before = openDescriptorCount();
    test::fault::StandIn noTypes("getdents64", reinterpret_cast<void*>(&untypedEntries));
    test::fault::StandIn swapping(c.function, c.standIn);
    EXPECT_EQ(fs::removeAll(at("t")), c.removed);
    EXPECT_TRUE(swapper.done);
    EXPECT_EQ(openDescriptorCount(), before);
    EXPECT_FALSE(there(at("t")));
    EXPECT_TRUE(there(at("outside/kept")));
    EXPECT_TRUE(there(at("away/inner")));
    fs::removeAll(at("away"));
  }
}

TEST_F(Dir, RemoveAllGoesDeeperThanPathMaxWithFewDescriptorsAndStaysInTheTree) {
  const unsigned kDepth = 10000;
  makeBig();
  int fd = ::open(big.c_str(), O_RDONLY | O_DIRECTORY);
  for (unsigned i = 0; i < kDepth; ++i) {
    ASSERT_EQ(::mkdirat(fd, "d", 0700), 0);
    const int child = ::openat(fd, "d", O_RDONLY | O_DIRECTORY);
    ::close(fd);
    fd = child;
  }
  ASSERT_EQ(::close(fd), 0);
  const int before = openDescriptorCount();
  fstats = mostDescriptors = fstatAt = 0;
  {
    test::fault::StandIn watching("fstat64", reinterpret_cast<void*>(&watchingFstat));
    EXPECT_EQ(fs::removeAll(big + "/d"), kDepth);
  }
  EXPECT_LE(mostDescriptors - before, 17);  // 16 held, one more while a level is swapped for another
  EXPECT_EQ(openDescriptorCount(), before);
  EXPECT_FALSE(there(big + "/d"));

  // A directory moved out of the tree during the walk: going back up through
  // ".." would lead out of the tree, into x/y/z and above, which must stay.
  std::string chain = "m";
  build(base, {"m/"});
  for (int i = 0; i < 20; ++i) build(base, {(chain += "/d") + "/"});
  build(base, {"x/", "x/y/", "x/y/z/", "x/y/z/d/", "x/y/z/kept"});
  fstats = 0;
  fstatAt = 21;  // the walk has entered the 20th level; the lowest ones are closed
  onFstat = [&] { ASSERT_EQ(::rename(at("m/d/d/d").c_str(), at("x/y/z/moved").c_str()), 0); };
  test::fault::StandIn watching("fstat64", reinterpret_cast<void*>(&watchingFstat));
  QUOREL_EXPECT_THROW(fs::removeAll(at("m")), fs::Exception,
                      "the directory '" + at("m/d/d") + "' was moved while its tree was being removed", 0, 0);
  for (const char* kept : {"x/y/z/d", "x/y/z/kept", "x/y/z/moved", "m/d/d"}) EXPECT_TRUE(there(at(kept))) << kept;
  EXPECT_EQ(openDescriptorCount(), before);
}

TEST_F(Dir, FailedCallsThrowNamingTheCallAndCloseWhatTheyOpened) {
  const std::string t = at("t"), sub = at("t/sub"), file = at("file");
  struct Row {
    const char* function;
    int error;
    std::function<void()> call;
    std::string why;
    bool untyped;
  };
  const Row rows[] = {
      {"mkdir", EACCES, [&] { fs::dir::create(at("new")); }, "::mkdir('" + at("new") + "') failed", false},
      {"rename", EXDEV, [&] { fs::rename(file, t); }, "::rename('" + file + "', '" + t + "') failed", false},
      {"mkdtemp", EEXIST, [&] { fs::TemporaryDirectory{base, "t."}; }, "::mkdtemp('" + t + ".XXXXXX') failed", false},
      {"stat64", EIO, [&] { fs::isDirectory(t); }, "::stat('" + t + "') failed", false},
      {"open64", EMFILE, [&] { fs::Listing{t}; }, "::open('" + t + "') failed", false},
      {"getdents64", EIO, [&] { fs::Listing(t).begin(); }, "::getdents64('" + t + "') failed", false},
      {"fstatat64", EIO, [&] { fs::Listing(t).begin(); }, "::fstatat('" + t + "', 'sub') failed", true},
      {"lstat64", EIO, [&] { fs::removeAll(t); }, "::lstat('" + t + "') failed", false},
      {"open64", EMFILE, [&] { fs::removeAll(t); }, "::open('" + t + "') failed", false},
      {"fstat64", EIO, [&] { fs::removeAll(t); }, "::fstat('" + t + "') failed", false},
      {"getdents64", EIO, [&] { fs::removeAll(t); }, "::getdents64('" + t + "') failed", false},
      {"fstatat64", EIO, [&] { fs::removeAll(t); }, "::fstatat('" + t + "', 'sub') failed", true},
      {"openat", EMFILE, [&] { fs::removeAll(t); }, "::openat('" + t + "', 'sub') failed", false},
      {"unlinkat", EROFS, [&] { fs::removeAll(t); }, "::unlinkat('" + t + "', 'sub') failed", false},
      {"rmdir", EIO, [&] { fs::removeAll(t); }, "::rmdir('" + t + "') failed", false},
      {"unlink", EIO, [&] { fs::removeAll(file); }, "::unlink('" + file + "') failed", false}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    ::mkdir(t.c_str(), 0700);
    ::mkdir(sub.c_str(), 0700);
    ::close(::open(file.c_str(), O_CREAT | O_WRONLY, 0600));
    std::optional<test::fault::StandIn> noTypes;
    if (row.untyped) noTypes.emplace("getdents64", reinterpret_cast<void*>(&untypedEntries));
    const int before = openDescriptorCount();
    QUOREL_EXPECT_FAULT(row.function, row.error, row.call(), fs::Exception, row.why, 2, row.error);
    EXPECT_EQ(openDescriptorCount(), before);
  }
}

TEST_F(Dir, FailedRemovalStopsAtItsEntryAndDeniedEntriesCanBeLeft) {
  build(base, {"five/", "five/1", "five/2", "five/3", "five/4", "five/5"});
  std::vector<std::string> order;
  for (const Entry& entry : fs::Listing(at("five"))) order.push_back(entry.name());
  ASSERT_EQ(order.size(), 5u);
  {
    test::fault::Injection third("unlinkat", EIO, 3);
    QUOREL_EXPECT_THROW(fs::removeAll(at("five")), fs::Exception,
                        "::unlinkat('" + at("five") + "', '" + order[2] + "') failed", 2, EIO);
  }
  for (std::size_t i = 0; i < order.size(); ++i) EXPECT_EQ(there(at("five/" + order[i])), i >= 2) << order[i];

  // The victim lies below 20 levels, deeper than the walk keeps open.
  std::string deep = "t/a";
  build(base, {"t/", "t/a/", "t/a/x", "t/a/inner/", "t/a/inner/y", "t/b/", "t/b/z", "t/w"});
  for (int i = 0; i < 20; ++i) build(base, {(deep += "/d") + "/"});
  build(base, {deep + "/victim"});
  test::fault::StandIn denying("unlinkat", reinterpret_cast<void*>(&denyingUnlink));
  deniedError = EACCES;
  EXPECT_EQ(fs::removeAll(at("t"), fs::i::denied::Skip()), 6u);
  for (std::string up = deep + "/victim"; up != "."; up = Path(up).parent().text()) EXPECT_TRUE(there(at(up))) << up;
  for (const char* gone : {"t/a/x", "t/a/inner", "t/b", "t/w"}) EXPECT_FALSE(there(at(gone))) << gone;
  const std::string why = "::unlinkat('" + at(deep) + "', 'victim') failed";
  QUOREL_EXPECT_THROW(fs::removeAll(at("t")), fs::Exception, why, 2, EACCES);
  deniedError = EIO;  // not a denial: it stops the removal in either mode
  QUOREL_EXPECT_THROW(fs::removeAll(at("t"), fs::i::denied::Skip()), fs::Exception, why, 2, EIO);
  EXPECT_TRUE(there(at(deep + "/victim")));
}

TEST_F(Dir, TemporaryDirectoryIsPrivateSharedAndRemovedWithTheLastCopy) {
  std::string path;
  {
    fs::TemporaryDirectory first(base, "scratch.");
    path = first.path().text();
    EXPECT_EQ(path.substr(0, base.size() + 9), base + "/scratch.");
    EXPECT_EQ(first.path().name().size(), 14u);
    struct stat64 status;
    ASSERT_EQ(::lstat64(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0700u);
    build(path, {"sub/", "sub/file", "up>" + base});
    { fs::TemporaryDirectory copy = first; EXPECT_EQ(copy.path().text(), path); }
    EXPECT_TRUE(there(path + "/sub/file"));
  }
  EXPECT_FALSE(there(path));
  EXPECT_TRUE(there(base));
  {
    fs::TemporaryDirectory scratch(base);
    path = scratch.path().text();
    build(path, {"file"});
    QUOREL_EXPECT_FAULT("rmdir", EBUSY, scratch.remove(), fs::Exception, "::rmdir('" + path + "') failed", 2, EBUSY);
    EXPECT_TRUE(there(path));
    EXPECT_FALSE(there(path + "/file"));
  }
  EXPECT_FALSE(there(path));  // the last copy tried again, quietly
  EXPECT_EQ(fs::TemporaryDirectory().path().text().substr(0, 12), "/tmp/quorel-");
  QUOREL_EXPECT_THROW(fs::TemporaryDirectory(base, "a/b"), fs::PathNameException,
                      "the prefix 'a/b' of a temporary directory holds a slash", 0, 0);
  // The name as asked for, not mkdtemp's last try.
  QUOREL_EXPECT_THROW(fs::TemporaryDirectory{at("missing")}, fs::Exception,
                      "::mkdtemp('" + at("missing") + "/quorel-XXXXXX') failed", 2, ENOENT);
}

}  // namespace
}  // namespace quorel
