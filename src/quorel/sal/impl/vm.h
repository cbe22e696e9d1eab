/// \file
/// Page-aligned memory, over valloc and free.
#ifndef QUOREL_SAL_IMPL_VM_H
#define QUOREL_SAL_IMPL_VM_H

#include <cstddef>

namespace quorel {
namespace sal {
namespace impl {
namespace vm {

void* allocate(size_t size);
void deallocate(void* pointer);

}  // namespace vm
}  // namespace impl
}  // namespace sal
}  // namespace quorel

#endif
