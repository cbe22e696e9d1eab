// Registry and firing rules of the fault injection points.
#include "fault.h"

#include <dlfcn.h>

#include <cstring>
#include <stdexcept>
#include <string>

namespace quorel {
namespace test {
namespace fault {

namespace {

Point* head = nullptr;  // registrations happen during static initialisation

bool fromLibrary(void* caller) {
  Dl_info info;
  if (::dladdr(caller, &info) == 0 || info.dli_fname == nullptr) return false;
  return std::strstr(info.dli_fname, "libquorel.so") != nullptr;
}

Point* lookup(const char* function) {
  for (Point* p = head; p != nullptr; p = p->next) {
    if (std::strcmp(p->name(), function) == 0) return p;
  }
  return nullptr;
}

Point& find(const char* function) {
  if (Point* p = lookup(function)) return *p;
  throw std::invalid_argument(std::string("no fault injection point for ") + function +
                              " (add it to tests/support/interpose.cpp)");
}

}  // namespace

Registration::Registration(Point& point) {
  point.next = head;
  head = &point;
  // Resolved now, during start-up: a lazy dlsym() later would clear a
  // dynamic linker message that a test is about to read through dlerror().
  point.real();
}

void* Point::standIn(void* caller) const {
  void* s = standIn_.load();
  return s != nullptr && fromLibrary(caller) ? s : nullptr;
}

bool Point::fires(void* caller, int& error) {
  if (remaining_.load() <= 0 || (!anyCaller_.load() && !fromLibrary(caller))) return false;
  calls_.fetch_add(1);
  for (int s = skip_.load(); s > 0;) {
    if (skip_.compare_exchange_weak(s, s - 1)) return false;
  }
  for (int r = remaining_.load(); r > 0;) {
    if (remaining_.compare_exchange_weak(r, r - 1)) {
      error = error_.load();
      return true;
    }
  }
  return false;
}

void* Point::real() {
  void* f = real_.load();
  if (f == nullptr) {
    f = ::dlsym(RTLD_NEXT, name_);
    real_.store(f);
  }
  return f;
}

void Point::arm(int error, int nth, int times, Caller caller) {
  remaining_.store(0);
  anyCaller_.store(caller == Caller::kAny);
  calls_.store(0);
  error_.store(error);
  skip_.store(nth > 1 ? nth - 1 : 0);
  remaining_.store(times);
}

void Point::replace(void* standIn) { standIn_.store(standIn); }

void Point::disarm() {
  remaining_.store(0);
  skip_.store(0);
  standIn_.store(nullptr);
}

bool available(const char* function) { return lookup(function) != nullptr; }

void inject(const char* function, int error, int nth, int times, Caller caller) {
  find(function).arm(error, nth, times, caller);
}

void replace(const char* function, void* standIn) { find(function).replace(standIn); }

void clear(const char* function) { find(function).disarm(); }

void clearAll() {
  for (Point* p = head; p != nullptr; p = p->next) p->disarm();
}

int calls(const char* function) { return find(function).calls(); }

}  // namespace fault
}  // namespace test
}  // namespace quorel
