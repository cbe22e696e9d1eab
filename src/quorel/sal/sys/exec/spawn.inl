// Platform half of the launch that creates the child in the caller's memory
// (op::Spawn): pipe2, rt_sigprocmask, __clone, read, waitpid in the caller;
// rt_sigprocmask, rt_sigaction, setpgid, setsid, fcntl, dup2, close, chdir,
// execve, write and exit_group as raw system calls in the child.
#include <quorel/sal/sys/exec/proc.h>

#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <memory>
#include <string>

#include <quorel/sal/Exception.h>
#include <quorel/util/Throw.h>

// libc's clone(2) under its own name. The sanitizers' run-times intercept
// clone(): ThreadSanitizer takes the child for a forked process and resets its
// state there, which under CLONE_VM is the caller's own.
extern "C" int __clone(int (*function)(void*), void* stack, int flags, void* argument, ...);

namespace quorel {
namespace sal {
namespace sys {
namespace exec {
namespace proc {

namespace {

// The child shares the caller's memory until it has called execve, so it must
// not take a lock, allocate, or run instrumented code: a sanitizer's run-time
// would record what it does in the caller's state. Its functions are built
// without instrumentation (no_sanitize) and make their system calls through
// syscall(), which no run-time intercepts (sigaction, close or _exit would
// update the caller's bookkeeping).

// The kernel's signal set and struct sigaction for rt_sigaction, the same on
// x86 and x86-64.
const int kSignals = 64;
const long kSignalSetBytes = kSignals / 8;
struct KernelSignalSet {
  unsigned long long bits;
};
struct KernelAction {
  void (*handler)(int);
  unsigned long flags;
  void (*restorer)();
  KernelSignalSet mask;
};
// Static, so that the child copies nothing to use them.
const KernelSignalSet kEverySignal = {~0ull};
const KernelAction kDefaultAction = {SIG_DFL, 0, nullptr, {0}};
static_assert(sizeof(KernelAction) == 3 * sizeof(void*) + 8, "the kernel's struct sigaction");

// Stack of the child; a detached launch gives a second one, as large, to the
// program's process. What runs there is a few small frames and libc's system
// call entry.
const std::size_t kChildStack = 64 * 1024;

// The child's failing step, written to the report pipe with its errno.
enum Step { kDup2 = 1, kFcntl, kChdir, kExecve, kClone };
struct Report {
  int step;
  int error;
};

// Everything the child reads, made by the caller before the clone.
struct Spawned {
  const char* path;
  char** argv;
  char** envp;
  const char* directory;  // null: the caller's
  int modes[3];
  int descriptors[3];
  bool detach;
  int report;        // the report pipe's write end (close-on-exec)
  char* innerStack;  // top of the detached program's stack
};

// Reports step and its error to the caller and ends the child.
[[noreturn]] __attribute__((no_sanitize("address", "thread", "undefined"))) void failStep(const Spawned& s, Step step, int error) {
  const Report report = {step, error};
  ::syscall(SYS_write, s.report, &report, sizeof report);
  for (;;) ::syscall(SYS_exit_group, 127);
}

// The program's side: standard handles, working directory, execve. The same
// steps, in the same order and with the same calls, as a forked child's.
__attribute__((no_sanitize("address", "thread", "undefined"))) int becomeProgram(void* argument) {
  const Spawned& s = *static_cast<const Spawned*>(argument);
  for (int slot = 0; slot < 3; ++slot) {
    if (s.modes[slot] == LaunchProperty::kClose) ::syscall(SYS_close, slot);
    if (s.modes[slot] == LaunchProperty::kReplace) {
      if (::syscall(SYS_dup2, s.descriptors[slot], slot) == -1) failStep(s, kDup2, errno);
      const long flags = ::syscall(SYS_fcntl, slot, F_GETFD);
      if (flags == -1 || ::syscall(SYS_fcntl, slot, F_SETFD, flags & ~FD_CLOEXEC) == -1) failStep(s, kFcntl, errno);
    }
  }
  if (s.directory != nullptr && ::syscall(SYS_chdir, s.directory) == -1) failStep(s, kChdir, errno);
  ::syscall(SYS_execve, s.path, s.argv, s.envp);
  failStep(s, kExecve, errno);
}

// The child: blocks every signal and gives every caught one its default
// action, so that no handler of the caller can run on the memory it shares
// (the program starts with that mask, as a forked child's does); then leads a
// process group of its own, or, detached, a session, in which a second child
// made the same way becomes the program while this one ends: the program can
// take no controlling terminal and is not the caller's to reap.
__attribute__((no_sanitize("address", "thread", "undefined"))) int becomeSpawnedChild(void* argument) {
  Spawned& s = *static_cast<Spawned*>(argument);
  ::syscall(SYS_rt_sigprocmask, SIG_SETMASK, &kEverySignal, nullptr, kSignalSetBytes);
  for (int signal = 1; signal <= kSignals; ++signal) {
    KernelAction action;
    if (signal == SIGKILL || signal == SIGSTOP ||
        ::syscall(SYS_rt_sigaction, signal, nullptr, &action, kSignalSetBytes) != 0) {
      continue;
    }
    if (action.handler != SIG_DFL && action.handler != SIG_IGN) {
      ::syscall(SYS_rt_sigaction, signal, &kDefaultAction, nullptr, kSignalSetBytes);
    }
  }
  // A caller without standard descriptors may have got the pipe there: move
  // it out of the way of the handles the program is given.
  if (s.report < 3) {
    const long moved = ::syscall(SYS_fcntl, s.report, F_DUPFD_CLOEXEC, 3);
    if (moved == -1) failStep(s, kFcntl, errno);
    s.report = static_cast<int>(moved);
  }
  if (!s.detach) {
    ::syscall(SYS_setpgid, 0, 0);
    return becomeProgram(argument);
  }
  ::syscall(SYS_setsid);
  if (::__clone(becomeProgram, s.innerStack, CLONE_VM | CLONE_VFORK | SIGCHLD, argument) == -1) {
    failStep(s, kClone, errno);
  }
  for (;;) ::syscall(SYS_exit_group, 0);
}

// The top of a stack that ends at end, aligned as calls expect.
char* stackTop(char* end) { return reinterpret_cast<char*>(reinterpret_cast<pod::uintptr>(end) & ~pod::uintptr(15)); }

void reap(handle pid) {
  int status;
  while (::waitpid(pid, &status, 0) == -1 && errno == EINTR) {
  }
}

// Throws what the failed step of the child throws in a forked child.
[[noreturn]] void throwChildFailure(const Report& report, const std::string& path, const LaunchProperty& lp) {
  using i::err::domain::kSystemCall;
  switch (report.step) {
    case kDup2:
      QUOREL_THROW(sys::Exception)("::dup2() failed", kSystemCall, report.error);
    case kFcntl:
      QUOREL_THROW(sys::Exception)("::fcntl() failed", kSystemCall, report.error);
    case kChdir:
      QUOREL_THROW(sys::Exception)("::chdir(\"" + lp.workingDirectory + "\") failed", kSystemCall, report.error);
    case kClone:
      QUOREL_THROW(sys::Exception)("::clone() failed", kSystemCall, report.error);
    default:
      QUOREL_THROW(sys::Exception)("::execve('" + path + "') failed", kSystemCall, report.error);
  }
}

// exec() for op::Spawn: path resolved, argv and envp built, descriptors the
// standard handles' replacements. Returns once the child has called execve
// (or, detached, its intermediate process has ended and been reaped).
handle spawn(const std::string& path, char** argv, char** envp, const LaunchProperty& lp, const int* descriptors) {
  using i::err::domain::kSystemCall;
  const std::unique_ptr<char[]> stack(new char[lp.detach != 0 ? 2 * kChildStack : kChildStack]);
  // Non-blocking: the child has written its report, if any, before the clone
  // returns, and another process forked meanwhile may hold a copy of the
  // write end, so an empty pipe is success, not something to wait for.
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
    const int error = errno;
    QUOREL_THROW(sys::Exception)("::pipe2() failed", kSystemCall, error);
  }
  Spawned s = {path.c_str(), argv, envp, lp.workingDirectory.empty() ? nullptr : lp.workingDirectory.c_str(),
               {}, {}, lp.detach != 0, ends[1], stackTop(stack.get() + kChildStack)};
  for (int slot = 0; slot < 3; ++slot) {
    s.modes[slot] = lp.stdHandles[slot].mode;
    s.descriptors[slot] = descriptors[slot];
  }
  char* const top = stackTop(stack.get() + (lp.detach != 0 ? 2 * kChildStack : kChildStack));

  // Every signal is blocked across the clone, libc's own among them (which
  // pthread_sigmask leaves open), so that none is handled in the child before
  // it has reset the handlers.
  KernelSignalSet previous;
  ::syscall(SYS_rt_sigprocmask, SIG_SETMASK, &kEverySignal, &previous, kSignalSetBytes);
  const int pid = ::__clone(becomeSpawnedChild, top, CLONE_VM | CLONE_VFORK | SIGCHLD, &s);
  const int error = errno;
  ::syscall(SYS_rt_sigprocmask, SIG_SETMASK, &previous, nullptr, kSignalSetBytes);

  ::close(ends[1]);
  Report report = {0, 0};
  const bool failed = pid != -1 && ::read(ends[0], &report, sizeof report) == static_cast<ssize_t>(sizeof report);
  ::close(ends[0]);
  if (pid == -1) QUOREL_THROW(sys::Exception)("::clone() failed", kSystemCall, error);
  // The child, or the detached launch's intermediate process, has ended.
  if (failed || lp.detach != 0) reap(pid);
  if (failed) throwChildFailure(report, path, lp);
  return pid;
}

}  // namespace

}  // namespace proc
}  // namespace exec
}  // namespace sys
}  // namespace sal
}  // namespace quorel
