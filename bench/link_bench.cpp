// Enumerating 200 links with their addresses: Link::list() against
// getifaddrs(), the call users would otherwise pick, in a network namespace
// of the benchmark's own holding 100 veth pairs with an IPv4 and an IPv6
// address each (needs root and iproute2; says why when it cannot run).
//
//   quorel_link_bench [benchmark options]
#include <ifaddrs.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include <benchmark/benchmark.h>

#include <quorel/quorel.h>

namespace {

namespace inet = quorel::sal::inet;

constexpr int kPairs = 100;

// Makes the namespace and its links; an empty text when it worked.
std::string prepare() {
  if (::unshare(CLONE_NEWNET) != 0) return std::string("cannot make a network namespace: ") + std::strerror(errno);
  char path[] = "/tmp/quorel-link-bench-XXXXXX";
  const int fd = ::mkstemp(path);
  if (fd < 0) return "cannot make a temporary file";
  ::close(fd);
  {
    std::ofstream batch(path);
    batch << "link set lo up\n";
    for (int i = 0; i < kPairs; ++i) {
      batch << "link add qa" << i << " type veth peer name qb" << i << "\n"
            << "addr add 10." << i / 250 << "." << i % 250 << ".1/24 dev qa" << i << "\n"
            << "addr add 2001:db8:" << i << "::1/64 dev qb" << i << " nodad\n";
    }
  }
  const int status = std::system(("ip -batch " + std::string(path) + " >/dev/null 2>&1").c_str());
  ::unlink(path);
  return status == 0 ? std::string() : "ip -batch failed (is iproute2 installed?)";
}

void BM_LinkList(benchmark::State& state) {
  size_t addresses = 0;
  for (auto _ : state) {
    const std::vector<inet::Link> links = inet::Link::list();
    addresses = 0;
    for (const inet::Link& link : links) addresses += link.addresses().size();
    benchmark::DoNotOptimize(addresses);
  }
  state.counters["addresses"] = static_cast<double>(addresses);
}
BENCHMARK(BM_LinkList)->Unit(benchmark::kMicrosecond);

// The same facts from getifaddrs: each entry visited, addresses counted.
void BM_Getifaddrs(benchmark::State& state) {
  size_t addresses = 0;
  for (auto _ : state) {
    ifaddrs* entries = nullptr;
    if (::getifaddrs(&entries) != 0) {
      state.SkipWithError("getifaddrs failed");
      break;
    }
    addresses = 0;
    for (const ifaddrs* e = entries; e != nullptr; e = e->ifa_next) {
      if (e->ifa_addr != nullptr && (e->ifa_addr->sa_family == AF_INET || e->ifa_addr->sa_family == AF_INET6))
        ++addresses;
    }
    ::freeifaddrs(entries);
    benchmark::DoNotOptimize(addresses);
  }
  state.counters["addresses"] = static_cast<double>(addresses);
}
BENCHMARK(BM_Getifaddrs)->Unit(benchmark::kMicrosecond);

void BM_NetworkList(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(inet::Network::list());
}
BENCHMARK(BM_NetworkList)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
  const std::string why = prepare();
  if (!why.empty()) {
    std::fprintf(stderr, "quorel_link_bench: skipped: %s\n", why.c_str());
    return 0;
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
