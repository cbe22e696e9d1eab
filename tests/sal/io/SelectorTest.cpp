// The selector: readiness of sockets and pipes past FD_SETSIZE, wake-ups,
// signals during a wait, and endpoints removed or closed while ready.
#include <pthread.h>
#include <signal.h>
#include <sys/select.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

#include "support/expect.h"
#include "support/fault.h"
#include "support/loopback.h"
#include "support/process.h"

namespace quorel {
namespace {

using namespace sal::io;
namespace xio = sal::xio;
namespace select = sal::io::i::select;
using sal::i::err::domain::kApplication;
using sal::i::err::domain::kSystemCall;

xio::Pipe newPipe() { return xio::Pipe(xio::open::Spec(), xio::open::Spec()); }

// Everything one wait hands out.
std::vector<Selector::Ready> readyAfter(Selector& selector, unsigned long long milliseconds) {
  std::vector<Selector::Ready> all;
  selector.waitFor(milliseconds);
  Selector::Ready ready;
  while (selector.next(ready)) all.push_back(ready);
  return all;
}

TEST(Selector, ServesMoreSocketsThanSelectCanHold) {
  const test::DescriptorLimit limit(2 * 2000 + 64);
  if (!limit.ok()) GTEST_SKIP() << "needs 4064 descriptors; RLIMIT_NOFILE allows " << limit.hardLimit();
  {
    TCPServerSocket server(test::loopbackBinding(AF_INET), false);
    const TCPConnectingAddress to("127.0.0.1", server.selfAddress().port());
    std::vector<TCPClientSocket> clients;
    std::vector<ATCPIOSocket> served;
    Selector selector;
    for (int k = 0; k < 2000; ++k) {
      clients.emplace_back(to, true, false);
      served.push_back(server.accept(5000));
      selector.add(served.back(), select::kRead, reinterpret_cast<void*>(static_cast<intptr_t>(k)));
      const unsigned char byte = static_cast<unsigned char>(k);
      ASSERT_EQ(clients.back().put(&byte, 1), 1);
    }
    EXPECT_GT(served.back().id(), static_cast<unsigned long long>(FD_SETSIZE));
    EXPECT_EQ(selector.size(), 2000);
    std::vector<bool> seen(2000, false);
    int count = 0;
    while (count < 2000 && selector.waitFor(5000) > 0) {
      Selector::Ready ready;
      while (selector.next(ready)) {
        const int k = static_cast<int>(reinterpret_cast<intptr_t>(ready.context));
        unsigned char byte = 0;
        ASSERT_EQ(served[k].get(&byte, 1), 1);
        EXPECT_EQ(byte, static_cast<unsigned char>(k));
        EXPECT_EQ(ready.id, served[k].id());
        EXPECT_FALSE(seen[k]);
        seen[k] = true;
        ++count;
      }
    }
    EXPECT_EQ(count, 2000);
  }
}

TEST(Selector, ReportsBothEndsOfAPipeAndChangesInterest) {
  xio::Pipe pipe = newPipe();
  Selector selector;
  int readEnd = 0, writeEnd = 0;
  selector.add(pipe.forRead(), select::kRead, &readEnd);
  selector.add(pipe.forWrite(), select::kWrite, &writeEnd);
  std::vector<Selector::Ready> ready = readyAfter(selector, 0);
  ASSERT_EQ(ready.size(), 1u);  // room to write, nothing to read
  EXPECT_EQ(ready[0].context, &writeEnd);
  EXPECT_EQ(ready[0].events, select::kWrite);
  EXPECT_EQ(ready[0].id, pipe.forWrite().id());

  xio::Channel(pipe.forWrite()).write("x", 1);
  selector.change(pipe.forWrite(), 0);
  ready = readyAfter(selector, 1000);
  ASSERT_EQ(ready.size(), 1u);
  EXPECT_EQ(ready[0].context, &readEnd);
  EXPECT_EQ(ready[0].events, select::kRead);

  // The writer gone: the reader hangs up.
  pipe.forWrite().close();
  ready = readyAfter(selector, 1000);
  ASSERT_EQ(ready.size(), 1u);
  EXPECT_EQ(ready[0].events & select::kHangUp, select::kHangUp);
  EXPECT_EQ(selector.size(), 1);  // the closed end was forgotten

  // Level-triggered by default; edge-triggered reports a change once.
  selector.change(pipe.forRead(), select::kRead | select::kEdge);
  EXPECT_EQ(readyAfter(selector, 0).size(), 1u);
  EXPECT_EQ(readyAfter(selector, 0).size(), 0u);
}

TEST(Selector, WakesFromAnotherThreadAndKeepsAWakeForTheNextWait) {
  Selector selector;
  xio::Pipe pipe = newPipe();
  selector.add(pipe.forRead(), select::kRead);
  selector.wake();
  EXPECT_EQ(selector.wait(), 0);  // at once: the wake was kept

  std::atomic<bool> returned{false};
  std::thread waiter([&] {
    Selector copy = selector;  // copies share the selector
    copy.wait();
    returned = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(returned.load());
  selector.wake();
  waiter.join();
  EXPECT_TRUE(returned.load());
}

void ignore(int) {}

TEST(Selector, ASignalNeitherEndsTheWaitEarlyNorLosesAnEvent) {
  struct sigaction action = {}, previous = {};
  action.sa_handler = ignore;  // no SA_RESTART: epoll_wait fails with EINTR
  ASSERT_EQ(::sigaction(SIGUSR1, &action, &previous), 0);
  xio::Pipe pipe = newPipe();
  Selector selector;
  selector.add(pipe.forRead(), select::kRead);
  const pthread_t waiter = ::pthread_self();
  std::atomic<bool> stop{false};
  std::thread signaller([&] {
    while (!stop) {
      ::pthread_kill(waiter, SIGUSR1);
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  });
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(selector.waitFor(200), 0);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));

  std::thread writer([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    xio::Channel(pipe.forWrite()).write("x", 1);
  });
  EXPECT_EQ(selector.waitFor(5000), 1);
  writer.join();
  stop = true;
  signaller.join();
  ::sigaction(SIGUSR1, &previous, nullptr);
}

TEST(Selector, NeverReportsAnEndpointRemovedOrClosedAfterTheWaitNorItsSuccessor) {
  test::Connection a, b;
  Selector selector;
  int contextA = 0, contextB = 0, contextC = 0;
  selector.add(a.accepted, select::kRead, &contextA);
  selector.add(b.accepted, select::kRead, &contextB);
  a.client.put("x", 1);
  b.client.put("y", 1);
  EXPECT_EQ(selector.waitFor(5000), 2);
  const unsigned long long closedId = b.accepted.id();
  EXPECT_TRUE(selector.remove(a.accepted));
  EXPECT_FALSE(selector.remove(a.accepted));
  b.accepted.close();
  // A new endpoint given the closed one's number, registered before the
  // collected readiness is handed out, is not mistaken for it.
  xio::Pipe pipe = newPipe();
  ASSERT_EQ(pipe.forRead().id(), closedId);
  selector.add(pipe.forRead(), select::kRead, &contextC);
  Selector::Ready ready;
  EXPECT_FALSE(selector.next(ready));
  EXPECT_EQ(selector.size(), 1);
  EXPECT_EQ(readyAfter(selector, 0).size(), 0u);
  xio::Channel(pipe.forWrite()).write("z", 1);
  const std::vector<Selector::Ready> all = readyAfter(selector, 1000);
  ASSERT_EQ(all.size(), 1u);
  EXPECT_EQ(all[0].context, &contextC);

  // An endpoint whose last copy goes is forgotten too.
  {
    xio::Pipe transient = newPipe();
    selector.add(transient.forRead(), select::kRead);
    EXPECT_EQ(selector.size(), 2);
  }
  EXPECT_EQ(readyAfter(selector, 0).size(), 1u);
  EXPECT_EQ(selector.size(), 1);
}

TEST(Selector, APeerClosingMidMessageIsReadThenEnds) {
  test::Connection c;
  Selector selector;
  selector.add(c.accepted, select::kRead);
  c.client.put("half", 4);
  c.client.close();
  std::vector<Selector::Ready> ready = readyAfter(selector, 5000);
  ASSERT_EQ(ready.size(), 1u);
  char buffer[8];
  EXPECT_EQ(c.accepted.get(buffer, sizeof buffer), 4);
  EXPECT_EQ(c.accepted.get(buffer, sizeof buffer), 0);
  ready = readyAfter(selector, 5000);
  ASSERT_EQ(ready.size(), 1u);
  EXPECT_NE(ready[0].events & select::kRead, 0u);
}

TEST(Selector, MisuseAndFailedCallsThrowAndLeaveNoDescriptor) {
  const int before = test::openDescriptorCount();
  QUOREL_EXPECT_FAULT("epoll_create1", EMFILE, Selector(), xio::SocketException, "::epoll_create1() failed",
                      kSystemCall, EMFILE);
  QUOREL_EXPECT_FAULT("eventfd", ENFILE, Selector(), xio::SocketException, "::eventfd() failed", kSystemCall,
                      ENFILE);
  const int first = ::dup(0), second = ::dup(0);  // the numbers the selector's two descriptors get
  ::close(first);
  ::close(second);
  QUOREL_EXPECT_FAULT("epoll_ctl", ENOMEM, Selector(), xio::SocketException,
                      "::epoll_ctl(ADD, " + std::to_string(second) + ") failed", kSystemCall, ENOMEM);
  EXPECT_EQ(test::openDescriptorCount(), before);

  Selector selector;
  xio::Pipe pipe = newPipe();
  const std::string fd = std::to_string(pipe.forRead().id());
  selector.add(pipe.forRead(), select::kRead);
  QUOREL_EXPECT_THROW(selector.add(pipe.forRead(), select::kRead), xio::SocketException,
                      "::epoll_ctl(ADD, " + fd + ") failed", kSystemCall, EEXIST);
  QUOREL_EXPECT_FAULT("epoll_ctl", ENOMEM, selector.change(pipe.forRead(), select::kWrite), xio::SocketException,
                      "::epoll_ctl(MOD, " + fd + ") failed", kSystemCall, ENOMEM);
  QUOREL_EXPECT_FAULT("epoll_wait", EBADF, selector.waitFor(0), xio::SocketException, "::epoll_wait() failed",
                      kSystemCall, EBADF);
  QUOREL_EXPECT_THROW(selector.change(pipe.forWrite(), select::kWrite), InvalidArgumentException,
                      "the endpoint is not registered with this selector", kApplication, 0);
  QUOREL_EXPECT_THROW(selector.add(xio::Endpoint::open("memory", &selector, 4), select::kRead),
                      InvalidArgumentException, "the endpoint is closed or has no descriptor", kApplication, 0);
  pipe.forWrite().close();
  QUOREL_EXPECT_THROW(selector.add(pipe.forWrite(), select::kWrite), InvalidArgumentException,
                      "the endpoint is closed or has no descriptor", kApplication, 0);
  // The refused change left the interest as it was: nothing to read yet.
  EXPECT_EQ(readyAfter(selector, 0).size(), 1u);  // the hang-up only
}

}  // namespace
}  // namespace quorel
