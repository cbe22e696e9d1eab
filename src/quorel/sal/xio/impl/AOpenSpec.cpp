// The open specs.
#include <quorel/sal/xio/impl/AOpenSpec.h>

#include <quorel/sal/xio/impl/DescWrapper.inl>
#include <quorel/sal/xio/impl/desc.inl>
#include <quorel/sal/xio/impl/fopen.inl>
#include <quorel/util/str.h>

namespace quorel {
namespace sal {
namespace xio {
namespace impl {

AOpenSpec::~AOpenSpec() = default;

namespace {

// fopen::Spec whose descriptor inherit option is the clone's.
fopen::Spec withInherit(fopen::Spec spec, bool inherit) {
  spec.descriptor.states[i::open::kInherit] = inherit ? i::option::kEnabled : i::option::kDisabled;
  return spec;
}

fopen::Spec computed(fopen::Spec spec) {
  spec.compute();
  return spec;
}

}  // namespace

FileOpenSpec::FileOpenSpec(const std::string& path, const fopen::Spec& spec)
    : AOpenSpec(path, i::id::kNone), spec_(computed(spec)) {
  id_ = spec_.open(path);
}

FileOpenSpec::FileOpenSpec(const std::string& path, const fopen::Spec& spec, i::id::type id)
    : AOpenSpec(path, id), spec_(spec) {}

FileOpenSpec::~FileOpenSpec() {
  try {
    close();
  } catch (...) {
  }
}

void FileOpenSpec::open() { replace(spec_.open(name_)); }

// The descriptor is forgotten before it is closed: after close() the number
// is released whether or not the call succeeded, and may already be reused
// by the program, so no later close (the destructor's) may touch it again.
void FileOpenSpec::close() {
  if (id_ == i::id::kNone) return;
  drop();
  desc::fd::close(previous_);
}

AOpenSpec* FileOpenSpec::cloneWith(bool inherit) const {
  const bool inheritable = spec_.descriptor.enabled(i::open::kInherit) && inherit;
  const i::id::type duplicate = desc::clone(id_, inheritable);
  try {
    return new FileOpenSpec(name_, withInherit(spec_, inherit), duplicate);
  } catch (...) {
    ::close(static_cast<int>(duplicate));
    throw;
  }
}

AOpenSpec* FileOpenSpec::clone(i::open::inherit::Disabled) const { return cloneWith(false); }
AOpenSpec* FileOpenSpec::clone(i::open::inherit::Enabled) const { return cloneWith(true); }

DescWrapper::~DescWrapper() {
  try {
    close();
  } catch (...) {
  }
}

void DescWrapper::close() {
  if (!owns_) {
    drop();
    return;
  }
  if (id_ == i::id::kNone) return;
  drop();  // forgotten first, as for files
  desc::fd::close(previous_);
}

AOpenSpec* DescWrapper::cloneWith(bool inherit) const {
  const i::id::type duplicate = desc::clone(id_, spec_.enabled(i::open::kInherit) && inherit);
  open::Spec spec = spec_;
  spec.states[i::open::kInherit] = inherit ? i::option::kEnabled : i::option::kDisabled;
  try {
    return new DescWrapper(name_, duplicate, true, spec);
  } catch (...) {
    ::close(static_cast<int>(duplicate));
    throw;
  }
}

AOpenSpec* DescWrapper::clone(i::open::inherit::Disabled) const { return cloneWith(false); }
AOpenSpec* DescWrapper::clone(i::open::inherit::Enabled) const { return cloneWith(true); }

MemOpenSpec::MemOpenSpec(const std::string& name, void* address, unsigned int length)
    : AOpenSpec(name, i::id::kNone), record_{reinterpret_cast<pod::uintptr>(address), length, {0, 0, 0}} {
  id_ = static_cast<i::id::type>(reinterpret_cast<pod::uintptr>(&record_));
  description_ = name + " (Mem open spec @" + std::to_string(id_) + ":0x" + util::str::hexFrom(address, false) + ":" +
                 std::to_string(length) + ")";
}

AOpenSpec* MemOpenSpec::clone(i::open::inherit::Disabled) const {
  return new MemOpenSpec(name_, reinterpret_cast<void*>(record_.address), record_.length);
}
AOpenSpec* MemOpenSpec::clone(i::open::inherit::Enabled) const { return clone(i::open::inherit::Disabled()); }

NULLOpenSpec::NULLOpenSpec(const std::string& name) : AOpenSpec(name, i::id::kNone) {
  id_ = static_cast<i::id::type>(reinterpret_cast<pod::uintptr>(this));
  description_ = name + " (NULL open spec @" + std::to_string(id_) + ")";
}

AOpenSpec* NULLOpenSpec::clone(i::open::inherit::Disabled) const { return new NULLOpenSpec(description_); }
AOpenSpec* NULLOpenSpec::clone(i::open::inherit::Enabled) const { return new NULLOpenSpec(description_); }

TCPOpenSpec::TCPOpenSpec(const io::TCPBindingAddress& binding, const io::TCPConnectingAddress& connecting)
    : AOpenSpec("TCP", i::id::kNone), socket_(binding, connecting, true, true, false) {
  id_ = static_cast<i::id::type>(socket_.id());
}

SocketOpenSpec::SocketOpenSpec(const io::ASocketEndpoint& socket)
    : AOpenSpec("", static_cast<i::id::type>(socket.impl().reference().descriptor())), Watcher(this), socket_(socket) {
  socket_.impl()->watchers.link(*this);
}

SocketOpenSpec::~SocketOpenSpec() {
  if (watchers != nullptr) watchers->unlink(*this);
}

std::string SocketOpenSpec::asString() const {
  return socket_.impl().reference().type() == SOCK_DGRAM ? "UDP" : "TCP";
}

}  // namespace impl
}  // namespace xio
}  // namespace sal
}  // namespace quorel
