// TSDPair, forwarding to the platform's key.
#include <quorel/sal/exec/TSDPair.h>

#include <quorel/sal/sys/exec/TSDPair.inl>

namespace quorel {
namespace sal {
namespace exec {

TSDPair::TSDPair() : handle_(new impl::TSDPair) {}
void* TSDPair::value() { return handle_->value(); }
void* TSDPair::value() const { return handle_->value(); }
void TSDPair::setValue(void* value) { handle_->setValue(value); }

}  // namespace exec
}  // namespace sal
}  // namespace quorel
