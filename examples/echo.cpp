// A TCP echo server on a thread of its own and a client that talks to it.
//
//   echo [PORT]    (default: any free port; the server serves one client)
#include <cstdlib>
#include <iostream>
#include <string>

#include <quorel/quorel.h>

using namespace quorel::sal;

namespace {

// Accepts one connection and sends back every byte until the client closes.
class EchoServer : public exec::i::Task {
 public:
  explicit EchoServer(io::TCPServerSocket& server) : server_(server) {}
  int run() override {
    io::ATCPIOSocket peer = server_.accept(10000);  // waits up to 10 s
    char buffer[4096];
    for (int n; (n = peer.get(buffer, sizeof buffer)) > 0;) {
      for (int sent = 0; sent < n;) sent += peer.put(buffer + sent, n - sent);
    }
    return 0;
  }

 private:
  io::TCPServerSocket& server_;
};

}  // namespace

int main(int argc, char** argv) {
  try {
    const unsigned short port = static_cast<unsigned short>(argc > 1 ? std::atoi(argv[1]) : 0);
    io::TCPServerSocket server(io::TCPBindingAddress(port), false);
    const unsigned short bound = server.selfAddress().port();
    exec::Thread serving(exec::TaskHandle(new EchoServer(server)), 0, 0);
    serving.start();

    io::TCPClientSocket client(io::TCPConnectingAddress("127.0.0.1", bound), true, false);
    int mismatches = 0;
    for (const std::string line : {"hello", "quorel echoes", "goodbye"}) {
      client.put(line.data(), static_cast<int>(line.size()));
      std::string back(line.size(), '\0');
      for (int got = 0; got < static_cast<int>(back.size());) {
        got += client.get(&back[got], static_cast<int>(back.size()) - got);
      }
      std::cout << "sent \"" << line << "\", got \"" << back << "\"\n";
      mismatches += back != line;
    }
    client.close();
    serving.wait();
    return mismatches == 0 ? 0 : 1;
  } catch (const quorel::Exception& e) {
    std::cerr << e.asSimpleString() << "\n";
    return 1;
  }
}
