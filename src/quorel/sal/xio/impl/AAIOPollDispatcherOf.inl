// The asynchronous dispatcher: each request goes to the kernel's native AIO
// context on submission (one io_submit each), and the owner thread collects
// completions with io_getevents.
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <vector>

#include <quorel/sal/sys/time.h>
#include <quorel/sal/xio/Dispatcher.h>
#include <quorel/sal/xio/impl/aio.inl>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace xio {
namespace impl {

// The owner thread and the signal that interrupts its waits.
template <class R>
class APOSIXAIODispatcherOf {
 public:
  static const int kInterruptSignal = SIGABRT;  // 6

  explicit APOSIXAIODispatcherOf(const mux::Spec& spec)
      : owner_(::pthread_self()), signal_(kInterruptSignal), spec_(spec), inFlight_(0), held_(0), locks_(0),
        interrupted_(false) {
    sigfillset(&signalSet_);
    sigdelset(&signalSet_, signal_);
  }

  const mux::Spec& muxSpec() const { return spec_; }
  int pending() const { return inFlight_ + held_; }

  // The calling thread becomes the owner and lets only the interrupt signal
  // through. The owner's calls nest: only the first replaces its mask. A
  // lock() on another thread takes the dispatcher over, mask and all.
  void lock() {
    const pthread_t self = ::pthread_self();
    if (locks_ > 0 && ::pthread_equal(self, owner_)) {
      ++locks_;
      return;
    }
    aio::setMask(signalSet_, previousMask_);
    owner_ = self;
    locks_ = 1;
  }
  // The owner's last unlock() restores the mask its first lock() replaced;
  // on any other thread, or when not locked, nothing happens.
  void unlock() {
    if (locks_ == 0 || !::pthread_equal(::pthread_self(), owner_)) return;
    if (locks_ == 1) {
      sigset_t replaced;
      aio::setMask(previousMask_, replaced);
    }
    --locks_;
  }

  void interrupt() {
    if (::pthread_equal(::pthread_self(), owner_)) return;
    // The signal's default action would end the process.
    if (!aio::handled(signal_)) aio::catchWithoutRestart(signal_);
    interrupted_.store(true);
    aio::send(owner_, signal_);
  }

 protected:
  // True once for each interrupt() since the owner last asked.
  bool interrupted() { return interrupted_.exchange(false); }
  void forgetInterrupts() { interrupted_.store(false); }

  pthread_t owner_;
  int signal_;
  sigset_t signalSet_;
  mux::Spec spec_;
  int inFlight_;  // in the kernel
  int held_;      // held here: count -1, completed with -666
  sigset_t previousMask_;  // the owner's, before its first lock()
  int locks_;              // the owner's lock() calls not yet undone
  std::atomic<bool> interrupted_;
};

template <class R>
class AAIOPollDispatcherOf : public APOSIXAIODispatcherOf<R> {
  typedef APOSIXAIODispatcherOf<R> Base;
  typedef ADispatcherUsing<AAIOPollDispatcherOf> Using;

 public:
  static const int kEvents = 4096;  // collected per io_getevents at most

  // Sets up a kernel context of depth requests (io_setup's result is not
  // examined: without a context every submission fails, and the handler is
  // told).
  AAIOPollDispatcherOf(const mux::Spec& spec, int depth)
      : Base(spec), context_(0), inWait_(false), next_(0), taken_(0), round_(0) {
    aio::setup(static_cast<unsigned int>(depth), &context_);
    heldList_.reserve(16);
    dispatching_.reserve(16);
  }
  ~AAIOPollDispatcherOf() {
    if (context_ != 0) aio::destroy(context_);
  }
  AAIOPollDispatcherOf(const AAIOPollDispatcherOf&) = delete;
  AAIOPollDispatcherOf& operator=(const AAIOPollDispatcherOf&) = delete;

  bool queue(R& request) {
    if (request.noTransfer()) {
      heldList_.push_back(&request);
      ++this->held_;
      return true;
    }
    iocb* block = &request.current->block;
    block->aio_fildes = request.endpointID();
    if (aio::submit(context_, 1, &block) < 0) {
      const int error = errno;
      AIORequestException e = QUOREL_EXCEPTION(AIORequestException)(
          request.reading() ? "::io_submit() failed for read" : "::io_submit() failed for write",
          sal::i::err::domain::kSystemCall, error);
      request.handler().on(e, request.origin());
      return false;
    }
    ++this->inFlight_;
    return true;
  }

