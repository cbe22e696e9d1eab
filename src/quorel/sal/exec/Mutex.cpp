// Mutex, forwarding to the platform's mutex.
#include <quorel/sal/exec/Mutex.h>

#include <quorel/sal/sys/exec/Mutex.inl>

namespace quorel {
namespace sal {
namespace exec {

Mutex::Mutex() : handle_(new impl::Mutex) {}
Mutex::Mutex(const Mutex& other) = default;
Mutex& Mutex::operator=(const Mutex& other) = default;
Mutex::~Mutex() = default;

void Mutex::lock() { handle_->lock(); }
void Mutex::unlock() { handle_->unlock(); }
bool Mutex::tryLock() { return handle_->tryLock(); }

}  // namespace exec
}  // namespace sal
}  // namespace quorel
