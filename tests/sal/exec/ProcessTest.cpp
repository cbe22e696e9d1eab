// Launching programs: the search path, standard handles, environment,
// working directory, exit codes, process-group signals, the child's signal
// mask, detached launches, and the calling process's helpers.
#include <dirent.h>
#include <sched.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <thread>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

#include "support/expect.h"
#include "support/fault.h"
#include "support/process.h"

namespace quorel {
namespace {

using sal::exec::LaunchProperty;
using sal::exec::Process;
namespace op = sal::exec::op;
namespace xio = sal::xio;
using sal::i::err::domain::kCRuntime;
using sal::i::err::domain::kSystemCall;

// Sets an environment variable (or unsets it) for a scope.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value) : name_(name) {
    const char* old = ::getenv(name);
    had_ = old != nullptr;
    if (had_) old_ = old;
    if (value != nullptr) {
      ::setenv(name, value, 1);
    } else {
      ::unsetenv(name);
    }
  }
  ~ScopedEnv() {
    if (had_) {
      ::setenv(name_, old_.c_str(), 1);
    } else {
      ::unsetenv(name_);
    }
  }

 private:
  const char* name_;
  bool had_;
  std::string old_;
};

// Everything a pipe's read end delivers until every writer has closed it.
std::string drain(xio::Pipe& pipe) {
  pipe.forWrite().close();  // the child holds the only writer now
  std::string text;
  char buffer[256];
  xio::Channel in(pipe.forRead());
  for (int n; (n = in.read(buffer, static_cast<int>(sizeof buffer))) > 0;) text.append(buffer, n);
  return text;
}

// Runs program with args and standard output (and error) into a pipe; returns
// what it wrote and its exit status.
std::string output(const std::string& program, const Process::ArgList& args, LaunchProperty lp, int* status = nullptr,
                   bool withError = false) {
  xio::Pipe pipe{xio::open::Spec(), xio::open::Spec()};
  lp.set(op::StdOutput(pipe.forWrite()));
  if (withError) lp.set(op::StdError(pipe.forWrite()));
  Process child = Process::create(program, args, lp);
  const std::string text = drain(pipe);
  const int code = child.wait();
  if (status != nullptr) *status = code;
  return text;
}

LaunchProperty withPath() {
  LaunchProperty lp;
  std::map<std::string, std::string> vars = {{"PATH", "/usr/bin:/bin"}};
  lp.set(op::EnvVars(vars));
  return lp;
}

TEST(Process, TheSearchPathIsWalkedAsGiven) {
  namespace proc = sal::sys::exec::proc;
  {
    ScopedEnv path("PATH", "/nonexistent:/bin/:/usr/bin");
    EXPECT_EQ(proc::resolve("sh"), "/bin/sh");  // no second "/"
    EXPECT_EQ(proc::resolve("/bin/sh"), "/bin/sh");
    EXPECT_EQ(proc::resolve("no-such-program-quorel"), "");
    EXPECT_EQ(proc::resolve("bin/sh"), "");  // a name with "/" never goes to PATH
  }
  {
    ScopedEnv path("PATH", "/bin");
    EXPECT_EQ(proc::resolve("sh"), "/bin/sh");
  }
  const char* notFound = "unable to locate the specified file to excute";
  for (const char* value : {static_cast<const char*>(nullptr), ""}) {
    ScopedEnv path("PATH", value);
    QUOREL_EXPECT_THROW(Process::create("sh", {}, LaunchProperty()), sal::sys::Exception, notFound, kSystemCall, 2);
  }
  QUOREL_EXPECT_THROW(Process::create("/nonexistent/quorel/sh", {}, LaunchProperty()), sal::sys::Exception, notFound,
                      kSystemCall, 2);
}

TEST(Process, StandardOutputGoesThroughAPipeAndTheEnvironmentIsTheMapAlone) {
  const int before = test::openDescriptorCount();
  int status = -1;
  EXPECT_EQ(output("echo", {"hello", "world"}, withPath(), &status), "hello world\n");
  EXPECT_EQ(status, 0);
  EXPECT_EQ(output("/usr/bin/env", {}, LaunchProperty()), "");  // no environment at all

  LaunchProperty lp;
  lp.set(op::EnvVars({{"B", "2"}, {"A", "1"}}));
  lp.set(op::EnvVars({{"A", "other"}, {"C", "3"}}));  // A keeps its value
  EXPECT_EQ(output("/usr/bin/env", {}, lp), "A=1\nB=2\nC=3\n");
  EXPECT_EQ(test::openDescriptorCount(), before);
}

