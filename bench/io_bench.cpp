// Sockets on loopback against the raw system calls.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

#include <quorel/quorel.h>

namespace {

using namespace quorel::sal::io;

const int kChunk = 65536;

TCPBindingAddress loopback() { return TCPBindingAddress("127.0.0.1", 0); }

void BM_TCPPutGet64K(benchmark::State& state) {
  TCPServerSocket server(loopback(), false);
  TCPClientSocket client(TCPConnectingAddress("127.0.0.1", server.selfAddress().port()), true, false);
  ATCPIOSocket accepted = server.accept(5000);
  std::thread reader([&] {
    std::vector<char> buffer(kChunk);
    while (accepted.get(buffer.data(), kChunk) > 0) {
    }
  });
  std::vector<char> chunk(kChunk, 'q');
  for (auto _ : state) {
    for (int sent = 0; sent < kChunk;) sent += client.put(chunk.data() + sent, kChunk - sent);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kChunk);
  client.shutdownWrite();
  reader.join();
}
BENCHMARK(BM_TCPPutGet64K)->UseRealTime();

// Binds fd to 127.0.0.1 on a port the kernel chooses; returns that address.
sockaddr_in bindLoopback(int fd) {
  sockaddr_in address;
  std::memset(&address, 0, sizeof address);
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
  socklen_t length = sizeof address;
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
  return address;
}

// The same transfer with socket/connect/accept/send/recv by hand.
void BM_RawSendRecv64K(benchmark::State& state) {
  const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = bindLoopback(listener);
  ::listen(listener, 1);
  const int client = ::socket(AF_INET, SOCK_STREAM, 0);
  ::connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address);
  const int accepted = ::accept(listener, nullptr, nullptr);
  std::thread reader([&] {
    std::vector<char> buffer(kChunk);
    while (::recv(accepted, buffer.data(), kChunk, 0) > 0) {
    }
  });
  std::vector<char> chunk(kChunk, 'q');
  for (auto _ : state) {
    for (ssize_t sent = 0; sent < kChunk;) sent += ::send(client, chunk.data() + sent, kChunk - sent, 0);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kChunk);
  ::shutdown(client, SHUT_WR);
  reader.join();
  ::close(client);
  ::close(accepted);
  ::close(listener);
}
BENCHMARK(BM_RawSendRecv64K)->UseRealTime();

void BM_TCPConnectAccept(benchmark::State& state) {
  TCPServerSocket server(loopback(), false);
  const TCPConnectingAddress address("127.0.0.1", server.selfAddress().port());
  for (auto _ : state) {
    TCPClientSocket client(address, true, false);
    ATCPIOSocket accepted = server.accept(0);
    client.enableForcefulClose();  // no TIME_WAIT pile-up across iterations
  }
}
BENCHMARK(BM_TCPConnectAccept)->UseRealTime();

void BM_UDPSendReceive(benchmark::State& state) {
  const UDPBindingAddress any(AINETAddress::Handle(impl::inet::newBindingAddress("127.0.0.1", "0", AF_INET, impl::inet::UDP)));
  UDPSocket sender(any, UDPSocket::kNone, false);
  UDPSocket receiver(any, UDPSocket::kNone, false);
  const UDPPeerAddress to = sender.newPeerAddressAt("127.0.0.1", receiver.selfAddress().port());
  UDPPeerAddress from = receiver.newPeerAddress();
  char datagram[512] = {};
  for (auto _ : state) {
    sender.send(datagram, sizeof datagram, to);
    receiver.receive(datagram, sizeof datagram, from, 0, false);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_UDPSendReceive);

void BM_RawSendtoRecvfrom(benchmark::State& state) {
  const int sender = ::socket(AF_INET, SOCK_DGRAM, 0);
  const int receiver = ::socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in address = bindLoopback(receiver);
  char datagram[512] = {};
  sockaddr_in from;
  for (auto _ : state) {
    ::sendto(sender, datagram, sizeof datagram, 0, reinterpret_cast<sockaddr*>(&address), sizeof address);
    socklen_t fromLength = sizeof from;
    ::recvfrom(receiver, datagram, sizeof datagram, 0, reinterpret_cast<sockaddr*>(&from), &fromLength);
  }
  state.SetItemsProcessed(state.iterations());
  ::close(sender);
  ::close(receiver);
}
BENCHMARK(BM_RawSendtoRecvfrom);

}  // namespace
