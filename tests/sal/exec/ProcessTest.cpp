// Launching programs: the search path, standard handles, environment,
// working directory, exit codes, the child's failing steps, process-group
// signals, the child's signal mask, detached launches, and the calling
// process's helpers. The launch cases run through both ways of making the
// child: fork (the default) and op::Spawn.
#include <dirent.h>
#include <dlfcn.h>
#include <sched.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
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

// Sets an environment variable (or unsets it, for nullptr) for a scope.
struct ScopedEnv {
  ScopedEnv(const char* variable, const char* value) : name(variable), had(::getenv(variable) != nullptr) {
    if (had) old = ::getenv(name);
    value != nullptr ? ::setenv(name, value, 1) : ::unsetenv(name);
  }
  ~ScopedEnv() { had ? ::setenv(name, old.c_str(), 1) : ::unsetenv(name); }
  const char* name;
  bool had;
  std::string old;
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

// Runs program with standard output into a pipe; returns what it wrote.
std::string output(const std::string& program, LaunchProperty lp) {
  xio::Pipe pipe{xio::open::Spec(), xio::open::Spec()};
  lp.set(op::StdOutput(pipe.forWrite()));
  Process child = Process::create(program, {}, lp);
  const std::string text = drain(pipe);
  EXPECT_EQ(child.wait(), 0);
  return text;
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
  ScopedEnv path("PATH", nullptr);
  QUOREL_EXPECT_THROW(Process::create("sh", {}, LaunchProperty()), sal::sys::Exception,
                      "unable to locate the specified file to excute", kSystemCall, 2);
}

// The launch cases, run once with fork and once with op::Spawn.
class ProcessLaunch : public testing::TestWithParam<bool> {
 protected:
  bool spawned() const { return GetParam(); }
  // An empty launch property for this run's way.
  LaunchProperty property() const {
    LaunchProperty lp;
    lp.hint(op::Spawn(spawned()));
    return lp;
  }
};
INSTANTIATE_TEST_SUITE_P(, ProcessLaunch, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& way) { return way.param ? "Spawn" : "Fork"; });

TEST_P(ProcessLaunch, StandardOutputGoesThroughAPipeAndTheEnvironmentIsTheMapAlone) {
  const int before = test::openDescriptorCount();
  EXPECT_EQ(output("/usr/bin/env", property()), "");  // no environment at all
  LaunchProperty lp = property();
  lp.set(op::EnvVars({{"B", "2"}, {"PATH", "/usr/bin:/bin"}}));
  lp.set(op::EnvVars({{"B", "other"}, {"C", "3"}}));  // B keeps its value
  EXPECT_EQ(output("env", lp), "B=2\nC=3\nPATH=/usr/bin:/bin\n");
  EXPECT_EQ(test::openDescriptorCount(), before);
}

TEST_P(ProcessLaunch, StandardHandlesAreInheritedClosedOrReplaced) {
  // Override descriptors count only for a replaced slot: standard input
  // stays closed and standard error (mode 0) stays the test's.
  xio::Pipe first{xio::open::Spec(), xio::open::Spec()}, second{xio::open::Spec(), xio::open::Spec()};
  LaunchProperty lp = property();
  lp.set(op::StdOutput(first.forWrite())).close(op::StdInput());
  const unsigned int fd = second.forWrite().id();
  const std::string ours = "/proc/" + std::to_string(::getpid()) + "/fd/2";
  Process child = Process::create("/bin/sh",
                                  {"-c", "echo -n to-second; [ -e /proc/$$/fd/0 ] || echo -n ' in-closed'; "
                                         "[ /proc/$$/fd/2 -ef " + ours + " ] && echo -n ' err-inherited'"},
                                  lp, true, fd, true, fd, true, fd);
  EXPECT_EQ(drain(second), "to-second in-closed err-inherited");
  EXPECT_EQ(drain(first), "");
  EXPECT_EQ(child.wait(), 0);
}

