// mux::Spec, Request, Dispatcher and the choice of dispatcher.
#include <quorel/sal/xio/Dispatcher.h>

#include <cstring>
#include <memory>

#include <quorel/sal/xio/impl/AAIOPollDispatcherOf.inl>
#include <quorel/sal/xio/impl/ANVMeDispatcherOf.inl>
#include <quorel/sal/xio/impl/ASIODispatcherOf.inl>
#include <quorel/sal/xio/impl/ASelectDispatcherOf.inl>
#include <quorel/sal/xio/impl/AURingDispatcherOf.inl>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace xio {

namespace impl {

namespace mux {
Spec::Spec() {
  for (pod::int32& word : words) word = i::mux::kDisabled;
  words[i::mux::kType] = -1;  // no type
  words[i::mux::kPOSIXRT] = i::mux::kEnabled;
  words[i::mux::kSCSICDBSize] = 0;  // ten-byte commands
}
}  // namespace mux

void Handler::on(i::op::Read op, int result, xio::Request& request) { target_->on(op, result, request); }
void Handler::on(i::op::Write op, int result, xio::Request& request) { target_->on(op, result, request); }
void Handler::on(AIOCompletionException& e, xio::Request& request) { target_->on(e, request); }
void Handler::on(AIORequestException& e, xio::Request& request) { target_->on(e, request); }
void Handler::on(ReadException& e, xio::Request& request) { target_->on(e, request); }
void Handler::on(WriteException& e, xio::Request& request) { target_->on(e, request); }

template <class H>
ARequestFor<H>::ARequestFor(impl::Request* request, ADispatcher* runner, impl::Endpoint* on)
    : self(this), owner(request), id(0), current(nullptr), dispatcher(runner), blockSize(0), endpoint(on) {
  for (Context* context : {&read, &write}) {
    context->perform = nullptr;
    context->complete = nullptr;
    std::memset(&context->block, 0, sizeof context->block);
    context->block.aio_data = reinterpret_cast<pod::uintptr>(this);
  }
  read.block.aio_lio_opcode = IOCB_CMD_PREAD;
  write.block.aio_lio_opcode = IOCB_CMD_PWRITE;
}

template class ARequestFor<Handler>;

Request::Request(const util::AHandleTo<ADispatcher>& runner, AHandler* target, const xio::Endpoint& on)
    : dispatcher(runner),
      endpoint(on),
      handler(target),
      origin(nullptr),
      record(this, const_cast<ADispatcher*>(&runner.reference()), const_cast<impl::Endpoint*>(&on.record())) {}

Request::~Request() = default;

ADispatcher::~ADispatcher() = default;

ADispatcher* ADispatcher::createWith(const mux::Spec& spec, int depth) {
  using sal::i::err::domain::kApplication;
  switch (spec.words[i::mux::kType]) {
    case 2:
      return new ADispatcherUsing<ASIODispatcherOf<RequestRecord>>(spec);
    case 3:
      if (depth < 1) QUOREL_THROW(InvalidArgumentException)("the queue depth must be at least 1", kApplication, depth);
      return new ADispatcherUsing<AAIOPollDispatcherOf<RequestRecord>>(spec, depth);
    default:
      QUOREL_THROW(InvalidArgumentException)("the mux spec does not specify a valid type", kApplication, 0);
  }
}

}  // namespace impl

namespace mux {

Spec::Spec() : handle_(new impl::mux::Spec) {}

Spec Spec::clone() const {
  Spec copy;
  *copy.handle_.operator->() = handle_.reference();
  return copy;
}

void Spec::unsupported(const char* name) {
  QUOREL_THROW(OperationNotSupportedException)(std::string("the multiplexer type '") + name +
                                                   "' is not supported on this platform",
                                               sal::i::err::domain::kApplication, 0);
}

}  // namespace mux

AHandler::~AHandler() = default;

void Request::setFor(i::op::Read, const op::Spec& spec) {
  impl::RequestRecord& r = handle_->record;
  r.arm(r.read, spec.count, spec.offset);
}

void Request::setFor(i::op::Write, const op::Spec& spec) {
  impl::RequestRecord& r = handle_->record;
  r.arm(r.write, spec.count, spec.offset);
}

bool Request::submit(i::op::Read op, const op::Spec& spec) {
  setFor(op, spec);
  return submit();
}

bool Request::submit(i::op::Write op, const op::Spec& spec) {
  setFor(op, spec);
  return submit();
}

bool Request::submit() {
  impl::RequestRecord& record = handle_->record;
  if (record.current == nullptr) {
    QUOREL_THROW(xio::Exception)("the request is not armed for a read or a write", sal::i::err::domain::kApplication,
                                 0);
  }
  return record.dispatcher->queue(record);
}

Dispatcher Dispatcher::create(const mux::Spec& spec, int depth) {
  return Dispatcher(impl::ADispatcher::createWith(spec.key(), depth));
}

Dispatcher Dispatcher::createSelecting() {
  return Dispatcher(new impl::ADispatcherUsing<impl::ASelectDispatcherOf<impl::RequestRecord>>());
}

Dispatcher Dispatcher::createNVMe(const nvme::Device& device) {
  return Dispatcher(new impl::ADispatcherUsing<impl::ANVMeDispatcherOf<impl::RequestRecord>>(device, false));
}

Dispatcher Dispatcher::createNVMe(const nvme::Device& device, nvme::i::op::Deallocate) {
  return Dispatcher(new impl::ADispatcherUsing<impl::ANVMeDispatcherOf<impl::RequestRecord>>(device, true));
}

Dispatcher Dispatcher::createURing(int depth) { return Dispatcher(impl::createURingWith(depth, false)); }

Dispatcher Dispatcher::createURing(int depth, i::mux::type::Async) {
  return Dispatcher(impl::createURingWith(depth, true));
}

bool Dispatcher::usesURing() const {
  return dynamic_cast<const impl::ADispatcherUsing<impl::AURingDispatcherOf<impl::RequestRecord>>*>(
             &handle_.reference()) != nullptr;
}

Request* Dispatcher::newRequestFor(AHandler* handler, const Endpoint& endpoint) const {
  std::unique_ptr<Request> request(new Request);
  request->handle_ = util::AHandleTo<impl::Request>(handle_.reference().newRequestFor(handler, handle_, endpoint));
  request->handle_->origin = request.get();
  return request.release();
}

}  // namespace xio
}  // namespace sal
}  // namespace quorel
