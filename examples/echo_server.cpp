// An echo server on 127.0.0.1 built on io::Selector: one thread serves every
// connection, sending back what each one sends, until the program is ended.
//
//   echo_server [PORT]    (default 7, the echo service; 0: any free port)
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>
#include <string>

#include <quorel/quorel.h>

using namespace quorel::sal;

namespace {

// One client: its socket, and what it sent that it could not take back yet.
struct Connection {
  explicit Connection(const io::ATCPIOSocket& accepted) : socket(accepted) {}
  io::ATCPIOSocket socket;
  std::string unsent;
};

// Sends back what the socket takes of what is unsent; true when nothing is left.
bool flush(Connection& c) {
  const int sent = c.socket.put(c.unsent.data(), static_cast<int>(c.unsent.size()));  // -1: no room now
  if (sent > 0) c.unsent.erase(0, static_cast<size_t>(sent));
  return c.unsent.empty();
}

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);  // a client that left makes put() fail instead
  try {
    const unsigned short port = static_cast<unsigned short>(argc > 1 ? std::atoi(argv[1]) : 7);
    io::TCPServerSocket server(io::TCPBindingAddress("127.0.0.1", port), false);
    std::cout << "echoing on 127.0.0.1 port " << server.selfAddress().port() << std::endl;

    io::Selector selector;
    selector.add(server, io::i::select::kRead, &server);
    std::map<void*, std::unique_ptr<Connection>> connections;
    char buffer[4096];
    for (;;) {
      selector.wait();
      io::Selector::Ready ready;
      while (selector.next(ready)) {
        if (ready.context == &server) {  // a client is waiting: accept() does not block
          std::unique_ptr<Connection> c(new Connection(server.accept(0)));
          c->socket.beNonblocking();
          selector.add(c->socket, io::i::select::kRead, c.get());
          connections[c.get()] = std::move(c);
          continue;
        }
        Connection& c = *connections[ready.context];
        try {
          if (!c.unsent.empty()) {  // it was watched for room to send the rest
            if (flush(c)) selector.change(c.socket, io::i::select::kRead);
            continue;
          }
          const int got = c.socket.get(buffer, sizeof buffer);  // -1: nothing after all
          if (got > 0) {
            c.unsent.assign(buffer, static_cast<size_t>(got));
            if (!flush(c)) selector.change(c.socket, io::i::select::kWrite);  // not read until all is back
          } else if (got == 0) {
            connections.erase(ready.context);  // the client closed; so does the socket, and the selector forgets it
          }
        } catch (const quorel::Exception& e) {  // this client's failure (a reset connection): it goes
          std::cerr << e.asSimpleString() << "\n";
          connections.erase(ready.context);
        }
      }
    }
  } catch (const quorel::Exception& e) {
    std::cerr << e.asSimpleString() << "\n";
    return 1;
  }
}
