/// \file
/// The shared state of a thread: its task and three flags under one mutex.
#ifndef QUOREL_SAL_EXEC_IMPL_THREAD_H
#define QUOREL_SAL_EXEC_IMPL_THREAD_H

#include <quorel/sal/exec/CondVar.h>
#include <quorel/sal/exec/i/Task.h>

namespace quorel {
namespace sal {
namespace exec {
namespace impl {

/// States: created -> running and parked -> released -> finished. The three
/// flags are read and written only under the mutex that the three conditions
/// share.
class Thread {
 public:
  explicit Thread(const TaskHandle& task);

  /// The creator's side: waits until the new thread is running and parked.
  void awaitRunning();
  /// Lets the parked thread run its task.
  void release();
  void wait();
  bool waitFor(unsigned long long milliseconds);
  bool waitUntil(time::absolute deadline);

  /// The function booted on the new thread; argument points at the creator's
  /// handle to this object, valid until awaitRunning() returns.
  static void bootImpl(void* handle);

 private:
  void finish();

  TaskHandle task_;
  bool running_;
  exec::CondVar runningCV_;
  bool released_;
  exec::CondVar releaseCV_;
  bool finished_;
  exec::CondVar finishedCV_;
};

}  // namespace impl
}  // namespace exec
}  // namespace sal
}  // namespace quorel

#endif
