// Integers through the binary buffers against memcpy with htonl/ntohl into a
// plain array: 1024 network-order 32-bit integers a round, put into an empty
// buffer (its block already large enough) or got from one just filled.
#include <arpa/inet.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include <benchmark/benchmark.h>

#include <quorel/quorel.h>

namespace {

using quorel::pod::uint32;
using namespace quorel::sal::io;

const int kCount = 1024;

std::vector<uint32> values() {
  std::vector<uint32> v(kCount);
  for (int i = 0; i < kCount; ++i) v[i] = static_cast<uint32>(i) * 2654435761u;
  return v;
}

void BM_BufferPut32(benchmark::State& state) {
  const std::vector<uint32> v = values();
  BinaryOutputBuffer out(kCount * sizeof(uint32));
  for (auto _ : state) {
    out.clear();
    for (int i = 0; i < kCount; ++i) out.put<uint32>(v[i]);
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}
BENCHMARK(BM_BufferPut32);

void BM_ArrayPut32(benchmark::State& state) {
  const std::vector<uint32> v = values();
  std::vector<unsigned char> array(kCount * sizeof(uint32));
  for (auto _ : state) {
    std::size_t at = 0;
    for (int i = 0; i < kCount; ++i) {
      const uint32 n = htonl(v[i]);
      std::memcpy(array.data() + at, &n, sizeof n);
      at += sizeof n;
    }
    benchmark::DoNotOptimize(array.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}
BENCHMARK(BM_ArrayPut32);

void BM_BufferGet32(benchmark::State& state) {
  const std::vector<uint32> v = values();
  BinaryInputBuffer in(kCount * sizeof(uint32));
  for (auto _ : state) {
    in.append(v.data(), kCount * sizeof(uint32));
    uint32 sum = 0;
    for (int i = 0; i < kCount; ++i) sum += in.get<uint32>();
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}
BENCHMARK(BM_BufferGet32);

void BM_ArrayGet32(benchmark::State& state) {
  const std::vector<uint32> v = values();
  std::vector<unsigned char> array(kCount * sizeof(uint32));
  for (auto _ : state) {
    std::memcpy(array.data(), v.data(), kCount * sizeof(uint32));
    benchmark::ClobberMemory();
    uint32 sum = 0;
    std::size_t at = 0;
    for (int i = 0; i < kCount; ++i) {
      uint32 n;
      std::memcpy(&n, array.data() + at, sizeof n);
      at += sizeof n;
      sum += ntohl(n);
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}
BENCHMARK(BM_ArrayGet32);

}  // namespace
