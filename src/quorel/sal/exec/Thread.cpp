// Thread: the creation handshake, release and waits.
#include <quorel/sal/exec/Thread.h>

#include <quorel/util/ALockLatchFor.h>

#include <quorel/sal/sys/exec/thr.inl>

namespace quorel {
namespace sal {
namespace exec {

namespace impl {

typedef util::ALockLatchFor<exec::Mutex> Latch;

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