TEST_P(ProcessLaunch, TheWorkingDirectoryAndTheChildsFailingSteps) {
  LaunchProperty lp = property();
  lp.set(op::WorkingDirectory("/tmp", 7));
  EXPECT_EQ(output("/bin/pwd", lp), "/tmp\n");

  // A step that fails in the child fails as it does in this process
  // (setCurrentDirectory and the standard handle helpers, tested below). A
  // forked child reports it on its standard error and exits 127; a spawned
  // child's is thrown by create, the child reaped.
  const int before = test::openDescriptorCount();
  struct Step {
    LaunchProperty lp;
    std::string why;
    int code;
  } steps[] = {{property(), "::chdir(\"/nonexistent/quorel\") failed", ENOENT},
               {property(), "::dup2() failed", EBADF}};
  steps[0].lp.set(op::WorkingDirectory("/nonexistent/quorel"));
  steps[1].lp.set(op::StdInput(xio::Endpoint::open("nothing")));  // no descriptor to give
  for (Step& step : steps) {
    if (spawned()) {
      QUOREL_EXPECT_THROW(Process::create("/bin/pwd", {}, step.lp), sal::sys::Exception, step.why, kSystemCall,
                          step.code);
      continue;
    }
    // The child inherits the standard error, this process's made a pipe for the while.
    xio::Pipe pipe{xio::open::Spec(), xio::open::Spec()};
    const int saved = ::dup(2);
    ::dup2(static_cast<int>(pipe.forWrite().id()), 2);
    Process child = Process::create("/bin/pwd", {}, step.lp);
    ::dup2(saved, 2);
    ::close(saved);
    EXPECT_EQ(drain(pipe), "quorel: launching /bin/pwd: " + step.why + " - " + std::strerror(step.code) + "\n");
    EXPECT_EQ(child.wait(), 127);
  }

  if (spawned()) {
    // A caller without standard input and output: the pipe that carries the
    // child's failure gets their numbers, which the child's handles then take.
    xio::Pipe pipe{xio::open::Spec(), xio::open::Spec()};
    LaunchProperty handles = property();
    handles.set(op::StdInput(pipe.forRead())).set(op::StdOutput(pipe.forWrite()));
    handles.set(op::WorkingDirectory("/nonexistent/quorel"));
    const int in = ::dup(0), out = ::dup(1);
    ::close(0);
    ::close(1);
    std::string why = "nothing thrown";
    try {
      Process::create("/bin/pwd", {}, handles);
    } catch (const sal::sys::Exception& e) {
      why = e.why();
    }
    ::dup2(in, 0);
    ::dup2(out, 1);
    ::close(in);
    ::close(out);
    EXPECT_EQ(why, steps[0].why);
  }

  // A program that cannot be executed: a forked child aborts (no core file),
  // a spawned one's execve failure is thrown.
  char name[] = "/tmp/quorel-not-executable-XXXXXX";
  ::close(::mkstemp(name));
  rlimit core, none;
  ::getrlimit(RLIMIT_CORE, &core);
  none = {0, core.rlim_max};
  ::setrlimit(RLIMIT_CORE, &none);
  if (spawned()) {
    QUOREL_EXPECT_THROW(Process::create(name, {}, property()), sal::sys::Exception,
                        "::execve('" + std::string(name) + "') failed", kSystemCall, EACCES);
  } else {
    EXPECT_EQ(Process::create(name, {}, property()).wait(), -1);
  }
  ::setrlimit(RLIMIT_CORE, &core);
  ::unlink(name);
  EXPECT_EQ(test::openDescriptorCount(), before);
}

TEST_P(ProcessLaunch, ExitCodesAndASignalledChildAreRemembered) {
  Process three = Process::create("/bin/sh", {"-c", "exit 3"}, property());
  EXPECT_EQ(three.wait(), 3);
  Process copy = three;  // copies share the remembered code
  EXPECT_EQ(copy.wait(), 3);
  EXPECT_EQ(Process::create("/bin/sh", {"-c", "kill -9 $$"}, property()).wait(), -1);

  // Concurrent waiters: one waitpid, the same code for all.
  Process slow = Process::create("/bin/sh", {"-c", "sleep 0.2; exit 5"}, property());
  int codes[4] = {0, 0, 0, 0};
  std::vector<std::thread> waiters;
  for (int& code : codes) waiters.emplace_back([&slow, &code] { code = slow.wait(); });
  for (std::thread& t : waiters) t.join();
  for (int code : codes) EXPECT_EQ(code, 5);

  // tryWait never blocks: false while the child runs, then true with the
  // code kept for wait().
  Process sleeper = Process::create("/bin/sleep", {"30"}, property());
  EXPECT_FALSE(sleeper.tryWait());
  sleeper.die();
  EXPECT_TRUE(test::eventually([&] { return sleeper.tryWait(); }));
  EXPECT_TRUE(sleeper.tryWait());
  EXPECT_EQ(sleeper.wait(), -1);
  EXPECT_TRUE(Process(three).tryWait());
}

