/// \file
/// Dispatchers: read and write requests against endpoints, performed
/// synchronously in the calling thread or through the kernel's native
/// asynchronous I/O, each completion or failure reported to a handler.
///
///   class Counter : public xio::AHandler { ... on(i::op::Read, int n, Request&) ... };
///
///   xio::mux::Spec spec;
///   spec.set<xio::i::mux::type::Async>();
///   xio::Dispatcher dispatcher = xio::Dispatcher::create(spec, 64);
///   Counter handler;
///   std::unique_ptr<xio::Request> request(dispatcher.newRequestFor(&handler, endpoint));
///   request->submit(xio::i::op::Read(), buffer, 4096, 0);
///   dispatcher.wait();  // handler.on(i::op::Read(), 4096, *request)
#ifndef QUOREL_SAL_XIO_DISPATCHER_H
#define QUOREL_SAL_XIO_DISPATCHER_H

#include <quorel/util/Exception.h>
#include <quorel/sal/xio/Endpoint.h>
#include <quorel/sal/xio/Exception.h>
#include <quorel/sal/xio/i/types.h>
#include <quorel/sal/xio/impl/Dispatcher.h>
#include <quorel/util/AHandleTo.h>

namespace quorel {
namespace sal {
namespace xio {

namespace nvme {
class Device;
namespace i {
namespace op {
struct Deallocate;
}  // namespace op
}  // namespace i
}  // namespace nvme

namespace mux {

/// Which dispatcher to build and how the synchronous one performs requests:
/// fourteen option words set with the i::mux tags. Copies share one record;
/// clone() makes an independent one.
///
///   mux::Spec spec;
///   spec.set<i::mux::type::Sync>().set<i::mux::scsi::Enabled>().set<i::mux::scsi::rw16>();
class Spec {
 public:
  Spec();

  /// Throws OperationNotSupportedException "the multiplexer type '<name>' is
  /// not supported on this platform" for type::KQueue and type::DevPoll.
  template <class Tag>
  Spec& set() {
    if constexpr (Tag::group == i::option::kUnsupported) {
      unsupported(Tag::name());
    } else {
      static_assert(Tag::group == i::option::kMux, "mux::Spec takes the i::mux tags");
      handle_->words[Tag::index] = Tag::value;
    }
    return *this;
  }
  template <class Tag>
  bool is() const {
    static_assert(Tag::group == i::option::kMux || Tag::group == i::option::kUnsupported,
                  "mux::Spec takes the i::mux tags");
    return handle_.reference().words[Tag::index] == Tag::value;
  }

  Spec clone() const;
  const impl::mux::Spec& key() const { return handle_.reference(); }

 private:
  [[noreturn]] static void unsupported(const char* name);

  util::AHandleTo<impl::mux::Spec> handle_;
};

}  // namespace mux

namespace op {
/// The count and the 64-bit offset for a buffer given beside it, or for the
/// buffer a request's operation already holds.
struct Spec {
  Spec(int bytes, long long at) : count(bytes), offset(at) {}
  int count;
  long long offset;
};
}  // namespace op

/// Receives the completions and failures of requests. Each event names the
/// request it belongs to (the object newRequestFor returned). Failures are
/// passed by reference, never thrown out of wait(); what a handler throws
/// itself does leave wait() (see Dispatcher).
class AHandler {
 public:
  virtual ~AHandler();
  /// A completed read or write and its byte count (-666 for a request of
  /// count -1, which moves nothing).
  virtual void on(i::op::Read, int result, Request& request) = 0;
  virtual void on(i::op::Write, int result, Request& request) = 0;
  /// An asynchronous request that the kernel completed with an error: the
  /// positive errno is the code.
  virtual void on(AIOCompletionException& e, Request& request) = 0;
  /// An asynchronous request that io_submit refused.
  virtual void on(AIORequestException& e, Request& request) = 0;
  /// A cancelled asynchronous request; no dispatcher of this library cancels.
  virtual void on(AIOCancellationException& e, Request& request) = 0;
  /// A failed synchronous read or write (SCSIReadException and
  /// SCSIWriteException for pass-through commands).
  virtual void on(ReadException& e, Request& request) = 0;
  virtual void on(WriteException& e, Request& request) = 0;
};

class Dispatcher;

/// One request of a dispatcher on an endpoint: armed with a buffer, a byte
/// count and an offset, submitted, and completed exactly once through its
/// handler during a later wait of the dispatcher. Keep the object that
/// newRequestFor returned alive until then: the handler is given that object,
/// and the kernel writes into the request's control block. Copies share the
/// request. A count of -1 moves nothing and completes with -666.
class Request {
 public:
  Request() = default;

  unsigned int id() const { return handle_.reference().record.id; }
  void setID(unsigned int id) { handle_->record.id = id; }
  /// The logical block size of SCSI commands, UNMAP and TRIM (0 until set).
  int blockSize() const { return handle_.reference().record.blockSize; }
  void setBlockSize(int size) { handle_->record.blockSize = size; }
  const Endpoint& endpoint() const { return handle_.reference().endpoint; }

