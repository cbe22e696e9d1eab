// Echo round trips per second over loopback: N connections each send a
// message, wait for it to come back and send it again, against servers that
// each run single-threaded in a thread of their own:
//   epoll      a plain level-triggered epoll_wait loop (read, then write back): the anchor
//   asio       Boost.Asio, async_read_some/async_write on an io_context run by one
//              thread (built when Boost's headers are found: Debian's libboost-dev)
//   selector   quorel's io::Selector, get/put on non-blocking accepted sockets
//   dispatcher quorel's socket dispatcher, one request per connection re-armed
//              read -> write -> read
// One client thread drives all N connections through its own raw epoll loop,
// so the client costs the same against every server.
//
//   quorel_echo_bench [--seconds S] [--size BYTES] [--rounds R] [--connections N,N,...]
//                     (defaults: 2 seconds, 64 bytes, 3 rounds, 1,100,1000)
//
// The servers take turns for R rounds and the best run of each counts.
//
// It raises RLIMIT_NOFILE to what the largest run needs (two descriptors per
// connection and a margin), runs what fits if it cannot, and fails if a run
// leaves a descriptor open.
#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#ifdef QUOREL_BENCH_ASIO
#include <boost/asio.hpp>
#endif

#include <quorel/quorel.h>

namespace {

namespace io = quorel::sal::io;
namespace xio = quorel::sal::xio;

double now() {
  timespec ts;
  ::clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

[[noreturn]] void fail(const std::string& what) {
  throw std::runtime_error(what + ": " + std::strerror(errno));
}

int openDescriptors() {
  DIR* fds = ::opendir("/proc/self/fd");
  if (fds == nullptr) return -1;
  int count = 0;
  while (const dirent* entry = ::readdir(fds)) count += entry->d_name[0] != '.';
  ::closedir(fds);
  return count - 1;  // the directory's own descriptor
}

// A server listening on 127.0.0.1 at a port the kernel chose. serve() runs in
// the server's thread until stop() is called from another one.
class EchoServer {
 public:
  virtual ~EchoServer() = default;
  virtual unsigned short port() const = 0;
  virtual void serve(int connections) = 0;
  virtual void stop() = 0;
};

// (a) The anchor: what a careful C++ programmer writes by hand.
class EpollServer : public EchoServer {
 public:
  explicit EpollServer(int size) : size_(size) {
    listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    epfd_ = ::epoll_create1(EPOLL_CLOEXEC);
    stopFd_ = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (listener_ < 0 || epfd_ < 0 || stopFd_ < 0) fail("socket, epoll_create1 or eventfd");
    const int one = 1;
    ::setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (::bind(listener_, reinterpret_cast<sockaddr*>(&address), length) != 0 || ::listen(listener_, 128) != 0 ||
        ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
      fail("bind, listen or getsockname");
    }
    port_ = ntohs(address.sin_port);
    watch(listener_);
    watch(stopFd_);
  }
  ~EpollServer() override {
    for (int fd : connections_) ::close(fd);
    ::close(listener_);
    ::close(epfd_);
    ::close(stopFd_);
  }
  unsigned short port() const override { return port_; }

  void serve(int) override {
    std::vector<char> buffer(static_cast<size_t>(size_));
    epoll_event events[256];
    for (;;) {
      const int ready = ::epoll_wait(epfd_, events, 256, -1);
      if (ready < 0 && errno == EINTR) continue;
      if (ready < 0) fail("epoll_wait");
      for (int n = 0; n < ready; ++n) {
        const int fd = events[n].data.fd;
        if (fd == stopFd_) return;
        if (fd == listener_) {
          for (int c; (c = ::accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC)) >= 0;) {
            connections_.push_back(c);
            watch(c);
          }
          continue;
        }
        const ssize_t got = ::recv(fd, buffer.data(), buffer.size(), 0);
        if (got > 0) {
          if (::send(fd, buffer.data(), static_cast<size_t>(got), MSG_NOSIGNAL) != got) fail("send");
        } else if (got == 0 || errno != EAGAIN) {
          ::epoll_ctl(epfd_, EPOLL_CTL_DEL, fd, nullptr);
          ::close(fd);
          connections_.erase(std::find(connections_.begin(), connections_.end(), fd));
        }
      }
    }
  }
  void stop() override {
    const quorel::pod::uint64 one = 1;
    if (::write(stopFd_, &one, sizeof one) != sizeof one) fail("write to an eventfd");
  }

 private:
  void watch(int fd) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = fd;
    if (::epoll_ctl(epfd_, EPOLL_CTL_ADD, fd, &event) != 0) fail("epoll_ctl");
  }

