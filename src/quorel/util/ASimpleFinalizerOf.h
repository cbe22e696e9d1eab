/// \file
/// ASimpleFinalizerOf: calls a function with a value when a scope ends.
#ifndef QUOREL_UTIL_ASIMPLEFINALIZEROF_H
#define QUOREL_UTIL_ASIMPLEFINALIZEROF_H

namespace quorel {
namespace util {

/// Typically ASimpleFinalizerOf<int, int (*)(int)>: a descriptor and the
/// function that closes it. The function's result is ignored.
template <class T, class F>
class ASimpleFinalizerOf {
 public:
  ASimpleFinalizerOf(T value, F function) : value_(value), function_(function) {}
  ~ASimpleFinalizerOf() { function_(value_); }
  ASimpleFinalizerOf(const ASimpleFinalizerOf&) = delete;
  ASimpleFinalizerOf& operator=(const ASimpleFinalizerOf&) = delete;

 private:
  T value_;
  F function_;
};

}  // namespace util
}  // namespace quorel

#endif
