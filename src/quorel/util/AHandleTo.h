/// \file
/// AHandleTo: the reference-counted handle through which public classes share
/// their implementation objects.
#ifndef QUOREL_UTIL_AHANDLETO_H
#define QUOREL_UTIL_AHANDLETO_H

#include <quorel/sal/AtomicCounter.h>
#include <quorel/util/ADeallocatorOf.h>
#include <quorel/util/ARefCounted.h>
#include <quorel/util/Exception.h>

namespace quorel {
namespace util {

/// A handle shares one holder (ARefCounted) with its copies; the object is
/// freed, through Deallocator, when the last copy is destroyed.
///
/// With Counter = sal::AtomicCounter, copies sharing a holder may be made and
/// dropped on any threads; with Counter = int they must stay on one thread. A
/// single handle object is never safe to assign on one thread while another
/// reads it. The object itself gets no protection from the handle.
///
/// Dereferencing an empty handle throws NULLDereferenceException
/// "this handle does not contain a valid object".
template <class T, class Counter = sal::AtomicCounter, class Deallocator = ADeallocatorOf<T>>
class AHandleTo {
 public:
  typedef ARefCounted<T, Counter, Deallocator> Holder;

  /// An empty handle: no holder, no object.
  AHandleTo() : holder_(nullptr) {}
  /// Takes ownership of object; null gives an empty handle with no holder.
  /// Explicit, so that a raw pointer never hands over ownership unnoticed.
  explicit AHandleTo(T* object);
  /// Shares other's holder (copies share the object).
  AHandleTo(const AHandleTo& other);
  /// Releases the current holder and shares other's; nothing happens when both
  /// already share one holder. other may live inside the object released
  /// (h = h->next): it is attached before the release.
  AHandleTo& operator=(const AHandleTo& other);
  ~AHandleTo();

  T* operator->();
  const T* operator->() const;
  const T& reference() const;

  /// True when the handle holds an object.
  explicit operator bool() const { return holder_ != nullptr && holder_->object() != nullptr; }
  /// The number of handles sharing the holder; 0 for an empty handle.
  int useCount() const { return holder_ != nullptr ? holder_->count() : 0; }

 private:
  void release();

  Holder* holder_;
};

}  // namespace util
}  // namespace quorel

#include <quorel/util/AHandleTo.inl>

#endif
