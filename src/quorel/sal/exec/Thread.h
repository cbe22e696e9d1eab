/// \file
/// Thread: runs a task on its own detached thread, released by start().
#ifndef QUOREL_SAL_EXEC_THREAD_H
#define QUOREL_SAL_EXEC_THREAD_H

#include <quorel/sal/exec/i/Task.h>
#include <quorel/sal/exec/impl/Thread.h>
#include <quorel/util/AHandleTo.h>

namespace quorel {
namespace sal {
namespace exec {

/// A thread is created parked: its task begins only after start(). Anyone
/// holding a copy may wait for the task to finish. Threads are detached:
/// there is no join and no cancellation; a thread never started stays parked
/// for the life of the process. Exceptions thrown by the task (and exit())
/// end the task quietly; waiters still see it finish.
///
///   Thread worker(TaskHandle(new FunctionDispatchTask(work)), 0, 0);
///   worker.start().wait();
///
/// Copies share the thread. Thread() holds nothing: using it throws
/// NULLDereferenceException.
///
/// The constructor (for up to 20 us), the parked thread and wait() (10 us)
/// watch for the step they wait for before they sleep, when the calling thread
/// may run on more than one processor: with a processor free for each thread,
/// a create-start-wait then needs no wake-up, while a wait for a long task
/// spends those 10 us of processor time in vain. waitFor() and waitUntil()
/// sleep at once.
class Thread {
 public:
  typedef util::AHandleTo<impl::Thread> Handle;

  Thread();
  /// Boots a thread for task with at least 16384 bytes of stack and the
  /// priority of thr::boot (0 = as the process, 1 = one step above, 2 = the
  /// highest), and returns once it is running and parked. Throws
  /// sys::Exception for a failed pthread attribute or creation call.
  ///
  /// A priority above 0 in an ordinary (SCHED_OTHER) process asks for
  /// round-robin real-time scheduling, which Linux grants only to a process
  /// with CAP_SYS_NICE or an RLIMIT_RTPRIO at least as high as the priority
  /// chosen (the lowest round-robin priority for 1, the highest for 2).
  /// Without them the system refuses the thread itself: the constructor
  /// throws sys::Exception "::pthread_create() failed" with EPERM.
  Thread(const TaskHandle& task, unsigned int stackSize, int priority);
  explicit Thread(const Handle& handle);
  Thread(const Thread& other);
  Thread& operator=(const Thread& other);
  ~Thread();

  /// The same as the constructor.
  static Thread wire(const TaskHandle& task, unsigned int stackSize, int priority);

  /// Releases the parked thread to run its task.
  Thread& start();
  /// Blocks until the task has finished.
  void wait();
  /// True when the task has finished, false when the wait timed out first.
  bool waitFor(unsigned long long milliseconds);
  bool waitUntil(time::absolute deadline);

  /// The calling thread's scheduling (see thr::setPriority; a priority the
  /// system refuses is ignored), processor binding, the process id, and
  /// ending the calling booted thread.
  static void setPriority(int priority);
  static void bindToCPU(int cpu);
  static int selfID();
  [[noreturn]] static void exit();

 private:
  Handle handle_;
};

}  // namespace exec
}  // namespace sal
}  // namespace quorel

#endif
