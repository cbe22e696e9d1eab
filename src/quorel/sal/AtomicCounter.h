/// \file
/// AtomicCounter: the handle counter policy that is safe across threads.
#ifndef QUOREL_SAL_ATOMICCOUNTER_H
#define QUOREL_SAL_ATOMICCOUNTER_H

#include <quorel/sal/atomic.h>

namespace quorel {
namespace sal {

/// The counter policy of handles shared across threads: the locked
/// exchange-and-add that atomic::increment and atomic::decrement perform,
/// written here so that copying or dropping a handle costs one instruction
/// rather than a call into the library. Each returns the new count; exactly
/// one of several concurrent decrements of the last references sees 0.
struct AtomicCounter {
  static int increment(int& count) { return __atomic_add_fetch(&count, 1, __ATOMIC_SEQ_CST); }
  static int decrement(int& count) { return __atomic_add_fetch(&count, -1, __ATOMIC_SEQ_CST); }
};

}  // namespace sal
}  // namespace quorel

#endif
