// quorel net-bench: echo round trips over loopback through io::Selector, a
// first check that the selector and the sockets work on this machine.
//
//   quorel net-bench [--connections N] [--seconds S] [--size BYTES]
#include <signal.h>
#include <sys/resource.h>

#include <atomic>
#include <cstring>
#include <exception>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <quorel/quorel.h>

#include "command.h"
#include "json.h"

namespace tool {

namespace {

namespace io = quorel::sal::io;
namespace exec = quorel::sal::exec;
namespace tick = quorel::sal::time::tick;
namespace sel = quorel::sal::io::i::select;
using quorel::pod::uint64;

// Gives socket the interest wanted (the selector is told only of a change).
void watch(io::Selector& selector, io::ATCPIOSocket& socket, unsigned& interest, unsigned wanted) {
  if (interest != wanted) selector.change(socket, wanted);
  interest = wanted;
}

// Puts what the socket takes of bytes from at to end; the new position.
size_t putSome(io::ATCPIOSocket& socket, const char* bytes, size_t at, size_t end) {
  const int sent = socket.put(bytes + at, static_cast<int>(end - at));
  return sent > 0 ? at + static_cast<size_t>(sent) : at;  // -1: no room now
}

// The echo server: level-triggered, each connection read when it has data
// and written back; what the socket does not take at once waits for room
// (meanwhile the connection is not read). Runs until stop().
class EchoServer : public exec::i::Task {
 public:
  explicit EchoServer(const io::TCPServerSocket& listener) : listener_(listener) {}

  int run() override {
    try {
      serve();
    } catch (...) {
      failure = std::current_exception();
    }
    return 0;
  }
  // From another thread.
  void stop() {
    stopping_ = true;
    selector_.wake();
  }

  std::exception_ptr failure;

 private:
  struct Peer {
    explicit Peer(const io::ATCPIOSocket& accepted) : socket(accepted) {}
    io::ATCPIOSocket socket;
    unsigned interest = sel::kRead;
    std::vector<char> pending;  // read and not yet written back
    size_t written = 0;
  };

  void serve() {
    std::map<Peer*, std::unique_ptr<Peer>> peers;
    std::vector<char> buffer(65536);
    selector_.add(listener_, sel::kRead, &listener_);
    io::Selector::Ready ready;
    while (!stopping_) {
      selector_.wait();
      while (selector_.next(ready)) {
        if (ready.context == &listener_) {
          std::unique_ptr<Peer> peer(new Peer(listener_.accept(0)));
          peer->socket.beNonblocking();
          selector_.add(peer->socket, sel::kRead, peer.get());
          peers[peer.get()] = std::move(peer);
          continue;
        }
        Peer& peer = *static_cast<Peer*>(ready.context);
        if (!peer.pending.empty()) {
          peer.written = putSome(peer.socket, peer.pending.data(), peer.written, peer.pending.size());
          if (peer.written < peer.pending.size()) continue;
          peer.pending.clear();
          watch(selector_, peer.socket, peer.interest, sel::kRead);
          continue;
        }
        const int got = peer.socket.get(buffer.data(), static_cast<int>(buffer.size()));
        if (got == 0) {
          peers.erase(&peer);  // the client closed: closing takes it out of the selector
          continue;
        }
        if (got < 0) continue;  // nothing after all
        const size_t written = putSome(peer.socket, buffer.data(), 0, static_cast<size_t>(got));
        if (written < static_cast<size_t>(got)) {
          peer.pending.assign(buffer.data() + written, buffer.data() + got);
          peer.written = 0;
          watch(selector_, peer.socket, peer.interest, sel::kWrite);
        }
      }
    }
  }

  io::TCPServerSocket listener_;
  io::Selector selector_;
  std::atomic<bool> stopping_{false};
};

// What goes wrong on the clients' side without a library failure.
struct CheckFailed {
  std::string message;
};

// The clients: each sends its message, reads until the whole message is back
// (checking every byte) and sends it again. A client keeps reading while it
// sends, so a message larger than the sockets' buffers cannot stall.
class Clients {
 public:
  Clients(unsigned short port, int connections, size_t size) : size_(size) {
    const io::TCPConnectingAddress server("127.0.0.1", port);
    for (int n = 0; n < connections; ++n) {
      std::unique_ptr<Client> client(new Client(io::TCPClientSocket(server, true, false)));
      client->socket.disableTCPCoalescing();
      client->socket.beNonblocking();
      client->message.resize(size);
      for (size_t at = 0; at < size; ++at) client->message[at] = static_cast<char>('a' + (n + at) % 26);
      selector_.add(client->socket, sel::kRead, client.get());
      clients_.push_back(std::move(client));
    }
  }

