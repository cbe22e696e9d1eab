/// \file
/// The records behind mux::Spec, Request and Dispatcher, and the interface
/// that the synchronous and the asynchronous dispatcher implement.
#ifndef QUOREL_SAL_XIO_IMPL_DISPATCHER_H
#define QUOREL_SAL_XIO_IMPL_DISPATCHER_H

#include <linux/aio_abi.h>

#include <utility>

#include <quorel/sal/xio/Endpoint.h>
#include <quorel/sal/xio/Exception.h>
#include <quorel/sal/xio/i/types.h>
#include <quorel/util/AHandleTo.h>
#include <quorel/util/pod.h>

namespace quorel {
namespace sal {
namespace xio {

class AHandler;
class Request;

namespace impl {

namespace mux {

/// The fourteen option words. By default: no type, posix::rt Enabled, every
/// other switch Disabled, 10-byte SCSI commands.
class Spec {
 public:
  Spec();
  bool enabled(int word) const { return words[word] == i::mux::kEnabled; }

  pod::int32 words[i::mux::kCount];
};

}  // namespace mux

/// A byte count of all ones asks for no transfer: the request completes with
/// kHeldResult, without any system call.
const pod::uint32 kNoTransfer = 0xffffffffu;
const int kHeldResult = -666;

/// Forwards each event of a request to the matching slot of the caller's
/// handler.
class Handler {
 public:
  explicit Handler(AHandler* target) : target_(target) {}

  void on(i::op::Read, int result, xio::Request& request);
  void on(i::op::Write, int result, xio::Request& request);
  void on(AIOCompletionException& e, xio::Request& request);
  void on(AIORequestException& e, xio::Request& request);
  void on(ReadException& e, xio::Request& request);
  void on(WriteException& e, xio::Request& request);

  AHandler* target() const { return target_; }

 private:
  AHandler* target_;
};

template <class H>
class ARequestFor;
class ADispatcher;
class Request;

/// One operation of a request: the dispatcher's function that performs it,
/// the dispatcher's function that completes it, and the kernel's control
/// block (user data: the request; opcode: pread for the read context, pwrite
/// for the write context).
struct Context {
  typedef int (*Perform)(ARequestFor<Handler>& request);
  typedef void (*Complete)(ARequestFor<Handler>& request, int result);

  Perform perform;
  Complete complete;
  iocb block;
};

/// What a dispatcher works on: the identifier, the armed operation, one
/// context per operation, the logical block size of SCSI requests and the
/// endpoint.
template <class H>
class ARequestFor {
 public:
  ARequestFor(impl::Request* request, ADispatcher* runner, impl::Endpoint* on);
  ARequestFor(const ARequestFor&) = delete;
  ARequestFor& operator=(const ARequestFor&) = delete;

  /// Stores the buffer, the count and the offset in the context's block and
  /// makes it the current operation.
  void arm(Context& context, void* buffer, int count, long long offset) {
    context.block.aio_buf = reinterpret_cast<pod::uintptr>(buffer);
    context.block.aio_nbytes = static_cast<pod::uint32>(count);
    context.block.aio_offset = offset;
    current = &context;
  }
  /// The same, keeping the buffer the context already holds.
  void arm(Context& context, int count, long long offset) {
    context.block.aio_nbytes = static_cast<pod::uint32>(count);
    context.block.aio_offset = offset;
    current = &context;
  }
  bool reading() const { return current == &read; }
  bool noTransfer() const { return current->block.aio_nbytes == kNoTransfer; }
  void* buffer() const { return reinterpret_cast<void*>(static_cast<pod::uintptr>(current->block.aio_buf)); }
  int count() const { return static_cast<int>(current->block.aio_nbytes); }
  long long offset() const { return current->block.aio_offset; }
  i::id::type endpointID() const { return endpoint->spec->id(); }
  H& handler();
  xio::Request& origin();

  ARequestFor* self;
  impl::Request* owner;
  pod::uint32 id;
  Context* current;  // null until armed
  Context read;
  Context write;
  ADispatcher* dispatcher;
  int blockSize;
  impl::Endpoint* endpoint;
};

typedef ARequestFor<Handler> RequestRecord;

/// Behind one xio::Request: the dispatcher and the endpoint it holds on to,
/// the caller's handler, the public object handed to that handler, and the
/// record the dispatcher works on.
class Request {
 public:
  Request(const util::AHandleTo<ADispatcher>& runner, AHandler* target, const xio::Endpoint& on);
  ~Request();

  util::AHandleTo<ADispatcher> dispatcher;
  xio::Endpoint endpoint;
  Handler handler;
  xio::Request* origin;
  RequestRecord record;
};

template <class H>
H& ARequestFor<H>::handler() {
  return owner->handler;
}
template <class H>
xio::Request& ARequestFor<H>::origin() {
  return *owner->origin;
}

/// A dispatcher as Dispatcher sees it.
class ADispatcher {
 public:
  /// Sync builds the synchronous dispatcher, Async the asynchronous one with
  /// depth as the kernel queue depth. Any other type throws
  /// InvalidArgumentException "the mux spec does not specify a valid type".
  static ADispatcher* createWith(const mux::Spec& spec, int depth);

  virtual ~ADispatcher();
  virtual const mux::Spec& muxSpec() const = 0;
  virtual void lock() = 0;
  virtual void unlock() = 0;
  virtual int pending() const = 0;
  virtual void wait() = 0;
  virtual void waitFor(unsigned long long milliseconds) = 0;
  virtual void interrupt() = 0;
  /// False when the request was refused (its handler has been told).
  virtual bool queue(RequestRecord& request) = 0;
  /// A request of this dispatcher (self is the handle that holds it).
  virtual impl::Request* newRequestFor(AHandler* handler, const util::AHandleTo<ADispatcher>& self,
                                       const xio::Endpoint& endpoint) const = 0;
};

/// ADispatcher over a concrete dispatcher D, which provides the same
/// operations and prepare(), which fills a new request's contexts with its
/// functions.
template <class D>
class ADispatcherUsing : public ADispatcher {
 public:
  template <class... A>
  explicit ADispatcherUsing(A&&... arguments) : dispatcher_(std::forward<A>(arguments)...) {}

  const mux::Spec& muxSpec() const override { return dispatcher_.muxSpec(); }
  void lock() override { dispatcher_.lock(); }
  void unlock() override { dispatcher_.unlock(); }
  int pending() const override { return dispatcher_.pending(); }
  void wait() override { dispatcher_.wait(); }
  void waitFor(unsigned long long milliseconds) override { dispatcher_.waitFor(milliseconds); }
  void interrupt() override { dispatcher_.interrupt(); }
  bool queue(RequestRecord& request) override { return dispatcher_.queue(request); }
  impl::Request* newRequestFor(AHandler* handler, const util::AHandleTo<ADispatcher>& self,
                               const xio::Endpoint& endpoint) const override {
    impl::Request* request = new impl::Request(self, handler, endpoint);
    dispatcher_.prepare(request->record);
    return request;
  }

  /// The dispatcher a request belongs to.
  static D& of(RequestRecord& request) { return static_cast<ADispatcherUsing*>(request.dispatcher)->dispatcher_; }

 private:
  D dispatcher_;
};

}  // namespace impl
}  // namespace xio
}  // namespace sal
}  // namespace quorel

#endif
