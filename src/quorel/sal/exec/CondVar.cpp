// CondVar, forwarding to the platform's condition.
#include <quorel/sal/exec/CondVar.h>

#include <limits>

#include <quorel/sal/sys/exec/CondVar.inl>

namespace quorel {
namespace sal {
namespace exec {

CondVar::CondVar() : cond_(new impl::CondVar) {}
CondVar::CondVar(const Mutex& mutex) : Mutex(mutex), cond_(new impl::CondVar) {}
CondVar::CondVar(const CondVar& other) = default;
CondVar& CondVar::operator=(const CondVar& other) = default;
CondVar::~CondVar() = default;

CondVar CondVar::newSibling() const { return CondVar(static_cast<const Mutex&>(*this)); }

void CondVar::wait() { cond_->wait(*impl().operator->()); }

bool CondVar::waitFor(unsigned long long milliseconds) {
  const time::absolute now = time::milli::now();
  const unsigned long long room = static_cast<unsigned long long>(std::numeric_limits<time::absolute>::max() - now);
  const time::absolute deadline =
      milliseconds > room ? std::numeric_limits<time::absolute>::max() : now + static_cast<time::absolute>(milliseconds);
  return waitUntil(deadline);
}

bool CondVar::waitUntil(time::absolute deadline) { return cond_->waitUntil(deadline, *impl().operator->()); }

void CondVar::signalOne() { cond_->signalOne(); }
void CondVar::signalAll() { cond_->signalAll(); }

}  // namespace exec
}  // namespace sal
}  // namespace quorel
