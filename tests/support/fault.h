// Fault injection: make libc calls made from inside libquorel.so fail.
//
// The test executable defines the libc functions listed in interpose.cpp;
// the dynamic linker binds libquorel.so's calls to those definitions, which
// either fail as a test asked or pass the call on to the real function.
// Only calls whose caller lies in libquorel.so are counted and failed, so
// GoogleTest and the test's own calls are never disturbed. Calls that the
// library inlines into its callers (a Mutex's pthread_mutex_lock) come from
// the test program itself: inject those with Caller::kAny, in a single-
// threaded stretch of the test.
//
//   quorel::test::fault::Injection fail("valloc", ENOMEM);      // the next call fails
//   quorel::test::fault::Injection third("read", EIO, 3, 2);    // calls 3 and 4 fail
//
// See tests/README.md for adding a function.
#ifndef QUOREL_TESTS_SUPPORT_FAULT_H
#define QUOREL_TESTS_SUPPORT_FAULT_H

#include <atomic>

namespace quorel {
namespace test {
namespace fault {

// The point of the global operator new (by its symbol), which throws
// std::bad_alloc when it fires. Plain builds only: the sanitizers bring their
// own operator new (see sal/xio/DispatcherAllocationTest.cpp).
inline constexpr const char* kOperatorNew = sizeof(void*) == 4 ? "_Znwj" : "_Znwm";

// Whose calls an injection counts.
enum class Caller { kLibrary, kAny };

// One interposed function. Constant-initialised, so it is usable (passing
// calls through) even before the test program's static initialisation.
class Point {
 public:
  constexpr explicit Point(const char* name) : name_(name) {}

  const char* name() const { return name_; }
  // The stand-in that replaces the function for this call, or null.
  void* standIn(void* caller) const;
  // True when this call must fail; error receives the errno to report.
  bool fires(void* caller, int& error);
  // The next definition of the function after the test executable (libc's).
  void* real();

  void arm(int error, int nth, int times, Caller caller);
  void replace(void* standIn);
  void disarm();
  // Calls from libquorel.so seen while the point was armed.
  int calls() const { return calls_.load(); }

  Point* next = nullptr;

 private:
  const char* name_;
  std::atomic<int> skip_{0};
  std::atomic<int> remaining_{0};
  std::atomic<int> error_{0};
  std::atomic<int> calls_{0};
  std::atomic<bool> anyCaller_{false};
  std::atomic<void*> standIn_{nullptr};
  std::atomic<void*> real_{nullptr};
};

// Links a point into the registry that inject() searches.
struct Registration {
  explicit Registration(Point& point);
};

// True when function can be made to fail in this build.
bool available(const char* function);

// Makes the nth call of function from now on (1 = the next) and the
// following times-1 calls fail with error. Throws std::invalid_argument for a
// function that is not interposed.
void inject(const char* function, int error, int nth = 1, int times = 1, Caller caller = Caller::kLibrary);
// Routes calls of function to standIn (a pointer to a function of the same
// type) until cleared.
void replace(const char* function, void* standIn);
// Removes the injection or stand-in of one function, or of all.
void clear(const char* function);
void clearAll();
// Calls of function from libquorel.so since it was armed.
int calls(const char* function);

// Arms a fault for the lifetime of a scope.
class Injection {
 public:
  Injection(const char* function, int error, int nth = 1, int times = 1, Caller caller = Caller::kLibrary)
      : function_(function) {
    inject(function, error, nth, times, caller);
  }
  ~Injection() { clear(function_); }
  Injection(const Injection&) = delete;
  Injection& operator=(const Injection&) = delete;

 private:
  const char* function_;
};

// Replaces a function for the lifetime of a scope.
class StandIn {
 public:
  StandIn(const char* function, void* standIn) : function_(function) { replace(function, standIn); }
  ~StandIn() { clear(function_); }
  StandIn(const StandIn&) = delete;
  StandIn& operator=(const StandIn&) = delete;

 private:
  const char* function_;
};

}  // namespace fault
}  // namespace test
}  // namespace quorel

// Skips the current test when function cannot be interposed in this build.
#define QUOREL_REQUIRE_FAULT_POINT(function)                                                  \
  if (!::quorel::test::fault::available(function))                                           \
  GTEST_SKIP() << (function) << " cannot be made to fail in this build (the sanitizer "     \
               << "runtime calls it while starting, so the test program cannot define it)"

// Defines an interposing definition of a libc function:
//   QUOREL_INTERPOSE(int, gettimeofday, (timeval* tv, void* tz), (tv, tz), true,
//                    { errno = error; return -1; })
// noexceptness must match the libc declaration (true for functions glibc
// declares with __THROW). The failure block sees the injected `error`.
#define QUOREL_INTERPOSE(ret, name, params, args, isNoexcept, onFailure)                      \
  namespace {                                                                                 \
  ::quorel::test::fault::Point point_##name(#name);                                 \
  ::quorel::test::fault::Registration registration_##name(point_##name);                      \
  }                                                                                           \
  extern "C" ret name params noexcept(isNoexcept) {                                           \
    typedef ret(*Function) params noexcept(isNoexcept);                                       \
    void* caller = __builtin_return_address(0);                                               \
    if (void* standIn = point_##name.standIn(caller)) {                                       \
      return reinterpret_cast<Function>(standIn) args;                                        \
    }                                                                                         \
    int error = 0;                                                                            \
    if (point_##name.fires(caller, error)) onFailure                                          \
    return reinterpret_cast<Function>(point_##name.real()) args;                              \
  }

#endif
