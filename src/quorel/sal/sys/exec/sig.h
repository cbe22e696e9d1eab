/// \file
/// Signal helpers of the platform layer: dispositions, process and thread
/// masks, and sending a signal to a process.
#ifndef QUOREL_SAL_SYS_EXEC_SIG_H
#define QUOREL_SAL_SYS_EXEC_SIG_H

#include <signal.h>
#include <sys/types.h>

namespace quorel {
namespace sal {
namespace sys {
namespace exec {
namespace sig {

typedef void (*Handler)(int signal, siginfo_t* info, void* context);

void fill(sigset_t& set);
/// Installs handler for signal with every signal blocked while it runs and
/// flags | SA_RESTART (| SA_SIGINFO for a real function). Throws
/// sys::Exception "::sigaction() failed for signal(<n>)" (errno).
void setHandlerFor(int signal, Handler handler, int flags);
void ignore(int signal);
void toDefault(int signal);

namespace proc {
/// sigprocmask; the results are returned, not checked.
int block(const sigset_t& set);
int unblock(const sigset_t& set);
int setMask(const sigset_t& set);
/// kill. Throws sys::Exception "::kill(pid=<pid>, signal=<n>) failed" (errno).
void raiseOn(pid_t pid, int signal);
}  // namespace proc

namespace thr {
/// pthread_sigmask; the results are returned, not checked.
int block(const sigset_t& set);
int unblock(const sigset_t& set);
int setMask(const sigset_t& set);
}  // namespace thr

}  // namespace sig
}  // namespace exec
}  // namespace sys
}  // namespace sal
}  // namespace quorel

#endif
