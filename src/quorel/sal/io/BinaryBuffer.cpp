// The binary buffers' transfers to and from sockets and descriptor endpoints.
#include <quorel/sal/io/BinaryBuffer.h>

#include <quorel/sal/io/ASocketEndpoint.h>
#include <quorel/sal/xio/Endpoint.h>
#include <quorel/sal/xio/impl/AOpenSpec.h>
#include <quorel/util/Exception.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace io {

namespace {

sys::io::socket::descriptor descriptorOf(const ASocketEndpoint& socket) {
  return socket.impl().reference().descriptor();
}

// What an endpoint's identifier is: a socket's descriptor (moved with
// send()/recv()) or another descriptor (read()/write()).
struct Target {
  int fd;
  bool socket;
};

Target targetOf(const xio::Endpoint& endpoint) {
  const xio::impl::AOpenSpec& spec = endpoint.key();
  if (dynamic_cast<const xio::impl::MemOpenSpec*>(&spec) != nullptr ||
      dynamic_cast<const xio::impl::NULLOpenSpec*>(&spec) != nullptr) {
    QUOREL_THROW(InvalidArgumentException)("the endpoint '" + endpoint.name() + "' has no descriptor",
                                           sal::i::err::domain::kApplication, 0);
  }
  return Target{static_cast<int>(endpoint.id()), dynamic_cast<const xio::impl::TCPOpenSpec*>(&spec) != nullptr};
}

}  // namespace

std::size_t BinaryOutputBuffer::send(const ASocketEndpoint& socket) { return handle_->send(descriptorOf(socket)); }

int BinaryOutputBuffer::sendSome(const ASocketEndpoint& socket) { return handle_->sendSome(descriptorOf(socket)); }

std::size_t BinaryOutputBuffer::send(const xio::Endpoint& endpoint) {
  const Target target = targetOf(endpoint);
  return target.socket ? handle_->send(target.fd) : handle_->write(target.fd);
}

int BinaryOutputBuffer::sendSome(const xio::Endpoint& endpoint) {
  const Target target = targetOf(endpoint);
  return target.socket ? handle_->sendSome(target.fd) : handle_->writeSome(target.fd);
}

int BinaryInputBuffer::receive(const ASocketEndpoint& socket, std::size_t room) {
  return handle_->receive(descriptorOf(socket), room);
}

int BinaryInputBuffer::receive(const xio::Endpoint& endpoint, std::size_t room) {
  const Target target = targetOf(endpoint);
  return target.socket ? handle_->receive(target.fd, room) : handle_->read(target.fd, room);
}

}  // namespace io
}  // namespace sal
}  // namespace quorel
