// Directory listing and tree removal against the raw calls, std::filesystem
// and rm -rf. The trees are made in /tmp, outside the timed part.
#include <dirent.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>

#include <benchmark/benchmark.h>

#include <quorel/quorel.h>

namespace {

namespace fs = quorel::sal::fs;

constexpr int kEntries = 100000;

// A directory of kEntries entries, a tenth of them directories.
void fill(const std::string& path) {
  ::mkdir(path.c_str(), 0700);
  const int dir = ::open(path.c_str(), O_RDONLY | O_DIRECTORY);
  for (int i = 0; i < kEntries; ++i) {
    const std::string name = "entry-" + std::to_string(i);
    if (i % 10 == 0) {
      ::mkdirat(dir, name.c_str(), 0700);
    } else {
      ::close(::openat(dir, name.c_str(), O_CREAT | O_WRONLY, 0600));
    }
  }
  ::close(dir);
}

// One directory of kEntries for every listing benchmark.
// Never destroyed, so that the removal at exit still finds its name (a static
// string would be destroyed before a handler registered while it was being made).
const std::string& listed() {
  static const std::string* const path = [] {
    const auto* p = new std::string("/tmp/quorel-bench-list-" + std::to_string(::getpid()));
    fill(*p);
    std::atexit([] { fs::removeAll(listed()); });
    return p;
  }();
  return *path;
}

void BM_ListQuorel(benchmark::State& state) {
  listed();  // made before the timing starts
  for (auto _ : state) {
    int directories = 0;
    for (const fs::Entry& entry : fs::Listing(listed())) directories += entry.type() == fs::i::entry::kDirectory;
    benchmark::DoNotOptimize(directories);
  }
  state.SetItemsProcessed(state.iterations() * kEntries);
}
BENCHMARK(BM_ListQuorel)->Unit(benchmark::kMillisecond);

void BM_ListRawGetdents64(benchmark::State& state) {
  listed();  // made before the timing starts
  std::unique_ptr<char[]> buffer(new char[32 * 1024]);
  for (auto _ : state) {
    int directories = 0;
    const int fd = ::open(listed().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (ssize_t got; (got = ::getdents64(fd, buffer.get(), 32 * 1024)) > 0;) {
      for (ssize_t at = 0; at < got;) {
        const auto* entry = reinterpret_cast<const struct dirent64*>(buffer.get() + at);
        at += entry->d_reclen;
        const std::string name(entry->d_name);  // what a caller keeps of an entry
        directories += entry->d_type == DT_DIR;
        benchmark::DoNotOptimize(name.data());
      }
    }
    ::close(fd);
    benchmark::DoNotOptimize(directories);
  }
  state.SetItemsProcessed(state.iterations() * kEntries);
}
BENCHMARK(BM_ListRawGetdents64)->Unit(benchmark::kMillisecond);

void BM_ListRawReaddir64(benchmark::State& state) {
  listed();  // made before the timing starts
  for (auto _ : state) {
    int directories = 0;
    DIR* dir = ::opendir(listed().c_str());
    while (const struct dirent64* entry = ::readdir64(dir)) {
      const std::string name(entry->d_name);
      directories += entry->d_type == DT_DIR;
      benchmark::DoNotOptimize(name.data());
    }
    ::closedir(dir);
    benchmark::DoNotOptimize(directories);
  }
  state.SetItemsProcessed(state.iterations() * kEntries);
}
BENCHMARK(BM_ListRawReaddir64)->Unit(benchmark::kMillisecond);

void BM_ListStdFilesystem(benchmark::State& state) {
  listed();  // made before the timing starts
  for (auto _ : state) {
    int directories = 0;
    for (const auto& entry : std::filesystem::directory_iterator(listed())) {
      directories += entry.symlink_status().type() == std::filesystem::file_type::directory;
    }
    benchmark::DoNotOptimize(directories);
  }
  state.SetItemsProcessed(state.iterations() * kEntries);
}
BENCHMARK(BM_ListStdFilesystem)->Unit(benchmark::kMillisecond);

// Removal: each iteration removes a fresh tree of kEntries entries.
template <class Remove>
void removeTrees(benchmark::State& state, Remove remove) {
  const std::string path = "/tmp/quorel-bench-remove-" + std::to_string(::getpid());
  for (auto _ : state) {
    state.PauseTiming();
    fill(path);
    ::sync();
    state.ResumeTiming();
    remove(path);
  }
  state.SetItemsProcessed(state.iterations() * kEntries);
}

void BM_RemoveQuorel(benchmark::State& state) {
  removeTrees(state, [](const std::string& path) { fs::removeAll(path); });
}
BENCHMARK(BM_RemoveQuorel)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

void BM_RemoveStdFilesystem(benchmark::State& state) {
  removeTrees(state, [](const std::string& path) { std::filesystem::remove_all(path); });
}
BENCHMARK(BM_RemoveStdFilesystem)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

void BM_RemoveRmRf(benchmark::State& state) {
  removeTrees(state, [](const std::string& path) {
    const char* argv[] = {"rm", "-rf", path.c_str(), nullptr};
    pid_t pid = 0;
    ::posix_spawnp(&pid, "rm", nullptr, nullptr, const_cast<char* const*>(argv), environ);
    int status = 0;
    ::waitpid(pid, &status, 0);
  });
}
BENCHMARK(BM_RemoveRmRf)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

}  // namespace
