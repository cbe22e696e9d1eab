/// \file
/// CVOneShot: an event that is triggered once and stays triggered.
#ifndef QUOREL_SAL_EXEC_CVONESHOT_H
#define QUOREL_SAL_EXEC_CVONESHOT_H

#include <quorel/sal/exec/CondVar.h>
#include <quorel/util/AHandleTo.h>

namespace quorel {
namespace sal {
namespace exec {

namespace impl {

/// The flag and the condition (with its own mutex) that guards it.
class CVOneShot {
 public:
  CVOneShot() : triggered_(false) {}
  void trigger();
  void wait();
  bool waitFor(unsigned long long milliseconds);
  bool waitUntil(time::absolute deadline);

 private:
  bool triggered_;
  exec::CondVar cv_;
};

}  // namespace impl

/// Two states: not triggered (initial) and triggered; trigger() is the only
/// transition and triggering again is harmless. Once triggered, every wait
/// returns at once. Copies share the event.
class CVOneShot {
 public:
  CVOneShot();

  /// Sets the event and wakes every waiter.
  void trigger();
  /// Blocks until the event is triggered.
  void wait();
  /// Waits at most once and returns whether the event is triggered: an early
  /// or spurious wake-up returns false before the time is up, so callers that
  /// need the full time loop.
  bool waitFor(unsigned long long milliseconds);
  bool waitUntil(time::absolute deadline);

 private:
  util::AHandleTo<impl::CVOneShot> handle_;
};

}  // namespace exec
}  // namespace sal
}  // namespace quorel

#endif
