// Platform half of the atomic integer operations: a pool of four POSIX
// mutexes and the processor's locked exchange-and-add.
#include <quorel/sal/sys/atomic.h>

#include <pthread.h>

#include <cstdint>

// Weak, so that a program without the thread library still loads; its
// presence is what add() asks about.
extern "C" int pthread_cancel(pthread_t) __attribute__((weak));

namespace quorel {
namespace sal {
namespace sys {
namespace atomic {

namespace {

// The platform's default (non-recursive) mutexes, statically initialised.
pthread_mutex_t pool[4] = {PTHREAD_MUTEX_INITIALIZER, PTHREAD_MUTEX_INITIALIZER,
                           PTHREAD_MUTEX_INITIALIZER, PTHREAD_MUTEX_INITIALIZER};

pthread_mutex_t& mutexOf(const int& v) { return pool[poolIndexOf(v)]; }

}  // namespace

int poolIndexOf(const int& v) {
  // Neighbouring integers spread over the four mutexes.
  return static_cast<int>((reinterpret_cast<std::uintptr_t>(&v) >> 2) & 3);
}

// The results of the mutex calls are ignored: the pool mutexes are valid for
// the life of the process and each thread pairs its own lock and unlock.
void lock(int& v) { ::pthread_mutex_lock(&mutexOf(v)); }

void unlock(int& v) { ::pthread_mutex_unlock(&mutexOf(v)); }

bool tryLock(int& v) { return ::pthread_mutex_trylock(&mutexOf(v)) == 0; }

bool tryCompareAndSwap(int& v, int expected, int desired) {
  lock(v);
  const bool swapped = v == expected;
  if (swapped) v = desired;
  unlock(v);
  return swapped;
}

void compareAndSwap(int& v, int expected, int desired) {
  while (!tryCompareAndSwap(v, expected, desired)) {
  }
}

bool threadLibraryActive() { return &::pthread_cancel != nullptr; }

int add(int& v, int delta) {
  static const bool threaded = threadLibraryActive();
  if (threaded) return __atomic_add_fetch(&v, delta, __ATOMIC_SEQ_CST);  // lock xadd
  v += delta;
  return v;
}

}  // namespace atomic
}  // namespace sys
}  // namespace sal
}  // namespace quorel
