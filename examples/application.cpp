// A program in the application frame: its start task works until the stop
// task (SIGINT, SIGQUIT, SIGTERM) says so; SIGHUP and SIGTSTP run the
// interrupt task. Without arguments it stops itself after a few rounds.
//
// The tasks run inside the frame's signal handler, which holds a lock of the
// atomic pool, and this program's main thread takes locks of that pool
// (App::init, App::self): a signal taken by the main thread while it holds
// one would hang the program. So the main thread blocks the frame's signals
// and a thread that only waits takes them.
//
//   application [--forever]
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <iostream>

#include <quorel/quorel.h>

using namespace quorel::sal;

namespace {

std::atomic<bool> stopping(false);
std::atomic<int> interrupts(0);
bool forever = false;
exec::CVOneShot finished;  // lets the signal thread go

int work() {
  exec::CondVar pause;
  for (int round = 1; !stopping.load(); ++round) {
    pause.lock();
    pause.waitFor(100);  // a tenth of a second of "work"
    pause.unlock();
    // To the process, not to this thread (raise), which blocks them.
    if (!forever && round == 3) ::kill(::getpid(), SIGHUP);   // the interrupt task runs
    if (!forever && round == 5) ::kill(::getpid(), SIGTERM);  // the stop task runs
  }
  std::cout << exec::App::self().name() << " " << exec::App::self().version().asString() << ": stopped after "
            << interrupts.load() << " interrupt(s)\n";
  return 0;
}
// The tasks run in signal context: they only touch lock-free atomics.
int stop() {
  stopping.store(true);
  return 0;
}
int interrupt() {
  interrupts.fetch_add(1);
  return 0;
}
// The signal thread: created before the main thread blocks the signals, it
// keeps them unblocked, and waits.
int takeSignals() {
  finished.wait();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    exec::Thread signals(exec::TaskHandle(new exec::FunctionDispatchTask(takeSignals)), 0, 0);
    signals.start();
    sigset_t frame;
    sigemptyset(&frame);
    for (int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGTSTP}) sigaddset(&frame, signal);
    ::pthread_sigmask(SIG_BLOCK, &frame, nullptr);

    exec::App::init(exec::App::Context(exec::ARunContext::newAppContext(
        "application", "an example of the application frame", quorel::util::Version("1.0.0"), argc, argv,
        exec::TaskHandle(new exec::FunctionDispatchTask(work)), exec::TaskHandle(new exec::FunctionDispatchTask(stop)),
        exec::TaskHandle(new exec::FunctionDispatchTask(interrupt)))));
    for (const std::string& arg : exec::App::self().argVector()) forever = forever || arg == "--forever";
    const int result = exec::App::self().run();
    finished.trigger();
    signals.wait();
    return result;
  } catch (const quorel::Exception& e) {
    std::cerr << e.asSimpleString() << "\n";
    return 1;
  }
}
