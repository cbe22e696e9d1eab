// Platform half of the asynchronous dispatcher: the kernel's native AIO
// system calls (no library wraps them in glibc), the thread's signal mask and
// the interrupt signal.
#include <errno.h>
#include <linux/aio_abi.h>
#include <pthread.h>
#include <setjmp.h>
#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <ucontext.h>
#include <unistd.h>

#include <atomic>
#include <cstring>

#include <quorel/sal/xio/Exception.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace xio {
namespace impl {
namespace aio {

using sal::i::err::domain::kSystemCall;

// io_setup: 0, or -1 with errno. context must hold 0 before the call.
inline int setup(unsigned int depth, aio_context_t* context) {
  return static_cast<int>(::syscall(SYS_io_setup, depth, context));
}

// io_destroy: waits for what is in flight and releases the context.
inline int destroy(aio_context_t context) { return static_cast<int>(::syscall(SYS_io_destroy, context)); }

// io_submit: the blocks accepted, or -1 with errno.
inline int submit(aio_context_t context, long count, iocb** blocks) {
  return static_cast<int>(::syscall(SYS_io_submit, context, count, blocks));
}

// io_getevents: the events collected (at least `least` unless the time-out ran
// out), or -1 with errno (EINTR when a signal arrived). A null time-out waits
// without limit.
inline int getEvents(aio_context_t context, long least, long most, io_event* events, timespec* timeout) {
  return static_cast<int>(::syscall(SYS_io_getevents, context, least, most, events, timeout));
}

// The stretch of a wait between its last look at the interrupt flag and the
// kernel taking over in io_getevents. An interrupt signal landing there is
// handled before the kernel waits, and the wait would not end: the handler
// leaves the stretch through exit instead.
struct Window {
  sigjmp_buf exit;
  const io_event* events;  // events[0].data stays 0 until the kernel hands events over
  sigset_t mask;           // the thread's mask where the signal landed
};

namespace {

// The calling thread's open window, or null. Initial-exec: the signal
// handler reads it, and must not be the first to touch the thread's storage.
thread_local Window* volatile openWindow __attribute__((tls_model("initial-exec"))) = nullptr;

// Does nothing outside a window, so the process keeps running. Inside one,
// unless io_getevents has already handed events over (then it returns with
// them, and the wait dispatches them), it leaves the window.
extern "C" void onInterrupt(int, siginfo_t*, void* context) {
  Window* window = openWindow;
  if (window == nullptr || window->events[0].data != 0) return;
  openWindow = nullptr;
  // Only the kernel's part of the mask is in the frame.
  const ucontext_t* interrupted = static_cast<const ucontext_t*>(context);
  sigemptyset(&window->mask);
  for (int signal = 1; signal < NSIG; ++signal) {
    if (sigismember(&interrupted->uc_sigmask, signal) == 1) sigaddset(&window->mask, signal);
  }
  ::siglongjmp(window->exit, 1);
}

}  // namespace

// True when the program has a handler of its own for signal; false while it
// is at its default or ignored disposition.
inline bool handled(int signal) {
  struct sigaction current;
  if (::sigaction(signal, nullptr, &current) != 0) {
    const int error = errno;
    QUOREL_THROW(AIOException)("::sigaction() failed", kSystemCall, error);
  }
  return (current.sa_flags & SA_SIGINFO) != 0 || (current.sa_handler != SIG_DFL && current.sa_handler != SIG_IGN);
}

// Catches signal with onInterrupt, which does not restart the interrupted
// call, so that a blocking call returns EINTR.
inline void catchWithoutRestart(int signal) {
  struct sigaction action;
  std::memset(&action, 0, sizeof action);
  action.sa_sigaction = onInterrupt;
  action.sa_flags = SA_SIGINFO;
  sigemptyset(&action.sa_mask);
  if (::sigaction(signal, &action, nullptr) != 0) {
    const int error = errno;
    QUOREL_THROW(AIOException)("::sigaction() failed", kSystemCall, error);
  }
}

// Replaces the calling thread's signal mask with mask; previous receives the
// former one.
inline void setMask(const sigset_t& mask, sigset_t& previous) {
  const int error = ::pthread_sigmask(SIG_SETMASK, &mask, &previous);
  if (error != 0) QUOREL_THROW(AIOException)("::pthread_sigmask() failed", kSystemCall, error);
}

// io_getevents of at least one event, unless interrupted() is true first or
// the interrupt signal lands before the kernel waits: -1 with EINTR then, and
// the thread's mask as it was. events[0] is overwritten.
template <class Interrupted>
int getEventsUnlessInterrupted(aio_context_t context, long most, io_event* events, timespec* timeout, Window& window,
                               Interrupted interrupted) {
  events[0].data = 0;
  window.events = events;
  if (sigsetjmp(window.exit, 0) != 0) {
    // The handler's own mask is still in force.
    sigset_t handlers;
    setMask(window.mask, handlers);
    errno = EINTR;
    return -1;
  }
  openWindow = &window;
  std::atomic_signal_fence(std::memory_order_seq_cst);
  const int collected = interrupted() ? -1 : getEvents(context, 1, most, events, timeout);
  std::atomic_signal_fence(std::memory_order_seq_cst);
  openWindow = nullptr;
  return collected;
}

inline void send(pthread_t thread, int signal) {
  const int error = ::pthread_kill(thread, signal);
  if (error != 0) QUOREL_THROW(AIOException)("::pthread_kill() failed", kSystemCall, error);
}

}  // namespace aio
}  // namespace impl
}  // namespace xio
}  // namespace sal
}  // namespace quorel
