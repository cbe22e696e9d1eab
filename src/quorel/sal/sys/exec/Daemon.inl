// Platform half of daemons: fork, setsid, waitpid, sleep and the standard
// descriptors (open, dup2, close).
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

using i::err::domain::kSystemCall;

void becomeDaemon() {
  const pid_t child = ::fork();
  if (child == -1) {
    const int error = errno;
    QUOREL_THROW(sys::Exception)("first ::fork() failed while initializing as daemon", kSystemCall, error);
  }
  if (child != 0) {
    // The launcher: back to its caller once the first child has gone.
    int status;
    while (::waitpid(child, &status, 0) == -1 && errno == EINTR) {
    }
    ::exit(0);
  }
  if (::setsid() == -1) {
    const int error = errno;
    QUOREL_THROW(sys::Exception)("::setsid() failed in first child while initializing as daemon", kSystemCall,
                                 error);
  }
  sig::ignore(SIGHUP);
  const pid_t grandchild = ::fork();
  if (grandchild == -1) {
    const int error = errno;
    QUOREL_THROW(sys::Exception)("second ::fork() failed while initializing as daemon", kSystemCall, error);
  }
  if (grandchild != 0) {
    // The first child gives the daemon time to start, then leaves without
    // flushing what it shares with the launcher.
    ::sleep(5);
    ::_exit(0);
  }
}

// A standard descriptor that is closed comes to point at /dev/null; one that
// is open stays as it is.
void nullStandardDescriptor(int standard, int flags) {
  const int fd = ::open("/dev/null", flags);
  if (fd >= 0 && fd != standard) {
    ::dup2(standard, fd);
    ::close(fd);
  }
}

}  // namespace

Daemon::Daemon(const sal::exec::TaskHandle& startTask, const sal::exec::TaskHandle& stopTask,
               const sal::exec::TaskHandle& interruptTask)
    : AApp(startTask, stopTask, interruptTask) {
  becomeDaemon();
  nullStandardDescriptor(0, O_RDONLY);
  nullStandardDescriptor(1, O_RDWR);
  nullStandardDescriptor(2, O_RDWR);
  appenv::init();
}
Daemon::~Daemon() { appenv::fini(); }
int Daemon::run() {
  onStart();
  return 0;
}

}  // namespace exec
}  // namespace sys
}  // namespace sal
}  // namespace quorel
