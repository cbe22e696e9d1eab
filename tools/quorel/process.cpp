// quorel run and quorel lock: programs started through Process.
//
//   quorel run [--detach] [--cwd DIR] [--env K=V]... PROGRAM ARGS...
//   quorel lock NAME PROGRAM ARGS...
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <exception>
#include <iostream>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <quorel/quorel.h>

#include "command.h"

namespace tool {

namespace {

namespace exec = quorel::sal::exec;

// The child that a signal to the tool ends (SIGKILL: the child starts with
// every signal blocked, so nothing gentler would reach it). The signal is
// taken on another thread than the launching one, hence the atomics; a signal
// that comes before the child is known is remembered and acted on once it is.
std::atomic<exec::Process*> running{nullptr};
std::atomic<bool> stopAsked{false};

// What the start task launches, and how it ended. The process object lives
// as long as the frame, so a signal handler never reaches a destroyed one.
struct Launch {
  const std::string& program;
  const exec::Process::ArgList& args;
  const exec::LaunchProperty& lp;
  std::optional<exec::Process> process;
  int code;
  std::exception_ptr failure;
};
Launch* launch = nullptr;

// The start task: it runs with the frame's handlers in place, so no signal
// between the launch and the wait can end the tool and leave the child running.
int launchAndWaitForChild() {
  try {
    exec::Process& child = launch->process.emplace(exec::Process::create(launch->program, launch->args, launch->lp));
    running = &child;
    if (stopAsked) child.die();
    launch->code = child.wait();
  } catch (...) {
    launch->failure = std::current_exception();
  }
  running = nullptr;
  return 0;
}

int endChild() {
  exec::Process* child = running;
  if (child != nullptr) {
    child->die();
  } else {
    stopAsked = true;
  }
  return 0;
}

// The frame runs its tasks in its signal handler under a lock of the atomic
// pool, and this thread takes locks of that pool (App::init, App::self, the
// frame's own): a signal taken here while it holds one would hang the tool.
// So, for its lifetime, the frame's signals are blocked in the creating
// thread and taken by a thread of their own, which only waits (it keeps the
// mask the creating thread had).
class SignalTaker {
 public:
  SignalTaker() : taker_(exec::TaskHandle(new Waiter(done_)), 0, 0) {
    taker_.start();
    sigset_t frame;
    sigemptyset(&frame);
    for (int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGTSTP}) sigaddset(&frame, signal);
    ::pthread_sigmask(SIG_BLOCK, &frame, &previous_);
  }
  ~SignalTaker() {
    done_.trigger();
    taker_.wait();
    ::pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
  }
  SignalTaker(const SignalTaker&) = delete;
  SignalTaker& operator=(const SignalTaker&) = delete;

 private:
  class Waiter : public exec::i::Task {
   public:
    explicit Waiter(const exec::CVOneShot& done) : done_(done) {}
    int run() override {
      done_.wait();
      return 0;
    }

   private:
    exec::CVOneShot done_;
  };

  exec::CVOneShot done_;
  exec::Thread taker_;
  sigset_t previous_;
};

// Starts program with args and this process's environment (vars win), waits
// for it with SIGINT/SIGTERM/SIGQUIT passed on, and reports how it ended.
int launchAndWait(const std::string& program, const exec::Process::ArgList& args,
                  const std::map<std::string, std::string>& vars, const std::string& directory, bool detach) {
  // Spawned: the launch costs the same from a tool that has grown large, and
  // a program that cannot be started (a missing --cwd, a file that is not
  // executable) is reported as this tool's failure.
  exec::LaunchProperty lp;
  lp.hint(exec::op::Spawn()).set(exec::op::EnvVars(vars)).set(exec::op::EnvVars(exec::Process::envVars()));
  if (!directory.empty()) lp.set(exec::op::WorkingDirectory(directory));
  if (detach) {
    lp.hint(exec::op::Detach());
    exec::Process::create(program, args, lp);
    std::cout << "started " << program << " detached\n";
    return 0;
  }
  const SignalTaker signals;
  Launch child{program, args, lp, std::nullopt, 0, nullptr};
  launch = &child;
  exec::TaskHandle start(new exec::FunctionDispatchTask(launchAndWaitForChild));
  exec::TaskHandle stop(new exec::FunctionDispatchTask(endChild));
  exec::App::init(exec::App::Context(exec::ARunContext::newAppContext(
      "quorel", "runs a program", quorel::util::Version("1"), 0, nullptr, start, stop, stop)));
  exec::App::self().run();
  launch = nullptr;
  if (child.failure) std::rethrow_exception(child.failure);
  if (child.code < 0) {
    std::cerr << "quorel: " << program << " was ended by a signal\n";
    return 1;
  }
  return child.code;
}

}  // namespace

int run(const std::vector<std::string>& args) {
  std::map<std::string, std::string> vars;
  std::string directory;
  bool detach = false;
  size_t i = 0;
  for (; i < args.size() && !args[i].empty() && args[i][0] == '-'; ++i) {
    const std::string& a = args[i];
    if (a == "--detach") {
      detach = true;
    } else if (a == "--cwd" || a == "--env") {
      if (++i == args.size()) throw UsageError{a + " needs a value"};
      if (a == "--cwd") {
        directory = args[i];
      } else {
        const size_t equals = args[i].find('=');
        if (equals == std::string::npos || equals == 0) throw UsageError{"--env takes NAME=VALUE, not '" + args[i] + "'"};
        vars[args[i].substr(0, equals)] = args[i].substr(equals + 1);
      }
    } else if (a == "--") {
      ++i;
      break;
    } else {
      throw UsageError{"unknown option '" + a + "'"};
    }
  }
  if (i == args.size()) throw UsageError{"run takes a PROGRAM"};
  const exec::Process::ArgList programArgs(args.begin() + static_cast<long>(i) + 1, args.end());
  return launchAndWait(args[i], programArgs, vars, directory, detach);
}

int lock(const std::vector<std::string>& args) {
  if (args.size() < 2) throw UsageError{"lock takes NAME and a PROGRAM"};
  // The only object of this name in the tool: a second one would release the
  // process's record lock when it went.
  exec::NamedMutex mutex(args[0]);
  mutex.lock();
  int code;
  try {
    code = launchAndWait(args[1], exec::Process::ArgList(args.begin() + 2, args.end()), {}, "", false);
  } catch (...) {
    mutex.unlock();
    throw;
  }
  mutex.unlock();
  return code;
}

}  // namespace tool
