// Platform half of the signal helpers: sigaction, sigprocmask,
// pthread_sigmask, kill.
#include <quorel/sal/sys/exec/sig.h>

#include <errno.h>
#include <pthread.h>

#include <cstring>
#include <string>

#include <quorel/sal/Exception.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace sys {
namespace exec {
namespace sig {

namespace {

// SIG_DFL or SIG_IGN in the type of a handler (the same pointer value).
Handler asHandler(void (*disposition)(int)) {
  return reinterpret_cast<Handler>(reinterpret_cast<void (*)()>(disposition));
}

// Installs handler (a real function, or SIG_DFL or SIG_IGN cast to a
// handler's type) with every signal blocked while it runs and SA_RESTART;
// a real function also gets the signal's information.
void setSigActionFor(int signal, void (*handler)(int, siginfo_t*, void*), int flags) {
  struct sigaction action;
  std::memset(&action, 0, sizeof action);
  action.sa_sigaction = handler;
  fill(action.sa_mask);
  action.sa_flags = flags | SA_RESTART;
  if (handler != asHandler(SIG_DFL) && handler != asHandler(SIG_IGN)) action.sa_flags |= SA_SIGINFO;
  if (::sigaction(signal, &action, nullptr) != 0) {
    const int error = errno;
    QUOREL_THROW(sys::Exception)("::sigaction() failed for signal(" + std::to_string(signal) + ")",
                                 i::err::domain::kSystemCall, error);
  }
}

// SIG_DFL or SIG_IGN.
void setDispositionOf(int signal, void (*disposition)(int)) {
  setSigActionFor(signal, asHandler(disposition), 0);
}

}  // namespace

void fill(sigset_t& set) { sigfillset(&set); }

void setHandlerFor(int signal, Handler handler, int flags) { setSigActionFor(signal, handler, flags); }
void ignore(int signal) { setDispositionOf(signal, SIG_IGN); }
void toDefault(int signal) { setDispositionOf(signal, SIG_DFL); }

namespace proc {
int block(const sigset_t& set) { return ::sigprocmask(SIG_BLOCK, &set, nullptr); }
int unblock(const sigset_t& set) { return ::sigprocmask(SIG_UNBLOCK, &set, nullptr); }
int setMask(const sigset_t& set) { return ::sigprocmask(SIG_SETMASK, &set, nullptr); }

void raiseOn(pid_t pid, int signal) {
  if (::kill(pid, signal) != 0) {
    const int error = errno;
    QUOREL_THROW(sys::Exception)("::kill(pid=" + std::to_string(pid) + ", signal=" + std::to_string(signal) +
                                     ") failed",
                                 i::err::domain::kSystemCall, error);
  }
}
}  // namespace proc

namespace thr {
int block(const sigset_t& set) { return ::pthread_sigmask(SIG_BLOCK, &set, nullptr); }
int unblock(const sigset_t& set) { return ::pthread_sigmask(SIG_UNBLOCK, &set, nullptr); }
int setMask(const sigset_t& set) { return ::pthread_sigmask(SIG_SETMASK, &set, nullptr); }
}  // namespace thr

}  // namespace sig
}  // namespace exec
}  // namespace sys
}  // namespace sal
}  // namespace quorel
