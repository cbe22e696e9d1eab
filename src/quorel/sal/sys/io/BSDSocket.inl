// Platform half of sockets: socket, bind, listen, connect, accept, send,
// recv, select, the socket options, fcntl, gethostname and the resolver.
#include <quorel/sal/sys/io/BSDSocket.h>

#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/select.h>
#include <unistd.h>

#include <cstring>
#include <vector>

#include <quorel/sal/Exception.h>
#include <quorel/sal/exec/CondVar.h>
#include <quorel/sal/io/Exception.h>
#include <quorel/sal/sys/io/endpoint.h>
#include <quorel/util/ALockLatchFor.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace sys {
namespace io {

namespace {

using i::err::domain::kSystemCall;
const int kTimedOut = ETIMEDOUT;  // the code of every time-out

// A descriptor set on the heap, sized for the descriptor (select() on Linux
// takes sets larger than FD_SETSIZE). Adding -1 does nothing; -1 is never in it.
class DescriptorSet {
 public:
  explicit DescriptorSet(socket::descriptor fd)
      : words_(fd < 0 ? 1 : static_cast<size_t>(fd) / kBits + 1, 0), fd_(fd) {}
  void add() {
    if (fd_ >= 0) words_[fd_ / kBits] |= 1UL << (fd_ % kBits);
  }
  bool contains() const { return fd_ >= 0 && (words_[fd_ / kBits] & (1UL << (fd_ % kBits))) != 0; }
  fd_set* native() { return reinterpret_cast<fd_set*>(words_.data()); }

