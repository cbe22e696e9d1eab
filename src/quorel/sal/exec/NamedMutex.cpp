// NamedMutex: platform failures become the synchronisation exceptions.
#include <quorel/sal/exec/NamedMutex.h>

#include <quorel/sal/exec/Exception.h>
#include <quorel/sal/sys/exec/NamedMutex.inl>

namespace quorel {
namespace sal {
namespace exec {

NamedMutex::NamedMutex(const std::string& name) : handle_(new impl::NamedMutex(name)) {}

const std::string& NamedMutex::name() const { return handle_->name(); }

// The platform failure is passed on as it was thrown (its where, file and
// line), under the class that says what could not be done.
void NamedMutex::lock() {
  try {
    handle_->lock();
  } catch (const sys::Exception& e) {
    throw SyncAcquireException(e);
  }
}

bool NamedMutex::tryLock() {
  try {
    return handle_->tryLock();
  } catch (const sys::Exception& e) {
    throw SyncAcquireException(e);
  }
}

void NamedMutex::unlock() {
  try {
    handle_->unlock();
  } catch (const sys::Exception& e) {
    throw SyncReleaseException(e);
  }
}

}  // namespace exec
}  // namespace sal
}  // namespace quorel
