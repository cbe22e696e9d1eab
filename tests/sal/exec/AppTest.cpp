// The application frame: contexts, the one instance, signals turned into
// tasks and back to their defaults, daemons and their failures. Whatever
// makes process-wide state for good (App::init, daemonising) runs in a
// child process that reports through a pipe.
#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

#include "support/expect.h"
#include "support/fault.h"
#include "support/process.h"

namespace quorel {
namespace {

using sal::exec::App;
using sal::exec::ARunContext;
using sal::exec::FunctionDispatchTask;
using sal::exec::TaskHandle;
using sal::i::err::domain::kApplication;
using sal::i::err::domain::kSystemCall;

struct ChildRun {
  int status;  // exit status, -1 when a signal ended it
  std::string out;
};

// Runs body in a child process that writes its findings to the descriptor
// given and ends with body's result (98, with the text, for an exception).
ChildRun inChild(const std::function<int(int)>& body) {
  int ends[2];
  EXPECT_EQ(::pipe(ends), 0);
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::close(ends[0]);
    int code = 97;
    try {
      code = body(ends[1]);
    } catch (const quorel::Exception& e) {
      const std::string text = e.asString();
      static_cast<void>(::write(ends[1], text.data(), text.size()));
      code = 98;
    }
    ::_exit(code);
  }
  ::close(ends[1]);
  ChildRun run{-1, ""};
  char buffer[512];
  for (ssize_t n; (n = ::read(ends[0], buffer, sizeof buffer)) > 0;) run.out.append(buffer, static_cast<size_t>(n));
  ::close(ends[0]);
  int status = 0;
  ::waitpid(pid, &status, 0);
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return run;
}

void say(int fd, const std::string& text) { static_cast<void>(::write(fd, text.data(), text.size())); }

// Counters the tasks move (each child has its own copy), read on other
// threads than the handlers'.
std::atomic<int> starts(0), stops(0), interrupts(0);
int start() { return ++starts; }
int stop() { return ++stops; }
int interrupt() { return ++interrupts; }
// Raises each signal at itself and counts what the frame did with it.
int signalling() {
  ++starts;
  for (int signal : {SIGTERM, SIGHUP, SIGINT, SIGQUIT, SIGTSTP}) ::raise(signal);
  return 0;
}

TaskHandle task(int (*function)()) { return TaskHandle(new FunctionDispatchTask(function)); }

ARunContext* appContext(int (*startFunction)(), int argc = 1, char** argv = nullptr) {
  static char name[] = "quorel-test";
  static char* onlyName[] = {name, nullptr};
  return ARunContext::newAppContext("test", "a test application", util::Version("1.2.3"), argc,
                                    argv != nullptr ? argv : onlyName, task(startFunction), task(stop),
                                    task(interrupt));
}

bool atDefault(int signal) {
  struct sigaction now;
  ::sigaction(signal, nullptr, &now);
  return now.sa_handler == SIG_DFL && (now.sa_flags & SA_SIGINFO) == 0;
}

TEST(RunContext, ArgumentsWithoutTheProgramName) {
  char program[] = "prog", first[] = "-v", second[] = "file";
  char* argv[] = {program, first, second, nullptr};
  std::unique_ptr<ARunContext> app(appContext(start, 3, argv));
  EXPECT_EQ(app->argVector(), (std::vector<std::string>{"-v", "file"}));
  std::unique_ptr<ARunContext> daemon(ARunContext::newDaemonContext("d", "", util::Version("1"), 1, argv,
                                                                    task(start), task(stop), task(interrupt)));
  EXPECT_TRUE(daemon->argVector().empty());
}

TEST(AppFrame, SignalsRunTheStopAndInterruptTasksAndGoBackToTheirDefaults) {
  const ChildRun run = inChild([](int out) {
    App& app = App::init(App::Context(appContext(signalling)));
    const int result = app.run();
    bool defaults = true;
    for (int signal : {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGTSTP}) defaults = defaults && atDefault(signal);
    say(out, "run=" + std::to_string(result) + " starts=" + std::to_string(starts) + " stops=" +
                 std::to_string(stops) + " interrupts=" + std::to_string(interrupts) +
                 " defaults=" + (defaults ? "yes" : "no"));
    ::raise(SIGTERM);  // the default action now
    return 0;
  });
  EXPECT_EQ(run.out, "run=0 starts=1 stops=3 interrupts=2 defaults=yes");
  EXPECT_EQ(run.status, -1);  // ended by the SIGTERM
}

// The threads that ran the stop and interrupt tasks.
pthread_t stoppedOn, interruptedOn;
int stopHere() { return stoppedOn = ::pthread_self(), ++stops; }
int interruptHere() { return interruptedOn = ::pthread_self(), ++interrupts; }

TEST(AppFrame, SignalsRunTheTasksOnTheThreadTheyReach) {
#ifdef __SANITIZE_THREAD__
  // Its own signal handler holds a process-directed signal back for the
  // thread's next call into it; about one run in thirty never runs the task.
  GTEST_SKIP() << "ThreadSanitizer, not the kernel, decides when and where a process-directed signal runs";
#endif
  const ChildRun run = inChild([](int out) {
    sal::sys::exec::App app(task(start), task(stopHere), task(interruptHere));
    // The tasks run in the handler with the instance lock held. A thread that
    // holds that lock blocks the frame's signals, and a thread of their own
    // takes them: its handler waits for the lock.
    sigset_t frame;
    sigemptyset(&frame);
    for (int signal : {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGTSTP}) sigaddset(&frame, signal);
    ::pthread_sigmask(SIG_BLOCK, &frame, nullptr);
    sal::exec::CVOneShot ready, done;
    pthread_t taker{};
    std::thread takes([&] {
      taker = ::pthread_self();
      ::pthread_sigmask(SIG_UNBLOCK, &frame, nullptr);
      ready.trigger();
      done.wait();
    });
    ready.wait();  // the signal meets the taker waiting, not yet unblocking
    sal::sys::exec::AApp::selfLock().lock();
    ::kill(::getpid(), SIGTERM);  // to the process: only the taker accepts it
    sal::sys::exec::AApp::selfLock().unlock();
    test::eventually([] { return stops == 1; });
    done.trigger();
    takes.join();
    say(out, "stops=" + std::to_string(stops) + (::pthread_equal(stoppedOn, taker) ? " taker" : " elsewhere"));
    return 0;
  });
  EXPECT_EQ(run.out, "stops=1 taker");
  EXPECT_EQ(run.status, 0);
}

TEST(AppFrame, OneApplicationPerProcess) {
  QUOREL_EXPECT_THROW(sal::sys::exec::AApp::self(), NULLDereferenceException, "application instance is not set",
                      kApplication, 0);
  {
    sal::sys::exec::App first(task(start), task(stop), task(interrupt));
    EXPECT_EQ(&sal::sys::exec::AApp::self(), &first);
    QUOREL_EXPECT_THROW(sal::sys::exec::App(task(start), task(stop), task(interrupt)),
                        OperationNotSupportedException, "an application instance already exists", kApplication, 0);
    EXPECT_FALSE(atDefault(SIGTERM));
  }
  EXPECT_TRUE(atDefault(SIGTERM));
  { sal::sys::exec::App again(task(start), task(stop), task(interrupt)); }  // after the first is gone

  // The public frame (set up in a child: nothing ends it).
  QUOREL_EXPECT_THROW(App::self(), OperationNotSupportedException, "no application instance has been initialized",
                      kApplication, 0);
  const ChildRun run = inChild([](int out) {
    App::init(App::Context(appContext(start)));
    try {
      App::init(App::Context(appContext(start)));
    } catch (const OperationNotSupportedException& e) {
      say(out, e.why());
    }
    return App::self().run();
  });
  EXPECT_EQ(run.out, "an application instance already exists");
  EXPECT_EQ(run.status, 0);
}

TEST(AppFrame, SignalCallsThatFailAreReported) {
  QUOREL_EXPECT_THROW(sal::sys::exec::sig::proc::raiseOn(999999, 0), sal::sys::Exception,
                      "::kill(pid=999999, signal=0) failed", kSystemCall, ESRCH);

  QUOREL_REQUIRE_FAULT_POINT("sigaction");
  const char* kWhere =
      "void quorel::sal::sys::exec::sig::{anonymous}::setSigActionFor(int, void (*)(int, siginfo_t*, void*), int)";
  {
    // The third of five installs fails: the two before it go back to their
    // defaults, and nothing stays registered.
    test::fault::Injection fail("sigaction", EINVAL, 3);
    auto e = QUOREL_EXPECT_THROW(sal::sys::exec::App(task(start), task(stop), task(interrupt)), sal::sys::Exception,
                                 "::sigaction() failed for signal(15)", kSystemCall, EINVAL);
    ASSERT_TRUE(e);
    EXPECT_STREQ(e->where(), kWhere);
    EXPECT_STREQ(e->file(), "sal/sys/exec/sig.inl");
  }
  for (int signal : {SIGINT, SIGQUIT, SIGTERM}) EXPECT_TRUE(atDefault(signal)) << signal;
  EXPECT_THROW(sal::sys::exec::AApp::self(), NULLDereferenceException);
  test::fault::Injection fail("sigaction", EINVAL);
  auto e = QUOREL_EXPECT_THROW(sal::sys::exec::sig::toDefault(SIGUSR1), sal::sys::Exception,
                               "::sigaction() failed for signal(10)", kSystemCall, EINVAL);
  ASSERT_TRUE(e);
  EXPECT_STREQ(e->where(), kWhere);
}

TEST(AppFrame, ADaemonThatCannotForkReportsIt) {
  QUOREL_REQUIRE_FAULT_POINT("fork");
  {
    test::fault::Injection fail("fork", EAGAIN);
    std::unique_ptr<ARunContext> context(ARunContext::newDaemonContext("d", "", util::Version("1"), 0, nullptr,
                                                                       task(start), task(stop), task(interrupt)));
    QUOREL_EXPECT_THROW(context->run(), sal::exec::Exception, "first ::fork() failed while initializing as daemon",
                        kSystemCall, EAGAIN);
  }
  {
    test::fault::Injection fail("fork", ENOMEM);
    QUOREL_EXPECT_THROW(sal::sys::runtime::beDaemon(), sal::sys::Exception,
                        "first ::fork() failed while initializing as daemon", kSystemCall, ENOMEM);
  }
  // In the first child (the launcher exits 0 once it is gone): setsid, then the second fork.
  const struct {
    int (*body)(int);
    const char* why;
  } rows[] = {
      {[](int) {
         test::fault::Injection fail("setsid", EPERM);
         sal::sys::exec::Daemon daemon(task(start), task(stop), task(interrupt));
         return 0;
       },
       "::setsid() failed in first child while initializing as daemon"},
      {[](int) {
         test::fault::Injection fail("fork", EAGAIN, 2);
         sal::sys::exec::Daemon daemon(task(start), task(stop), task(interrupt));
         return 0;
       },
       "second ::fork() failed while initializing as daemon"},
      {[](int) {
         test::fault::Injection fail("setsid", EPERM);
         sal::sys::runtime::beDaemon();
         return 0;
       },
       "::setsid() failed in first child while initializing as daemon"},
  };
  for (const auto& row : rows) {
    const ChildRun run = inChild(row.body);
    EXPECT_NE(run.out.find(row.why), std::string::npos) << run.out;
    EXPECT_EQ(run.status, 0);
  }
}

TEST(AppFrame, ALightDaemonLeadsANewSession) {
  const ChildRun run = inChild([](int out) {
    const pid_t launcher = ::getpid();
    sal::sys::runtime::beDaemon();  // the launcher exits 0 here
    say(out, std::string(::getsid(0) == ::getpid() ? "leads" : "follows") + (::getpid() != launcher ? " moved" : ""));
    return 0;
  });
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "leads moved");
}

