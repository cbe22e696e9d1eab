/// \file
/// Platform layer of threads: booting detached threads, scheduling and
/// processor binding.
#ifndef QUOREL_SAL_SYS_EXEC_THR_H
#define QUOREL_SAL_SYS_EXEC_THR_H

#include <sched.h>

#include <cstddef>
#include <list>

namespace quorel {
namespace sal {
namespace sys {
namespace exec {
namespace thr {

/// The scheduling of the thread that loaded the library, read once at load:
/// init is true only if it could be read and its priority is valid for its
/// policy. Written before any thread can be booted, only read afterwards.
extern bool init;
extern int policy;
extern sched_param sp;

/// What a new thread is handed: copied and freed by the thread before it runs
/// function(argument).
struct BootArg {
  void (*function)(void*);
  void* argument;
};

/// Creates a detached thread running function(argument), with at least
/// 16384 bytes of stack and the scheduling chosen by priority:
///   0 or less  the process's policy and priority at load time;
///   1          one step above it (SCHED_RR's lowest for an ordinary process);
///   2 or more  the highest the policy allows (SCHED_RR's for an ordinary one).
/// Scheduling attributes are applied only when the load-time snapshot is
/// valid; their results are ignored (but pthread_create itself may then refuse
/// real-time scheduling with EPERM). Throws sys::Exception
/// "::pthread_attr_init() failed", "::pthread_attr_setdetachstate() failed",
/// "::pthread_attr_setstacksize() failed" or "::pthread_create() failed",
/// domain 2, with the returned error number.
void boot(void (*function)(void*), void* argument, size_t stackSize, int priority);
/// The entry of every booted thread: takes the BootArg and runs its function,
/// catching and dropping every exception (ExitException included).
void* bootImpl(void* bootArg);

/// The calling thread's scheduling by the same mapping as boot; does nothing
/// when the snapshot is invalid; failures are ignored.
void setPriority(int priority);
/// Binds the calling thread to one CPU (0-1023); other numbers have no effect.
/// Failures are ignored.
void bindToCPU(int cpu);
/// Binds the process to a set of CPUs; failures are ignored.
void bindProcessTo(const std::list<int>& cpus);
/// getpid(): the same number on every thread of the process.
int selfID();
/// Ends the calling booted thread by throwing ExitException, which bootImpl
/// catches.
[[noreturn]] void exit();

/// For short busy waits. relax() is the processor's spin-wait hint (no system
/// call): it eases the loop on the processor and on a sibling hardware thread.
/// processorCount() is the number of processors the calling thread may run on
/// (sched_getaffinity), 0 when that cannot be read: a busy wait for another
/// thread only makes sense when it is 2 or more.
void relax();
int processorCount();

}  // namespace thr
}  // namespace exec
}  // namespace sys
}  // namespace sal
}  // namespace quorel

#endif
