// The io_uring dispatcher: requests go into the submission ring as they are
// queued and reach the kernel together, with the wait that follows, in one
// io_uring_enter; the owner thread takes their completions from the
// completion ring. An eventfd polled through the ring ends a wait from
// another thread. Included after AAIOPollDispatcherOf.inl, whose owner and
// mask it shares.
#include <poll.h>
#include <pthread.h>

#include <cstring>
#include <string>
#include <vector>

#include <quorel/sal/sys/time.h>
#include <quorel/sal/xio/Dispatcher.h>
#include <quorel/sal/xio/impl/uring.inl>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace xio {
namespace impl {
namespace uring {

// The most requests a ring takes at once: the kernel's largest submission ring.
const int kMostDepth = 32768;

// Every entry of a batch is submitted even when one before it fails (its
// completion carries the error), and the kernel runs completions when the
// owner enters it rather than interrupting the owner wherever it runs.
// Kernels before 5.19 refuse these flags (EINVAL).
const unsigned int kSetupFlags = IORING_SETUP_SUBMIT_ALL | IORING_SETUP_COOP_TASKRUN;
// What the dispatcher relies on: no completion dropped when the completion
// ring is full, entries read once at submission, waits with a time-out.
const unsigned int kNeededFeatures = IORING_FEAT_NODROP | IORING_FEAT_SUBMIT_STABLE | IORING_FEAT_EXT_ARG;

// The user data of the entries that are no request: the poll of the wake
// event and the cancellation on destruction (requests carry the address of
// their control block, never this low).
const pod::uint64 kWake = 1;
const pod::uint64 kCancel = 2;

// The errors of io_uring_setup by which the kernel refuses io_uring to this
// process: disabled (kernel.io_uring_disabled), filtered (seccomp, a
// security module), absent, or too old for the flags.
inline bool refused(int error) { return error == EPERM || error == EACCES || error == ENOSYS || error == EINVAL; }

// /proc/sys/kernel/io_uring_disabled: 0 allowed, 1 only for the io_uring
// group, 2 for nobody; -1 when the kernel has no such setting.
inline int disabledSetting() noexcept {
  const int fd = openForReading("/proc/sys/kernel/io_uring_disabled");
  if (fd < 0) return -1;
  char text[16];
  const long got = readSome(fd, text, sizeof text);
  close(fd);
  return got > 0 && text[0] >= '0' && text[0] <= '9' ? text[0] - '0' : -1;
}

template <class T>
T load(const T* at) {
  return __atomic_load_n(at, __ATOMIC_ACQUIRE);
}
template <class T>
void store(T* at, T value) {
  __atomic_store_n(at, value, __ATOMIC_RELEASE);
}

// A descriptor closed with its holder unless taken over.
class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int get() const { return fd_; }
  int release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
  }

 private:
  int fd_;
};

