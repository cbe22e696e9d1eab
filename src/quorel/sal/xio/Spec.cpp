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

i::id::type openExclusive(const std::string& path, const Spec& spec) {
  impl::fopen::Spec computed(spec.key());
  computed.compute();
  return computed.open(path, true);
}
}  // namespace fopen

}  // namespace xio
}  // namespace sal
}  // namespace quorel
