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

// A socket endpoint (over a TCP connection or a shared socket) moves bytes
// with send/recv, so that a closed peer is an exception and not SIGPIPE.
Target targetOf(const xio::Endpoint& endpoint) {
  xio::impl::Endpoint& record = const_cast<xio::impl::Endpoint&>(endpoint.record());
  const int fd = record.descriptor();
  if (fd < 0) {
    QUOREL_THROW(InvalidArgumentException)("the endpoint '" + endpoint.name() + "' is closed or has no descriptor",
                                           sal::i::err::domain::kApplication, 0);
  }
  return Target{fd, record.spec->socket() != nullptr};
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
