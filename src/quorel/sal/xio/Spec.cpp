// open::Spec and fopen::Spec records.
#include <quorel/sal/xio/Spec.h>

namespace quorel {
namespace sal {
namespace xio {

namespace open {
Spec::Spec() : handle_(new impl::open::Spec) {}
}  // namespace open

namespace fopen {
Spec::Spec(const open::Spec& descriptor) : handle_(new impl::fopen::Spec(descriptor.key())) {}
}  // namespace fopen

}  // namespace xio
}  // namespace sal
}  // namespace quorel