  int size_;
  int listener_, epfd_, stopFd_;
  unsigned short port_;
  std::vector<int> connections_;
};

#ifdef QUOREL_BENCH_ASIO
// (b) Boost.Asio's single-threaded echo.
class AsioServer : public EchoServer {
 public:
  explicit AsioServer(int size)
      : size_(size),
        acceptor_(context_, boost::asio::ip::tcp::endpoint(boost::asio::ip::make_address("127.0.0.1"), 0)) {}
  unsigned short port() const override { return acceptor_.local_endpoint().port(); }
  void serve(int) override {
    accept();
    context_.run();
  }
  void stop() override { context_.stop(); }  // kept if run() has not started yet

 private:
  class Session : public std::enable_shared_from_this<Session> {
   public:
    Session(boost::asio::ip::tcp::socket socket, int size) : socket_(std::move(socket)), buffer_(size) {}
    void read() {
      auto self = shared_from_this();
      socket_.async_read_some(boost::asio::buffer(buffer_), [self](boost::system::error_code e, size_t n) {
        if (!e) self->write(n);
      });
    }

   private:
    void write(size_t n) {
      auto self = shared_from_this();
      boost::asio::async_write(socket_, boost::asio::buffer(buffer_.data(), n),
                               [self](boost::system::error_code e, size_t) {
                                 if (!e) self->read();
                               });
    }

    boost::asio::ip::tcp::socket socket_;
    std::vector<char> buffer_;
  };

  void accept() {
    acceptor_.async_accept([this](boost::system::error_code e, boost::asio::ip::tcp::socket socket) {
      if (e) return;
      std::make_shared<Session>(std::move(socket), size_)->read();
      accept();
    });
  }

  int size_;
  boost::asio::io_context context_{1};  // one thread runs it
  boost::asio::ip::tcp::acceptor acceptor_;
};
#endif

// (c) quorel's selector: level-triggered, one get and one put per readiness.
class SelectorServer : public EchoServer {
 public:
  explicit SelectorServer(int size) : size_(size), server_(io::TCPBindingAddress("127.0.0.1", 0), false) {}
  unsigned short port() const override { return server_.selfAddress().port(); }

  void serve(int) override {
    std::unordered_map<void*, std::unique_ptr<io::ATCPIOSocket>> connections;
    std::vector<char> buffer(static_cast<size_t>(size_));
    selector_.add(server_, io::i::select::kRead, &server_);
    io::Selector::Ready ready;
    while (!stopping_) {
      selector_.wait();
      while (selector_.next(ready)) {
        if (ready.context == &server_) {
          std::unique_ptr<io::ATCPIOSocket> connection(new io::ATCPIOSocket(server_.accept(0)));
          connection->beNonblocking();
          selector_.add(*connection, io::i::select::kRead, connection.get());
          connections[connection.get()] = std::move(connection);
          continue;
        }
        io::ATCPIOSocket& connection = *static_cast<io::ATCPIOSocket*>(ready.context);
        const int got = connection.get(buffer.data(), size_);
        if (got > 0) {
          if (connection.put(buffer.data(), got) != got) throw std::runtime_error("selector server: a short put");
        } else if (got == 0) {
          connections.erase(ready.context);  // closing it takes it out of the selector
        }
      }
    }
  }
  void stop() override {
    stopping_ = true;
    selector_.wake();
  }

 private:
  int size_;
  io::TCPServerSocket server_;
  io::Selector selector_;
  std::atomic<bool> stopping_{false};
};

