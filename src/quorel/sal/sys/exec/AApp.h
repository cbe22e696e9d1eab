/// \file
/// The platform application object: one per process, holding the program's
/// start, stop and interrupt tasks, with signals turned into calls of the
/// stop and interrupt tasks; App runs in the foreground, Daemon detaches
/// first.
#ifndef QUOREL_SAL_SYS_EXEC_AAPP_H
#define QUOREL_SAL_SYS_EXEC_AAPP_H

#include <quorel/sal/exec/SpinLock.h>
#include <quorel/sal/exec/i/Task.h>

namespace quorel {
namespace sal {
namespace sys {
namespace exec {

/// The process's one application object: the start, stop and interrupt tasks; App and Daemon implement run().
class AApp {
 public:
  /// Registers this object as the process's instance. Throws
  /// OperationNotSupportedException "an application instance already exists".
  AApp(const sal::exec::TaskHandle& startTask, const sal::exec::TaskHandle& stopTask,
       const sal::exec::TaskHandle& interruptTask);
  AApp(const AApp&) = delete;
  AApp& operator=(const AApp&) = delete;
  virtual ~AApp();
  virtual int run() = 0;

  int onStart();
  int onStop();
  int onInterrupt();

  /// The instance. Throws NULLDereferenceException "application instance is
  /// not set" when there is none.
  static AApp& self();
  /// Guards the instance: held while a signal runs a task, in the handler. A
  /// mutex of the atomic pool, so a signal must not reach a thread that holds
  /// a lock of that pool (see exec::App).
  static sal::exec::SpinLock& selfLock();

 private:
  sal::exec::TaskHandle startTask_;
  sal::exec::TaskHandle stopTask_;
  sal::exec::TaskHandle interruptTask_;
};

/// Foreground: SIGINT, SIGQUIT and SIGTERM run the stop task, SIGHUP and
/// SIGTSTP the interrupt task, until the object goes (the five signals are
/// then back at their defaults).
class App : public AApp {
 public:
  App(const sal::exec::TaskHandle& startTask, const sal::exec::TaskHandle& stopTask,
      const sal::exec::TaskHandle& interruptTask);
  ~App() override;
  /// Runs the start task; 0.
  int run() override;
};

/// Becomes a daemon first: the launching process waits for the first child,
/// which leaves about 5 seconds after starting the daemon, and then exits 0;
/// the daemon (the grandchild) leads no terminal session, gets /dev/null for
/// whichever standard descriptor is closed, and handles signals as App.
/// Throws sys::Exception "first ::fork() failed while initializing as
/// daemon", "::setsid() failed in first child while initializing as daemon"
/// or "second ::fork() failed while initializing as daemon".
class Daemon : public AApp {
 public:
  Daemon(const sal::exec::TaskHandle& startTask, const sal::exec::TaskHandle& stopTask,
         const sal::exec::TaskHandle& interruptTask);
  ~Daemon() override;
  int run() override;
};

namespace appenv {
/// Installs the common handler for SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGTSTP.
void init();
/// Sets the same signals back to their default dispositions.
void fini();
}  // namespace appenv

}  // namespace exec


}  // namespace sys
}  // namespace sal
}  // namespace quorel

#endif