TEST(Process, StandardHandlesAreInheritedClosedOrReplaced) {
  const std::string probe =
      "for fd in 0 1 2; do if [ -e /proc/$$/fd/$fd ]; then echo -n o >&2; else echo -n c >&2; fi; done";
  xio::Pipe err{xio::open::Spec(), xio::open::Spec()};
  LaunchProperty lp;
  lp.set(op::StdError(err.forWrite())).close(op::StdInput()).close(op::StdOutput());
  Process child = Process::create("/bin/sh", {"-c", probe}, lp);
  EXPECT_EQ(drain(err), "cco");
  EXPECT_EQ(child.wait(), 0);

  // Inherited: the child's standard output is the test's.
  char ours[256] = {};
  ASSERT_GT(::readlink("/proc/self/fd/1", ours, sizeof ours - 1), 0);
  xio::Pipe pipe{xio::open::Spec(), xio::open::Spec()};
  LaunchProperty inherit;
  inherit.set(op::StdError(pipe.forWrite()));
  Process reader =
      Process::create("/usr/bin/perl", {"-e", "print STDERR readlink('/proc/self/fd/1')"}, inherit);
  EXPECT_EQ(drain(pipe), std::string(ours));
  reader.wait();

  // Override descriptors count only for a replaced slot: standard input
  // stays closed and standard error (mode 0) stays the test's.
  xio::Pipe first{xio::open::Spec(), xio::open::Spec()}, second{xio::open::Spec(), xio::open::Spec()};
  LaunchProperty replaced;
  replaced.set(op::StdOutput(first.forWrite())).close(op::StdInput());
  const unsigned int fd = second.forWrite().id();
  Process overridden = Process::create(
      "/bin/sh",
      {"-c", "echo -n to-second; [ -e /proc/$$/fd/0 ] || echo -n ' in-closed'; "
             "[ /proc/$$/fd/2 -ef /proc/$$/fd/1 ] || echo -n ' err-inherited'"},
      replaced, true, fd, true, fd, true, fd);
  EXPECT_EQ(drain(second), "to-second in-closed err-inherited");
  EXPECT_EQ(drain(first), "");
  EXPECT_EQ(overridden.wait(), 0);
}

TEST(Process, TheWorkingDirectoryAndAChildThatCannotEnterIt) {
  LaunchProperty lp;
  lp.set(op::WorkingDirectory("/tmp", 7));
  EXPECT_EQ(lp.key().workingDirectoryWord, 7);
  EXPECT_EQ(output("/bin/pwd", {}, lp), "/tmp\n");

  LaunchProperty missing;
  missing.set(op::WorkingDirectory("/nonexistent/quorel"));
  int status = 0;
  const std::string text = output("/bin/pwd", {}, missing, &status, true);
  EXPECT_EQ(status, 127);
  EXPECT_NE(text.find("::chdir(\"/nonexistent/quorel\") failed"), std::string::npos) << text;
}

TEST(Process, ExitCodesAndASignalledChildAreRemembered) {
  Process three = Process::create("/bin/sh", {"-c", "exit 3"}, LaunchProperty());
  EXPECT_GT(three.id(), 0);
  EXPECT_EQ(three.name(), "/bin/sh");
  EXPECT_EQ(three.wait(), 3);
  EXPECT_EQ(three.wait(), 3);
  Process copy = three;  // copies share the remembered code
  EXPECT_EQ(copy.wait(), 3);

  Process killed = Process::create("/bin/sh", {"-c", "kill -9 $$"}, LaunchProperty());
  EXPECT_EQ(killed.wait(), -1);
  EXPECT_EQ(killed.wait(), -1);

  // Concurrent waiters: one waitpid, the same code for all.
  Process slow = Process::create("/bin/sh", {"-c", "sleep 0.2; exit 5"}, LaunchProperty());
  int codes[4] = {0, 0, 0, 0};
  std::vector<std::thread> waiters;
  for (int& code : codes) waiters.emplace_back([&slow, &code] { code = slow.wait(); });
  for (std::thread& t : waiters) t.join();
  for (int code : codes) EXPECT_EQ(code, 5);
}

// The numbers of the processes in a process group.
std::vector<int> groupMembers(int group) {
  std::vector<int> members;
  DIR* proc = ::opendir("/proc");
  while (dirent* entry = ::readdir(proc)) {
    const int pid = std::atoi(entry->d_name);
    if (pid <= 0) continue;
    std::ifstream stat(std::string("/proc/") + entry->d_name + "/stat");
    std::string line;
    std::getline(stat, line);
    const size_t close = line.rfind(')');
    if (close == std::string::npos) continue;
    std::istringstream fields(line.substr(close + 2));
    std::string state;
    int parent = 0, pgrp = 0;
    fields >> state >> parent >> pgrp;
    if (pgrp == group && state != "Z") members.push_back(pid);
  }
  ::closedir(proc);
  return members;
}