// (d) quorel's socket dispatcher: per connection one request, armed for a
// read of size bytes; its completion arms a write of the bytes read, whose
// completion arms the read again. The connections are accepted first (the
// dispatcher moves bytes only).
class DispatcherServer : public EchoServer, private xio::AHandler {
 public:
  explicit DispatcherServer(int size)
      : size_(size),
        server_(io::TCPBindingAddress("127.0.0.1", 0), false),
        dispatcher_(xio::Dispatcher::createSelecting()) {}
  unsigned short port() const override { return server_.selfAddress().port(); }

  void serve(int connections) override {
    dispatcher_.lock();  // the serving thread owns it from now on
    buffers_.assign(static_cast<size_t>(connections), std::vector<char>(static_cast<size_t>(size_)));
    for (int n = 0; n < connections; ++n) {
      requests_.emplace_back(dispatcher_.newRequestFor(this, xio::Endpoint::open(server_.accept(10000))));
      requests_.back()->setID(static_cast<unsigned int>(n));
      requests_.back()->submit(xio::i::op::Read(), buffers_[static_cast<size_t>(n)].data(), size_, 0);
    }
    while (!stopping_ && dispatcher_.pending() > 0) dispatcher_.wait();
    dispatcher_.unlock();
  }
  void stop() override {
    stopping_ = true;
    dispatcher_.interrupt();  // kept for the next wait if none is in progress
  }

 private:
  char* buffer(const xio::Request& request) { return buffers_[request.id()].data(); }

  void on(xio::i::op::Read, int result, xio::Request& request) override {
    if (result > 0) request.submit(xio::i::op::Write(), buffer(request), result, 0);  // 0: the client closed
  }
  void on(xio::i::op::Write, int, xio::Request& request) override {
    request.submit(xio::i::op::Read(), buffer(request), size_, 0);
  }
  // Failures leave wait() and end serve().
  void on(xio::AIOCompletionException& e, xio::Request&) override { throw std::runtime_error(e.asSimpleString()); }
  void on(xio::AIORequestException& e, xio::Request&) override { throw std::runtime_error(e.asSimpleString()); }
  void on(xio::AIOCancellationException& e, xio::Request&) override { throw std::runtime_error(e.asSimpleString()); }
  void on(xio::ReadException& e, xio::Request&) override { throw std::runtime_error(e.asSimpleString()); }
  void on(xio::WriteException& e, xio::Request&) override { throw std::runtime_error(e.asSimpleString()); }

  int size_;
  io::TCPServerSocket server_;
  std::vector<std::vector<char>> buffers_;
  std::vector<std::unique_ptr<xio::Request>> requests_;  // outlive the dispatcher
  xio::Dispatcher dispatcher_;
  std::atomic<bool> stopping_{false};
};

// The client side: connections to 127.0.0.1:port, each sending size bytes,
// waiting for all of them to come back, and sending again.
class Driver {
 public:
  Driver(unsigned short port, int connections, int size) : payload_(static_cast<size_t>(size), 'q') {
    epfd_ = ::epoll_create1(EPOLL_CLOEXEC);
    if (epfd_ < 0) fail("epoll_create1");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    for (int n = 0; n < connections; ++n) {
      const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
      if (fd < 0) fail("socket");
      connections_.push_back(Connection{fd, 0, false});
      const int one = 1;
      ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
      if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) fail("connect");
      epoll_event event{};
      event.events = EPOLLIN;
      event.data.u32 = static_cast<quorel::pod::uint32>(n);
      if (::fcntl(fd, F_SETFL, O_NONBLOCK) != 0 || ::epoll_ctl(epfd_, EPOLL_CTL_ADD, fd, &event) != 0) {
        fail("fcntl or epoll_ctl");
      }
    }
  }
  ~Driver() {
    for (const Connection& c : connections_) ::close(c.fd);
    ::close(epfd_);
  }
  Driver(const Driver&) = delete;
  Driver& operator=(const Driver&) = delete;

  // Round trips per second over seconds, after one round trip on every
  // connection (which also waits until the server has accepted them all).
  double run(double seconds) {
    for (Connection& c : connections_) send(c);
    long long warm = 0;
    const double patience = now() + 10;
    while (warm < static_cast<long long>(connections_.size())) {
      if (now() > patience) throw std::runtime_error("the server did not answer every connection within 10 s");
      warm += turn(true);
    }
    long long trips = 0;
    const double start = now();
    double at = start;
    while (at - start < seconds) {
      trips += turn(false);
      at = now();
    }
    return static_cast<double>(trips) / (at - start);
  }

 private:
  struct Connection {
    int fd;
    size_t received;
    bool answered;  // during the warm-up
  };

  void send(Connection& c) {
    if (::send(c.fd, payload_.data(), payload_.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(payload_.size())) {
      fail("client send");
    }
  }

  // One epoll_wait; the round trips it completed (with warming: the first
  // ones of their connections).
  long long turn(bool warming) {
    epoll_event events[1024];
    const int ready = ::epoll_wait(epfd_, events, 1024, 100);
    if (ready < 0 && errno != EINTR) fail("client epoll_wait");
    long long trips = 0;
    char buffer[65536];
    for (int n = 0; n < ready; ++n) {
      Connection& c = connections_[events[n].data.u32];
      const ssize_t got = ::recv(c.fd, buffer, std::min(sizeof buffer, payload_.size() - c.received), 0);
      if (got == 0) throw std::runtime_error("the server closed a connection");
      if (got < 0) {
        if (errno == EAGAIN) continue;
        fail("client recv");
      }
      c.received += static_cast<size_t>(got);
      if (c.received < payload_.size()) continue;
      c.received = 0;
      if (!warming) {
        ++trips;
      } else if (!c.answered) {
        c.answered = true;
        ++trips;
      }
      send(c);
    }
    return trips;
  }

  int epfd_;
  std::vector<Connection> connections_;
  std::vector<char> payload_;
};