  // The round trips completed in about milliseconds; elapsed is the time
  // they took, in nanoseconds.
  long long run(uint64 milliseconds, uint64& elapsedNano) {
    for (auto& client : clients_) send(*client);
    std::vector<char> buffer(size_);
    long long trips = 0;
    const uint64 start = tick::now();
    io::Selector::Ready ready;
    for (uint64 elapsed = 0; elapsed < milliseconds; elapsed = tick::as::milli(start, tick::now())) {
      selector_.waitFor(milliseconds - elapsed);
      while (selector_.next(ready)) {
        Client& client = *static_cast<Client*>(ready.context);
        if ((ready.events & sel::kWrite) != 0 && client.sent < size_) send(client);
        if ((ready.events & (sel::kRead | sel::kHangUp | sel::kError)) == 0) continue;
        const int got = client.socket.get(buffer.data(), static_cast<int>(size_ - client.received));
        if (got == 0) throw CheckFailed{"the echo server closed a connection"};
        if (got < 0) continue;
        if (std::memcmp(buffer.data(), client.message.data() + client.received, static_cast<size_t>(got)) != 0) {
          throw CheckFailed{"a connection got back bytes other than those it sent"};
        }
        client.received += static_cast<size_t>(got);
        if (client.received < size_) continue;
        ++trips;
        client.sent = client.received = 0;
        send(client);
      }
    }
    elapsedNano = tick::as::nano(start, tick::now());
    return trips;
  }

 private:
  struct Client {
    explicit Client(const io::TCPClientSocket& connected) : socket(connected) {}
    io::TCPClientSocket socket;
    std::vector<char> message;
    size_t sent = 0;
    size_t received = 0;
    unsigned interest = sel::kRead;
  };

  // Sends what the socket takes of the rest of the message; watches for room
  // while some is left.
  void send(Client& client) {
    client.sent = putSome(client.socket, client.message.data(), client.sent, size_);
    watch(selector_, client.socket, client.interest, client.sent < size_ ? sel::kRead | sel::kWrite : sel::kRead);
  }

  size_t size_;
  io::Selector selector_;
  std::vector<std::unique_ptr<Client>> clients_;
};

// Raises the soft limit of open descriptors to needed if the hard one allows.
void allowDescriptors(int connections) {
  const rlim_t needed = 2 * static_cast<rlim_t>(connections) + 32;
  rlimit limit;
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= needed) return;
  if (limit.rlim_max < needed) {
    throw UsageError{std::to_string(connections) + " connections need " + std::to_string(needed) +
                     " descriptors and this process may open at most " + std::to_string(limit.rlim_max) +
                     " (ulimit -Hn)"};
  }
  limit.rlim_cur = needed;
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

int netBench(const std::vector<std::string>& args) {
  int connections = 100, seconds = 2;
  long long size = 64;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    auto value = [&]() -> const std::string& {
      if (++i == args.size()) throw UsageError{a + " needs a value"};
      return args[i];
    };
    if (a == "--connections") {
      connections = parseInteger(value(), "connection count");
      if (connections < 1 || connections > 10000) {
        throw UsageError{"invalid connection count '" + args[i] + "' (1 to 10000)"};
      }
    } else if (a == "--seconds") {
      seconds = parseInteger(value(), "duration");
      if (seconds < 1 || seconds > 3600) throw UsageError{"invalid duration '" + args[i] + "' (1 to 3600 seconds)"};
    } else if (a == "--size") {
      size = parseBytes(value(), "size");
      if (size < 1 || size > 65536) throw UsageError{"invalid size '" + args[i] + "' (1 byte to 64K)"};
    } else {
      throw UsageError{"unknown option '" + a + "'"};
    }
  }
  allowDescriptors(connections);
  ::signal(SIGPIPE, SIG_IGN);  // a send to a connection that closed fails with EPIPE instead

  const io::TCPServerSocket listener(io::TCPBindingAddress("127.0.0.1", 0), false);
  const unsigned short port = listener.selfAddress().port();
  EchoServer* server = new EchoServer(listener);
  exec::Thread serving(exec::TaskHandle(server), 1 << 18, 0);
  serving.start();
  long long trips = 0;
  uint64 elapsed = 0;
  std::exception_ptr failure;
  try {
    Clients clients(port, connections, static_cast<size_t>(size));
    trips = clients.run(static_cast<uint64>(seconds) * 1000, elapsed);
    server->stop();
    serving.wait();
  } catch (...) {
    failure = std::current_exception();
    server->stop();
    serving.wait();
  }
  if (server->failure) std::rethrow_exception(server->failure);
  std::string check;
  try {
    if (failure) std::rethrow_exception(failure);
  } catch (const CheckFailed& e) {
    check = e.message;
  }
  if (check.empty() && trips == 0) check = "no round trip came back in " + std::to_string(seconds) + " s";
  if (!check.empty()) {
    std::cerr << "quorel: " << check << "\n";
    return 1;
  }

  const long long perSecond = static_cast<long long>(static_cast<double>(trips) * 1e9 / static_cast<double>(elapsed));
  if (options.json) {
    std::cout << json::Object()
                     .add("connections", connections)
                     .add("size", size)
                     .add("seconds", seconds)
                     .add("roundTrips", trips)
                     .add("roundTripsPerSecond", perSecond)
                     .str()
              << "\n";
    return 0;
  }
  std::cout << "echo over 127.0.0.1 port " << port << ": " << connections
            << (connections == 1 ? " connection, " : " connections, ") << size << "-byte messages, " << seconds
            << " s\nround trips " << trips << "  per second " << perSecond << "\n";
  return 0;
}

}  // namespace tool