// The live processes of a process group.
std::vector<int> groupMembers(int group) {
  std::vector<int> members;
  DIR* proc = ::opendir("/proc");
  while (dirent* entry = ::readdir(proc)) {
    std::ifstream stat(std::string("/proc/") + entry->d_name + "/stat");
    std::string line, state;
    int parent = 0, pgrp = 0;
    if (!std::getline(stat, line) || line.rfind(')') == std::string::npos) continue;
    std::istringstream(line.substr(line.rfind(')') + 2)) >> state >> parent >> pgrp;
    if (pgrp == group && state != "Z") members.push_back(std::atoi(entry->d_name));
  }
  ::closedir(proc);
  return members;
}

// Whether signal is in a hexadecimal mask line ("SigBlk:", "ShdPnd:") of a process.
bool inMask(int pid, const std::string& field, int signal) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind(field, 0) == 0) return (std::stoull(line.substr(field.size()), nullptr, 16) >> (signal - 1)) & 1;
  }
  return false;
}

TEST_P(ProcessLaunch, TheChildBlocksEverySignalAndGroupSignalsReachEveryMember) {
  // perl keeps the mask it starts with (a shell would clear it).
  Process group = Process::create("/usr/bin/perl", {"-e", "fork; sleep 30"}, property());
  std::vector<int> members;
  ASSERT_TRUE(test::eventually([&] { return (members = groupMembers(group.id())).size() == 2; }));
  for (int pid : members) {
    for (int signal : {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGUSR1, SIGCHLD}) EXPECT_TRUE(inMask(pid, "SigBlk:", signal));
  }
  // Blocked, so they stay pending: every member holds them.
  group.quit();
  group.interrupt();
  for (int pid : members) {
    EXPECT_TRUE(test::eventually([&] { return inMask(pid, "ShdPnd:", SIGTERM) && inMask(pid, "ShdPnd:", SIGQUIT); }));
  }
  group.die();
  EXPECT_EQ(group.wait(), -1);
  EXPECT_TRUE(test::eventually([&] { return groupMembers(group.id()).empty(); }));
}

// The descriptor the stop task reports its process to, and fork and clone
// as the library calls them with a signal reaching the new child at once (a
// spawned child shares this thread's cached ids: it asks the kernel for its
// own to signal itself).
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
typedef int (*Cloned)(void*);
Cloned cloned = nullptr;
int signalThenRun(void* argument) {
  ::syscall(SYS_kill, ::syscall(SYS_getpid), SIGTERM);
  return cloned(argument);
}
int cloneThenSignalTheChild(Cloned function, void* stack, int flags, void* argument) {
  cloned = function;
  static const auto real = reinterpret_cast<int (*)(Cloned, void*, int, void*, ...)>(::dlsym(RTLD_NEXT, "__clone"));
  return real(signalThenRun, stack, flags, argument);
}

