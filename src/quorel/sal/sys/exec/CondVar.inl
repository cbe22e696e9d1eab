// Platform half of CondVar: pthread_cond_init, _wait, _timedwait, _signal,
// _broadcast and _destroy.
#include <quorel/sal/sys/exec/CondVar.h>

#include <errno.h>

#include <limits>

#include <quorel/sal/Exception.h>
#include <quorel/sal/sys/time.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace sys {
namespace exec {

namespace {

// The latest deadline, in milliseconds, that a timespec can express.
sal::time::absolute latestDeadline() {
  const long long seconds = static_cast<long long>(std::numeric_limits<time_t>::max());
  return seconds > std::numeric_limits<long long>::max() / 1000000000 ? std::numeric_limits<long long>::max() / 1000000
                                                                     : seconds * 1000;
}

}  // namespace

CondVar::CondVar() {
  const int error = ::pthread_cond_init(&cond_, nullptr);
  if (error != 0) {
    QUOREL_THROW(sys::Exception)("::pthread_cond_init() failed", i::err::domain::kSystemCall, error);
  }
}

CondVar::~CondVar() { ::pthread_cond_destroy(&cond_); }

void CondVar::wait(Mutex& mutex) {
  const int error = ::pthread_cond_wait(&cond_, mutex.native());
  if (error != 0) {
    QUOREL_THROW(sys::Exception)("::pthread_cond_wait() failed", i::err::domain::kSystemCall, error);
  }
}

bool CondVar::waitUntil(sal::time::absolute deadline, Mutex& mutex) {
  static const sal::time::absolute latest = latestDeadline();
  timespec ts;
  // Past deadlines (even before the epoch) time out at once.
  time::milli::to(ts, deadline < 0 ? 0 : deadline < latest ? deadline : latest);
  const int error = ::pthread_cond_timedwait(&cond_, mutex.native(), &ts);
  if (error == 0) return true;
  if (error == ETIMEDOUT) return false;
  QUOREL_THROW(sys::Exception)("::pthread_cond_timedwait() failed", i::err::domain::kSystemCall, error);
}

void CondVar::signalOne() {
  const int error = ::pthread_cond_signal(&cond_);
  if (error != 0) {
    QUOREL_THROW(sys::Exception)("::pthread_cond_signal() failed", i::err::domain::kSystemCall, error);
  }
}

void CondVar::signalAll() {
  const int error = ::pthread_cond_broadcast(&cond_);
  if (error != 0) {
    QUOREL_THROW(sys::Exception)("::pthread_cond_broadcast() failed", i::err::domain::kSystemCall, error);
  }
}

}  // namespace exec
}  // namespace sys
}  // namespace sal
}  // namespace quorel
