/// \file
/// Page-aligned memory blocks.
#ifndef QUOREL_SAL_VM_H
#define QUOREL_SAL_VM_H

#include <cstddef>

namespace quorel {
namespace sal {
namespace vm {

/// A block of at least size bytes aligned to the page size (for direct I/O
/// buffers). Throws vm::Exception "::valloc() failed" (domain 1, errno).
void* allocate(size_t size);
/// Releases a block from allocate(); null is ignored.
void deallocate(void* pointer);

}  // namespace vm
}  // namespace sal
}  // namespace quorel

#endif
