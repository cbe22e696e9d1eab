// Mutex, forwarding to the platform's mutex.
#include <quorel/sal/exec/Mutex.h>

namespace quorel {
namespace sal {
namespace exec {

Mutex::Mutex() : handle_(new impl::Mutex) {}
Mutex::Mutex(const Mutex& other) = default;
Mutex& Mutex::operator=(const Mutex& other) = default;
Mutex::~Mutex() = default;

}  // namespace exec
}  // namespace sal
}  // namespace quorel
