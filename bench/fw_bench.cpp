// The inbound firewall chain: adding and removing 100 rules through
// fw::Chain against the same iptables invocations from a shell loop, and
// the same rules in one batch per operation. It runs in a network namespace
// of its own (the process unshares it before anything else), so the host's
// tables are never touched; it needs root and iptables.
//
//   build/i386/bench/quorel_fw_bench [--benchmark_repetitions=5]
#include <sched.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <list>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include <quorel/quorel.h>

extern char** environ;

namespace {

namespace fw = quorel::sal::inet::fw;
using quorel::sal::inet::Address;

const int kRules = 100;
const int kFirstPort = 1000;

// Rule i: accept TCP to port 1000 + i from any IPv4 source, written as the
// shell loop writes it ("-s 0.0.0.0/0 -p tcp --dport P -j ACCEPT"), so
// that both make the same iptables invocations.
std::list<fw::DynamicRule> rules() {
  std::list<fw::DynamicRule> result;
  const Address any("0.0.0.0", quorel::sal::inet::i::family::kIPv4);
  for (int n = 0; n < kRules; ++n) {
    const int port = kFirstPort + n;
    result.emplace_back(fw::i::action::kAccept, fw::i::protocol::kTCP, port, port, any, 0);
  }
  return result;
}

// Runs argv (found on PATH) and returns its exit status, -1 when it did not run.
int spawn(const std::vector<std::string>& argv) {
  std::vector<char*> args;
  for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
  args.push_back(nullptr);
  pid_t pid;
  if (::posix_spawnp(&pid, args[0], nullptr, nullptr, args.data(), environ) != 0) return -1;
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void BM_ChainAddRemoveOneByOne(benchmark::State& state) {
  fw::Chain chain;
  const std::list<fw::DynamicRule> all = rules();
  for (auto _ : state) {
    for (const fw::DynamicRule& rule : all) chain.add(rule);
    for (const fw::DynamicRule& rule : all) chain.remove(rule);
  }
  state.counters["runs"] = benchmark::Counter(2.0 * kRules * state.iterations(), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_ChainAddRemoveOneByOne)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ShellLoopAddRemove(benchmark::State& state) {
  const std::string range = "$(seq " + std::to_string(kFirstPort) + " " + std::to_string(kFirstPort + kRules - 1) + ")";
  const std::string rule = " quorel.inet.fw.inbound -s 0.0.0.0/0 -p tcp --dport $p -j ACCEPT";
  const std::string script = "for p in " + range + "; do iptables -w 5 -A" + rule + " || exit 1; done; for p in " +
                             range + "; do iptables -w 5 -D" + rule + " || exit 1; done";
  for (auto _ : state) {
    if (spawn({"sh", "-c", script}) != 0) {
      state.SkipWithError("the shell loop failed");
      break;
    }
  }
  state.counters["runs"] = benchmark::Counter(2.0 * kRules * state.iterations(), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_ShellLoopAddRemove)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ChainAddRemoveInOneBatch(benchmark::State& state) {
  fw::Chain chain;
  const std::list<fw::DynamicRule> all = rules();
  for (auto _ : state) {
    chain.add(all);
    chain.remove(all);
  }
}
BENCHMARK(BM_ChainAddRemoveInOneBatch)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  // A namespace of the process's own: the benchmarks run in this thread.
  if (::unshare(CLONE_NEWNET) != 0) {
    std::fprintf(stderr, "quorel_fw_bench: ::unshare(CLONE_NEWNET) failed: %s (it needs root)\n",
                 std::strerror(errno));
    return 77;
  }
  try {
    fw::Chain().install();
  } catch (const quorel::Exception& e) {
    std::fprintf(stderr, "quorel_fw_bench: %s\n", e.asSimpleString().c_str());
    return 77;
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
