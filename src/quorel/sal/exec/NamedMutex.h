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

/// Copies share one lock. Lock for a scope with
/// util::ALockLatchFor<NamedMutex>. lock() and tryLock() failures throw
/// SyncAcquireException, unlock() failures SyncReleaseException, each
/// carrying the platform failure's fields.
///
/// Make one object per name in a process and share it by copying it to the
/// threads that need it. Each object opens the lock file for itself, and the
/// system's record lock belongs to the process, not to the object: a second
/// object of the same name locks at once while the first holds the lock, and
/// its unlock(), or its destruction (which closes its descriptor), releases
/// the process's lock while the first object still believes it holds it, so
/// that another process can take it.
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
