// Thread: the creation handshake, release and waits.
#include <quorel/sal/exec/Thread.h>

#include <quorel/sal/time.h>
#include <quorel/util/pod.h>

#include <quorel/sal/sys/exec/thr.inl>

namespace quorel {
namespace sal {
namespace exec {

namespace impl {

namespace {

// The waits of the handshake are short when both threads have a processor: a
// new thread is running within 5 to 20 us, a released one is seen at once and
// a short task is over soon after. Sleeping on a condition costs a wake-up
// that takes longer than that, so each of them first watches its flag, in
// rounds of a processor pause, then sleeps as before: the creator for up to
// kStartNanoseconds, the parked thread and wait() for up to kStepNanoseconds.
// When every processor is busy the watches end unanswered and are lost time,
// which is why the limits are no longer. A thread that may run on one
// processor only stops watching after kQuickRounds rounds: the thread it waits
// for needs that processor. The watch never yields its processor: on a busy
// machine a yield gives it away for a whole time slice, far longer than the
// wait it was meant to shorten.
const pod::uint64 kStartNanoseconds = 20000;
const pod::uint64 kStepNanoseconds = 10000;
const int kQuickRounds = 32;
// How often the clock is read while watching.
const int kClockEvery = 16;
// How often a latch tries the mutex before it blocks on it (see Latch).
const int kLockTries = 100;

// Holds the mutex for a scope. It is held only for a few instructions at a
// time, also by spinUntil, so the latch tries it a while before it blocks:
// blocking would put this thread to sleep behind a waiter's glance at a flag.
class Latch {
 public:
  explicit Latch(exec::Mutex& mutex) : mutex_(mutex) {
    for (int i = 0; i < kLockTries; ++i) {
      if (mutex_.tryLock()) return;
      sys::exec::thr::relax();
    }
    mutex_.lock();
  }
  ~Latch() { mutex_.unlock(); }
  Latch(const Latch&) = delete;
  Latch& operator=(const Latch&) = delete;

 private:
  exec::Mutex& mutex_;
};

// Watches flag, reading it under mutex, for up to nanoseconds; true once it
// is set. The mutex is only tried, so the watch never sleeps on it. Most
// watches end within kQuickRounds rounds, before the processors are counted
// and the clock is first read.
bool spinUntil(exec::Mutex& mutex, const bool& flag, pod::uint64 nanoseconds) {
  pod::uint64 start = 0;
  for (int round = 1;; ++round) {
    if (mutex.tryLock()) {
      const bool set = flag;
      mutex.unlock();
      if (set) return true;
    }
    if (round == kQuickRounds) {
      if (sys::exec::thr::processorCount() < 2) return false;
      start = time::tick::now();
    } else if (round > kQuickRounds && round % kClockEvery == 0 && time::tick::now() - start >= nanoseconds) {
      return false;
    }
    sys::exec::thr::relax();
  }
}

}  // namespace

Thread::Thread(const TaskHandle& task)
    : task_(task),
      running_(false),
      released_(false),
      releaseCV_(runningCV_.newSibling()),
      finished_(false),
      finishedCV_(releaseCV_.newSibling()) {}

void Thread::bootImpl(void* handle) {
  // Our own reference keeps the state alive for the thread's whole life.
  const util::AHandleTo<Thread> self(*static_cast<util::AHandleTo<Thread>*>(handle));
  Thread& thread = *const_cast<Thread*>(&self.reference());
  {
    Latch latch(thread.runningCV_);
    thread.running_ = true;
    thread.runningCV_.signalOne();
  }
  // Parked: the creator usually starts the thread at once.
  if (!spinUntil(thread.runningCV_, thread.released_, kStepNanoseconds)) {
    Latch latch(thread.runningCV_);
    while (!thread.released_) thread.releaseCV_.wait();
  }
  try {
    thread.task_->run();
  } catch (...) {
    thread.finish();
    throw;
  }
  thread.finish();
}

// The flags change under the mutex, the waiters are woken after it is
// released: woken under it, each would wake only to block on the mutex still
// held here. Waking late loses nothing, since every waiter tests its flag
// under the mutex before it sleeps, and the conditions outlive this call: the
// booted thread holds its own handle until it ends.
void Thread::finish() {
  {
    Latch latch(runningCV_);
    finished_ = true;
    running_ = true;
  }
  finishedCV_.signalAll();
  runningCV_.signalAll();
}

void Thread::awaitRunning() {
  if (spinUntil(runningCV_, running_, kStartNanoseconds)) return;
  Latch latch(runningCV_);
  while (!running_) runningCV_.wait();
}

// Woken after the mutex is released, as in finish(); the creator's handle
// keeps the condition alive.
void Thread::release() {
  {
    Latch latch(runningCV_);
    released_ = true;
  }
  releaseCV_.signalOne();
}

void Thread::wait() {
  if (spinUntil(runningCV_, finished_, kStepNanoseconds)) return;
  Latch latch(runningCV_);
  while (!finished_) finishedCV_.wait();
}

bool Thread::waitFor(unsigned long long milliseconds) {
  Latch latch(runningCV_);
  while (!finished_) {
    if (!finishedCV_.waitFor(milliseconds)) return false;
  }
  return true;
}

bool Thread::waitUntil(time::absolute deadline) {
  Latch latch(runningCV_);
  while (!finished_) {
    if (!finishedCV_.waitUntil(deadline)) return false;
  }
  return true;
}

}  // namespace impl

Thread::Thread() = default;

Thread::Thread(const TaskHandle& task, unsigned int stackSize, int priority) : handle_(new impl::Thread(task)) {
  // The new thread copies handle_ before awaitRunning() returns.
  sys::exec::thr::boot(impl::Thread::bootImpl, &handle_, stackSize, priority);
  handle_->awaitRunning();
}

Thread::Thread(const Handle& handle) : handle_(handle) {}
Thread::Thread(const Thread& other) = default;
Thread& Thread::operator=(const Thread& other) = default;
Thread::~Thread() = default;

Thread Thread::wire(const TaskHandle& task, unsigned int stackSize, int priority) {
  return Thread(task, stackSize, priority);
}

Thread& Thread::start() {
  handle_->release();
  return *this;
}

void Thread::wait() { handle_->wait(); }
bool Thread::waitFor(unsigned long long milliseconds) { return handle_->waitFor(milliseconds); }
bool Thread::waitUntil(time::absolute deadline) { return handle_->waitUntil(deadline); }

void Thread::setPriority(int priority) { sys::exec::thr::setPriority(priority); }
void Thread::bindToCPU(int cpu) { sys::exec::thr::bindToCPU(cpu); }
int Thread::selfID() { return sys::exec::thr::selfID(); }
void Thread::exit() { sys::exec::thr::exit(); }

}  // namespace exec
}  // namespace sal
}  // namespace quorel
