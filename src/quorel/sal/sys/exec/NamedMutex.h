/// \file
/// The platform's named mutex: a record lock on a file in /tmp over an
/// in-process mutex.
#ifndef QUOREL_SAL_SYS_EXEC_NAMEDMUTEX_H
#define QUOREL_SAL_SYS_EXEC_NAMEDMUTEX_H

#include <string>

#include <quorel/sal/sys/exec/Mutex.h>

namespace quorel {
namespace sal {
namespace sys {
namespace exec {

/// Record locks belong to processes, not threads: the in-process mutex keeps
/// the threads of one process apart, and the whole-file write lock on
/// "/tmp/quorel.sal.sys.exec.NamedMutex-<name>" keeps processes apart. The
/// file lock is taken only while the in-process mutex is held. The file is
/// created (mode 0777 before the umask) and never removed; a process that dies
/// loses its lock. Failures throw sys::Exception (domain 2, errno).
class NamedMutex {
 public:
  /// Throws "::open(\"<path>\") failed".
  explicit NamedMutex(const std::string& name);
  NamedMutex(const NamedMutex&) = delete;
  NamedMutex& operator=(const NamedMutex&) = delete;
  /// Closes the lock file; never throws.
  ~NamedMutex();

  const std::string& name() const { return name_; }
  const std::string& path() const { return path_; }
  /// Blocks. Throws "::fcntl() failed to lock \"<path>\"".
  void lock();
  /// False when another thread of this process holds it, or when the system
  /// reports EACCES for another process's lock; EAGAIN (what Linux reports)
  /// throws "::fcntl() failed to lock \"<path>\"" like any other error.
  bool tryLock();
  /// Throws "::fcntl() failed to unlock \"<path>\"".
  void unlock();

 private:
  std::string name_;
  std::string path_;
  Mutex mutex_;
  int fd_;
};

}  // namespace exec
}  // namespace sys
}  // namespace sal
}  // namespace quorel

#endif
