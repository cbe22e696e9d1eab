// nvme::Device, forwarding to its implementation.
#include <quorel/sal/xio/nvme/Device.h>

#include <memory>

#include <quorel/sal/xio/impl/AOpenSpec.h>
#include <quorel/sal/xio/impl/desc.h>
#include <quorel/sal/xio/impl/nvme/Device.inl>

namespace quorel {
namespace sal {
namespace xio {
namespace nvme {

namespace {

// An endpoint that owns a descriptor just opened on path. Ownership passes
// the moment the wrapper exists; until then the guard closes it.
Endpoint opened(const std::string& path, int flags, const char* names) {
  impl::desc::Owned fd(impl::nvme::sys::open(path, flags | O_CLOEXEC | O_LARGEFILE, names));
  std::unique_ptr<impl::AOpenSpec> wrapper(
      new impl::DescWrapper(path, static_cast<xio::i::id::type>(fd.get()), true, open::Spec().key()));
  fd.release();
  std::unique_ptr<impl::Endpoint> record(new impl::Endpoint(nullptr));
  record->spec = std::move(wrapper);
  return Endpoint(Endpoint::Handle(record.release()));
}

}  // namespace

Device::Device(const std::string& path)
    : handle_(new impl::nvme::Device(opened(path, O_RDONLY, "O_RDONLY O_CLOEXEC"))) {}
Device::Device(const std::string& path, i::open::ReadWrite)
    : handle_(new impl::nvme::Device(opened(path, O_RDWR, "O_RDWR O_CLOEXEC"))) {}
Device::Device(const std::string& path, i::open::Exclusive)
    : handle_(new impl::nvme::Device(opened(path, O_RDWR | O_EXCL, "O_RDWR O_EXCL O_CLOEXEC"))) {}
Device::Device(const Endpoint& endpoint) : handle_(new impl::nvme::Device(endpoint)) {}

int Device::submit(i::queue::Admin, Command& command) { return handle_->submit(descriptor(), true, command); }
int Device::submit(i::queue::IO, Command& command) { return handle_->submit(descriptor(), false, command); }

Controller Device::identifyController() { return handle_->identifyController(); }
Namespace Device::identifyNamespace() {
  if (namespaceID() == 0) {
    QUOREL_THROW(Exception)("NVMe Identify Namespace refused: '" + endpoint().name() +
                                "' is a controller node: name the namespace",
                            sal::i::err::domain::kApplication, ENOTBLK);
  }
  return handle_->identifyNamespace(namespaceID());
}
Namespace Device::identifyNamespace(pod::uint32 nsid) { return handle_->identifyNamespace(nsid); }
Health Device::health() { return handle_->health(); }

pod::uint32 Device::blockSize() { return handle_->geometry().blockSize; }
pod::uint64 Device::size() {
  const impl::nvme::Geometry& g = handle_->geometry();
  return g.blocks * g.blockSize;
}
pod::uint64 Device::maxTransfer() { return handle_->geometry().maxTransfer; }

void Device::read(pod::uint64 lba, pod::uint32 blocks, void* buffer) {
  handle_->read(descriptor(), lba, blocks, buffer);
}
void Device::write(pod::uint64 lba, pod::uint32 blocks, const void* buffer) {
  handle_->write(descriptor(), lba, blocks, buffer);
}
void Device::writeZeroes(pod::uint64 lba, pod::uint32 blocks) { handle_->writeZeroes(descriptor(), lba, blocks); }
void Device::flush() { handle_->flush(descriptor()); }
void Device::deallocate(const std::vector<Range>& ranges) {
  handle_->deallocate(descriptor(), ranges.data(), ranges.size());
}

pod::uint64 Device::readAt(void* buffer, pod::uint64 count, pod::uint64 offset) {
  return handle_->transfer(false, descriptor(), buffer, count, offset);
}
pod::uint64 Device::writeAt(const void* buffer, pod::uint64 count, pod::uint64 offset) {
  return handle_->transfer(true, descriptor(), const_cast<void*>(buffer), count, offset);
}
pod::uint64 Device::discard(pod::uint64 offset, pod::uint64 length) {
  return handle_->discard(descriptor(), offset, length);
}

}  // namespace nvme
}  // namespace xio
}  // namespace sal
}  // namespace quorel