  /// Arm without submitting.
  void setFor(i::op::Read, void* buffer, int count, long long offset) {
    impl::RequestRecord& r = handle_->record;
    r.arm(r.read, buffer, count, offset);
  }
  void setFor(i::op::Write, void* buffer, int count, long long offset) {
    impl::RequestRecord& r = handle_->record;
    r.arm(r.write, buffer, count, offset);
  }
  void setFor(i::op::Read op, void* buffer, const op::Spec& spec) { setFor(op, buffer, spec.count, spec.offset); }
  void setFor(i::op::Write op, void* buffer, const op::Spec& spec) { setFor(op, buffer, spec.count, spec.offset); }
  /// Re-arm with a new count and offset, keeping the buffer this operation
  /// was last armed with (none before the first: fine for UNMAP and TRIM,
  /// which move no data).
  void setFor(i::op::Read op, const op::Spec& spec);
  void setFor(i::op::Write op, const op::Spec& spec);

  /// Queues the armed operation. False when the dispatcher refused it at once
  /// (the handler has been told). Throws xio::Exception "the request is not
  /// armed for a read or a write" before the first setFor.
  bool submit();
  /// Arm and queue.
  bool submit(i::op::Read op, void* buffer, int count, long long offset) {
    setFor(op, buffer, count, offset);
    return submit();
  }
  bool submit(i::op::Write op, void* buffer, int count, long long offset) {
    setFor(op, buffer, count, offset);
    return submit();
  }
  bool submit(i::op::Read op, void* buffer, const op::Spec& spec) { return submit(op, buffer, spec.count, spec.offset); }
  bool submit(i::op::Write op, void* buffer, const op::Spec& spec) {
    return submit(op, buffer, spec.count, spec.offset);
  }
  /// Re-arm with a new count and offset, keeping the buffer, and queue.
  bool submit(i::op::Read op, const op::Spec& spec);
  bool submit(i::op::Write op, const op::Spec& spec);

  const impl::Request& key() const { return handle_.reference(); }

 private:
  friend class Dispatcher;

  util::AHandleTo<impl::Request> handle_;
};

/// Runs requests. The synchronous dispatcher (type::Sync) holds one request
/// and performs it in wait(), choosing pread/pwrite, a socket transfer of
/// every byte (tcp or udp), SCSI READ/WRITE (scsi), UNMAP (scsi::unmap) or
/// ATA TRIM (ata::trim, through SCSI with ata::onscsi) from its spec. The
/// asynchronous dispatcher (type::Async) submits each request to the kernel
/// at once and collects completions in wait()/waitFor().
///
/// A dispatcher belongs to the thread that created it or last called lock().
/// Only interrupt() may be called from other threads: it sends signal 6
/// (SIGABRT) to the owner, which ends a wait() or waitFor() in progress, also
/// one about to enter the kernel. While that signal is at its default or
/// ignored disposition, interrupt() first installs the dispatchers' handler,
/// which does nothing outside a wait, so the process keeps running (abort()
/// still ends it: it restores the default before raising again). A handler
/// the program installed itself is left alone; it runs on each interrupt and
/// must return, and an interrupt that lands in the instant before the wait
/// enters the kernel then waits for the next completion. An interrupt that
/// arrives when the owner is not waiting is lost.
///
/// A handler may throw: the exception leaves wait() or waitFor(), and the
/// requests not completed yet stay pending for the next one. A handler may
/// also wait on its own dispatcher.
class Dispatcher {
 public:
  Dispatcher() = default;

