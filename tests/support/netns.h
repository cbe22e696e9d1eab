// Network namespaces for tests that change links, addresses or firewall
// rules: each Namespace is a thread of its own that moved into a fresh
// network namespace (loopback up), so nothing the test does reaches the
// host's own links or tables, and everything is gone when the namespace's
// last thread and process end.
//
//   QUOREL_NETNS_OR_SKIP();
//   test::netns::Namespace ns;
//   ns.run([] { ... code and programs started here see only ns ... });
#ifndef QUOREL_TESTS_SUPPORT_NETNS_H
#define QUOREL_TESTS_SUPPORT_NETNS_H

#include <fcntl.h>
#include <sched.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <condition_variable>
#include <cstring>
#include <exception>
#include <functional>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

extern char** environ;

namespace quorel {
namespace test {
namespace netns {

// Runs argv (no shell; the program found on PATH) in the calling thread's
// network namespace and returns its exit status (-1 when it could not start
// or a signal ended it); its standard output and error go to *output.
inline int command(const std::vector<std::string>& argv, std::string* output = nullptr) {
  int pipeEnds[2];
  if (::pipe2(pipeEnds, O_CLOEXEC) != 0) return -1;
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], 1);
  ::posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], 2);
  std::vector<char*> args;
  for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
  args.push_back(nullptr);
  pid_t pid = -1;
  const int started = ::posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), environ);
  ::posix_spawn_file_actions_destroy(&actions);
  ::close(pipeEnds[1]);
  std::string text;
  char buffer[4096];
  for (ssize_t n; (n = ::read(pipeEnds[0], buffer, sizeof buffer)) != 0;) {
    if (n > 0) text.append(buffer, static_cast<size_t>(n));
    else if (errno != EINTR) break;
  }
  ::close(pipeEnds[0]);
  if (output != nullptr) *output = text;
  if (started != 0) return -1;
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Runs "ip" with the words of args; a failure is a test failure showing ip's text.
inline bool ip(const std::string& args) {
  std::vector<std::string> argv{"ip"};
  std::istringstream words(args);
  for (std::string word; words >> word;) argv.push_back(word);
  std::string output;
  const int status = command(argv, &output);
  EXPECT_EQ(status, 0) << "ip " << args << ": " << output;
  return status == 0;
}

// A thread in a network namespace of its own; work given to run() executes
// there. Processes started from that work inherit the namespace.
class Namespace {
 public:
  Namespace() : thread_([this] { serve(); }) {
    std::unique_lock<std::mutex> lock(mutex_);
    ready_.wait(lock, [this] { return state_ != kStarting; });
    if (state_ == kFailed) {
      lock.unlock();
      thread_.join();
      throw std::runtime_error(failure_);
    }
  }
  ~Namespace() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      state_ = kEnding;
    }
    ready_.notify_all();
    thread_.join();
  }
  Namespace(const Namespace&) = delete;
  Namespace& operator=(const Namespace&) = delete;

  // Runs work on the namespace's thread and waits for it; an exception it
  // throws is rethrown here.
  void run(const std::function<void()>& work) {
    std::unique_lock<std::mutex> lock(mutex_);
    work_ = &work;
    thrown_ = nullptr;
    ready_.notify_all();
    ready_.wait(lock, [this] { return work_ == nullptr; });
    if (thrown_) std::rethrow_exception(thrown_);
  }

  // The thread's id: "ip link ... netns <tid>" moves a link into this namespace.
  pid_t tid() const { return tid_; }

 private:
  enum State { kStarting, kRunning, kFailed, kEnding };

  void serve() {
    std::unique_lock<std::mutex> lock(mutex_);
    tid_ = static_cast<pid_t>(::syscall(SYS_gettid));
    if (::unshare(CLONE_NEWNET) != 0) {
      failure_ = std::string("cannot make a network namespace: ::unshare(CLONE_NEWNET) failed: ") +
                 std::strerror(errno);
    } else {
      std::string output;
      if (command({"ip", "link", "set", "lo", "up"}, &output) != 0)
        failure_ = "cannot bring the namespace's loopback up with ip (iproute2): " + output;
    }
    state_ = failure_.empty() ? kRunning : kFailed;
    ready_.notify_all();
    while (state_ == kRunning) {
      ready_.wait(lock, [this] { return work_ != nullptr || state_ == kEnding; });
      if (work_ == nullptr) break;
      lock.unlock();
      std::exception_ptr thrown;
      try {
        (*work_)();
      } catch (...) {
        thrown = std::current_exception();
      }
      lock.lock();
      thrown_ = thrown;
      work_ = nullptr;
      ready_.notify_all();
    }
  }

  std::mutex mutex_;
  std::condition_variable ready_;
  State state_ = kStarting;
  std::string failure_;
  const std::function<void()>* work_ = nullptr;
  std::exception_ptr thrown_;
  pid_t tid_ = 0;
  std::thread thread_;  // last: it starts once the rest is ready
};

// Empty when this process can make network namespaces; otherwise why not.
inline std::string unavailable() {
  static const std::string reason = [] {
    if (::geteuid() != 0) return std::string("network namespaces need root");
    try {
      Namespace probe;
    } catch (const std::exception& e) {
      return std::string(e.what());
    }
    return std::string();
  }();
  return reason;
}

}  // namespace netns
}  // namespace test
}  // namespace quorel

// Skips the test, saying why, where network namespaces cannot be made.
#define QUOREL_NETNS_OR_SKIP()                                         \
  do {                                                                 \
    const std::string why = ::quorel::test::netns::unavailable();      \
    if (!why.empty()) GTEST_SKIP() << "skipped: " << why;              \
  } while (0)

#endif
