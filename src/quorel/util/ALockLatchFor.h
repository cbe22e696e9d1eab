/// \file
/// ALockLatchFor: holds a lock for the lifetime of a scope.
#ifndef QUOREL_UTIL_ALOCKLATCHFOR_H
#define QUOREL_UTIL_ALOCKLATCHFOR_H

namespace quorel {
namespace util {

/// Calls lock.lock() on construction and lock.unlock() on destruction, also
/// when the scope is left by an exception. Lock is Mutex, CondVar, SpinLock,
/// NamedMutex or any class with lock()/unlock().
template <class Lock>
class ALockLatchFor {
 public:
  explicit ALockLatchFor(Lock& lock) : lock_(lock) { lock_.lock(); }
  ~ALockLatchFor() { lock_.unlock(); }
  ALockLatchFor(const ALockLatchFor&) = delete;
  ALockLatchFor& operator=(const ALockLatchFor&) = delete;

 private:
  Lock& lock_;
};

}  // namespace util
}  // namespace quorel

#endif