// A hexadecimal signal mask line ("SigBlk:", "ShdPnd:", "SigPnd:") of a process.
unsigned long long maskOf(int pid, const std::string& field) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind(field, 0) == 0) return std::stoull(line.substr(field.size()), nullptr, 16);
  }
  return 0;
}
bool has(unsigned long long mask, int signal) { return (mask >> (signal - 1)) & 1; }

TEST(Process, TheChildBlocksEverySignalAndGroupSignalsReachEveryMember) {
  // perl keeps the mask it starts with (a shell would clear it); after the
  // fork two processes share the group.
  Process group = Process::create("/usr/bin/perl", {"-e", "fork; sleep 30"}, LaunchProperty());
  std::vector<int> members;
  ASSERT_TRUE(test::eventually([&] { return (members = groupMembers(group.id())).size() == 2; }))
      << members.size() << " members";
  for (int pid : members) {
    const unsigned long long blocked = maskOf(pid, "SigBlk:");
    for (int signal : {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGUSR1, SIGCHLD}) EXPECT_TRUE(has(blocked, signal)) << signal;
  }
  // Blocked, so they stay pending: every member holds them.
  group.quit();
  group.interrupt();
  for (int pid : members) {
    EXPECT_TRUE(test::eventually([&] {
      const unsigned long long pending = maskOf(pid, "ShdPnd:");
      return has(pending, SIGTERM) && has(pending, SIGQUIT);
    })) << pid;
  }
  group.die();
  EXPECT_EQ(group.wait(), -1);
  EXPECT_TRUE(test::eventually([&] { return groupMembers(group.id()).empty(); }));
}

// The descriptor the stop task reports its process to, and fork as the
// library calls it with a signal reaching the new child at once.
int stopReports = -1;
int reportStop() {
  const int pid = ::getpid();
  return static_cast<int>(::write(stopReports, &pid, sizeof pid));
}
pid_t forkThenSignalTheChild() {
  const pid_t pid = ::fork();
  if (pid == 0) ::raise(SIGTERM);
  return pid;
}

TEST(Process, ASignalReachingTheNewChildNeverRunsTheParentsHandlers) {
  QUOREL_REQUIRE_FAULT_POINT("fork");
  int reports[2];
  ASSERT_EQ(::pipe2(reports, O_CLOEXEC), 0);
  stopReports = reports[1];
  sigset_t before, after;
  ::pthread_sigmask(SIG_SETMASK, nullptr, &before);
  {
    const sal::exec::TaskHandle stop(new sal::exec::FunctionDispatchTask(reportStop));
    sal::sys::exec::App frame(stop, stop, stop);
    test::fault::StandIn signalled("fork", reinterpret_cast<void*>(&forkThenSignalTheChild));
    // The child starts with every signal blocked: SIGTERM stays pending
    // through execve, and true never unblocks it.
    EXPECT_EQ(Process::create("/bin/true", {}, LaunchProperty()).wait(), 0);
  }
  ::pthread_sigmask(SIG_SETMASK, nullptr, &after);
  ::close(reports[1]);
  int pid = 0;
  EXPECT_EQ(::read(reports[0], &pid, sizeof pid), 0) << "the stop task ran in process " << pid;
  ::close(reports[0]);
  for (int signal = 1; signal < NSIG; ++signal) {
    EXPECT_EQ(sigismember(&before, signal), sigismember(&after, signal)) << "the launcher's mask changed: " << signal;
  }
}

TEST(Process, ADetachedProgramRunsInASessionOfItsOwn) {
  const std::string file = "/tmp/quorel-detached-" + std::to_string(::getpid());
  LaunchProperty lp;
  lp.hint(op::Detach()).hint(op::SameGroup()).hint(op::OwnWindow("title", 5));
  EXPECT_EQ(lp.key().detach, 1);
  EXPECT_EQ(lp.key().sameGroup, 1);
  EXPECT_EQ(lp.key().ownWindowText, "title");
  Process detached = Process::create(
      "/bin/sh", {"-c", "cat /proc/$$/stat > " + file + ".part; mv " + file + ".part " + file}, lp);
  std::string line;
  ASSERT_TRUE(test::eventually([&] {
    std::ifstream in(file);
    return static_cast<bool>(std::getline(in, line));
  }));
  ::unlink(file.c_str());
  std::istringstream fields(line.substr(line.rfind(')') + 2));
  std::string state;
  int parent = 0, pgrp = 0, session = 0;
  fields >> state >> parent >> pgrp >> session;
  const int self = std::atoi(line.c_str());
  // The intermediate process made the session and left; the program runs in
  // it, apart from the launcher's.
  EXPECT_EQ(session, detached.id());
  EXPECT_NE(self, detached.id());
  EXPECT_NE(session, ::getsid(0));
  QUOREL_EXPECT_THROW(detached.wait(), sal::sys::Exception, "::waitpid() failed", kSystemCall, ECHILD);
}