// Runs one server against the driver; round trips per second.
double measure(EchoServer& server, int connections, int size, double seconds) {
  std::string failure;
  std::thread serving([&] {
    try {
      server.serve(connections);
    } catch (const quorel::Exception& e) {
      failure = e.asSimpleString();
    } catch (const std::exception& e) {
      failure = e.what();
    }
  });
  double rate = 0;
  std::string driverFailure;
  try {
    Driver driver(server.port(), connections, size);
    rate = driver.run(seconds);
    server.stop();
    serving.join();
  } catch (const std::exception& e) {
    driverFailure = e.what();
    server.stop();
    serving.join();
  }
  if (!failure.empty()) throw std::runtime_error("server: " + failure);
  if (!driverFailure.empty()) throw std::runtime_error("client: " + driverFailure);
  return rate;
}

// Raises the soft RLIMIT_NOFILE to needed; false if the hard limit is lower.
bool allowDescriptors(rlim_t needed, rlim_t& allowed) {
  rlimit limit;
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) fail("getrlimit");
  if (limit.rlim_cur < needed) {
    const rlimit raised{std::min(needed, limit.rlim_max), limit.rlim_max};
    if (::setrlimit(RLIMIT_NOFILE, &raised) == 0) {
      std::printf("RLIMIT_NOFILE raised from %llu to %llu\n", static_cast<unsigned long long>(limit.rlim_cur),
                  static_cast<unsigned long long>(raised.rlim_cur));
      limit.rlim_cur = raised.rlim_cur;
    }
  }
  allowed = limit.rlim_cur;
  return allowed >= needed;
}

rlim_t descriptorsFor(int connections) { return 2 * static_cast<rlim_t>(connections) + 64; }

std::vector<int> countsFrom(const std::string& text) {
  std::vector<int> counts;
  for (size_t at = 0; at <= text.size();) {
    const size_t comma = std::min(text.find(',', at), text.size());
    const int n = std::atoi(text.substr(at, comma - at).c_str());
    if (n < 1 || n > 100000) throw std::invalid_argument("invalid connection count in '" + text + "'");
    counts.push_back(n);
    at = comma + 1;
  }
  return counts;
}

struct Kind {
  const char* name;
  std::unique_ptr<EchoServer> (*make)(int size);
};

template <class Server>
std::unique_ptr<EchoServer> make(int size) {
  return std::unique_ptr<EchoServer>(new Server(size));
}

}  // namespace

