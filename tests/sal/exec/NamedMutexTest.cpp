// Named mutexes between threads and processes, and dynamic modules.
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

#include "support/expect.h"
#include "support/fault.h"

namespace quorel {
namespace {

using sal::exec::Module;
using sal::exec::NamedMutex;

std::string uniqueName() {
  return "test-" + std::to_string(::getpid()) + "-" + ::testing::UnitTest::GetInstance()->current_test_info()->name();
}

std::string pathOf(const std::string& name) { return "/tmp/quorel.sal.sys.exec.NamedMutex-" + name; }

// Whether another process sees the lock file of name write-locked.
bool lockedForOthers(const std::string& name) {
  const pid_t child = ::fork();
  if (child == 0) {
    const int fd = ::open(pathOf(name).c_str(), O_WRONLY);
    struct flock probe = {};
    probe.l_type = F_WRLCK;
    probe.l_whence = SEEK_SET;
    ::_exit(fd != -1 && ::fcntl(fd, F_GETLK, &probe) == 0 ? (probe.l_type == F_UNLCK ? 0 : 1) : 2);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) < 2) << status;
  return WIFEXITED(status) && WEXITSTATUS(status) == 1;
}

TEST(NamedMutex, OneObjectPerNameInAProcessSharedByCopying) {
  const std::string name = uniqueName();
  NamedMutex mutex(name);
  {
    util::ALockLatchFor<NamedMutex> latch(mutex);
    {
      // A copy is the same lock: other threads wait for it, and dropping the
      // copy keeps the lock.
      NamedMutex copy(mutex);
      bool taken = true;
      std::thread other([&] { taken = copy.tryLock(); });
      other.join();
      EXPECT_FALSE(taken);
    }
    EXPECT_TRUE(lockedForOthers(name));
    // A second object of the name opens a descriptor of its own; closing it
    // at the object's end drops the process's lock, although the first
    // object still holds it.
    { NamedMutex second(name); }
    EXPECT_FALSE(lockedForOthers(name));
  }
  mutex.lock();
  NamedMutex second(name);
  EXPECT_TRUE(second.tryLock());  // nor does it exclude the first: record locks belong to the process
  second.unlock();
  mutex.unlock();
  EXPECT_EQ(::access(pathOf(name).c_str(), F_OK), 0);  // the lock file stays
  ::unlink(pathOf(name).c_str());
}

TEST(NamedMutex, AnotherProcessHoldingTheLockMakesTryLockThrowWithEAGAIN) {
  const std::string name = uniqueName();
  int ready[2];
  ASSERT_EQ(::pipe(ready), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    NamedMutex held(name);
    held.lock();
    static_cast<void>(::write(ready[1], "x", 1));
    ::pause();  // holding the lock until killed
  }
  char c;
  ASSERT_EQ(::read(ready[0], &c, 1), 1);
  // Linux reports another process's record lock as EAGAIN: an error here.
  auto e = QUOREL_EXPECT_THROW(NamedMutex(name).tryLock(), sal::exec::SyncAcquireException,
                               "::fcntl() failed to lock \"" + pathOf(name) + "\"", 2, EAGAIN);
  ASSERT_TRUE(e);
  EXPECT_STREQ(e->where(), "bool quorel::sal::sys::exec::NamedMutex::tryLock()");
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
  ::close(ready[0]);
  ::close(ready[1]);
  ::unlink(pathOf(name).c_str());
}

TEST(NamedMutex, FailuresCarryThePlatformFieldsUnderTheSyncClasses) {
  QUOREL_EXPECT_THROW(NamedMutex("no-such-directory/x"), sal::sys::Exception,
                      "::open(\"" + pathOf("no-such-directory/x") + "\") failed", 2, ENOENT);
  const std::string name = uniqueName();
  NamedMutex mutex(name);
  {
    test::fault::Injection conflict("fcntl", EACCES);
    EXPECT_FALSE(mutex.tryLock());  // EACCES is a busy result
  }
  {
    test::fault::Injection fail("fcntl", EDEADLK);
    auto e = QUOREL_EXPECT_THROW(mutex.lock(), sal::exec::SyncAcquireException,
                                 "::fcntl() failed to lock \"" + pathOf(name) + "\"", 2, EDEADLK);
    ASSERT_TRUE(e);
    EXPECT_STREQ(e->where(), "void quorel::sal::sys::exec::NamedMutex::lock()");
  }
  EXPECT_TRUE(mutex.tryLock());  // the in-process mutex was let go
  {
    test::fault::Injection fail("fcntl", EINVAL);
    QUOREL_EXPECT_THROW(mutex.unlock(), sal::exec::SyncReleaseException,
                        "::fcntl() failed to unlock \"" + pathOf(name) + "\"", 2, EINVAL);
  }
  mutex.lock();
  mutex.unlock();
  ::unlink(pathOf(name).c_str());
}

TEST(Module, LoadsLooksUpAndClosesWithTheLastCopy) {
  EXPECT_EQ(Module::naturalizedNameOf("z", true), "libz.so");
  EXPECT_EQ(Module::naturalizedBundleNameOf("plugin", true), "libplugin.so");
  {
    const Module module(QUOREL_TEST_MODULE);
    const Module copy(module);
    int (*answer)() = reinterpret_cast<int (*)()>(copy.addressOf("quorel_test_answer"));
    EXPECT_EQ(answer(), 42);
    void* loaded = ::dlopen(QUOREL_TEST_MODULE, RTLD_LAZY | RTLD_NOLOAD);
    EXPECT_NE(loaded, nullptr);
    if (loaded != nullptr) ::dlclose(loaded);
  }
  EXPECT_EQ(::dlopen(QUOREL_TEST_MODULE, RTLD_LAZY | RTLD_NOLOAD), nullptr);
}

TEST(Module, FailuresAreDynamicLinkerErrorsWithTheLoadersText) {
  try {
    Module("/nonexistent/libquorel-none.so");
  } catch (const sal::sys::Exception& e) {  // the loader's text is read when the exception is first formatted
    EXPECT_NE(e.asString().find("libquorel-none.so: cannot open shared object file"), std::string::npos);
  }
  auto e = QUOREL_EXPECT_THROW(Module("/nonexistent/libquorel-none.so"), sal::sys::Exception,
                               "::dlopen(\"/nonexistent/libquorel-none.so\") failed", 3, 0);
  ASSERT_TRUE(e);
  EXPECT_STREQ(e->where(), "void* quorel::sal::sys::exec::dl::open(const std::string&)");
  const Module module(QUOREL_TEST_MODULE);
  auto missing = QUOREL_EXPECT_THROW(module.addressOf("no_such_symbol"), sal::sys::Exception,
                                     "::dlsym(\"no_such_symbol\") failed", 3, 0);
  ASSERT_TRUE(missing);
  EXPECT_STREQ(missing->where(), "void* quorel::sal::sys::exec::dl::addressOf(std::string, void*)");
  QUOREL_EXPECT_THROW(module.addressOf("quorel_test_null"), sal::sys::Exception, "::dlsym(\"quorel_test_null\") failed",
                      3, 0);
}

}  // namespace
}  // namespace quorel
