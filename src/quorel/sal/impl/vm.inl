// Page-aligned memory: valloc and free.
#include <quorel/sal/impl/vm.h>

#include <errno.h>
#include <stdlib.h>

#include <quorel/sal/Exception.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace impl {
namespace vm {

void* allocate(size_t size) {
  void* block = ::valloc(size);
  if (block == nullptr) {
    const int error = errno;
    QUOREL_THROW(sal::vm::Exception)("::valloc() failed", i::err::domain::kCRuntime, error);
  }
  return block;
}

void deallocate(void* pointer) { ::free(pointer); }

}  // namespace vm
}  // namespace impl
}  // namespace sal
}  // namespace quorel
