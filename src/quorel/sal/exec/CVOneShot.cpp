// CVOneShot: a flag guarded by the mutex of its own condition.
#include <quorel/sal/exec/CVOneShot.h>

#include <quorel/util/ALockLatchFor.h>

namespace quorel {
namespace sal {
namespace exec {

namespace impl {

typedef util::ALockLatchFor<exec::Mutex> Latch;

void CVOneShot::trigger() {
  Latch latch(cv_);
  triggered_ = true;
  cv_.signalAll();
}

void CVOneShot::wait() {
  Latch latch(cv_);
  while (!triggered_) cv_.wait();
}

bool CVOneShot::waitFor(unsigned long long milliseconds) {
  Latch latch(cv_);
  if (!triggered_) cv_.waitFor(milliseconds);
  return triggered_;
}

bool CVOneShot::waitUntil(time::absolute deadline) {
  Latch latch(cv_);
  if (!triggered_) cv_.waitUntil(deadline);
  return triggered_;
}

}  // namespace impl

CVOneShot::CVOneShot() : handle_(new impl::CVOneShot) {}
void CVOneShot::trigger() { handle_->trigger(); }
void CVOneShot::wait() { handle_->wait(); }
bool CVOneShot::waitFor(unsigned long long milliseconds) { return handle_->waitFor(milliseconds); }
bool CVOneShot::waitUntil(time::absolute deadline) { return handle_->waitUntil(deadline); }

}  // namespace exec
}  // namespace sal
}  // namespace quorel
