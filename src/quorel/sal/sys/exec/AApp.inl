// Platform half of the application frame: the instance, the foreground
// application and the common signal handler. Daemons are in Daemon.inl, the
// light daemon in sal/sys/runtime.inl.
#include <quorel/sal/sys/exec/AApp.h>

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <quorel/sal/Exception.h>
#include <quorel/sal/sys/exec/sig.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace sys {
namespace exec {

namespace {
AApp* instance = nullptr;
}  // namespace

sal::exec::SpinLock& AApp::selfLock() {
  static sal::exec::SpinLock lock;
  return lock;
}

AApp::AApp(const sal::exec::TaskHandle& startTask, const sal::exec::TaskHandle& stopTask,
           const sal::exec::TaskHandle& interruptTask)
    : startTask_(startTask), stopTask_(stopTask), interruptTask_(interruptTask) {
  selfLock().lock();
  const bool taken = instance != nullptr;
  if (!taken) instance = this;
  selfLock().unlock();
  if (taken) {
    QUOREL_THROW(OperationNotSupportedException)("an application instance already exists",
                                                 i::err::domain::kApplication, 0);
  }
}

AApp::~AApp() {
  selfLock().lock();
  if (instance == this) instance = nullptr;
  selfLock().unlock();
}

int AApp::onStart() { return startTask_->run(); }
int AApp::onStop() { return stopTask_->run(); }
int AApp::onInterrupt() { return interruptTask_->run(); }

AApp& AApp::self() {
  if (instance == nullptr) {
    QUOREL_THROW(NULLDereferenceException)("application instance is not set", i::err::domain::kApplication, 0);
  }
  return *instance;
}

namespace appenv {

namespace {

const int kSignals[] = {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGTSTP};
const unsigned long kStopSignals = 0x800c;        // bits 2, 3, 15
const unsigned long kInterruptSignals = 0x100002;  // bits 1, 20

// Runs in signal context, on whichever thread took the signal.
void commonHandler(int signal, siginfo_t*, void*) {
  const int saved = errno;
  AApp::selfLock().lock();
  try {
    const unsigned long bit = 1UL << signal;
    if ((bit & kStopSignals) != 0) AApp::self().onStop();
    if ((bit & kInterruptSignals) != 0) AApp::self().onInterrupt();
  } catch (...) {
    // A task's failure has nowhere to go from a signal handler.
  }
  AApp::selfLock().unlock();
  errno = saved;
}

// Sets the first count signals back to their default dispositions.
void restoreDefaults(size_t count) {
  for (size_t n = 0; n < count; ++n) {
    try {
      sig::toDefault(kSignals[n]);
    } catch (const quorel::Exception&) {
      // Clean-up does not throw.
    }
  }
}

}  // namespace

// A failure part-way leaves no handler behind: with no instance to run, it
// would swallow its signal.
void init() {
  size_t installed = 0;
  try {
    for (; installed < sizeof kSignals / sizeof kSignals[0]; ++installed) {
      sig::setHandlerFor(kSignals[installed], commonHandler, 0);
    }
  } catch (...) {
    restoreDefaults(installed);
    throw;
  }
}

void fini() { restoreDefaults(sizeof kSignals / sizeof kSignals[0]); }

}  // namespace appenv

App::App(const sal::exec::TaskHandle& startTask, const sal::exec::TaskHandle& stopTask,
         const sal::exec::TaskHandle& interruptTask)
    : AApp(startTask, stopTask, interruptTask) {
  appenv::init();
}
App::~App() { appenv::fini(); }
int App::run() {
  onStart();
  return 0;
}


}  // namespace exec


}  // namespace sys
}  // namespace sal
}  // namespace quorel
