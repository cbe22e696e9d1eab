/// \file
/// NamedMutex: mutual exclusion between the threads of all processes that use
/// the same name.
#ifndef QUOREL_SAL_EXEC_NAMEDMUTEX_H
#define QUOREL_SAL_EXEC_NAMEDMUTEX_H

#include <string>

#include <quorel/sal/sys/exec/NamedMutex.h>
#include <quorel/util/AHandleTo.h>

namespace quorel {
namespace sal {
namespace exec {

namespace impl {
/// The state behind exec::NamedMutex: the lock file and the in-process mutex.
class NamedMutex : public sys::exec::NamedMutex {
 public:
  using sys::exec::NamedMutex::NamedMutex;
};
}  // namespace impl

/// Copies share one lock. Two objects of the same name in one process do not
/// exclude each other (record locks belong to the process): share one object
/// between threads. Lock for a scope with util::ALockLatchFor<NamedMutex>.
/// lock() and tryLock() failures throw SyncAcquireException, unlock() failures
/// SyncReleaseException, each carrying the platform failure's fields.
class NamedMutex {
 public:
  /// Throws sys::Exception "::open(\"/tmp/quorel.sal.sys.exec.NamedMutex-<name>\") failed".
  explicit NamedMutex(const std::string& name);

  const std::string& name() const;
  void lock();
  /// False when another thread of this process holds it or the system reports
  /// EACCES; Linux reports another process's lock as EAGAIN, which throws.
  bool tryLock();
  void unlock();

 private:
  util::AHandleTo<impl::NamedMutex> handle_;
};

}  // namespace exec
}  // namespace sal
}  // namespace quorel

#endif