// The rings shared with the kernel: the descriptor, the mappings, and where
// the fields of each ring lie in them. The kernel moves the submission head
// and the completion tail; the dispatcher the submission tail and the
// completion head: each side reads what the other wrote with acquire and
// publishes its own with release.
class Ring {
 public:
  // Takes over fd, the descriptor io_uring_setup returned for params, and
  // maps its rings. Throws AIOException "::mmap() failed" after releasing
  // what it mapped and closing the descriptor.
  Ring(Descriptor& fd, const io_uring_params& params) : fd_(fd.release()) {
    try {
      const size_t sqLength = params.sq_off.array + params.sq_entries * sizeof(pod::uint32);
      const size_t cqLength = params.cq_off.cqes + params.cq_entries * sizeof(io_uring_cqe);
      const bool single = (params.features & IORING_FEAT_SINGLE_MMAP) != 0;
      sqLength_ = single && cqLength > sqLength ? cqLength : sqLength;
      sqRing_ = static_cast<char*>(map(fd_, sqLength_, IORING_OFF_SQ_RING));
      if (single) {
        cqRing_ = sqRing_;
      } else {
        cqLength_ = cqLength;
        cqRing_ = static_cast<char*>(map(fd_, cqLength_, IORING_OFF_CQ_RING));
      }
      sqesLength_ = params.sq_entries * sizeof(io_uring_sqe);
      sqes = static_cast<io_uring_sqe*>(map(fd_, sqesLength_, IORING_OFF_SQES));
    } catch (...) {
      release();
      throw;
    }
    sqHead = reinterpret_cast<pod::uint32*>(sqRing_ + params.sq_off.head);
    sqTail = reinterpret_cast<pod::uint32*>(sqRing_ + params.sq_off.tail);
    sqMask = *reinterpret_cast<const pod::uint32*>(sqRing_ + params.sq_off.ring_mask);
    sqEntries = params.sq_entries;
    cqHead = reinterpret_cast<pod::uint32*>(cqRing_ + params.cq_off.head);
    cqTail = reinterpret_cast<pod::uint32*>(cqRing_ + params.cq_off.tail);
    cqMask = *reinterpret_cast<const pod::uint32*>(cqRing_ + params.cq_off.ring_mask);
    cqes = reinterpret_cast<io_uring_cqe*>(cqRing_ + params.cq_off.cqes);
    // Entry n of the submission array names submission entry n for good.
    pod::uint32* array = reinterpret_cast<pod::uint32*>(sqRing_ + params.sq_off.array);
    for (pod::uint32 n = 0; n < sqEntries; ++n) array[n] = n;
  }
  ~Ring() { release(); }
  Ring(const Ring&) = delete;
  Ring& operator=(const Ring&) = delete;

  int fd() const { return fd_; }

  io_uring_sqe* sqes = nullptr;
  pod::uint32* sqHead = nullptr;
  pod::uint32* sqTail = nullptr;
  pod::uint32 sqMask = 0;
  pod::uint32 sqEntries = 0;
  pod::uint32* cqHead = nullptr;
  pod::uint32* cqTail = nullptr;
  pod::uint32 cqMask = 0;
  io_uring_cqe* cqes = nullptr;

 private:
  void release() noexcept {
    if (sqes != nullptr) unmap(sqes, sqesLength_);
    if (cqRing_ != nullptr && cqRing_ != sqRing_) unmap(cqRing_, cqLength_);
    if (sqRing_ != nullptr) unmap(sqRing_, sqLength_);
    close(fd_);
  }

  int fd_;
  char* sqRing_ = nullptr;
  size_t sqLength_ = 0;
  char* cqRing_ = nullptr;
  size_t cqLength_ = 0;
  size_t sqesLength_ = 0;
};

// A descriptor closed with its owner.
class Event {
 public:
  Event() : fd(createEvent()) {}
  ~Event() { close(fd); }
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;

  const int fd;
};

}  // namespace uring

// The owner thread and its mask are the asynchronous dispatcher's (lock()
// and unlock() behave alike); interrupt() posts the wake event instead of
// sending a signal.
template <class R>
class AURingDispatcherOf : public APOSIXAIODispatcherOf<R> {
  typedef APOSIXAIODispatcherOf<R> Base;
  typedef ADispatcherUsing<AURingDispatcherOf> Using;

 public:
  // Takes over fd, the ring io_uring_setup made for params with depth
  // entries. Throws AIOException "::mmap() failed" or "::eventfd() failed",
  // with the ring released.
  AURingDispatcherOf(const mux::Spec& spec, uring::Descriptor& fd, const io_uring_params& params, int depth)
      : Base(spec), ring_(fd, params), depth_(depth) {
    sqTail_ = *ring_.sqTail;
    waiting_.resize(16);
    doneList_.reserve(16);
    dispatching_.reserve(16);
  }
  // Cancels what is in the kernel and waits until it has all ended, so that
  // nothing lands in a request's buffer afterwards; never throws.
  ~AURingDispatcherOf() { quiesce(); }
  AURingDispatcherOf(const AURingDispatcherOf&) = delete;
  AURingDispatcherOf& operator=(const AURingDispatcherOf&) = delete;

  int pending() const { return this->inFlight_ + this->held_ + static_cast<int>(waitingCount_); }

  // From the owner nothing; from any other thread the wake event, which ends
  // the wait in progress or, when none is, the owner's next one.
  void interrupt() {
    if (::pthread_equal(::pthread_self(), this->owner_)) return;
    uring::post(wake_.fd);
  }

