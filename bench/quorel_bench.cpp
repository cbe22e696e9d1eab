// Costs of the foundation against what users would otherwise write.
#include <time.h>

#include <atomic>
#include <memory>

#include <benchmark/benchmark.h>

#include <quorel/quorel.h>

namespace {

struct Payload {
  int value = 0;
};

typedef quorel::util::AHandleTo<Payload, quorel::sal::AtomicCounter> Handle;

// One copy and one drop of a shared handle (two atomic read-modify-writes).
void BM_AHandleToCopyDrop(benchmark::State& state) {
  Handle original(new Payload);
  for (auto _ : state) {
    Handle copy(original);
    benchmark::DoNotOptimize(copy);
  }
}
BENCHMARK(BM_AHandleToCopyDrop)->ThreadRange(1, 2);

void BM_SharedPtrCopyDrop(benchmark::State& state) {
  auto original = std::make_shared<Payload>();
  for (auto _ : state) {
    std::shared_ptr<Payload> copy(original);
    benchmark::DoNotOptimize(copy);
  }
}
BENCHMARK(BM_SharedPtrCopyDrop)->ThreadRange(1, 2);

int counter = 0;
std::atomic<int> stdCounter{0};

void BM_AtomicAdd(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(quorel::sal::atomic::add(counter, 1));
}
BENCHMARK(BM_AtomicAdd)->ThreadRange(1, 2);

void BM_StdAtomicFetchAdd(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(stdCounter.fetch_add(1));
}
BENCHMARK(BM_StdAtomicFetchAdd)->ThreadRange(1, 2);

void BM_TickNow(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(quorel::sal::time::tick::now());
}
BENCHMARK(BM_TickNow);

void BM_RawClockGettime(benchmark::State& state) {
  for (auto _ : state) {
    timespec ts;
    ::clock_gettime(CLOCK_MONOTONIC, &ts);
    benchmark::DoNotOptimize(ts);
  }
}
BENCHMARK(BM_RawClockGettime);

void BM_MicroNow(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(quorel::sal::time::micro::now());
}
BENCHMARK(BM_MicroNow);

}  // namespace