TEST(Process, FailedPlatformCallsThrowWithTheirMessages) {
  QUOREL_REQUIRE_FAULT_POINT("fork");
  {
    test::fault::Injection fail("fork", EAGAIN);
    const int before = test::openDescriptorCount();
    QUOREL_EXPECT_THROW(Process::create("/bin/true", {}, LaunchProperty()), sal::sys::Exception, "::fork() failed",
                        kSystemCall, EAGAIN);
    EXPECT_EQ(test::openDescriptorCount(), before);
  }
  Process child = Process::create("/bin/true", {}, LaunchProperty());
  {
    test::fault::Injection fail("waitpid", EINVAL);
    QUOREL_EXPECT_THROW(child.wait(), sal::sys::Exception, "::waitpid() failed", kSystemCall, EINVAL);
  }
  EXPECT_EQ(child.wait(), 0);  // the failed wait left it unwaited
}

TEST(Process, TheCallingProcessDirectoryAndEnvironment) {
  EXPECT_EQ(Process::selfID(), ::getpid());
  cpu_set_t before;
  ASSERT_EQ(::sched_getaffinity(0, sizeof before, &before), 0);
  Process::bindTo({0});
  cpu_set_t bound;
  ASSERT_EQ(::sched_getaffinity(0, sizeof bound, &bound), 0);
  EXPECT_EQ(CPU_COUNT(&bound), 1);
  EXPECT_TRUE(CPU_ISSET(0, &bound));
  ::sched_setaffinity(0, sizeof before, &before);
  const std::string here = Process::currentDirectory();
  char buffer[4096];
  ASSERT_NE(::getcwd(buffer, sizeof buffer), nullptr);
  EXPECT_EQ(here, buffer);
  Process::setCurrentDirectory("/tmp");
  EXPECT_EQ(Process::currentDirectory(), "/tmp");
  Process::setCurrentDirectory(here);
  QUOREL_EXPECT_THROW(Process::setCurrentDirectory("/nonexistent/quorel"), sal::sys::Exception,
                      "::chdir(\"/nonexistent/quorel\") failed", kSystemCall, ENOENT);
  {
    test::fault::Injection fail("getcwd", ENOENT);
    QUOREL_EXPECT_THROW(Process::currentDirectory(), sal::sys::Exception, "::getcwd() failed", kSystemCall, ENOENT);
  }

  ScopedEnv keep("QUOREL_TEST_VARIABLE", nullptr);
  EXPECT_EQ(Process::envValueOf("QUOREL_TEST_VARIABLE"), "");
  EXPECT_EQ(Process::setEnvValueOf("QUOREL_TEST_VARIABLE", "a=b"), "");
  EXPECT_EQ(Process::setEnvValueOf("QUOREL_TEST_VARIABLE", ""), "a=b");
  std::map<std::string, std::string> vars = Process::envVars();
  ASSERT_EQ(vars.count("QUOREL_TEST_VARIABLE"), 1u);
  EXPECT_EQ(vars["QUOREL_TEST_VARIABLE"], "");
  ::setenv("QUOREL_TEST_VARIABLE", "x=y=z", 1);
  Process::envVars(vars);
  EXPECT_EQ(vars["QUOREL_TEST_VARIABLE"], "x=y=z");  // split at the first "="
  QUOREL_EXPECT_THROW(Process::setEnvValueOf("A=B", "c"), sal::sys::Exception, "::setenv() failed", kCRuntime,
                      EINVAL);
}

TEST(Process, StandardHandleHelpersReportTheirCalls) {
  namespace endpoint = sal::sys::io::endpoint;
  QUOREL_EXPECT_THROW(endpoint::setStdIn(9999, true), sal::sys::Exception, "::dup2() failed", kSystemCall, EBADF);
  QUOREL_EXPECT_THROW(endpoint::setCloseOnExec(9999, true), sal::sys::Exception, "::fcntl() failed", kSystemCall,
                      EBADF);
  // dup2 onto standard error, then back.
  const int saved = ::dup(2);
  xio::Pipe pipe{xio::open::Spec(), xio::open::Spec()};
  endpoint::setStdErr(static_cast<int>(pipe.forWrite().id()), false);
  EXPECT_NE(::fcntl(2, F_GETFD) & FD_CLOEXEC, 0);
  endpoint::setStdErr(saved, true);
  EXPECT_EQ(::fcntl(2, F_GETFD) & FD_CLOEXEC, 0);
  EXPECT_EQ(endpoint::close(saved), 0);
  EXPECT_EQ(endpoint::close(saved), -1);
}

}  // namespace
}  // namespace quorel
