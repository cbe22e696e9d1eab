// io::Selector: registrations of sockets and descriptor endpoints, each on the
// list of the selectors its implementation tells when it closes.
#include <quorel/sal/io/Selector.h>

namespace quorel {
namespace sal {
namespace io {

namespace {

impl::Watchers& watchersOf(const ASocketEndpoint& socket) {
  return const_cast<impl::Socket&>(socket.impl().reference()).watchers;
}

impl::Watchers& watchersOf(const xio::Endpoint& endpoint) {
  return const_cast<xio::impl::Endpoint&>(endpoint.record()).watchersOf();
}

int descriptorOf(const xio::Endpoint& endpoint) {
  const xio::impl::Endpoint& record = endpoint.record();
  return record.descriptor();
}

}  // namespace

Selector::Selector() : handle_(new impl::Selector) {}

void Selector::add(const ASocketEndpoint& socket, unsigned interest, void* context) {
  handle_->add(watchersOf(socket), socket.impl().reference().descriptor(), interest, context);
}

void Selector::add(const xio::Endpoint& endpoint, unsigned interest, void* context) {
  handle_->add(watchersOf(endpoint), descriptorOf(endpoint), interest, context);
}

void Selector::change(const ASocketEndpoint& socket, unsigned interest) {
  handle_->change(watchersOf(socket), interest);
}

void Selector::change(const xio::Endpoint& endpoint, unsigned interest) {
  handle_->change(watchersOf(endpoint), interest);
}

bool Selector::remove(const ASocketEndpoint& socket) { return handle_->remove(watchersOf(socket)); }
bool Selector::remove(const xio::Endpoint& endpoint) { return handle_->remove(watchersOf(endpoint)); }

int Selector::waitFor(unsigned long long milliseconds) {
  const unsigned long long kLongest = 0x7fffffffffffffffULL;
  return handle_->wait(static_cast<long long>(milliseconds < kLongest ? milliseconds : kLongest));
}

}  // namespace io
}  // namespace sal
}  // namespace quorel
