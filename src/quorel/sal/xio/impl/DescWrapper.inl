// Wrapped and adopted descriptors.
#include <fcntl.h>

#include <quorel/sal/xio/Exception.h>
#include <quorel/sal/xio/impl/AOpenSpec.h>
#include <quorel/sal/xio/impl/desc.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace xio {
namespace impl {

DescWrapper::DescWrapper(const std::string& name, i::id::type id, bool owns, const open::Spec& spec)
    : AOpenSpec(name, id), owns_(owns), spec_(spec) {
  check();
}

DescWrapper::DescWrapper(const std::string& name, i::id::type id, bool owns) : AOpenSpec(name, id), owns_(owns) {
  check();
  desc::statusFlagsOf(id);  // read, not used
  const int flags = desc::descriptorFlagsOf(id);
  if (flags != -1 && (flags & FD_CLOEXEC) == 0) spec_.states[i::open::kInherit] = i::option::kEnabled;
}

void DescWrapper::check() const {
  if (id_ != i::id::kNone) return;
  if (owns_) {
    QUOREL_THROW(WrapException)("attempt to wrap an invalid descriptor", sal::i::err::domain::kApplication, 0);
  }
  QUOREL_THROW(AdoptException)("attempt to adaopt an invalid descriptor", sal::i::err::domain::kApplication, 0);
}

}  // namespace impl
}  // namespace xio
}  // namespace sal
}  // namespace quorel