  // A request of count -1 is held here and completes with -666; one of a
  // negative count or offset is refused at once (io_uring would read a
  // negative offset as "the file's position"); one beyond the depth waits
  // here for room. The rest go into the submission ring, for the kernel to
  // see at the next wait.
  bool queue(R& request) {
    if (request.noTransfer()) {
      doneList_.push_back(Done{&request.current->block, 0});
      ++this->held_;
      return true;
    }
    if (request.count() < 0 || request.offset() < 0) {
      AIORequestException e = QUOREL_EXCEPTION(AIORequestException)(
          request.reading() ? "the count or the offset of the read is negative"
                            : "the count or the offset of the write is negative",
          sal::i::err::domain::kApplication, 0);
      request.handler().on(e, request.origin());
      return false;
    }
    if (this->inFlight_ < depth_ && waitingCount_ == 0) {
      fill(put(), request);
      ++this->inFlight_;
      feed();
    } else {
      if (waitingCount_ == waiting_.size()) grow();
      fill(waiting_[(waitingHead_ + waitingCount_) & (waiting_.size() - 1)], request);
      ++waitingCount_;
    }
    return true;
  }

  // Completes requests until none is outstanding or interrupt() ends the
  // wait. What a handler throws leaves wait() at once; the requests not yet
  // completed stay counted and complete in the next wait. A signal does not
  // end the wait.
  void wait() {
    while (pending() > 0) {
      bool done = dispatchDone();
      if (dispatchCompleted(done)) return;
      if (pending() == 0) return;
      admit();
      if (this->inFlight_ == 0) continue;
      if (enter(1, nullptr) == kFailed) return;
    }
  }

  // Completes what has completed and submits what is queued; when that
  // completed nothing, waits at most the given time for a completion (a
  // signal does not shorten it).
  void waitFor(unsigned long long milliseconds) {
    bool done = dispatchDone();
    if (dispatchCompleted(done)) return;
    admit();
    if (this->inFlight_ == 0) return;
    if (done) {
      enter(0, nullptr);
    } else {
      const unsigned long long kNano = 1000000ULL;
      const unsigned long long kMost = ~0ULL / kNano;  // beyond: as good as for ever
      const unsigned long long total = milliseconds < kMost ? milliseconds * kNano : kMost * kNano;
      const pod::uint64 start = sys::time::tick::now();
      for (unsigned long long left = total;;) {
        __kernel_timespec timeout;
        timeout.tv_sec = static_cast<long long>(left / 1000000000ULL);
        timeout.tv_nsec = static_cast<long long>(left % 1000000000ULL);
        if (enter(1, &timeout) != kInterrupted) break;
        const pod::uint64 spent = sys::time::tick::now() - start;
        if (spent >= total) break;
        left = total - spent;
      }
    }
    dispatchCompleted(done);
  }

  // Requests go to the ring by queue(); their contexts complete here.
  void prepare(R& request) const {
    request.read.perform = nullptr;
    request.read.complete = completeRead;
    request.write.perform = nullptr;
    request.write.complete = completeWrite;
  }

 private:
  // A request completed or refused here, not by the kernel: held (error 0,
  // result -666) or refused by io_uring_enter (error: its errno).
  struct Done {
    iocb* block;
    int error;
  };

  static R& requestOf(iocb* block) { return *reinterpret_cast<R*>(static_cast<pod::uintptr>(block->aio_data)); }
  static Context& contextOf(R& r, iocb* block) { return block == &r.read.block ? r.read : r.write; }

  static void completeRead(R& r, int result) { complete(r, i::op::Read(), result, "error in read completion"); }
  static void completeWrite(R& r, int result) { complete(r, i::op::Write(), result, "error in write completion"); }

