// Listings of real file systems mounted from loop images: one that records no
// entry types, and one whose inode numbers need 64 bits. Needs root; the
// mounts live in a mount namespace of the test's own, so they go with it.
#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <map>
#include <string>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

namespace quorel {
namespace {

namespace fs = sal::fs;

// A scratch folder with a private mount namespace, or the reason there is none.
class Scratch {
 public:
  Scratch() : dir_("/tmp/quorel-listing-" + std::to_string(::getpid())) {
    if (::geteuid() != 0) {
      why_ = "mounting a loop image needs root";
    } else if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
      why_ = std::string("no mount namespace of our own: ") + std::strerror(errno);
    } else {
      fs::dir::createAll(dir_ + "/mnt");
    }
  }
  ~Scratch() {
    ::umount2((dir_ + "/mnt").c_str(), MNT_DETACH);
    fs::removeAll(dir_);
  }
  const std::string& why() const { return why_; }
  std::string mnt() const { return dir_ + "/mnt"; }

  // Runs a shell command; on failure the reason names what and says why.
  bool run(const std::string& command, const std::string& failure) {
    if (why_.empty() && std::system((command + " >" + dir_ + "/log 2>&1").c_str()) != 0) {
      std::string log;
      for (const char c : fileText(dir_ + "/log")) log += c == '\n' ? ' ' : c;
      why_ = failure + ": " + log;
    }
    return why_.empty();
  }
  const std::string& dir() const { return dir_; }

 private:
  static std::string fileText(const std::string& path) {
    std::string text;
    if (FILE* in = std::fopen(path.c_str(), "r")) {
      for (int c; (c = std::fgetc(in)) != EOF;) text += static_cast<char>(c);
      std::fclose(in);
    }
    return text;
  }
  std::string dir_;
  std::string why_;
};

#define REQUIRE_SCRATCH(scratch) \
  if (!(scratch).why().empty()) GTEST_SKIP() << (scratch).why()

std::map<std::string, fs::i::entry::type> typesIn(const std::string& dir) {
  std::map<std::string, fs::i::entry::type> types;
  for (const fs::Entry& entry : fs::Listing(dir)) types[entry.name()] = entry.type();
  return types;
}

TEST(LoopListing, TypesOfAFileSystemThatRecordsNone) {
  Scratch scratch;
  const std::string image = scratch.dir() + "/ext2.img", m = scratch.mnt();
  scratch.run("truncate -s 8M " + image + " && mkfs.ext2 -q -F -O ^filetype " + image, "mkfs.ext2 failed");
  scratch.run("mount -o loop " + image + " " + m, "this kernel cannot mount ext2 from a loop device");
  REQUIRE_SCRATCH(scratch);
  ASSERT_EQ(::mkdir((m + "/sub").c_str(), 0700), 0);
  ::close(::creat((m + "/sub/file").c_str(), 0600));
  ASSERT_EQ(::symlink("sub", (m + "/link").c_str()), 0);
  ASSERT_EQ(::mkfifo((m + "/fifo").c_str(), 0600), 0);

  // The file system really reports no types: every record says DT_UNKNOWN.
  const int fd = ::open(m.c_str(), O_RDONLY | O_DIRECTORY);
  alignas(8) char buffer[4096];
  const ssize_t got = ::getdents64(fd, buffer, sizeof buffer);
  ::close(fd);
  ASSERT_GT(got, 0);
  for (ssize_t at = 0; at < got;) {
    const auto* record = reinterpret_cast<const struct dirent64*>(buffer + at);
    EXPECT_EQ(record->d_type, DT_UNKNOWN) << record->d_name;
    at += record->d_reclen;
  }

  const std::map<std::string, fs::i::entry::type> expected{{"lost+found", fs::i::entry::kDirectory},
                                                           {"sub", fs::i::entry::kDirectory},
                                                           {"link", fs::i::entry::kSymbolicLink},
                                                           {"fifo", fs::i::entry::kFifo}};
  EXPECT_EQ(typesIn(m), expected);
  // The removal walk takes the same way: the link goes, not what it leads to.
  EXPECT_EQ(fs::removeAll(m + "/link"), 1u);
  EXPECT_EQ(fs::removeAll(m + "/sub"), 2u);
  EXPECT_EQ(fs::typeOf(m + "/sub"), fs::i::entry::kNone);
}

// Every entry's number, as the listing gives it and as fstatat64 does.
void expectInodesAsStat(const std::string& dir, pod::uint64& largest) {
  for (const fs::Entry& entry : fs::Listing(dir)) {
    struct stat64 status;
    ASSERT_EQ(::fstatat64(AT_FDCWD, (dir + "/" + entry.name()).c_str(), &status, AT_SYMLINK_NOFOLLOW), 0);
    EXPECT_EQ(entry.inode(), static_cast<pod::uint64>(status.st_ino)) << dir << "/" << entry.name();
    largest = std::max(largest, entry.inode());
  }
}

// A 4 TiB sparse XFS image (65 MiB on disk): directories made at its root go
// to its four allocation groups in turn, and those of groups 2 and 3 have
// numbers above 2^32.
TEST(LoopListing, InodeNumbersAboveThirtyTwoBitsOnXFS) {
  Scratch scratch;
  const std::string image = scratch.dir() + "/xfs.img", m = scratch.mnt();
  scratch.run("command -v mkfs.xfs", "mkfs.xfs not found (install xfsprogs)");
  scratch.run("truncate -s 4T " + image, "cannot create a 4 TiB sparse file in /tmp");
  scratch.run("mkfs.xfs -q -l size=64m " + image, "mkfs.xfs failed");
  scratch.run("mount -o loop " + image + " " + m, "this kernel cannot mount xfs from a loop device");
  REQUIRE_SCRATCH(scratch);
  for (int i = 1; i <= 4; ++i) {
    const std::string d = m + "/d" + std::to_string(i);
    ASSERT_EQ(::mkdir(d.c_str(), 0700), 0);
    ::close(::creat((d + "/f").c_str(), 0600));
  }
  pod::uint64 largest = 0;
  expectInodesAsStat(m, largest);
  for (int i = 1; i <= 4; ++i) expectInodesAsStat(m + "/d" + std::to_string(i), largest);
  if (largest <= 0xFFFFFFFFull) GTEST_SKIP() << "no inode number above 2^32 on this XFS (largest " << largest << ")";
  EXPECT_EQ(fs::removeAll(m + "/d3"), 2u);
}

}  // namespace
}  // namespace quorel
