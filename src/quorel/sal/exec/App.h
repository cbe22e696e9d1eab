/// \file
/// The frame a program runs in: one application per process, as a
/// foreground application or a daemon, with start, stop and interrupt tasks.
///
///   int main(int argc, char** argv) {
///     exec::App::init(exec::App::Context(exec::ARunContext::newAppContext(
///         "server", "serves", util::Version("1.0"), argc, argv, start, stop, interrupt)));
///     return exec::App::self().run();  // SIGTERM runs stop, SIGHUP interrupt
///   }
#ifndef QUOREL_SAL_EXEC_APP_H
#define QUOREL_SAL_EXEC_APP_H

#include <string>
#include <vector>

#include <quorel/sal/exec/i/Task.h>
#include <quorel/util/AHandleTo.h>
#include <quorel/util/Version.h>

namespace quorel {
namespace sal {
namespace exec {

/// What to run and how: names, version, the arguments after the program name,
/// and the three tasks.
class ARunContext {
 public:
  ARunContext(const std::string& name, const std::string& description, const util::Version& version, int argc,
              char** argv, const TaskHandle& startTask, const TaskHandle& stopTask, const TaskHandle& interruptTask);
  virtual ~ARunContext();
  /// Runs the start task in the application object of the context's kind;
  /// the signals are back at their defaults when it returns. A platform
  /// failure comes out as exec::Exception with the same fields.
  virtual int run() = 0;

  static ARunContext* newAppContext(const std::string& name, const std::string& description,
                                    const util::Version& version, int argc, char** argv, const TaskHandle& startTask,
                                    const TaskHandle& stopTask, const TaskHandle& interruptTask);
  static ARunContext* newDaemonContext(const std::string& name, const std::string& description,
                                       const util::Version& version, int argc, char** argv,
                                       const TaskHandle& startTask, const TaskHandle& stopTask,
                                       const TaskHandle& interruptTask);

  const std::string& name() const { return name_; }
  const std::string& description() const { return description_; }
  const util::Version& version() const { return version_; }
  const std::vector<std::string>& argVector() const { return argVector_; }
  std::vector<std::string>& argVector() { return argVector_; }
  const TaskHandle& startTask() const { return startTask_; }
  const TaskHandle& stopTask() const { return stopTask_; }
  const TaskHandle& interruptTask() const { return interruptTask_; }
  bool isApp() const;
  bool isDaemon() const;

 private:
  std::string name_;
  std::string description_;
  util::Version version_;
  std::vector<std::string> argVector_;
  TaskHandle startTask_;
  TaskHandle stopTask_;
  TaskHandle interruptTask_;
};

namespace impl {
/// Runs the start task in a foreground application (sys::exec::App).
class AppContext : public ARunContext {
 public:
  using ARunContext::ARunContext;
  int run() override;
};
/// Runs the start task in a daemon (sys::exec::Daemon): detaches first.
class DaemonContext : public ARunContext {
 public:
  using ARunContext::ARunContext;
  int run() override;
};
}  // namespace impl

/// The process's one application.
///
/// Signals. While run() runs, SIGINT, SIGQUIT and SIGTERM run the stop task
/// and SIGHUP and SIGTSTP the interrupt task. The tasks run in signal
/// context: inside the handler, on whichever thread the signal reaches, with
/// every other signal blocked and the instance lock held. A task may
/// therefore do only what a signal handler may: set a lock-free flag
/// (std::atomic, volatile sig_atomic_t), call async-signal-safe functions
/// (write, kill) and Process::quit(), interrupt() or die(), which only send a
/// signal. It must not allocate, take a Mutex, CondVar or other lock that the
/// interrupted thread may hold, use streams, or start or end the
/// application (App::init(), App::self() and run() take locks, the instance
/// lock among them, which is not recursive). A task's exception is dropped.
///
/// The instance lock is a SpinLock, i.e. one of the four mutexes of the
/// atomic pool (atomic::lock), chosen by its address. A signal that lands on
/// a thread while that thread holds any SpinLock or atomic::lock() on the
/// same mutex (App::init() and App::self() take one) makes the handler wait
/// for the thread it interrupted: the process hangs. So a thread that takes
/// such locks while the frame runs must not be the one that takes the
/// signals: block the five in it with pthread_sigmask (threads it creates
/// afterwards inherit the mask), unblock them in a thread that takes no such
/// lock (one that only waits), and send them to the process (kill()), not to
/// a thread (raise()). The quorel tool and the application example do so.
class App {
 public:
  typedef util::AHandleTo<ARunContext, int, util::ADeallocatorOf<ARunContext>> Context;

  /// Throws OperationNotSupportedException "an application instance already
  /// exists" on a second call.
  static App& init(const Context& context);
  /// Throws OperationNotSupportedException "no application instance has been
  /// initialized" before init.
  static App& self();

  int run();
  const std::string& name() const { return context_.reference().name(); }
  const std::string& description() const { return context_.reference().description(); }
  const util::Version& version() const { return context_.reference().version(); }
  const std::vector<std::string>& argVector() const { return context_.reference().argVector(); }
  bool isDaemon() const { return context_.reference().isDaemon(); }
  bool isApp() const { return context_.reference().isApp(); }

 private:
  explicit App(const Context& context) : context_(context) {}

  Context context_;
};

}  // namespace exec
}  // namespace sal
}  // namespace quorel

#endif