int main(int argc, char** argv) {
  double seconds = 2;
  int size = 64, rounds = 3;
  std::vector<int> counts = {1, 100, 1000};
  try {
    for (int n = 1; n < argc; ++n) {
      const std::string option = argv[n];
      if (n + 1 == argc) throw std::invalid_argument(option + " needs a value");
      const std::string value = argv[++n];
      if (option == "--seconds") {
        seconds = std::atof(value.c_str());
        if (!(seconds > 0 && seconds <= 3600)) throw std::invalid_argument("invalid --seconds " + value);
      } else if (option == "--size") {
        size = std::atoi(value.c_str());
        if (size < 1 || size > 65536) throw std::invalid_argument("invalid --size " + value + " (1 to 65536)");
      } else if (option == "--rounds") {
        rounds = std::atoi(value.c_str());
        if (rounds < 1 || rounds > 100) throw std::invalid_argument("invalid --rounds " + value + " (1 to 100)");
      } else if (option == "--connections") {
        counts = countsFrom(value);
      } else {
        throw std::invalid_argument("unknown option " + option);
      }
    }
  } catch (const std::invalid_argument& e) {
    std::fprintf(stderr,
                 "quorel_echo_bench: %s\nusage: quorel_echo_bench [--seconds S] [--size BYTES] [--rounds R] "
                 "[--connections N,N,...]\n",
                 e.what());
    return 2;
  }

  ::signal(SIGPIPE, SIG_IGN);  // the socket classes' put raises it for a peer that left
  std::vector<Kind> kinds = {{"epoll", make<EpollServer>}};
#ifdef QUOREL_BENCH_ASIO
  kinds.push_back({"asio", make<AsioServer>});
#else
  std::printf("asio: skipped, Boost's headers were not found when this program was built "
              "(Debian: apt-get install libboost-dev, then configure again)\n");
#endif
  kinds.push_back({"selector", make<SelectorServer>});
  kinds.push_back({"dispatcher", make<DispatcherServer>});

  rlim_t allowed = 0;
  const int largest = *std::max_element(counts.begin(), counts.end());
  try {
    if (!allowDescriptors(descriptorsFor(largest), allowed)) {
      std::printf("RLIMIT_NOFILE allows only %llu descriptors (its hard limit): runs that need more are skipped\n",
                  static_cast<unsigned long long>(allowed));
    }
  } catch (const std::exception& e) {
    std::fprintf(stderr, "quorel_echo_bench: %s\n", e.what());
    return 1;
  }

  std::printf("echo round trips of %d bytes over loopback, %g s per run, the best of %d rounds\n", size, seconds,
              rounds);
  std::printf("%11s  %-10s  %14s  %8s\n", "connections", "server", "round trips/s", "vs epoll");
  int failures = 0;
  for (int connections : counts) {
    if (descriptorsFor(connections) > allowed) {
      std::printf("%11d  skipped: needs %llu descriptors\n", connections,
                  static_cast<unsigned long long>(descriptorsFor(connections)));
      continue;
    }
    // The servers take turns, round after round, so that a busy moment of
    // the machine does not fall on one of them only.
    std::vector<double> best(kinds.size(), 0);
    std::vector<std::string> failed(kinds.size());
    for (int round = 0; round < rounds; ++round) {
      for (size_t k = 0; k < kinds.size(); ++k) {
        if (!failed[k].empty()) continue;
        const int before = openDescriptors();
        try {
          std::unique_ptr<EchoServer> server = kinds[k].make(size);
          best[k] = std::max(best[k], measure(*server, connections, size, seconds));
        } catch (const quorel::Exception& e) {
          failed[k] = e.asSimpleString();
        } catch (const std::exception& e) {
          failed[k] = e.what();
        }
        const int after = openDescriptors();
        if (after != before && failed[k].empty()) {
          failed[k] = "left " + std::to_string(after - before) + " descriptors open";
        }
      }
    }
    for (size_t k = 0; k < kinds.size(); ++k) {
      if (!failed[k].empty()) {
        std::printf("%11d  %-10s  failed: %s\n", connections, kinds[k].name, failed[k].c_str());
        ++failures;
      } else {
        std::printf("%11d  %-10s  %14.0f  %8.2f\n", connections, kinds[k].name, best[k],
                    best[0] > 0 ? best[k] / best[0] : 0);
      }
    }
    std::fflush(stdout);
  }
  return failures == 0 ? 0 : 1;
}
