// Locks, condition ping-pong, thread creation, process launching and named
// mutexes against the standard library and the raw calls.
#include <fcntl.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include <benchmark/benchmark.h>

#include <quorel/quorel.h>

namespace {

using quorel::sal::exec::CondVar;
using quorel::sal::exec::Mutex;

void BM_MutexLockUnlock(benchmark::State& state) {
  Mutex mutex;
  for (auto _ : state) {
    mutex.lock();
    mutex.unlock();
  }
}
BENCHMARK(BM_MutexLockUnlock);

void BM_LockLatch(benchmark::State& state) {
  Mutex mutex;
  for (auto _ : state) {
    quorel::util::ALockLatchFor<Mutex> latch(mutex);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_LockLatch);

void BM_StdMutexLockUnlock(benchmark::State& state) {
  std::mutex mutex;
  for (auto _ : state) {
    mutex.lock();
    mutex.unlock();
  }
}
BENCHMARK(BM_StdMutexLockUnlock);

void BM_StdLockGuard(benchmark::State& state) {
  std::mutex mutex;
  for (auto _ : state) {
    std::lock_guard<std::mutex> guard(mutex);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_StdLockGuard);

// One round trip: the main thread hands a turn to the partner and waits for it back.
void BM_CondVarPingPong(benchmark::State& state) {
  CondVar cv;
  CondVar back = cv.newSibling();
  int turn = 0;  // 1: the partner's turn, 0: ours, -1: stop
  std::thread partner([&] {
    quorel::util::ALockLatchFor<Mutex> latch(cv);
    for (;;) {
      while (turn == 0) cv.wait();
      if (turn < 0) return;
      turn = 0;
      back.signalOne();
    }
  });
  for (auto _ : state) {
    quorel::util::ALockLatchFor<Mutex> latch(cv);
    turn = 1;
    cv.signalOne();
    while (turn != 0) back.wait();
  }
  {
    quorel::util::ALockLatchFor<Mutex> latch(cv);
    turn = -1;
    cv.signalOne();
  }
  partner.join();
}
BENCHMARK(BM_CondVarPingPong)->UseRealTime();

void BM_StdConditionVariablePingPong(benchmark::State& state) {
  std::mutex mutex;
  std::condition_variable cv, back;
  int turn = 0;
  std::thread partner([&] {
    std::unique_lock<std::mutex> lock(mutex);
    for (;;) {
      cv.wait(lock, [&] { return turn != 0; });
      if (turn < 0) return;
      turn = 0;
      back.notify_one();
    }
  });
  for (auto _ : state) {
    std::unique_lock<std::mutex> lock(mutex);
    turn = 1;
    cv.notify_one();
    back.wait(lock, [&] { return turn == 0; });
  }
  {
    std::lock_guard<std::mutex> lock(mutex);
    turn = -1;
    cv.notify_one();
  }
  partner.join();
}
BENCHMARK(BM_StdConditionVariablePingPong)->UseRealTime();

int nothing() { return 0; }

void BM_ThreadCreateStartWait(benchmark::State& state) {
  const quorel::sal::exec::TaskHandle task(new quorel::sal::exec::FunctionDispatchTask(nothing));
  for (auto _ : state) quorel::sal::exec::Thread(task, 0, 0).start().wait();
}
BENCHMARK(BM_ThreadCreateStartWait)->UseRealTime();

void BM_StdThreadCreateJoin(benchmark::State& state) {
  for (auto _ : state) std::thread(nothing).join();
}
BENCHMARK(BM_StdThreadCreateJoin)->UseRealTime();

}  // namespace

// Starting /bin/true and waiting for it: Process against posix_spawn.
void BM_ProcessCreateWait(benchmark::State& state) {
  const quorel::sal::exec::LaunchProperty lp;
  for (auto _ : state) {
    quorel::sal::exec::Process child = quorel::sal::exec::Process::create("/bin/true", {}, lp);
    benchmark::DoNotOptimize(child.wait());
  }
}
BENCHMARK(BM_ProcessCreateWait)->UseRealTime();

void BM_PosixSpawnWaitpid(benchmark::State& state) {
  char program[] = "/bin/true";
  char* argv[] = {program, nullptr};
  char* envp[] = {nullptr};
  for (auto _ : state) {
    pid_t pid;
    ::posix_spawn(&pid, program, nullptr, nullptr, argv, envp);
    int status;
    ::waitpid(pid, &status, 0);
    benchmark::DoNotOptimize(status);
  }
}
BENCHMARK(BM_PosixSpawnWaitpid)->UseRealTime();

// A named mutex's lock and unlock (record lock on its /tmp file) against
// flock(2) on an open file.
void BM_NamedMutexLockUnlock(benchmark::State& state) {
  quorel::sal::exec::NamedMutex mutex("quorel-bench");
  for (auto _ : state) {
    mutex.lock();
    mutex.unlock();
  }
}
BENCHMARK(BM_NamedMutexLockUnlock);

void BM_FlockLockUnlock(benchmark::State& state) {
  const int fd = ::open("/tmp/quorel-bench-flock", O_RDWR | O_CREAT, 0600);
  for (auto _ : state) {
    ::flock(fd, LOCK_EX);
    ::flock(fd, LOCK_UN);
  }
  ::close(fd);
  ::unlink("/tmp/quorel-bench-flock");
}
BENCHMARK(BM_FlockLockUnlock);
