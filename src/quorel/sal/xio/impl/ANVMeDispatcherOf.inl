// The NVMe dispatcher: the synchronous dispatcher's one pending request,
// performed in wait() as NVMe Read, Write or Dataset Management commands cut
// to the namespace's limits, and completed to the handler's slot for the
// result.
#include <errno.h>

#include <memory>
#include <string>

#include <quorel/sal/xio/Dispatcher.h>
#include <quorel/sal/xio/nvme/Device.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace xio {
namespace impl {

template <class R>
class ANVMeDispatcherOf {
  typedef ADispatcherUsing<ANVMeDispatcherOf> Using;

 public:
  // Learns the namespace's geometry now, so that performing a request sends
  // commands only.
  ANVMeDispatcherOf(const xio::nvme::Device& device, bool deallocate)
      : device_(device), deallocate_(deallocate), pending_(nullptr) {
    spec_.words[i::mux::kType] = i::mux::type::Sync::value;
    device_.maxTransfer();
  }
  ANVMeDispatcherOf(const ANVMeDispatcherOf&) = delete;
  ANVMeDispatcherOf& operator=(const ANVMeDispatcherOf&) = delete;

  const mux::Spec& muxSpec() const { return spec_; }
  void lock() {}
  void unlock() {}
  void interrupt() {}
  int pending() const { return pending_ != nullptr ? 1 : 0; }

  bool queue(R& request) {
    if (pending_ != nullptr) {
      QUOREL_THROW(xio::Exception)("cannot queue multiple synchronous I/O requests",
                                   sal::i::err::domain::kApplication, 0);
    }
    pending_ = &request;
    return true;
  }

  void wait() {
    if (pending_ == nullptr) {
      QUOREL_THROW(xio::Exception)("no pending synchronous I/O to wait on", sal::i::err::domain::kApplication, 0);
    }
    R& request = *pending_;
    pending_ = nullptr;
    Context& context = *request.current;
    const int result = request.noTransfer() ? kHeldResult : context.perform(request);
    context.complete(request, result);
  }
  // The time-out is not used: the request is performed now.
  void waitFor(unsigned long long) { wait(); }

  void prepare(R& request) const {
    request.read.perform = readNVMe;
    request.read.complete = completeRead;
    request.write.perform = deallocate_ ? deallocateNVMe : writeNVMe;
    request.write.complete = completeWrite;
  }

 private:
  // Runs the commands of a request; a failure is kept for the completion,
  // which hands it to the handler, and the result is then -1.
  template <class E, class F>
  static int attempt(R& r, std::unique_ptr<E>& failure, const char* command, F commands) {
    failure.reset();
    try {
      if (r.count() < 0 || r.offset() < 0) {
        QUOREL_THROW(E)(std::string("NVMe ") + command + " refused: a negative count or offset",
                        sal::i::err::domain::kApplication, EINVAL);
      }
      commands(static_cast<int>(r.endpointID()));
      return r.count();
    } catch (E& e) {
      failure.reset(new E(e));
      return -1;
    }
  }

  static int readNVMe(R& r) {
    ANVMeDispatcherOf& d = Using::of(r);
    return attempt(r, d.readFailure_, "Read", [&d, &r](int fd) {
      d.device_.impl().transfer(false, fd, r.buffer(), static_cast<pod::uint64>(r.count()),
                                static_cast<pod::uint64>(r.offset()));
    });
  }
  static int writeNVMe(R& r) {
    ANVMeDispatcherOf& d = Using::of(r);
    return attempt(r, d.writeFailure_, "Write", [&d, &r](int fd) {
      d.device_.impl().transfer(true, fd, r.buffer(), static_cast<pod::uint64>(r.count()),
                                static_cast<pod::uint64>(r.offset()));
    });
  }
  static int deallocateNVMe(R& r) {
    ANVMeDispatcherOf& d = Using::of(r);
    return attempt(r, d.writeFailure_, "Dataset Management", [&d, &r](int fd) {
      d.device_.impl().discard(fd, static_cast<pod::uint64>(r.offset()), static_cast<pod::uint64>(r.count()));
    });
  }

  // A request that moved nothing completes with its sentinel like any other.
  static void completeRead(R& r, int result) {
    if (result >= 0 || result == kHeldResult) {
      r.handler().on(i::op::Read(), result, r.origin());
      return;
    }
    std::unique_ptr<xio::nvme::ReadException> failure(std::move(Using::of(r).readFailure_));
    r.handler().on(*failure, r.origin());
  }
  static void completeWrite(R& r, int result) {
    if (result >= 0 || result == kHeldResult) {
      r.handler().on(i::op::Write(), result, r.origin());
      return;
    }
    std::unique_ptr<xio::nvme::WriteException> failure(std::move(Using::of(r).writeFailure_));
    r.handler().on(*failure, r.origin());
  }

  xio::nvme::Device device_;
  bool deallocate_;
  R* pending_;
  mux::Spec spec_;
  std::unique_ptr<xio::nvme::ReadException> readFailure_;
  std::unique_ptr<xio::nvme::WriteException> writeFailure_;
};

}  // namespace impl
}  // namespace xio
}  // namespace sal
}  // namespace quorel
