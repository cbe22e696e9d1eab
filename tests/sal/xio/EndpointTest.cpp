// Open options, endpoints over every kind of open spec, files and
// pipes, and the failures of the descriptor calls.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <new>
#include <string>
#include <typeinfo>
#include <vector>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

#include "support/expect.h"
#include "support/fault.h"
#include "support/loopback.h"
#include "support/process.h"

namespace quorel {
namespace {

using namespace sal::xio;
namespace fo = sal::xio::i::fopen;

// The open64 flags and mode a spec gives.
impl::fopen::Spec computed(const fopen::Spec& spec) {
  impl::fopen::Spec record = spec.key();
  record.compute();
  return record;
}

fopen::Spec writing() {
  fopen::Spec spec;
  spec.set<fo::write::Enabled>().set<fo::write::create::Enabled>().set<fo::write::init::Truncate>();
  return spec;
}

// A scratch file removed at the end of the test.
struct ScratchFile {
  std::string path = "/tmp/quorel-test-" + std::to_string(::getpid()) + "-" +
                     ::testing::UnitTest::GetInstance()->current_test_info()->name();
  ~ScratchFile() { ::unlink(path.c_str()); }
};

bool isOpen(int fd) { return ::fcntl(fd, F_GETFD) != -1; }
bool closeOnExec(int fd) { return (::fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0; }

TEST(OpenSpecs, FlagsModeNamesAndSharedRecordsForTheCombinationsThatMatter) {
  EXPECT_EQ(writing().asString(), "O_WRONLY O_CREAT O_TRUNC O_LARGEFILE S_IRUSR S_IWUSR F_SETFD=FD_CLOEXEC");
  EXPECT_EQ(computed(writing()).mode, 0600);

  fopen::Spec noCreate;  // permissions count only with write and create
  noCreate.set<fo::write::Enabled>().set<fo::posix::other::read::Enabled>().set<fo::write::init::Append>();
  EXPECT_EQ(noCreate.asString(), "O_WRONLY O_APPEND O_LARGEFILE F_SETFD=FD_CLOEXEC");

  fopen::Spec noWrite;  // append and truncate need write
  noWrite.set<fo::write::init::Append>().set<fo::write::create::Enabled>().set<fo::read::Enabled>();
  EXPECT_EQ(computed(noWrite).flags, O_RDONLY | O_LARGEFILE);

  open::Spec descriptor;
  descriptor.set<i::open::inherit::Enabled>().set<i::open::nonblock::Enabled>();
  fopen::Spec everything(descriptor);
  everything.set<fo::read::Enabled>().set<fo::write::Enabled>().set<fo::write::create::Enabled>();
  everything.set<fo::posix::sync::Enabled>().set<fo::posix::dsync::Enabled>().set<fo::lin::direct::Enabled>();
  everything.set<fo::posix::group::read::Enabled>().set<fo::posix::user::write::Disabled>();
  everything.set<fo::win::writethru::Enabled>().set<fo::mac::lock::Exclusive>();  // accepted, ignored
  EXPECT_EQ(everything.asString(), "O_RDWR O_CREAT O_SYNC O_DSYNC O_DIRECT O_LARGEFILE O_NONBLOCK S_IRUSR S_IRGRP");
  EXPECT_EQ(computed(everything).mode, 0440);
  EXPECT_EQ(computed(everything).flags & O_NONBLOCK, 0);  // applied after the open

  open::Spec spec;  // copies share one record
  open::Spec shared(spec);
  shared.set<i::open::nonblock::Enabled>();
  EXPECT_EQ(spec.asString(), "FD_CLOEXEC O_NONBLOCK");
  spec.set<i::open::inherit::Enabled>();
  EXPECT_EQ(shared.asString(), "O_NONBLOCK");
}

TEST(Files, WriteReadSeekTruncateAndSync) {
  ScratchFile scratch;
  File file(Endpoint::open(scratch.path, writing().set<fo::read::Enabled>()));
  EXPECT_TRUE(closeOnExec(static_cast<int>(file.endpoint().id())));
  EXPECT_EQ(file.write("0123456789", 10), 10);
  EXPECT_EQ(file.write("AB", 2u, 4), 2);
  char buffer[16] = {};
  EXPECT_EQ(file.read(buffer, 10u, 0), 10);
  EXPECT_STREQ(buffer, "0123AB6789");
  EXPECT_EQ(file.seek(-3, i::fseek::from::End()), 7);
  EXPECT_EQ(file.seek(1, i::fseek::from::Current()), 8);
  file.truncate();
  EXPECT_EQ(file.seek(0, i::fseek::from::End()), 8);
  file.sync();
  // A clone describes the same options, with its own inherit option.
  EXPECT_EQ(file.endpoint().clone(i::open::inherit::Enabled()).specString(),
            "O_RDWR O_CREAT O_TRUNC O_LARGEFILE S_IRUSR S_IWUSR");

  // Offsets past 4 GiB, in a sparse file.
  const long long far = (5LL << 30) + 12345;
  const int fd = static_cast<int>(file.endpoint().id());
  EXPECT_EQ(file.write("far", 3u, far), 3);
  ASSERT_EQ(::pwrite64(fd, "FAR", 3, far + 3), 3);
  ASSERT_EQ(::pread64(fd, buffer, 3, far), 3);
  EXPECT_EQ(std::string(buffer, 3), "far");
  EXPECT_EQ(file.read(buffer, 6u, far), 6);
  EXPECT_EQ(std::string(buffer, 6), "farFAR");
  EXPECT_EQ(file.seek(-6, i::fseek::from::End()), far);
}

TEST(Files, NonblockReplacesTheStatusFlags) {
  ScratchFile scratch;
  open::Spec nonblocking;
  nonblocking.set<i::open::nonblock::Enabled>();
  fopen::Spec spec(nonblocking);
  spec.set<fo::write::Enabled>().set<fo::write::create::Enabled>().set<fo::write::init::Append>();
  const Endpoint endpoint = Endpoint::open(scratch.path, spec);
  const int flags = ::fcntl(static_cast<int>(endpoint.id()), F_GETFL);
  EXPECT_NE(flags & O_NONBLOCK, 0);
  EXPECT_EQ(flags & O_APPEND, 0);
}

TEST(Endpoints, WrappedStayOpenAdoptedCloseAndReopenGivesANewDescriptor) {
  ScratchFile scratch;
  const int fd = ::open(scratch.path.c_str(), O_CREAT | O_RDWR, 0600);
  Endpoint wrapped = Endpoint::wrap(static_cast<unsigned int>(fd), open::Spec());
  EXPECT_EQ(wrapped.specString(), "WRAPPED");
  wrapped.close();
  EXPECT_EQ(wrapped.id(), i::id::kNone);
  EXPECT_TRUE(isOpen(fd));
  Endpoint adopted = Endpoint::adopt(static_cast<unsigned int>(fd), open::Spec());
  adopted.close();
  adopted.close();  // harmless
  EXPECT_FALSE(isOpen(fd));
  Endpoint file = Endpoint::open(scratch.path, fopen::Spec());
  const i::id::type first = file.id();
  file.open();  // a second descriptor; the first is not closed
  EXPECT_NE(file.id(), first);
  EXPECT_TRUE(isOpen(static_cast<int>(first)));
  ::close(static_cast<int>(first));
  file.reopen();
  EXPECT_TRUE(isOpen(static_cast<int>(file.id())));
}

TEST(Endpoints, AnExclusiveOpenGivesADescriptorToAdoptOrSaysWhyNot) {
  ScratchFile scratch;
  fopen::Spec spec;
  spec.set<i::fopen::read::Enabled>().set<i::fopen::write::Enabled>();
  fopen::Spec creating;
  creating.set<i::fopen::read::Enabled>().set<i::fopen::write::Enabled>().set<i::fopen::write::create::Enabled>();
  ::close(static_cast<int>(fopen::openExclusive(scratch.path, creating)));
  QUOREL_EXPECT_THROW(fopen::openExclusive(scratch.path, creating), OpenException,
                      "::open('" + scratch.path +
                          "', O_RDWR O_EXCL O_CREAT O_LARGEFILE S_IRUSR S_IWUSR F_SETFD=FD_CLOEXEC) failed",
                      2, EEXIST);
  // Without O_CREAT, O_EXCL changes nothing on a file: a second open succeeds too.
  const i::id::type first = fopen::openExclusive(scratch.path, spec);
  const i::id::type second = fopen::openExclusive(scratch.path, spec);
  EXPECT_EQ(::fcntl(static_cast<int>(first), F_GETFD), FD_CLOEXEC);
  Endpoint adopted = Endpoint::adopt(second, open::Spec());
  File(adopted).write("x", 1);
  adopted.close();
  EXPECT_FALSE(isOpen(static_cast<int>(second)));
  ::close(static_cast<int>(first));
  QUOREL_EXPECT_THROW(fopen::openExclusive("/nonexistent/quorel", spec), OpenException,
                      "::open('/nonexistent/quorel', O_RDWR O_EXCL O_LARGEFILE F_SETFD=FD_CLOEXEC) failed", 2, ENOENT);
}

TEST(Endpoints, AFailedCloseForgetsTheDescriptorSoItsNumberIsNeverClosedAgain) {
  ScratchFile scratch;
  const int descriptors = test::openDescriptorCount();
  int reused[2];
  {
    Endpoint file = Endpoint::open(scratch.path, writing());
    Endpoint adopted = Endpoint::adopt(static_cast<unsigned int>(::open(scratch.path.c_str(), O_RDONLY)), open::Spec());
    Endpoint* endpoints[] = {&file, &adopted};
    for (int n = 0; n < 2; ++n) {
      const int fd = static_cast<int>(endpoints[n]->id());
      ::close(fd);  // behind the endpoint's back
      QUOREL_EXPECT_THROW(endpoints[n]->close(), CloseException, "::close() failed", 2, EBADF);
      EXPECT_EQ(endpoints[n]->id(), i::id::kNone);
      const int other = ::open(scratch.path.c_str(), O_RDONLY);  // the program reuses the number
      reused[n] = ::dup2(other, fd);
      if (other != fd) ::close(other);
      ASSERT_EQ(reused[n], fd);
    }
  }  // neither endpoint closes it again
  EXPECT_TRUE(isOpen(reused[0]));
  EXPECT_TRUE(isOpen(reused[1]));
  ::close(reused[0]);
  ::close(reused[1]);
  EXPECT_EQ(test::openDescriptorCount(), descriptors);
}

// Records the descriptors the library closes (after the call, so that it
// is no tail call, which would come back here with the library's address).
std::vector<int> closed;
int recordingClose(int fd) {
  const int result = ::close(fd);
  closed.push_back(fd);
  return result;
}

TEST(Pipes, AnAllocationFailureClosesEachEndOnce) {
  QUOREL_REQUIRE_FAULT_POINT(test::fault::kOperatorNew);
  const int descriptors = test::openDescriptorCount();
  const open::Spec readSpec, writeSpec;
  bool built = false;
  for (int nth = 1; !built && nth < 20; ++nth) {
    SCOPED_TRACE(nth);
    closed.clear();
    {
      test::fault::StandIn closes("close", reinterpret_cast<void*>(&recordingClose));
      test::fault::Injection fail(test::fault::kOperatorNew, ENOMEM, nth);
      try {
        Pipe pipe(readSpec, writeSpec);
        built = true;
      } catch (const std::bad_alloc&) {
      }
    }
    std::vector<int> once = closed;
    std::sort(once.begin(), once.end());
    EXPECT_EQ(std::unique(once.begin(), once.end()), once.end());
    EXPECT_EQ(closed.size(), 2u);
    EXPECT_EQ(test::openDescriptorCount(), descriptors);
  }
  EXPECT_TRUE(built);
}

TEST(Endpoints, InvalidAndClosedStandardDescriptorsFailWithTheirSwappedMessages) {
  QUOREL_EXPECT_THROW(Endpoint::adopt(i::id::kNone, open::Spec()), WrapException,
                      "attempt to wrap an invalid descriptor", 0, 0);
  QUOREL_EXPECT_THROW(Endpoint::wrap(i::id::kNone, open::Spec()), AdoptException,
                      "attempt to adaopt an invalid descriptor", 0, 0);
  const int saved = ::dup(2);
  ::close(2);
  QUOREL_EXPECT_THROW(Endpoint::wrap(i::stdfd::Error()), AdoptException, "attempt to adaopt an invalid descriptor", 0,
                      0);
  QUOREL_EXPECT_THROW(Endpoint::adopt(i::stdfd::Error()), WrapException, "attempt to wrap an invalid descriptor", 0, 0);
  ::dup2(saved, 2);
  ::close(saved);
}

TEST(Endpoints, ClonesAreCloseOnExecUnlessBothInheritOptionsAreEnabled) {
  ScratchFile scratch;
  const int descriptors = test::openDescriptorCount();
  {
    open::Spec inheritable;
    inheritable.set<i::open::inherit::Enabled>();
    fopen::Spec spec(inheritable);
    spec.set<fo::write::Enabled>().set<fo::write::create::Enabled>();
    const Endpoint file = Endpoint::open(scratch.path, spec);
    EXPECT_FALSE(closeOnExec(static_cast<int>(file.id())));
    EXPECT_FALSE(closeOnExec(static_cast<int>(file.clone(i::open::inherit::Enabled()).id())));
    EXPECT_TRUE(closeOnExec(static_cast<int>(file.clone(i::open::inherit::Disabled()).id())));
    const Endpoint plain = Endpoint::open(scratch.path, fopen::Spec());
    const Endpoint clone = plain.clone(i::open::inherit::Enabled());
    EXPECT_TRUE(closeOnExec(static_cast<int>(clone.id())));
    const Endpoint wrapped = Endpoint::wrap(static_cast<unsigned int>(plain.id()), inheritable);
    Endpoint owningClone = wrapped.clone(i::open::inherit::Enabled());
    EXPECT_FALSE(closeOnExec(static_cast<int>(owningClone.id())));
    const int duplicate = static_cast<int>(owningClone.id());
    owningClone.close();  // a clone owns its duplicate
    EXPECT_FALSE(isOpen(duplicate));
  }
  EXPECT_EQ(test::openDescriptorCount(), descriptors);
}

TEST(Endpoints, MemoryNullAndTCPSpecs) {
  char memory[32];
  const Endpoint mem = Endpoint::open("buffer", memory, sizeof memory);
  EXPECT_EQ(mem.specString(), "buffer (Mem open spec @" + std::to_string(mem.id()) + ":0x" +
                                  util::str::hexFrom(static_cast<void*>(memory), false) + ":32)");
  EXPECT_NE(mem.clone(i::open::inherit::Disabled()).id(), mem.id());
  const Endpoint null = Endpoint::open("nothing");
  EXPECT_EQ(null.specString(), "nothing (NULL open spec @" + std::to_string(null.id()) + ")");
  EXPECT_EQ(null.clone(i::open::inherit::Enabled()).name(), null.specString());

  sal::io::TCPServerSocket server(test::loopbackBinding(AF_INET), false);
  const Endpoint tcp = Endpoint::open(test::loopbackBinding(AF_INET),
                                      sal::io::TCPConnectingAddress("127.0.0.1", server.selfAddress().port()));
  EXPECT_EQ(tcp.specString(), "TCP");
  EXPECT_EQ(Channel(tcp).write("x", 1), 1);
  const Endpoint none = tcp.clone(i::open::inherit::Disabled());
  QUOREL_EXPECT_THROW(none.id(), NULLDereferenceException, "this handle does not contain a valid object", 0, 0);
}

TEST(Pipes, CarryBytesAndReadEmptyNonblockingEndsWithWouldBlock) {
  open::Spec nonblocking;
  nonblocking.set<i::open::nonblock::Enabled>();
  const int descriptors = test::openDescriptorCount();
  {
    Pipe pipe(nonblocking, open::Spec());
    Channel in(pipe.forRead()), out(pipe.forWrite());
    char buffer[8];
    QUOREL_EXPECT_THROW(in.read(buffer, 8), ReadException, "::read() failed", 2, EAGAIN);
    EXPECT_EQ(out.write("abc", 3), 3);
    EXPECT_EQ(in.read(buffer, 8u), 3);
    EXPECT_TRUE(closeOnExec(static_cast<int>(pipe.forRead().id())));
  }
  EXPECT_EQ(test::openDescriptorCount(), descriptors);
}

// Each call made to fail; nothing the failing operation created stays open.
TEST(XIOFailures, DescriptorCallsThrowTheirClassesAndMessages) {
  ScratchFile scratch;
  const int descriptors = test::openDescriptorCount();
  {
    const Endpoint file = Endpoint::open(scratch.path, writing());
    QUOREL_EXPECT_FAULT("dup", EMFILE, file.clone(i::open::inherit::Disabled()), CloneException, "::dup() failed", 2,
                        EMFILE);
    QUOREL_EXPECT_FAULT("fcntl", EBADF, file.clone(i::open::inherit::Disabled()), CloneException,
                        "::fcntl(F_SETFD, 1) failed", 2, EBADF);
    Endpoint other = Endpoint::open(scratch.path, fopen::Spec());
    const int fd = static_cast<int>(other.id());
    test::fault::Injection fail("close", EIO);
    QUOREL_EXPECT_THROW(other.close(), CloseException, "::close() failed", 2, EIO);
    ::close(fd);  // the injected failure left it open; the endpoint has let it go
  }
  fopen::Spec rsync;
  rsync.set<fo::read::Enabled>().set<fo::posix::rsync::Enabled>();
  QUOREL_EXPECT_FAULT("open64", ENOENT, Endpoint::open(scratch.path, rsync), OpenException,
                      "::open('" + scratch.path + "', O_RDONLY O_RSYNC O_LARGEFILE F_SETFD=FD_CLOEXEC) failed", 2,
                      ENOENT);
  open::Spec nonblocking;
  nonblocking.set<i::open::nonblock::Enabled>();
  QUOREL_EXPECT_FAULT("fcntl", EINVAL, Endpoint::open(scratch.path, fopen::Spec(nonblocking)), OpenException,
                      "::fcntl('" + scratch.path + "', F_SETFL, O_NONBLOCK) failed", 2, EINVAL);
  QUOREL_EXPECT_FAULT("fcntl", EINVAL, Endpoint::open(scratch.path, fopen::Spec()), OpenException,
                      "::fcntl('" + scratch.path + "', F_SETFD, FD_CLOEXEC) failed", 2, EINVAL);
  QUOREL_EXPECT_FAULT("pipe", ENFILE, Pipe(open::Spec(), open::Spec()), OpenException, "::pipe() failed", 2, ENFILE);
  {
    // Both fcntl failures are reported by the pair's creation itself.
    const char* const newPair =
        "void quorel::sal::xio::impl::popen::newPair(quorel::sal::xio::impl::desc::os::id::type&, "
        "quorel::sal::xio::impl::desc::os::id::type&, const quorel::sal::xio::impl::open::Spec&, "
        "const quorel::sal::xio::impl::open::Spec&)";
    test::fault::Injection fail("fcntl", EINVAL);
    auto e = QUOREL_EXPECT_THROW(Pipe(nonblocking, open::Spec()), OpenException,
                                 "::fcntl(F_SETFL, O_NONBLOCK) failed", 2, EINVAL);
    EXPECT_STREQ(e->where(), newPair);
    test::fault::Injection again("fcntl", EINVAL, 2);  // the write end's close-on-exec
    auto f = QUOREL_EXPECT_THROW(Pipe(open::Spec(), open::Spec()), OpenException,
                                 "::fcntl(F_SETFD, FD_CLOEXEC) failed", 2, EINVAL);
    EXPECT_STREQ(f->where(), newPair);
  }
  EXPECT_EQ(test::openDescriptorCount(), descriptors);
}

TEST(XIOFailures, TransferCallsThrowTheirClassesAndMessages) {
  ScratchFile scratch;
  File file(Endpoint::open(scratch.path, writing().set<fo::read::Enabled>()));
  char buffer[4];
  const struct {
    const char* call;
    int error;
    std::function<void()> operation;
    const char* why;
    const std::type_info& type;
  } rows[] = {
      {"read", EIO, [&] { file.read(buffer, 4); }, "::read() failed", typeid(ReadException)},
      {"write", ENOSPC, [&] { file.write(buffer, 4); }, "::write() failed", typeid(WriteException)},
      {"pread64", EIO, [&] { file.read(buffer, 4, 0); }, "::pread() failed", typeid(ReadException)},
      {"pwrite64", EFBIG, [&] { file.write(buffer, 4, 0); }, "::pwrite() failed", typeid(WriteException)},
      {"lseek64", EINVAL, [&] { file.seek(0, i::fseek::from::End()); }, "::lseek() failed", typeid(SeekException)},
      {"ftruncate64", EPERM, [&] { file.truncate(); }, "::ftruncate() failed", typeid(TruncateException)},
      {"fsync", EIO, [&] { file.sync(); }, "::fsync() failed", typeid(sal::xio::SyncException)},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.call);
    test::fault::Injection fail(row.call, row.error);
    try {
      row.operation();
      ADD_FAILURE() << "no exception";
    } catch (const quorel::Exception& e) {
      EXPECT_TRUE(typeid(e) == row.type) << e.asString();
      test::expectFields(e, row.why, 2, row.error);
    }
  }
}

}  // namespace
}  // namespace quorel