// Labelled slow (ctest -L slow): the launcher comes back after about five seconds.
TEST(SlowDaemon, TheLauncherReturnsAfterFiveSecondsAndTheDaemonHasNullForAClosedDescriptor) {
  const std::string file = "/tmp/quorel-daemon-" + std::to_string(::getpid());
  const sal::time::absolute before = sal::time::milli::now();
  static std::string report;
  report = file;
  const ChildRun run = inChild([](int) {
    ::close(0);  // the daemon gets /dev/null here; 1 and 2 stay as they are
    App::init(App::Context(ARunContext::newDaemonContext(
        "daemon", "", util::Version("1"), 0, nullptr, task(+[]() {
          char in[64] = {}, out[64] = {};
          static_cast<void>(::readlink("/proc/self/fd/0", in, sizeof in - 1));
          static_cast<void>(::readlink("/proc/self/fd/1", out, sizeof out - 1));
          std::ofstream(report + ".part") << in << " " << out << (::getsid(0) != ::getpid() ? " session" : " leader")
                                          << (atDefault(SIGTERM) ? " default" : " handled");
          ::rename((report + ".part").c_str(), report.c_str());
          return 0;
        }),
        task(stop), task(interrupt))));
    return App::self().run();
  });
  const sal::time::absolute elapsed = sal::time::milli::now() - before;
  EXPECT_EQ(run.status, 0);
  EXPECT_GE(elapsed, 4500);
  std::string text;
  EXPECT_TRUE(test::eventually([&] { return static_cast<bool>(std::getline(std::ifstream(file), text)); }));
  ::unlink(file.c_str());
  EXPECT_EQ(text.substr(0, 10), "/dev/null ");
  EXPECT_EQ(text.find("/dev/null", 10), std::string::npos) << text;  // standard output left alone
  EXPECT_NE(text.find(" session handled"), std::string::npos) << text;  // not a session leader after the second fork
}

}  // namespace
}  // namespace quorel
