/// \file
/// Task: a unit of work for threads and the application frame.
#ifndef QUOREL_SAL_EXEC_I_TASK_H
#define QUOREL_SAL_EXEC_I_TASK_H

#include <quorel/util/AHandleTo.h>

namespace quorel {
namespace sal {
namespace exec {
namespace i {

/// Held through AHandleTo<Task>, so a task lives as long as the last thread
/// or application that holds it.
class Task {
 public:
  virtual ~Task() = 0;
  virtual int run() = 0;
};

inline Task::~Task() {}

}  // namespace i

typedef util::AHandleTo<i::Task> TaskHandle;

/// A task that calls a plain function and returns its result.
class FunctionDispatchTask : public i::Task {
 public:
  explicit FunctionDispatchTask(int (*function)()) : function_(function) {}
  int run() override { return function_(); }

 private:
  int (*function_)();
};

}  // namespace exec
}  // namespace sal
}  // namespace quorel

#endif
