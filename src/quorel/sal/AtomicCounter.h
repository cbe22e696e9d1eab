/// \file
/// AtomicCounter: the handle counter policy that is safe across threads.
#ifndef QUOREL_SAL_ATOMICCOUNTER_H
#define QUOREL_SAL_ATOMICCOUNTER_H

#include <quorel/sal/atomic.h>

namespace quorel {
namespace sal {

/// The counter policy of handles shared across threads: atomic increments and decrements.
struct AtomicCounter {
  static int increment(int& count) { return atomic::increment(count); }
  static int decrement(int& count) { return atomic::decrement(count); }
};

}  // namespace sal
}  // namespace quorel

#endif
