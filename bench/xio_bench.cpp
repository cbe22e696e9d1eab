// Streams over files against read(2), fread and fwrite, 4 KiB at a time.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include <quorel/quorel.h>

namespace {

using namespace quorel::sal::xio;

const long long kFileSize = 1LL << 30;  // 1 GiB, read from the page cache after the first pass
const int kRequest = 4096;
const int kBuffer = 65536;

// The file every read benchmark reads, made once.
const std::string& bigFile() {
  static const std::string path = [] {
    const std::string p = "/tmp/quorel-bench-" + std::to_string(::getpid());
    const int fd = ::open(p.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
    std::vector<char> chunk(1 << 20, 'q');
    for (long long done = 0; done < kFileSize; done += static_cast<long long>(chunk.size())) {
      if (::write(fd, chunk.data(), chunk.size()) < 0) break;
    }
    ::close(fd);
    std::atexit([] { ::unlink(("/tmp/quorel-bench-" + std::to_string(::getpid())).c_str()); });
    return p;
  }();
  return path;
}

void BM_SourceStreamRead1GiB(benchmark::State& state) {
  bigFile();  // made outside the timed loop
  std::vector<char> buffer(kRequest);
  for (auto _ : state) {
    SourceStream in(Channel(Endpoint::open(bigFile(), fopen::Spec())), kBuffer);
    while (in.read(buffer.data(), kRequest) == kRequest) {
    }
  }
  state.SetBytesProcessed(state.iterations() * kFileSize);
}
BENCHMARK(BM_SourceStreamRead1GiB)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_RawRead1GiB(benchmark::State& state) {
  std::vector<char> buffer(kRequest);
  for (auto _ : state) {
    const int fd = ::open(bigFile().c_str(), O_RDONLY);
    while (::read(fd, buffer.data(), kRequest) == kRequest) {
    }
    ::close(fd);
  }
  state.SetBytesProcessed(state.iterations() * kFileSize);
}
BENCHMARK(BM_RawRead1GiB)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_Fread1GiB(benchmark::State& state) {
  std::vector<char> buffer(kRequest);
  for (auto _ : state) {
    FILE* f = std::fopen(bigFile().c_str(), "rb");
    std::setvbuf(f, nullptr, _IOFBF, kBuffer);
    while (std::fread(buffer.data(), 1, kRequest, f) == static_cast<size_t>(kRequest)) {
    }
    std::fclose(f);
  }
  state.SetBytesProcessed(state.iterations() * kFileSize);
}
BENCHMARK(BM_Fread1GiB)->Unit(benchmark::kMillisecond)->Iterations(3);

const long long kWriteSize = 256LL << 20;

void BM_SinkStreamWrite256MiB(benchmark::State& state) {
  const std::string path = bigFile() + ".out";
  std::vector<char> buffer(kRequest, 'w');
  fopen::Spec spec;
  spec.set<i::fopen::write::Enabled>().set<i::fopen::write::create::Enabled>().set<i::fopen::write::init::Truncate>();
  for (auto _ : state) {
    SinkStream out(Channel(Endpoint::open(path, spec)), kBuffer);
    for (long long done = 0; done < kWriteSize; done += kRequest) out.put(buffer.data(), kRequest);
    out.flush();
  }
  state.SetBytesProcessed(state.iterations() * kWriteSize);
  ::unlink(path.c_str());
}
BENCHMARK(BM_SinkStreamWrite256MiB)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_Fwrite256MiB(benchmark::State& state) {
  const std::string path = bigFile() + ".out";
  std::vector<char> buffer(kRequest, 'w');
  for (auto _ : state) {
    FILE* f = std::fopen(path.c_str(), "wb");
    std::setvbuf(f, nullptr, _IOFBF, kBuffer);
    for (long long done = 0; done < kWriteSize; done += kRequest) std::fwrite(buffer.data(), 1, kRequest, f);
    std::fclose(f);
  }
  state.SetBytesProcessed(state.iterations() * kWriteSize);
  ::unlink(path.c_str());
}
BENCHMARK(BM_Fwrite256MiB)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
