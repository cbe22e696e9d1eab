/// \file
/// Descriptor primitives and the sequential and positioned I/O calls.
#ifndef QUOREL_SAL_XIO_IMPL_DESC_H
#define QUOREL_SAL_XIO_IMPL_DESC_H

#include <quorel/sal/xio/i/types.h>
#include <quorel/sal/xio/impl/Spec.h>

namespace quorel {
namespace sal {
namespace xio {
namespace impl {

namespace desc {
namespace os {
namespace id {
typedef int type;  // the platform's descriptor
}  // namespace id
}  // namespace os

/// Owns a descriptor until released: closes it, failure ignored, if it never
/// is (a failing operation's clean-up never throws).
class Owned {
 public:
  explicit Owned(os::id::type fd) : fd_(fd) {}
  ~Owned();
  Owned(const Owned&) = delete;
  Owned& operator=(const Owned&) = delete;
  os::id::type get() const { return fd_; }
  os::id::type release() {
    const os::id::type fd = fd_;
    fd_ = -1;
    return fd;
  }

 private:
  os::id::type fd_;
};

/// dup(); the duplicate is close-on-exec unless inherit. Throws CloneException
/// "::dup() failed" or "::fcntl(F_SETFD, 1) failed" (the duplicate closed).
i::id::type clone(i::id::type id, bool inherit);
namespace fd {
/// Throws CloseException "::close() failed".
void close(i::id::type id);
}  // namespace fd
namespace std {
/// 0, 1 or 2 if open (fstat64 succeeds), else i::id::kNone.
i::id::type input();
i::id::type output();
i::id::type error();
}  // namespace std
/// The descriptor's status flags (F_GETFL) and close-on-exec flag (F_GETFD);
/// -1 if they cannot be read.
int statusFlagsOf(i::id::type id);
int descriptorFlagsOf(i::id::type id);
}  // namespace desc

namespace popen {
/// A pipe with each end's options applied. Throws OpenException "::pipe()
/// failed", "::fcntl(F_SETFL, O_NONBLOCK) failed" or "::fcntl(F_SETFD,
/// FD_CLOEXEC) failed"; both ends are closed first.
void newPair(desc::os::id::type& readEnd, desc::os::id::type& writeEnd, const open::Spec& readSpec,
             const open::Spec& writeSpec);
}  // namespace popen

namespace fio {
/// One call each; short counts are returned as they are. Throw ReadException
/// "::read() failed" / "::pread() failed" and WriteException "::write() failed"
/// / "::pwrite() failed".
int read(i::id::type id, void* buffer, int size);
int write(i::id::type id, const void* buffer, int size);
int read(i::id::type id, void* buffer, int size, i::offset::type offset);
int write(i::id::type id, const void* buffer, int size, i::offset::type offset);
/// lseek64; throws SeekException "::lseek() failed".
i::offset::type seek(i::id::type id, i::offset::type offset, int whence);

/// The same positioned calls for paths that report failures themselves: the
/// count, or the negated errno.
int readAt(i::id::type id, void* buffer, int size, i::offset::type offset);
int writeAt(i::id::type id, const void* buffer, int size, i::offset::type offset);
/// Socket transfers that loop until size bytes have moved (a signal restarts
/// the call): the count, short only when the peer closed, or the negated
/// errno of the failed recv/send. Sending never raises SIGPIPE.
int receiveAll(i::id::type id, void* buffer, int size);
int sendAll(i::id::type id, const void* buffer, int size);
}  // namespace fio

namespace fop {
/// ftruncate64 at length; throws TruncateException "::ftruncate() failed".
void truncate(i::id::type id, i::offset::type length);
/// fsync; throws SyncException "::fsync() failed".
void sync(i::id::type id);
}  // namespace fop

}  // namespace impl
}  // namespace xio
}  // namespace sal
}  // namespace quorel

#endif
