/// \file
/// ARefCounted: the shared holder behind AHandleTo, and the counter policies.
#ifndef QUOREL_UTIL_AREFCOUNTED_H
#define QUOREL_UTIL_AREFCOUNTED_H

namespace quorel {
namespace util {

/// How a holder's count changes. Counter is either a class with static
/// increment(int&)/decrement(int&) (e.g. sal::AtomicCounter, safe across
/// threads) or plain int (unsynchronised, for objects confined to one thread).
template <class Counter>
struct CounterPolicy {
  static int increment(int& count) { return Counter::increment(count); }
  static int decrement(int& count) { return Counter::decrement(count); }
};

/// Plain (single-threaded) counting.
template <>
struct CounterPolicy<int> {
  static int increment(int& count) { return ++count; }
  static int decrement(int& count) { return --count; }
};

/// Owns one object and counts the handles that share it. Created by AHandleTo
/// with a count of 1; destroyed by the handle that detaches the last reference.
template <class T, class Counter, class Deallocator>
class ARefCounted {
 public:
  explicit ARefCounted(T* object) : object_(object), count_(1) {}
  ARefCounted(const ARefCounted&) = delete;
  ARefCounted& operator=(const ARefCounted&) = delete;
  ~ARefCounted() {
    if (object_ != nullptr) {
      Deallocator::free(object_);
      object_ = nullptr;
    }
  }

  /// Adds one handle; returns the new count.
  int attach() { return CounterPolicy<Counter>::increment(count_); }
  /// Removes one handle; returns the new count (0: the caller destroys this).
  int detach() { return CounterPolicy<Counter>::decrement(count_); }

  T* object() const { return object_; }
  int count() const { return count_; }

 private:
  T* object_;
  int count_;
};

}  // namespace util
}  // namespace quorel

#endif