  /// Throws InvalidArgumentException "the mux spec does not specify a valid
  /// type" unless the type is Sync or Async.
  static Dispatcher create(const mux::Spec& spec, int depth);
  /// The socket dispatcher: requests on socket endpoints (Endpoint::open of a
  /// TCP or UDP socket) performed as their sockets become ready, through a
  /// selector owned by the calling thread. A read completes with what one
  /// recv() brings (0: the peer's end; one datagram on UDP), a write once its
  /// whole buffer is sent. Its muxSpec() has type::Select with tcp and udp
  /// enabled. Failures reach the handler's read-failed and write-failed
  /// slots: ReadException "::recv() failed", WriteException "::send() failed"
  /// with errno (EPIPE for a closed peer: the sends never raise SIGPIPE).
  /// interrupt() works from any thread and is kept for the next wait when
  /// none is in progress. Throws what Selector() throws.
  static Dispatcher createSelecting();
  /// The NVMe dispatcher: the synchronous dispatcher's contract (one pending
  /// request, performed in wait(); muxSpec() has type::Sync), its requests
  /// sent as NVMe commands on their endpoints (the device's own endpoint(),
  /// or another open of its namespace) to the device's namespace: a read as
  /// Read, a write as Write or, on the dispatcher made with Deallocate, as
  /// Dataset Management deallocating the request's range (its buffer is not
  /// used). Each request goes in as many commands as the device's limits
  /// need (see nvme::Device::readAt); it completes with its byte count.
  /// Failures reach the handler's read-failed and write-failed slots as
  /// nvme::ReadException and nvme::WriteException ("NVMe Read failed: ...").
  /// Learns the namespace's geometry now: throws what nvme::Device::maxTransfer
  /// throws.
  static Dispatcher createNVMe(const nvme::Device& device);
  static Dispatcher createNVMe(const nvme::Device& device, nvme::i::op::Deallocate);
  /// The io_uring dispatcher: the asynchronous dispatcher's contract (handler
  /// slots, messages, -666 for count -1, lock() and the owner) over an
  /// io_uring of depth entries (1 to 32768). Requests queued between waits
  /// reach the kernel together, with the wait that follows; those that
  /// handlers queue while a wait completes a round go in batches as large as
  /// what the kernel still holds, so that the device is kept busy. Requests
  /// beyond the depth wait in the dispatcher and go in as completions make
  /// room.
  /// Its muxSpec() has type::Async. Differences from the asynchronous
  /// dispatcher: the kernel reports a request's own faults (a descriptor that
  /// is not open, a misaligned direct transfer) in its completion, so they
  /// reach the completion-failed slot; the submission-failed slot receives
  /// AIORequestException "::io_uring_enter() failed for read" (or "for
  /// write") with errno when the kernel refused a batch, and "the count or the
  /// offset of the read is negative" (or "of the write", at once from
  /// submit()). interrupt() posts an eventfd that the ring polls instead of
  /// sending a signal: it ends the wait in progress or, when none is, the
  /// owner's next one (an interrupt is never lost); a signal does not end a
  /// wait. Destruction cancels what is in the kernel and waits for it to end;
  /// the kernel then interrupts the owner once, in the background, to unlink
  /// it from the ring (a native AIO wait of that thread may end early then).
  ///
  /// Throws InvalidArgumentException "the queue depth must be at least 1" or
  /// "the queue depth must be at most 32768"; AIOException "::io_uring_setup()
  /// failed" (with " (kernel.io_uring_disabled is N)" appended while that
  /// setting is not 0) with errno when the kernel refuses (EPERM, EACCES,
  /// ENOSYS, and EINVAL from kernels before 5.19) or fails the ring;
  /// OperationNotSupportedException "the kernel's io_uring lacks the features
  /// the dispatcher needs" (the features word as the code); AIOException
  /// "::mmap() failed" or "::eventfd() failed" with errno.
  static Dispatcher createURing(int depth);
  /// The same, except that where the kernel refuses io_uring (the setup
  /// errors named above, or missing features) the result is the asynchronous
  /// dispatcher of the same depth, as create() with type::Async builds it.
  ///
  ///   xio::Dispatcher d = xio::Dispatcher::createURing(64, xio::i::mux::type::Async());
  static Dispatcher createURing(int depth, i::mux::type::Async fallback);
  /// True for a dispatcher that runs on io_uring (false for the one
  /// createURing fell back to).
  bool usesURing() const;

  /// A new request for handler (not owned) on endpoint; the caller owns it.
  Request* newRequestFor(AHandler* handler, const Endpoint& endpoint) const;

  /// Requests queued and not yet completed.
  int pending() const { return handle_.reference().pending(); }
  /// Synchronous: performs the pending request and completes it; throws
  /// xio::Exception "no pending synchronous I/O to wait on" when there is
  /// none. Asynchronous: completes requests until none is outstanding or the
  /// wait is interrupted.
  void wait() { handle_->wait(); }
  /// Asynchronous: completes what is already held and what the kernel
  /// completes within the time (one collection, no loop). Synchronous: wait().
  void waitFor(unsigned long long milliseconds) { handle_->waitFor(milliseconds); }
  /// Ends the owner's wait from another thread; nothing from the owner.
  void interrupt() { handle_->interrupt(); }
  /// Makes the calling thread the owner and blocks every signal in it but the
  /// interrupt signal. The owner's calls nest: its last unlock() restores the
  /// mask its first lock() replaced. unlock() on any other thread, or when
  /// not locked, does nothing. Throws AIOException "::pthread_sigmask()
  /// failed" when the mask cannot be set (nothing changes then).
  void lock() { handle_->lock(); }
  void unlock() { handle_->unlock(); }

  const impl::mux::Spec& muxSpec() const { return handle_.reference().muxSpec(); }

 private:
  explicit Dispatcher(impl::ADispatcher* owned) : handle_(owned) {}

  util::AHandleTo<impl::ADispatcher> handle_;
};

}  // namespace xio
}  // namespace sal
}  // namespace quorel

#endif
