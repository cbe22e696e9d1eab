// Platform half of the asynchronous dispatcher: the kernel's native AIO
// system calls (no library wraps them in glibc), the thread's signal mask and
// the interrupt signal.
#include <errno.h>
#include <linux/aio_abi.h>
#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

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

namespace {
extern "C" void ignoreInterrupt(int) {}
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

// Catches signal with a handler that does nothing and does not restart the
// interrupted call, so that a blocking call returns EINTR.
inline void catchWithoutRestart(int signal) {
  struct sigaction action;
  std::memset(&action, 0, sizeof action);
  action.sa_handler = ignoreInterrupt;
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

inline void send(pthread_t thread, int signal) {
  const int error = ::pthread_kill(thread, signal);
  if (error != 0) QUOREL_THROW(AIOException)("::pthread_kill() failed", kSystemCall, error);
}

}  // namespace aio
}  // namespace impl
}  // namespace xio
}  // namespace sal
}  // namespace quorel