  // Counts the request done before its handler runs, so that the counts
  // hold whatever the handler does.
  template <class Op>
  static void complete(R& r, Op op, int result, const char* why) {
    AURingDispatcherOf& d = Using::of(r);
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

  // The submission entry of the armed operation of request (the endpoint's
  // descriptor as it is now, as io_submit would take it).
  static void fill(io_uring_sqe& sqe, R& request) {
    std::memset(&sqe, 0, sizeof sqe);
    sqe.opcode = request.reading() ? IORING_OP_READ : IORING_OP_WRITE;
    sqe.fd = static_cast<pod::int32>(request.endpointID());
    sqe.off = static_cast<pod::uint64>(request.offset());
    sqe.addr = static_cast<pod::uint64>(reinterpret_cast<pod::uintptr>(request.buffer()));
    sqe.len = static_cast<pod::uint32>(request.count());
    sqe.user_data = static_cast<pod::uint64>(reinterpret_cast<pod::uintptr>(&request.current->block));
  }

  // The next free submission entry; a full ring is submitted first (or,
  // when the kernel takes none of it, refused).
  io_uring_sqe& put() {
    if (sqTail_ - uring::load(ring_.sqHead) == ring_.sqEntries) {
      enter(0, nullptr);
      if (sqTail_ - uring::load(ring_.sqHead) == ring_.sqEntries) refuseUnsubmitted(EAGAIN);
    }
    return ring_.sqes[sqTail_++ & ring_.sqMask];
  }

  // Mid-way through the completions of a wait, submits the entries queued so
  // far once they are as many as the kernel still holds: the device is never
  // left idle while the handlers refill the ring, and a round of n
  // completions costs about log2(n) submissions. The last entries go with
  // the wait that follows.
  void feed() {
    const pod::uint32 left = uring::load(ring_.cqTail) - *ring_.cqHead;
    if (left == 0) return;
    const int unsubmitted = static_cast<int>(sqTail_ - uring::load(ring_.sqHead));
    if (unsubmitted >= this->inFlight_ - unsubmitted - static_cast<int>(left)) enter(0, nullptr);
  }

  // Doubles the queue of requests waiting for room, keeping their order.
  void grow() {
    std::vector<io_uring_sqe> larger(waiting_.size() * 2);
    for (size_t n = 0; n < waitingCount_; ++n) larger[n] = waiting_[(waitingHead_ + n) & (waiting_.size() - 1)];
    waiting_.swap(larger);
    waitingHead_ = 0;
  }

  // Moves waiting requests into the submission ring while the depth allows.
  void admit() {
    while (waitingCount_ > 0 && this->inFlight_ < depth_) {
      io_uring_sqe& sqe = put();
      sqe = waiting_[waitingHead_];
      waitingHead_ = (waitingHead_ + 1) & (waiting_.size() - 1);
      --waitingCount_;
      ++this->inFlight_;
    }
  }

  // Polls the wake event through the ring unless a poll is already there.
  void armWake() {
    if (wakeArmed_) return;
    io_uring_sqe& sqe = put();
    std::memset(&sqe, 0, sizeof sqe);
    sqe.opcode = IORING_OP_POLL_ADD;
    sqe.fd = wake_.fd;
    sqe.poll32_events = POLLIN;
    sqe.user_data = uring::kWake;
    wakeArmed_ = true;
  }

  // What enter() leaves the wait to do.
  enum Outcome { kGoOn, kInterrupted, kFailed };

  // One io_uring_enter: submits the entries the kernel has not taken yet
  // and, with least 1, waits for a completion (at most timeout, when given).
  // kInterrupted when a signal ended the wait (the kernel also sends one to
  // a thread that submitted to a ring being torn down); kFailed when the
  // kernel refused the entries and no request was among them. A failure
  // refuses the entries not taken: their requests complete through the
  // submission-failed slot.
  Outcome enter(unsigned int least, const __kernel_timespec* timeout) {
    if (least > 0) armWake();
    io_uring_getevents_arg argument;
    std::memset(&argument, 0, sizeof argument);
    unsigned int flags = least > 0 ? IORING_ENTER_GETEVENTS : 0;
    if (timeout != nullptr) {
      flags |= IORING_ENTER_EXT_ARG;
      argument.ts = static_cast<pod::uint64>(reinterpret_cast<pod::uintptr>(timeout));
    }
    for (;;) {
      const unsigned int toSubmit = sqTail_ - uring::load(ring_.sqHead);
      if (toSubmit == 0 && least == 0) return kGoOn;
      uring::store(ring_.sqTail, sqTail_);
      if (uring::enter(ring_.fd(), toSubmit, least, flags, timeout != nullptr ? &argument : nullptr,
                       timeout != nullptr ? sizeof argument : 0) >= 0) {
        return kGoOn;
      }
      const int error = errno;
      if (error == ETIME) return kGoOn;
      if (error == EINTR) {
        if (least > 0) return kInterrupted;
        continue;
      }
      // Out of resources for now: room comes back as what is in the kernel
      // completes; the entries go with the next enter.
      if (least > 0 && (error == EAGAIN || error == EBUSY) && this->inFlight_ > unsubmittedRequests()) {
        uring::enter(ring_.fd(), 0, 1, IORING_ENTER_GETEVENTS, nullptr, 0);
        return kGoOn;
      }
      return refuseUnsubmitted(error) > 0 ? kGoOn : kFailed;
    }
  }

  // The requests among the entries the kernel has not taken.
  int unsubmittedRequests() const {
    int count = 0;
    for (pod::uint32 n = uring::load(ring_.sqHead); n != sqTail_; ++n) {
      if (ring_.sqes[n & ring_.sqMask].user_data > uring::kCancel) ++count;
    }
    return count;
  }

  // Takes back the entries the kernel has not taken; their requests are
  // refused with error and complete at the next dispatch. The count refused.
  int refuseUnsubmitted(int error) {
    const pod::uint32 head = uring::load(ring_.sqHead);
    int count = 0;
    for (pod::uint32 n = head; n != sqTail_; ++n) {
      const pod::uint64 data = ring_.sqes[n & ring_.sqMask].user_data;
      if (data == uring::kWake) wakeArmed_ = false;
      if (data <= uring::kCancel) continue;
      doneList_.push_back(Done{reinterpret_cast<iocb*>(static_cast<pod::uintptr>(data)), error});
      --this->inFlight_;
      ++this->held_;
      ++count;
    }
    sqTail_ = head;
    uring::store(ring_.sqTail, sqTail_);
    return count;
  }

  // Completes the requests held or refused here, in the order they came, a
  // round at a time (as the asynchronous dispatcher does with its held
  // requests: each is passed before its handler runs). True when there were
  // any.
  bool dispatchDone() {
    if (round_ == dispatching_.size()) {
      if (doneList_.empty()) return false;
      dispatching_.clear();
      dispatching_.swap(doneList_);
      round_ = 0;
    }
    while (round_ < dispatching_.size()) {
      const Done done = dispatching_[round_++];
      R& r = requestOf(done.block);
      Context& context = contextOf(r, done.block);
      if (done.error == 0) {
        context.complete(r, kHeldResult);
        continue;
      }
      --this->held_;
      AIORequestException e = QUOREL_EXCEPTION(AIORequestException)(
          &context == &r.read ? "::io_uring_enter() failed for read" : "::io_uring_enter() failed for write",
          sal::i::err::domain::kSystemCall, done.error);
      r.handler().on(e, r.origin());
    }
    return true;
  }

  // Completes what the completion ring holds, in order, each entry passed
  // (the head moved on) before its handler runs: after a handler throws, the
  // rest wait in the ring for the next wait; a handler that waits completes
  // them in its own. True when the wake event was among them; done is set
  // when a request completed.
  bool dispatchCompleted(bool& done) {
    bool woken = false;
    for (;;) {
      const pod::uint32 head = *ring_.cqHead;
      if (head == uring::load(ring_.cqTail)) return woken;
      const io_uring_cqe& cqe = ring_.cqes[head & ring_.cqMask];
      const pod::uint64 data = cqe.user_data;
      const int result = cqe.res;
      uring::store(ring_.cqHead, head + 1);
      if (data == uring::kWake) {
        uring::drain(wake_.fd);
        wakeArmed_ = false;
        woken = true;
      } else if (data > uring::kCancel) {
        iocb* block = reinterpret_cast<iocb*>(static_cast<pod::uintptr>(data));
        R& r = requestOf(block);
        done = true;
        contextOf(r, block).complete(r, result);
      }
    }
  }

  // Takes back what the kernel has not taken, cancels the rest and collects
  // every completion left, dispatching none.
  void quiesce() noexcept {
    const pod::uint32 head = uring::load(ring_.sqHead);
    int inKernel = this->inFlight_ - unsubmittedRequests() + (wakeArmed_ ? 1 : 0);
    for (pod::uint32 n = head; n != sqTail_; ++n) {
      if (ring_.sqes[n & ring_.sqMask].user_data == uring::kWake) --inKernel;
    }
    sqTail_ = head;
    if (inKernel == 0) return;
    io_uring_sqe& sqe = ring_.sqes[sqTail_++ & ring_.sqMask];
    std::memset(&sqe, 0, sizeof sqe);
    sqe.opcode = IORING_OP_ASYNC_CANCEL;
    sqe.fd = -1;
    sqe.cancel_flags = IORING_ASYNC_CANCEL_ANY;
    sqe.user_data = uring::kCancel;
    uring::store(ring_.sqTail, sqTail_);
    unsigned int toSubmit = 1;
    for (;;) {
      for (pod::uint32 at = *ring_.cqHead; at != uring::load(ring_.cqTail); ++at) {
        if (ring_.cqes[at & ring_.cqMask].user_data != uring::kCancel) --inKernel;
        uring::store(ring_.cqHead, at + 1);
      }
      if (inKernel <= 0) return;
      const int submitted = uring::enter(ring_.fd(), toSubmit, 1, IORING_ENTER_GETEVENTS, nullptr, 0);
      if (submitted < 0 && errno != EINTR) return;
      if (submitted > 0) toSubmit = 0;
    }
  }

  uring::Ring ring_;
  uring::Event wake_;
  int depth_;                 // requests in the ring or the kernel at most
  pod::uint32 sqTail_ = 0;    // the submission tail, published at each enter
  bool wakeArmed_ = false;    // a poll of the wake event is in the ring or the kernel
  std::vector<io_uring_sqe> waiting_;  // a circle of requests beyond the depth (size a power of two)
  size_t waitingHead_ = 0;
  size_t waitingCount_ = 0;
  std::vector<Done> doneList_;
  std::vector<Done> dispatching_;  // the round of held or refused requests being completed
  size_t round_ = 0;               // the first of the round not yet completed
};

// Makes the io_uring dispatcher for depth requests; with fallback, where the
// kernel refuses io_uring, the asynchronous dispatcher of the same depth.
inline ADispatcher* createURingWith(int depth, bool fallback) {
  using sal::i::err::domain::kApplication;
  if (depth < 1) QUOREL_THROW(InvalidArgumentException)("the queue depth must be at least 1", kApplication, depth);
  if (depth > uring::kMostDepth) {
    QUOREL_THROW(InvalidArgumentException)("the queue depth must be at most 32768", kApplication, depth);
  }
  mux::Spec spec;
  spec.words[i::mux::kType] = i::mux::type::Async::value;
  io_uring_params params;
  std::memset(&params, 0, sizeof params);
  params.flags = uring::kSetupFlags;
  uring::Descriptor fd(uring::setup(static_cast<unsigned int>(depth), params));
  if (fd.get() < 0) {
    const int error = errno;
    if (fallback && uring::refused(error)) return ADispatcher::createWith(spec, depth);
    const int disabled = uring::disabledSetting();
    QUOREL_THROW(AIOException)(
        disabled > 0 ? "::io_uring_setup() failed (kernel.io_uring_disabled is " + std::to_string(disabled) + ")"
                     : std::string("::io_uring_setup() failed"),
        sal::i::err::domain::kSystemCall, error);
  }
  if ((params.features & uring::kNeededFeatures) != uring::kNeededFeatures) {
    uring::close(fd.release());
    if (fallback) return ADispatcher::createWith(spec, depth);
    QUOREL_THROW(OperationNotSupportedException)("the kernel's io_uring lacks the features the dispatcher needs",
                                                 kApplication, static_cast<int>(params.features));
  }
  return new ADispatcherUsing<AURingDispatcherOf<RequestRecord>>(spec, fd, params, depth);
}

}  // namespace impl
}  // namespace xio
}  // namespace sal
}  // namespace quorel
