// Launching /bin/true and waiting for it from a parent with 16 MiB and then
// with 1 GiB of touched memory: Process::create with op::Spawn against
// posix_spawn + waitpid, plain and with the standard output read through a
// pipe until its end, and the default fork launch for reference. Each case is
// timed in batches interleaved with its anchor's (the order alternating from
// round to round), and the median of the rounds' times a launch is printed
// with the ratio of the two.
//
//   build/i386/bench/quorel_launch_bench [--rounds N] [--launches N] [--fork-launches N]
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <quorel/quorel.h>

namespace {

namespace exec = quorel::sal::exec;
namespace xio = quorel::sal::xio;

char kProgram[] = "/bin/true";
char* kArgv[] = {kProgram, nullptr};
char* kEnvp[] = {nullptr};  // Process::create gives the child no environment either

void check(bool ok, const char* what) {
  if (!ok) {
    std::perror(what);
    std::exit(1);
  }
}

void posixSpawn() {
  pid_t pid;
  check(::posix_spawn(&pid, kProgram, nullptr, nullptr, kArgv, kEnvp) == 0, "posix_spawn");
  int status;
  check(::waitpid(pid, &status, 0) == pid, "waitpid");
}

void posixSpawnThroughAPipe() {
  int ends[2];
  check(::pipe2(ends, O_CLOEXEC) == 0, "pipe2");
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
  pid_t pid;
  check(::posix_spawn(&pid, kProgram, &actions, nullptr, kArgv, kEnvp) == 0, "posix_spawn");
  ::posix_spawn_file_actions_destroy(&actions);
  ::close(ends[1]);
  char buffer[256];
  while (::read(ends[0], buffer, sizeof buffer) > 0) {
  }
  ::close(ends[0]);
  int status;
  check(::waitpid(pid, &status, 0) == pid, "waitpid");
}

exec::LaunchProperty property(bool spawn) {
  exec::LaunchProperty lp;
  lp.hint(exec::op::Spawn(spawn));
  return lp;
}

void create(const exec::LaunchProperty& lp) { exec::Process::create(kProgram, {}, lp).wait(); }

void createThroughAPipe(bool spawn) {
  xio::Pipe pipe{xio::open::Spec(), xio::open::Spec()};
  exec::LaunchProperty lp = property(spawn);
  lp.set(exec::op::StdOutput(pipe.forWrite()));
  exec::Process child = exec::Process::create(kProgram, {}, lp);
  pipe.forWrite().close();
  char buffer[256];
  xio::Channel in(pipe.forRead());
  while (in.read(buffer, static_cast<int>(sizeof buffer)) > 0) {
  }
  child.wait();
}

// Milliseconds a launch, over a batch of launches.
double timeBatch(const std::function<void()>& launch, int launches) {
  const auto start = std::chrono::steady_clock::now();
  for (int n = 0; n < launches; ++n) launch();
  const std::chrono::duration<double, std::milli> spent = std::chrono::steady_clock::now() - start;
  return spent.count() / launches;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const size_t middle = values.size() / 2;
  return values.size() % 2 != 0 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

struct Case {
  const char* name;
  std::function<void()> launch;
  std::function<void()> anchor;
  int launches;
};

void runCases(const char* touched, const std::vector<Case>& cases, int rounds) {
  for (const Case& c : cases) {
    c.launch();  // the first launch of a kind pays for what it loads
    c.anchor();
    std::vector<double> ours, theirs;
    for (int round = 0; round < rounds; ++round) {
      if (round % 2 == 0) {
        ours.push_back(timeBatch(c.launch, c.launches));
        theirs.push_back(timeBatch(c.anchor, c.launches));
      } else {
        theirs.push_back(timeBatch(c.anchor, c.launches));
        ours.push_back(timeBatch(c.launch, c.launches));
      }
    }
    const double a = median(ours), b = median(theirs);
    std::printf("%-8s  %-38s  %9.3f ms  %9.3f ms  %6.2fx\n", touched, c.name, a, b, a / b);
    std::fflush(stdout);
  }
}

// Writes every page of size bytes, which the process then keeps.
char* touch(size_t size) {
  char* memory = static_cast<char*>(std::malloc(size));
  check(memory != nullptr, "malloc");
  std::memset(memory, 1, size);
  return memory;
}

int option(int argc, char** argv, const char* name, int fallback) {
  for (int i = 1; i + 1 < argc; ++i) {
    if (std::strcmp(argv[i], name) == 0) return std::max(1, std::atoi(argv[i + 1]));
  }
  return fallback;
}

}  // namespace

int main(int argc, char** argv) {
  const int rounds = option(argc, argv, "--rounds", 7);
  const int launches = option(argc, argv, "--launches", 200);
  const int forkLaunches = option(argc, argv, "--fork-launches", 40);
  const exec::LaunchProperty spawned = property(true), forked = property(false);
  const std::vector<Case> cases = {
      {"Process op::Spawn / posix_spawn", [&] { create(spawned); }, posixSpawn, launches},
      {"the same, output through a pipe", [] { createThroughAPipe(true); }, posixSpawnThroughAPipe, launches},
      {"Process fork (default) / posix_spawn", [&] { create(forked); }, posixSpawn, forkLaunches},
  };
  std::printf("/bin/true launched and waited for; the median of %d rounds, per launch\n", rounds);
  std::printf("%-8s  %-38s  %12s  %12s  %7s\n", "touched", "case", "quorel", "posix_spawn", "ratio");
  const size_t kMiB = 1024 * 1024;
  std::unique_ptr<char, void (*)(void*)> small(touch(16 * kMiB), std::free);
  runCases("16 MiB", cases, rounds);
  // 1 GiB in all: the 16 MiB and the rest.
  std::unique_ptr<char, void (*)(void*)> large(touch(1024 * kMiB - 16 * kMiB), std::free);
  runCases("1 GiB", cases, rounds);
  return 0;
}
