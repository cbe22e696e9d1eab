// Text conversions, natural sorting and UUID creation against the usual
// alternatives.
#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#ifdef QUOREL_BENCH_LIBUUID
// libuuid's time-based generator.
extern "C" void uuid_generate_time(unsigned char out[16]);
#endif

#include <quorel/quorel.h>

namespace {

void BM_StrFromInt(benchmark::State& state) {
  int i = 0;
  for (auto _ : state) benchmark::DoNotOptimize(quorel::util::str::from(++i));
}
BENCHMARK(BM_StrFromInt);

void BM_StdToString(benchmark::State& state) {
  int i = 0;
  for (auto _ : state) benchmark::DoNotOptimize(std::to_string(++i));
}
BENCHMARK(BM_StdToString);

// The digits alone, into a buffer.
void BM_StdToChars(benchmark::State& state) {
  int i = 0;
  char digits[16];
  for (auto _ : state) {
    benchmark::DoNotOptimize(std::to_chars(digits, digits + sizeof digits, ++i).ptr);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_StdToChars);

// The same digits as the std::string that str::from returns.
void BM_StdToCharsString(benchmark::State& state) {
  int i = 0;
  for (auto _ : state) {
    char digits[16];
    benchmark::DoNotOptimize(std::string(digits, std::to_chars(digits, digits + sizeof digits, ++i).ptr));
  }
}
BENCHMARK(BM_StdToCharsString);

void BM_StrToUnsigned(benchmark::State& state) {
  const std::string text = "4000000000";
  unsigned int out = 0;
  for (auto _ : state) {
    quorel::util::str::to(out, text);
    benchmark::DoNotOptimize(out);
  }
}
BENCHMARK(BM_StrToUnsigned);

void BM_Strtoul(benchmark::State& state) {
  const std::string text = "4000000000";
  for (auto _ : state) benchmark::DoNotOptimize(std::strtoul(text.c_str(), nullptr, 10));
}
BENCHMARK(BM_Strtoul);

// 100,000 device-like names: sdX, diskN, nvmeNnM.
std::vector<std::string> names() {
  std::mt19937 random(1);
  std::vector<std::string> result;
  for (int i = 0; i < 100000; ++i) {
    switch (i % 3) {
      case 0: result.push_back("disk" + std::to_string(random() % 100000)); break;
      case 1: result.push_back("sd" + std::string(1, static_cast<char>('a' + random() % 26))); break;
      default: result.push_back("nvme" + std::to_string(random() % 16) + "n" + std::to_string(random() % 8)); break;
    }
  }
  return result;
}

template <class Less>
void sortNames(benchmark::State& state, Less less) {
  const std::vector<std::string> input = names();
  for (auto _ : state) {
    std::vector<std::string> v(input);
    std::stable_sort(v.begin(), v.end(), less);
    benchmark::DoNotOptimize(v.data());
  }
}

void BM_Sort100kNatural(benchmark::State& state) { sortNames(state, quorel::util::str::cmp::lessThan); }
BENCHMARK(BM_Sort100kNatural)->Unit(benchmark::kMillisecond);

void BM_Sort100kPlain(benchmark::State& state) { sortNames(state, std::less<std::string>()); }
BENCHMARK(BM_Sort100kPlain)->Unit(benchmark::kMillisecond);

void BM_UUIDCreate(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(quorel::util::UUID());
}
BENCHMARK(BM_UUIDCreate)->Unit(benchmark::kMicrosecond);

#ifdef QUOREL_BENCH_LIBUUID
void BM_LibuuidGenerateTime(benchmark::State& state) {
  unsigned char id[16];
  for (auto _ : state) {
    uuid_generate_time(id);
    benchmark::DoNotOptimize(id);
  }
}
BENCHMARK(BM_LibuuidGenerateTime)->Unit(benchmark::kMicrosecond);
#endif

}  // namespace
