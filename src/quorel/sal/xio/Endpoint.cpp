// Endpoint, Channel, File and Pipe.
#include <quorel/sal/xio/Endpoint.h>

#include <quorel/sal/xio/impl/desc.h>
#include <quorel/sal/xio/impl/fio.inl>
#include <quorel/sal/xio/impl/popen.inl>

namespace quorel {
namespace sal {
namespace xio {

namespace {

// Ownership passes spec -> impl::Endpoint -> handle, one owner at a time.
Endpoint over(impl::AOpenSpec* spec) {
  std::unique_ptr<impl::AOpenSpec> owned(spec);
  std::unique_ptr<impl::Endpoint> endpoint(new impl::Endpoint(nullptr));
  endpoint->spec = std::move(owned);
  return Endpoint(Endpoint::Handle(endpoint.release()));
}

}  // namespace

Endpoint Endpoint::open(const std::string& name) { return over(new impl::NULLOpenSpec(name)); }
Endpoint Endpoint::open(const std::string& name, void* address, unsigned int length) {
  return over(new impl::MemOpenSpec(name, address, length));
}
Endpoint Endpoint::open(const std::string& path, const fopen::Spec& spec) {
  return over(new impl::FileOpenSpec(path, spec.key()));
}
Endpoint Endpoint::open(const io::TCPBindingAddress& binding, const io::TCPConnectingAddress& connecting) {
  return over(new impl::TCPOpenSpec(binding, connecting));
}
Endpoint Endpoint::open(const io::ASocketEndpoint& socket) { return over(new impl::SocketOpenSpec(socket)); }
Endpoint Endpoint::wrap(unsigned int id, const open::Spec& spec) {
  return over(new impl::DescWrapper("", id, false, spec.key()));
}
Endpoint Endpoint::adopt(unsigned int id, const open::Spec& spec) {
  return over(new impl::DescWrapper("", id, true, spec.key()));
}
Endpoint Endpoint::wrap(i::stdfd::Input) { return over(new impl::DescWrapper("STDIN", impl::desc::std::input(), false)); }
Endpoint Endpoint::wrap(i::stdfd::Output) {
  return over(new impl::DescWrapper("STDOUT", impl::desc::std::output(), false));
}
Endpoint Endpoint::wrap(i::stdfd::Error) { return over(new impl::DescWrapper("STDERR", impl::desc::std::error(), false)); }
Endpoint Endpoint::adopt(i::stdfd::Input) { return over(new impl::DescWrapper("STDIN", impl::desc::std::input(), true)); }
Endpoint Endpoint::adopt(i::stdfd::Output) {
  return over(new impl::DescWrapper("STDOUT", impl::desc::std::output(), true));
}
Endpoint Endpoint::adopt(i::stdfd::Error) { return over(new impl::DescWrapper("STDERR", impl::desc::std::error(), true)); }

// Opening again or closing changes what the identifier means: the selectors
// holding the endpoint forget it first.
void Endpoint::open() {
  handle_->watchers.closing();
  handle_->spec->open();
}
void Endpoint::close() {
  handle_->watchers.closing();
  handle_->spec->close();
}
void Endpoint::reopen() {
  close();
  open();
}

Endpoint Endpoint::clone(i::open::inherit::Enabled tag) const {
  impl::AOpenSpec* spec = handle_->spec->clone(tag);
  return spec != nullptr ? over(spec) : Endpoint();
}

Endpoint Endpoint::clone(i::open::inherit::Disabled tag) const {
  impl::AOpenSpec* spec = handle_->spec->clone(tag);
  return spec != nullptr ? over(spec) : Endpoint();
}

i::id::type Endpoint::id() const { return handle_->spec->id(); }
const std::string& Endpoint::name() const { return handle_->spec->name(); }
std::string Endpoint::specString() const { return handle_->spec->asString(); }
const impl::AOpenSpec& Endpoint::key() const { return *handle_->spec; }

Channel::~Channel() = default;
int Channel::read(void* buffer, int size) { return impl::fio::read(endpoint_.id(), buffer, size); }
int Channel::read(void* buffer, unsigned int size) { return read(buffer, static_cast<int>(size)); }
int Channel::write(const void* buffer, int size) { return impl::fio::write(endpoint_.id(), buffer, size); }
int Channel::write(const void* buffer, unsigned int size) { return write(buffer, static_cast<int>(size)); }

File::~File() = default;
void File::open(const std::string& path, const fopen::Spec& spec) { endpoint_ = Endpoint::open(path, spec); }
int File::read(void* buffer, int size, long long offset) {
  return impl::fio::read(endpoint_.id(), buffer, size, offset);
}
int File::read(void* buffer, unsigned int size, long long offset) {
  return read(buffer, static_cast<int>(size), offset);
}
int File::write(const void* buffer, int size, long long offset) {
  return impl::fio::write(endpoint_.id(), buffer, size, offset);
}
int File::write(const void* buffer, unsigned int size, long long offset) {
  return write(buffer, static_cast<int>(size), offset);
}
long long File::seek(long long offset, i::fseek::from::Begin) { return impl::fio::seek(endpoint_.id(), offset, SEEK_SET); }
long long File::seek(long long offset, i::fseek::from::Current) {
  return impl::fio::seek(endpoint_.id(), offset, SEEK_CUR);
}
long long File::seek(long long offset, i::fseek::from::End) { return impl::fio::seek(endpoint_.id(), offset, SEEK_END); }
void File::truncate() {
  const i::id::type id = endpoint_.id();
  impl::fop::truncate(id, impl::fio::seek(id, 0, SEEK_CUR));
}
void File::sync() { impl::fop::sync(endpoint_.id()); }

namespace {

// An endpoint that adopts a pipe end. Ownership passes the moment the wrapper
// exists: if building the endpoint fails after that, the wrapper's
// destructor closes the end, and only it.
Endpoint adopted(impl::desc::Owned& end, const open::Spec& spec) {
  impl::AOpenSpec* wrapper = new impl::DescWrapper("", static_cast<i::id::type>(end.get()), true, spec.key());
  end.release();
  return over(wrapper);
}

}  // namespace

Pipe::Pipe(const open::Spec& readSpec, const open::Spec& writeSpec) {
  impl::desc::os::id::type readEnd = -1, writeEnd = -1;
  impl::popen::newPair(readEnd, writeEnd, readSpec.key(), writeSpec.key());
  impl::desc::Owned reading(readEnd), writing(writeEnd);
  read_ = adopted(reading, readSpec);
  write_ = adopted(writing, writeSpec);
}

}  // namespace xio
}  // namespace sal
}  // namespace quorel
