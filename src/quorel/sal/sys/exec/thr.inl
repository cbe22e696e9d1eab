// Platform half of threads: pthread attributes and creation, scheduling,
// sched_setaffinity and sched_getaffinity.
#include <quorel/sal/sys/exec/thr.h>

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>
#include <exception>
#include <memory>

#include <quorel/sal/Exception.h>
#include <quorel/sal/sys/exec/ExitException.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace sys {
namespace exec {
namespace thr {

bool init = false;
int policy = SCHED_OTHER;
sched_param sp = {};

namespace {

// Takes the load-time snapshot during static initialisation.
struct Snapshot {
  Snapshot() {
    if (::pthread_getschedparam(::pthread_self(), &policy, &sp) != 0) return;
    init = sp.sched_priority >= ::sched_get_priority_min(policy) &&
           sp.sched_priority <= ::sched_get_priority_max(policy);
  }
} snapshot;

// The policy and priority for a requested priority (see boot).
void schedulingFor(int priority, int& chosenPolicy, sched_param& chosen) {
  chosenPolicy = policy;
  chosen = sp;
  if (priority <= 0) return;
  if (policy == SCHED_OTHER) {
    chosenPolicy = SCHED_RR;
    chosen.sched_priority = priority == 1 ? ::sched_get_priority_min(SCHED_RR) : ::sched_get_priority_max(SCHED_RR);
    return;
  }
  const int highest = ::sched_get_priority_max(policy);
  chosen.sched_priority = priority == 1 && sp.sched_priority < highest ? sp.sched_priority + 1 : highest;
}

// 128 bytes: CPUs 0 to 1023.
struct CPUMask {
  unsigned int words[32];
  CPUMask() { std::memset(words, 0, sizeof words); }
  void set(int cpu) {
    if (cpu >= 0 && cpu < 1024) words[cpu / 32] |= 1u << (cpu % 32);
  }
};

// Destroys the attribute object on every way out of boot.
struct AttrGuard {
  pthread_attr_t* attr;
  ~AttrGuard() { ::pthread_attr_destroy(attr); }
};

}  // namespace

void boot(void (*function)(void*), void* argument, size_t stackSize, int priority) {
  // Owned here until the new thread exists, then by the thread.
  std::unique_ptr<BootArg> bootArg(new BootArg{function, argument});
  pthread_attr_t attr;
  int error = ::pthread_attr_init(&attr);
  if (error != 0) {
    QUOREL_THROW(sys::Exception)("::pthread_attr_init() failed", i::err::domain::kSystemCall, error);
  }
  AttrGuard guard{&attr};
  error = ::pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
  if (error != 0) {
    QUOREL_THROW(sys::Exception)("::pthread_attr_setdetachstate() failed", i::err::domain::kSystemCall, error);
  }
  error = ::pthread_attr_setstacksize(&attr, stackSize < 16384 ? 16384 : stackSize);
  if (error != 0) {
    QUOREL_THROW(sys::Exception)("::pthread_attr_setstacksize() failed", i::err::domain::kSystemCall, error);
  }
  if (init) {
    int chosenPolicy;
    sched_param chosen;
    schedulingFor(priority, chosenPolicy, chosen);
    ::pthread_attr_setinheritsched(&attr, PTHREAD_EXPLICIT_SCHED);
    ::pthread_attr_setschedpolicy(&attr, chosenPolicy);
    ::pthread_attr_setschedparam(&attr, &chosen);
  }
  pthread_t thread;
  error = ::pthread_create(&thread, &attr, bootImpl, bootArg.get());
  if (error != 0) {
    QUOREL_THROW(sys::Exception)("::pthread_create() failed", i::err::domain::kSystemCall, error);
  }
  bootArg.release();
}

void* bootImpl(void* bootArg) {
  BootArg* arg = static_cast<BootArg*>(bootArg);
  void (*function)(void*) = arg->function;
  void* argument = arg->argument;
  delete arg;
  try {
    function(argument);
  } catch (...) {
    // ExitException, library and standard exceptions alike end the thread
    // quietly: exceptions never leave a task's thread. The forced unwind of
    // pthread_exit or cancellation must go on; it has no C++ exception
    // object, which is how it is told apart here (a catch of
    // abi::__forced_unwind& would bind a reference to that missing object).
    if (!std::current_exception()) throw;
  }
  return nullptr;
}

void setPriority(int priority) {
  if (!init) return;
  int chosenPolicy;
  sched_param chosen;
  schedulingFor(priority, chosenPolicy, chosen);
  ::pthread_setschedparam(::pthread_self(), chosenPolicy, &chosen);
}

void bindToCPU(int cpu) {
  CPUMask mask;
  mask.set(cpu);
  ::sched_setaffinity(static_cast<pid_t>(::syscall(SYS_gettid)), sizeof mask.words,
                      reinterpret_cast<cpu_set_t*>(mask.words));
}

void bindProcessTo(const std::list<int>& cpus) {
  CPUMask mask;
  for (int cpu : cpus) mask.set(cpu);
  ::sched_setaffinity(::getpid(), sizeof mask.words, reinterpret_cast<cpu_set_t*>(mask.words));
}

int selfID() { return ::getpid(); }

void exit() { throw ExitException(); }

void relax() { __builtin_ia32_pause(); }

int processorCount() {
  cpu_set_t set;
  if (::sched_getaffinity(0, sizeof set, &set) != 0) return 0;
  return CPU_COUNT(&set);
}

}  // namespace thr
}  // namespace exec
}  // namespace sys
}  // namespace sal
}  // namespace quorel
