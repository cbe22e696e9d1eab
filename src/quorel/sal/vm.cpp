// Public page-aligned memory, forwarding to the implementation layer.
#include <quorel/sal/vm.h>

#include <quorel/sal/impl/vm.inl>

namespace quorel {
namespace sal {
namespace vm {

void* allocate(size_t size) { return impl::vm::allocate(size); }
void deallocate(void* pointer) { impl::vm::deallocate(pointer); }

}  // namespace vm
}  // namespace sal
}  // namespace quorel