  // Completes requests until none is outstanding, or until io_getevents
  // fails (an interrupt). What a handler throws leaves wait() at once; the
  // requests not yet completed stay counted and complete in the next wait.
  void wait() {
    InWait scope(inWait_);
    this->forgetInterrupts();
    while (this->inFlight_ + this->held_ >= 1) {
      dispatchHeld();
      dispatchCollected();
      if (this->inFlight_ == 0) continue;
      if (collect(nullptr) < 0) break;
      dispatchCollected();
    }
  }

  // Completes the held requests (and the events a throwing handler left),
  // then makes one collection of at most the given time if anything is in
  // the kernel.
  void waitFor(unsigned long long milliseconds) {
    InWait scope(inWait_);
    this->forgetInterrupts();
    timespec timeout;
    const unsigned long long kLongest = 2147483647000ULL;  // what a 32-bit time_t holds
    sys::time::milli::to(timeout, static_cast<long long>(milliseconds < kLongest ? milliseconds : kLongest));
    dispatchHeld();
    dispatchCollected();
    if (this->inFlight_ == 0) return;
    if (collect(&timeout) > 0) dispatchCollected();
  }

  // Requests are performed by queue() itself; their contexts complete here.
  void prepare(R& request) const {
    request.read.perform = nullptr;
    request.read.complete = completeRead;
    request.write.perform = nullptr;
    request.write.complete = completeWrite;
  }

 private:
  static void completeRead(R& r, int result) { complete(r, i::op::Read(), result, "error in read completion"); }
  static void completeWrite(R& r, int result) { complete(r, i::op::Write(), result, "error in write completion"); }

  // Sets the in-wait flag for a scope and restores its former value.
  class InWait {
   public:
    explicit InWait(bool& flag) : flag_(flag), previous_(flag) { flag_ = true; }
    ~InWait() { flag_ = previous_; }

   private:
    bool& flag_;
    bool previous_;
  };

  // Counts the request done before its handler runs, so that the counts
  // hold whatever the handler does.
  template <class Op>
  static void complete(R& r, Op op, int result, const char* why) {
    AAIOPollDispatcherOf& d = Using::of(r);
    if (result == kHeldResult) {
      --d.held_;
    } else {
      --d.inFlight_;
      if (result < 0) {
        errno = -result;
        AIOCompletionException e =
            QUOREL_EXCEPTION(AIOCompletionException)(why, sal::i::err::domain::kSystemCall, -result);
        r.handler().on(e, r.origin());
        return;
      }
    }
    r.handler().on(op, result, r.origin());
  }

  // Completes the held requests in the order they came, a round at a time:
  // requests held by their handlers meanwhile wait for the next round. The
  // round and its position belong to the dispatcher, and each request is
  // passed before its handler runs, so that a handler that throws leaves the
  // rest of the round to the next wait, and one that waits shares the round.
  void dispatchHeld() {
    if (round_ == dispatching_.size()) {
      if (heldList_.empty()) return;
      dispatching_.clear();
      dispatching_.swap(heldList_);
      round_ = 0;
    }
    while (round_ < dispatching_.size()) {
      R& r = *dispatching_[round_++];
      r.current->complete(r, kHeldResult);
    }
  }

  // One io_getevents into the event array, which must hold nothing
  // undispatched: the events collected, or -1 when the call failed or an
  // interrupt ended it (before or in the kernel).
  int collect(timespec* timeout) {
    const int collected = aio::getEventsUnlessInterrupted(context_, kEvents, events_, timeout, window_,
                                                          [this] { return this->interrupted(); });
    next_ = 0;
    taken_ = collected > 0 ? collected : 0;
    return collected;
  }

  // Completes the collected events not yet dispatched, in order, each passed
  // before its handler runs: after a handler throws, the rest wait in the
  // array for the next wait; a handler that waits completes them in its own
  // wait, which refills the array only once they are all done.
  void dispatchCollected() {
    while (next_ < taken_) {
      const io_event& event = events_[next_++];
      R& r = *reinterpret_cast<R*>(static_cast<pod::uintptr>(event.data));
      Context& context = reinterpret_cast<iocb*>(static_cast<pod::uintptr>(event.obj)) == &r.read.block ? r.read
                                                                                                      : r.write;
      context.complete(r, static_cast<int>(event.res));
    }
  }

  aio_context_t context_;
  bool inWait_;
  io_event events_[kEvents];
  int next_;   // the first collected event not yet dispatched
  int taken_;  // the events the last collection took
  aio::Window window_;
  std::vector<R*> heldList_;
  std::vector<R*> dispatching_;  // the round of held requests being completed
  size_t round_;                 // the first of the round not yet completed
};

}  // namespace impl
}  // namespace xio
}  // namespace sal
}  // namespace quorel
