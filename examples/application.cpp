// A program in the application frame: its start task works until the stop
// task (SIGINT, SIGQUIT, SIGTERM) says so; SIGHUP and SIGTSTP run the
// interrupt task. Without arguments it stops itself after a few rounds.
//
//   application [--forever]
#include <signal.h>

#include <atomic>
#include <cstring>
#include <iostream>

#include <quorel/quorel.h>

using namespace quorel::sal;

namespace {

std::atomic<bool> stopping(false);
std::atomic<int> interrupts(0);
bool forever = false;

int work() {
  exec::CondVar pause;
  for (int round = 1; !stopping.load(); ++round) {
    pause.lock();
    pause.waitFor(100);  // a tenth of a second of "work"
    pause.unlock();
    if (!forever && round == 3) ::raise(SIGHUP);   // the interrupt task runs
    if (!forever && round == 5) ::raise(SIGTERM);  // the stop task runs
  }
  std::cout << exec::App::self().name() << " " << exec::App::self().version().asString() << ": stopped after "
            << interrupts.load() << " interrupt(s)\n";
  return 0;
}
int stop() {
  stopping.store(true);
  return 0;
}
int interrupt() {
  interrupts.fetch_add(1);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    exec::App::init(exec::App::Context(exec::ARunContext::newAppContext(
        "application", "an example of the application frame", quorel::util::Version("1.0.0"), argc, argv,
        exec::TaskHandle(new exec::FunctionDispatchTask(work)), exec::TaskHandle(new exec::FunctionDispatchTask(stop)),
        exec::TaskHandle(new exec::FunctionDispatchTask(interrupt)))));
    for (const std::string& arg : exec::App::self().argVector()) forever = forever || arg == "--forever";
    return exec::App::self().run();
  } catch (const quorel::Exception& e) {
    std::cerr << e.asSimpleString() << "\n";
    return 1;
  }
}
