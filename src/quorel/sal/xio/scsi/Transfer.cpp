// scsi::Transfer, forwarding to its implementation.
#include <quorel/sal/xio/scsi/Transfer.h>

namespace quorel {
namespace sal {
namespace xio {
namespace scsi {

Transfer::Transfer(const Dispatcher& dispatcher, const Endpoint& endpoint)
    : Transfer(dispatcher, endpoint, fs::QueueLimits::ofDescriptor(static_cast<int>(endpoint.id()))) {}
Transfer::Transfer(const Dispatcher& dispatcher, const Endpoint& endpoint, const fs::QueueLimits& limits)
    : Transfer(dispatcher, endpoint, Limits::of(limits)) {}
Transfer::Transfer(const Dispatcher& dispatcher, const Endpoint& endpoint, const Limits& limits)
    : handle_(new impl::scsi::Transfer(dispatcher, endpoint, limits)) {}

pod::uint64 Transfer::read(void* buffer, pod::uint64 count, pod::uint64 offset) {
  return handle_->read(buffer, count, offset);
}
pod::uint64 Transfer::write(const void* buffer, pod::uint64 count, pod::uint64 offset) {
  return handle_->write(buffer, count, offset);
}
pod::uint64 Transfer::discard(pod::uint64 count, pod::uint64 offset) { return handle_->discard(count, offset); }

}  // namespace scsi
}  // namespace xio
}  // namespace sal
}  // namespace quorel