 private:
  static constexpr int kBits = 8 * sizeof(unsigned long);
  std::vector<unsigned long> words_;
  socket::descriptor fd_;
};

void setSocketOption(socket::descriptor fd, int level, int name, const void* value, socklen_t length,
                     int& error) {
  error = ::setsockopt(fd, level, name, value, length) == 0 ? 0 : errno;
}

}  // namespace

namespace socket {

descriptor open(int family, int type, int protocol, bool) { return ::socket(family, type, protocol); }

void close(descriptor fd, bool graceful) {
  if (graceful) ::shutdown(fd, SHUT_RDWR);
  ::close(fd);
}

void shutdown(descriptor fd) { ::shutdown(fd, SHUT_RDWR); }
void shutdownRead(descriptor fd) { ::shutdown(fd, SHUT_RD); }
void shutdownWrite(descriptor fd) { ::shutdown(fd, SHUT_WR); }

void setNonblocking(descriptor fd, bool on) {
  const int saved = errno;
  const int flags = ::fcntl(fd, F_GETFL);
  if (flags == -1) {
    const int error = errno;
    QUOREL_THROW(sys::Exception)("::fcntl() failed to retrieve flags", kSystemCall, error);
  }
  errno = saved;
  if (::fcntl(fd, F_SETFL, on ? flags | O_NONBLOCK : flags & ~O_NONBLOCK) == -1) {
    const int error = errno;
    QUOREL_THROW(sys::Exception)("::fcntl() failed to set flags", kSystemCall, error);
  }
  errno = saved;
}

void reuseAddress(descriptor fd) {
  const int on = 1;
  int error;
  setSocketOption(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on, error);
  if (error != 0) QUOREL_THROW(sys::Exception)("::setsockopt() failed for SO_REUSEADDR", kSystemCall, error);
}

void enableBroadcastTx(descriptor fd) {
  const int on = 1;
  int error;
  setSocketOption(fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof on, error);
  if (error != 0) QUOREL_THROW(sys::Exception)("::setsockopt() failed for SO_BROADCAST", kSystemCall, error);
}

void enableBroadcastRx(descriptor fd) { reuseAddress(fd); }

void enableForcefulClose(descriptor fd) {
  const linger value = {1, 0};
  int ignored;
  setSocketOption(fd, SOL_SOCKET, SO_LINGER, &value, sizeof value, ignored);
}

void disableTCPCoalescing(descriptor fd) {
  const int on = 1;
  int ignored;
  setSocketOption(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on, ignored);
}

size receiveSome(descriptor fd, void* buffer, size_t count, int flags) { return ::recv(fd, buffer, count, flags); }
size sendSome(descriptor fd, const void* buffer, size_t count, int flags) { return ::send(fd, buffer, count, flags); }

bool wouldBlock(int error) { return error == EAGAIN || error == EWOULDBLOCK || error == EINPROGRESS; }

int lastError() { return errno; }
void setLastError(int error) { errno = error; }

const std::string selfHostName() {
  char name[65];
  if (::gethostname(name, sizeof name) != 0) {
    const int error = errno;
    QUOREL_THROW(sys::Exception)("::gethostname() failed", kSystemCall, error);
  }
  name[sizeof name - 1] = '\0';
  return name;
}

std::string describe(int family, int type, int protocol) {
  const char* familyName = family == AF_INET ? "AF_INET(" : family == AF_INET6 ? "AF_INET6(" : family == 0 ? "PF_UNSPEC(" : "UNKNOWN(";
  const char* typeName = type == SOCK_STREAM ? "SOCK_STREAM(" : type == SOCK_DGRAM ? "SOCK_DGRAM(" : "UNKNOWN(";
  const char* protocolName =
      protocol == IPPROTO_TCP ? "IPPROTO_TCP(" : protocol == IPPROTO_UDP ? "IPPROTO_UDP(" : "UNKNOWN(";
  const std::string familyNumber = std::to_string(family);
  return "family:" + std::string(familyName) + familyNumber + ") type:" + typeName + std::to_string(type) +
         ") protocol:" + protocolName + familyNumber + ")";
}

}  // namespace socket

BSDSocket::BSDSocket(int family, int type, int protocol, bool unused)
    : descriptor_(socket::open(family, type, protocol, unused)),
      family_(family),
      type_(type),
      protocol_(protocol),
      notOwned_(0),
      nonBlocking_(false) {
  if (descriptor_ == -1) {
    const int error = errno;
    QUOREL_THROW(sys::Exception)("::socket() failed", kSystemCall, error);
  }
  try {
    endpoint::setCloseOnExec(descriptor_, true);
  } catch (...) {
    ::close(descriptor_);  // the destructor does not run for a failed constructor
    throw;
  }
}

BSDSocket::BSDSocket(socket::descriptor fd, int family, int type, int protocol, bool notOwned)
    : descriptor_(fd), family_(family), type_(type), protocol_(protocol), notOwned_(notOwned), nonBlocking_(false) {}

BSDSocket::~BSDSocket() { close(true); }

void BSDSocket::close(bool graceful) {
  if (notOwned_ == 0 && descriptor_ != -1) {
    socket::close(descriptor_, graceful);
    descriptor_ = -1;
  }
}

void BSDSocket::beNonBlocking() {
  if (!nonBlocking_) {
    socket::setNonblocking(descriptor_, true);
    nonBlocking_ = true;
  }
}

void BSDSocket::beBlocking() {
  if (nonBlocking_) {
    socket::setNonblocking(descriptor_, false);
    nonBlocking_ = false;
  }
}

void BSDSocket::bind(const sockaddr& address, socket::length length) {
  if (::bind(descriptor_, &address, length) == -1) {
    const int error = errno;
    QUOREL_THROW(sys::Exception)("::bind() failed", kSystemCall, error);
  }
}

void BSDSocket::listen() {
  if (::listen(descriptor_, 128) == -1) {
    const int error = errno;
    QUOREL_THROW(sys::Exception)("::listen() failed", kSystemCall, error);
  }
}

int BSDSocket::waitFor(int timeout, bool read, bool write, bool except, bool& inWrite, bool& inExcept) const {
  DescriptorSet readSet(descriptor_), writeSet(descriptor_), exceptSet(descriptor_);
  if (read) readSet.add();
  if (write) writeSet.add();
  if (except) exceptSet.add();
  timeval tv;
  tv.tv_sec = timeout / 1000;
  tv.tv_usec = (timeout % 1000) * 1000;
  errno = 0;
  const int ready = ::select(descriptor_ + 1, read ? readSet.native() : nullptr, write ? writeSet.native() : nullptr,
                             except ? exceptSet.native() : nullptr, &tv);
  const int error = errno;
  inWrite = write && writeSet.contains();
  inExcept = except && exceptSet.contains();
  errno = error;
  return ready;
}

const char* BSDSocket::ConnectWait::why() const {
  static const char* const kWhy[] = {"", "::select() timed-out for ::connect()", "::select() failed",
                                     "::getsockopt(SOL_ERROR) failed", "non-blocking ::connect() failed"};
  return kWhy[outcome];
}

BSDSocket::ConnectWait BSDSocket::awaitConnection(int timeout, bool restoreBlocking) {
  bool inWrite = false, inExcept = false;
  const int ready = waitFor(timeout, false, true, true, inWrite, inExcept);
  const int error = errno;
  if (restoreBlocking) beBlocking();
  if (ready == 0) return {ConnectWait::kTimedOut, kTimedOut};
  if (ready == 1) {
    if (!inWrite && !inExcept) return {ConnectWait::kConnected, 0};
    int pending = 0;
    socklen_t length = sizeof pending;
    if (::getsockopt(descriptor_, SOL_SOCKET, SO_ERROR, &pending, &length) == -1) {
      const int failed = errno;
      return {ConnectWait::kSOErrorUnreadable, failed};
    }
    return pending != 0 ? ConnectWait{ConnectWait::kFailed, pending} : ConnectWait{ConnectWait::kConnected, 0};
  }
  return error != 0 ? ConnectWait{ConnectWait::kSelectFailed, error} : ConnectWait{ConnectWait::kConnected, 0};
}

void BSDSocket::connect(const sockaddr& address, socket::length length, int timeout) {
  if (timeout <= 0) {
    if (::connect(descriptor_, &address, length) == -1) {
      const int error = errno;
      QUOREL_THROW(sys::Exception)("::connect() failed", kSystemCall, error);
    }
    return;
  }
  const bool wasNonBlocking = nonBlocking_;
  beNonBlocking();
  if (::connect(descriptor_, &address, length) == 0) {
    if (!wasNonBlocking) beBlocking();
    return;
  }
  const int error = errno;
  if (!socket::wouldBlock(error)) {
    QUOREL_THROW(sys::Exception)("::connect() failed", kSystemCall, error);  // still non-blocking
  }
  const ConnectWait wait = awaitConnection(timeout, !wasNonBlocking);
  if (wait.outcome == ConnectWait::kTimedOut) {
    QUOREL_THROW(sal::io::TimeoutException)(wait.why(), kSystemCall, wait.error);
  }
  if (wait.outcome != ConnectWait::kConnected) QUOREL_THROW(sys::Exception)(wait.why(), kSystemCall, wait.error);
}

void BSDSocket::initiateConnection(const sockaddr& address, socket::length length) {
  const bool wasNonBlocking = nonBlocking_;
  beNonBlocking();
  sal::exec::CondVar pause;
  int result = 0;
  int error = 0;
  for (int attempt = 0; attempt < 60; ++attempt) {
    result = ::connect(descriptor_, &address, length);
    error = result == -1 ? errno : 0;
    if (error != EADDRNOTAVAIL) break;
    if (attempt + 1 < 60) {
      util::ALockLatchFor<sal::exec::Mutex> latch(pause);
      pause.waitFor(1000);  // nobody signals: a one-second pause for a local port to free
    }
  }
  if (!wasNonBlocking) beBlocking();
  if (result == 0 || socket::wouldBlock(error)) return;
  QUOREL_THROW(sys::Exception)("non-blocking ::connect() failed", kSystemCall, error);
}

void BSDSocket::connectionWaitFor(int timeout) {
  const ConnectWait wait = awaitConnection(timeout, false);
  if (wait.outcome == ConnectWait::kTimedOut) {
    QUOREL_THROW(sal::io::TimeoutException)(wait.why(), kSystemCall, wait.error);
  }
  if (wait.outcome != ConnectWait::kConnected) QUOREL_THROW(sys::Exception)(wait.why(), kSystemCall, wait.error);
}

socket::descriptor BSDSocket::accept(sockaddr& address, socket::length& length, int timeout) {
  socket::descriptor accepted;
  if (timeout <= 0) {
    accepted = ::accept(descriptor_, &address, &length);
  } else {
    const bool wasNonBlocking = nonBlocking_;
    beNonBlocking();
    bool inWrite, inExcept;
    const int ready = waitFor(timeout, true, false, false, inWrite, inExcept);
    const int error = errno;
    if (ready == 0) {
      if (!wasNonBlocking) beBlocking();
      QUOREL_THROW(sal::io::TimeoutException)("::select() timed-out for ::accept()", kSystemCall, kTimedOut);
    }
    if (!wasNonBlocking) beBlocking();
    if (ready != 1 && error != 0) QUOREL_THROW(sys::Exception)("::select() failed", kSystemCall, error);
    accepted = ::accept(descriptor_, &address, &length);
  }
  if (accepted == -1) {
    const int error = errno;
    QUOREL_THROW(sys::Exception)("::accept() failed", kSystemCall, error);
  }
  try {
    endpoint::setCloseOnExec(accepted, true);
    socket::setNonblocking(accepted, false);
  } catch (...) {
    ::close(accepted);
    throw;
  }
  return accepted;
}

socket::size BSDSocket::receive(void* buffer, size_t size, int timeout, bool returnOnTimeout) {
  if (timeout <= 0) {
    const socket::size received = ::recv(descriptor_, buffer, size, 0);
    if (received != -1) return received;
    const int error = errno;
    if (nonBlocking_ && socket::wouldBlock(error)) return -1;
    QUOREL_THROW(sys::Exception)("::recv() failed", kSystemCall, error);
  }
  const bool wasNonBlocking = nonBlocking_;
  beNonBlocking();
  bool inWrite, inExcept;
  const int ready = waitFor(timeout, true, false, false, inWrite, inExcept);
  const int waitError = errno;
  if (ready == 0) {
    if (!wasNonBlocking) beBlocking();
    if (returnOnTimeout) return -1;
    QUOREL_THROW(sal::io::TimeoutException)("::select() timed-out for ::recv()", kSystemCall, kTimedOut);
  }
  if (ready != 1 && waitError != 0) {
    if (!wasNonBlocking) beBlocking();
    QUOREL_THROW(sys::Exception)("::select() failed", kSystemCall, waitError);
  }
  const socket::size received = ::recv(descriptor_, buffer, size, 0);
  const int error = errno;
  if (!wasNonBlocking) beBlocking();
  if (received != -1) return received;
  QUOREL_THROW(sys::Exception)("non-blocking ::recv() failed", kSystemCall, error);
}

socket::size BSDSocket::receive(void* buffer, size_t size, sockaddr& from, socket::length& length, int timeout,
                                bool returnOnTimeout) {
  if (timeout <= 0) {
    const socket::size received = ::recvfrom(descriptor_, buffer, size, 0, &from, &length);
    if (received != -1) return received;
    const int error = errno;
    if (nonBlocking_ && socket::wouldBlock(error)) return -1;
    QUOREL_THROW(sys::Exception)("::recvfrom() failed", kSystemCall, error);
  }
  const bool wasNonBlocking = nonBlocking_;
  beNonBlocking();
  bool inWrite, inExcept;
  const int ready = waitFor(timeout, true, false, false, inWrite, inExcept);
  const int waitError = errno;
  if (ready == 0) {
    if (!wasNonBlocking) beBlocking();
    if (returnOnTimeout) return -1;
    QUOREL_THROW(sal::io::TimeoutException)("::select() timed-out for ::recvfrom()", kSystemCall, kTimedOut);
  }
  if (ready != 1 && waitError != 0) {
    if (!wasNonBlocking) beBlocking();
    QUOREL_THROW(sys::Exception)("::select() failed", kSystemCall, waitError);
  }
  const socket::size received = ::recvfrom(descriptor_, buffer, size, 0, &from, &length);
  const int error = errno;
  if (!wasNonBlocking) beBlocking();
  if (received != -1) return received;
  QUOREL_THROW(sys::Exception)("non-blocking ::recvfrom() failed", kSystemCall, error);
}

socket::size BSDSocket::send(const void* buffer, size_t size, int timeout, bool returnOnTimeout) {
  if (timeout <= 0) {
    const socket::size sent = ::send(descriptor_, buffer, size, 0);
    if (sent != -1) return sent;
    const int error = errno;
    if (nonBlocking_ && socket::wouldBlock(error)) return -1;
    QUOREL_THROW(sys::Exception)("::send() failed", kSystemCall, error);
  }
  const bool wasNonBlocking = nonBlocking_;
  beNonBlocking();
  bool inWrite, inExcept;
  const int ready = waitFor(timeout, false, true, false, inWrite, inExcept);
  const int waitError = errno;
  if (ready == 0) {
    if (!wasNonBlocking) beBlocking();
    if (returnOnTimeout) return -1;
    QUOREL_THROW(sal::io::TimeoutException)("::select() timed-out for ::send()", kSystemCall, kTimedOut);
  }
  if (ready != 1 && waitError != 0) {
    if (!wasNonBlocking) beBlocking();
    QUOREL_THROW(sys::Exception)("::select() failed", kSystemCall, waitError);
  }
  const socket::size sent = ::send(descriptor_, buffer, size, 0);
  const int error = errno;
  if (!wasNonBlocking) beBlocking();
  if (sent != -1) return sent;
  QUOREL_THROW(sys::Exception)("non-blocking ::send() failed", kSystemCall, error);
}

socket::size BSDSocket::send(const void* buffer, size_t size, const sockaddr& to, socket::length length) {
  const socket::size sent = ::sendto(descriptor_, buffer, size, 0, &to, length);
  if (sent == -1) {
    const int error = errno;
    QUOREL_THROW(sys::Exception)("::sendto() failed", kSystemCall, error);
  }
  return sent;
}

void BSDSocket::peerAddress(sockaddr& address, socket::length& length) const {
  if (::getpeername(descriptor_, &address, &length) == -1) {
    const int error = errno;
    QUOREL_THROW(sys::Exception)("::getpeername() failed", kSystemCall, error);
  }
}

void BSDSocket::selfAddress(sockaddr& address, socket::length& length) const {
  if (::getsockname(descriptor_, &address, &length) == -1) {
    const int error = errno;
    QUOREL_THROW(sys::Exception)("::getsockname() failed", kSystemCall, error);
  }
}

SocketAddressInfo::SocketAddressInfo(const char* node, const char* service, int family, int type, int protocol,
                                     bool passive)
    : head_(nullptr) {
  addrinfo hints;
  std::memset(&hints, 0, sizeof hints);
  hints.ai_family = family;
  hints.ai_socktype = type;
  hints.ai_protocol = protocol;
  hints.ai_flags = passive ? AI_PASSIVE | AI_NUMERICHOST : AI_NUMERICHOST;
  int result = ::getaddrinfo(node, service, &hints, &head_);
  if (result != 0) {
    // Numeric text first; a host name only now.
    hints.ai_flags = passive ? AI_PASSIVE : 0;
    head_ = nullptr;
    result = ::getaddrinfo(node, service, &hints, &head_);
  }
  if (result != 0) {
    head_ = nullptr;
    QUOREL_THROW(sys::Exception)(std::string("::getaddrinfo(") + (node != nullptr ? node : "") + ") failed",
                                 i::err::domain::kAddressResolution, result);
  }
}

SocketAddressInfo::~SocketAddressInfo() {
  if (head_ != nullptr) ::freeaddrinfo(head_);
}

void SocketAddressInfo::Iterator::step() {
  if (current_ == nullptr) {
    QUOREL_THROW(NULLDereferenceException)("iteration passed the end", i::err::domain::kApplication, 0);
  }
  current_ = current_->ai_next;
}

void SocketAddressInfo::canonicalNameFrom(const sockaddr& address, socket::length length, std::string& name) {
  char host[NI_MAXHOST];
  const int result = ::getnameinfo(&address, length, host, sizeof host, nullptr, 0, 0);
  if (result != 0) {
    QUOREL_THROW(sys::Exception)("::getnameinfo() failed to retrieve the canonical host name string",
                                 i::err::domain::kAddressResolution, result);
  }
  name = host;
}

}  // namespace io
}  // namespace sys
}  // namespace sal
}  // namespace quorel