TEST_P(ProcessLaunch, ASignalReachingTheNewChildNeverRunsTheParentsHandlers) {
  const char* const creation = spawned() ? "__clone" : "fork";
  QUOREL_REQUIRE_FAULT_POINT(creation);
  int reports[2];
  ASSERT_EQ(::pipe2(reports, O_CLOEXEC), 0);
  stopReports = reports[1];
  sigset_t before, after;
  ::pthread_sigmask(SIG_SETMASK, nullptr, &before);
  {
    const sal::exec::TaskHandle stop(new sal::exec::FunctionDispatchTask(reportStop));
    sal::sys::exec::App frame(stop, stop, stop);
    test::fault::StandIn signalled(creation, spawned() ? reinterpret_cast<void*>(&cloneThenSignalTheChild)
                                                       : reinterpret_cast<void*>(&forkThenSignalTheChild));
    // SIGTERM stays pending through execve, and true never unblocks it.
    EXPECT_EQ(Process::create("/bin/true", {}, property()).wait(), 0);
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

TEST_P(ProcessLaunch, ADetachedProgramRunsInASessionOfItsOwn) {
  const std::string file = "/tmp/quorel-detached-" + std::to_string(::getpid());
  LaunchProperty lp = property();
  lp.hint(op::Detach());
  // Field 6 of the stat line is the session ("sh" has no space in its name).
  Process detached = Process::create(
      "/bin/sh", {"-c", "echo $$ $(cut -d' ' -f6 /proc/$$/stat) > " + file + ".part; mv " + file + ".part " + file},
      lp);
  int self = 0, session = 0;
  ASSERT_TRUE(test::eventually([&] { return static_cast<bool>(std::ifstream(file) >> self >> session); }));
  ::unlink(file.c_str());
  // The intermediate process made the session and left; the program runs in
  // it, apart from the launcher's.
  EXPECT_EQ(session, detached.id());
  EXPECT_NE(self, detached.id());
  EXPECT_NE(session, ::getsid(0));
  QUOREL_EXPECT_THROW(detached.wait(), sal::sys::Exception, "::waitpid() failed", kSystemCall, ECHILD);
  QUOREL_EXPECT_THROW(detached.tryWait(), sal::sys::Exception, "::waitpid() failed", kSystemCall, ECHILD);
}

TEST(Process, TheCallingProcessFailuresDirectoryAndEnvironment) {
  QUOREL_REQUIRE_FAULT_POINT("fork");
  {
    test::fault::Injection fail("fork", EAGAIN);
    const int before = test::openDescriptorCount();
    QUOREL_EXPECT_THROW(Process::create("/bin/true", {}, LaunchProperty()), sal::sys::Exception, "::fork() failed",
                        kSystemCall, EAGAIN);
    EXPECT_EQ(test::openDescriptorCount(), before);
  }
  {
    test::fault::Injection fail("__clone", EAGAIN);
    const int before = test::openDescriptorCount();
    QUOREL_EXPECT_THROW(Process::create("/bin/true", {}, LaunchProperty().hint(op::Spawn())), sal::sys::Exception,
                        "::clone() failed", kSystemCall, EAGAIN);
    EXPECT_EQ(test::openDescriptorCount(), before);
  }
  cpu_set_t before, bound;
  ASSERT_EQ(::sched_getaffinity(0, sizeof before, &before), 0);
  Process::bindTo({0});
  ::sched_getaffinity(0, sizeof bound, &bound);
  ::sched_setaffinity(0, sizeof before, &before);
  EXPECT_EQ(CPU_COUNT(&bound), 1);
  EXPECT_TRUE(CPU_ISSET(0, &bound));

  const std::string here = Process::currentDirectory();
  Process::setCurrentDirectory("/tmp");
  EXPECT_EQ(Process::currentDirectory(), "/tmp");
  Process::setCurrentDirectory(here);
  QUOREL_EXPECT_THROW(Process::setCurrentDirectory("/nonexistent/quorel"), sal::sys::Exception,
                      "::chdir(\"/nonexistent/quorel\") failed", kSystemCall, ENOENT);
  QUOREL_EXPECT_FAULT("getcwd", ENOENT, Process::currentDirectory(), sal::sys::Exception, "::getcwd() failed",
                      kSystemCall, ENOENT);

  ScopedEnv keep("QUOREL_TEST_VARIABLE", nullptr);
  EXPECT_EQ(Process::envValueOf("QUOREL_TEST_VARIABLE"), "");
  EXPECT_EQ(Process::setEnvValueOf("QUOREL_TEST_VARIABLE", "x=y=z"), "");
  EXPECT_EQ(Process::envVars()["QUOREL_TEST_VARIABLE"], "x=y=z");  // split at the first "="
  EXPECT_EQ(Process::setEnvValueOf("QUOREL_TEST_VARIABLE", ""), "x=y=z");  // the old value comes back
  EXPECT_EQ(Process::envVars().count("QUOREL_TEST_VARIABLE"), 1u);
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
