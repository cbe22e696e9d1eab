/// \file
/// ADeallocatorOf: the handle policy that deletes a single object.
#ifndef QUOREL_UTIL_ADEALLOCATOROF_H
#define QUOREL_UTIL_ADEALLOCATOROF_H

namespace quorel {
namespace util {

/// How a handle frees its object: delete.
template <class T>
struct ADeallocatorOf {
  /// Destroys and releases the object with delete; does nothing for null.
  static void free(T* object) {
    if (object != nullptr) delete object;
  }
};

}  // namespace util
}  // namespace quorel

#endif
