// AHandleTo's members.
#include <quorel/util/Throw.h>

namespace quorel {
namespace util {

template <class T, class Counter, class Deallocator>
AHandleTo<T, Counter, Deallocator>::AHandleTo(T* object) : holder_(nullptr) {
  if (object == nullptr) return;
  try {
    holder_ = new Holder(object);
  } catch (...) {
    Deallocator::free(object);  // the handle owned it from the call on
    throw;
  }
}

template <class T, class Counter, class Deallocator>
AHandleTo<T, Counter, Deallocator>::AHandleTo(const AHandleTo& other) : holder_(nullptr) {
  if (other.holder_ != nullptr) other.holder_->attach();
  holder_ = other.holder_;
}

template <class T, class Counter, class Deallocator>
AHandleTo<T, Counter, Deallocator>& AHandleTo<T, Counter, Deallocator>::operator=(
    const AHandleTo& other) {
  if (this == &other || holder_ == other.holder_) return *this;
  // Attach first: other may live inside the object that release() frees
  // (h = h->next), so it is not read after that.
  Holder* const incoming = other.holder_;
  if (incoming != nullptr) incoming->attach();
  release();
  holder_ = incoming;
  return *this;
}

template <class T, class Counter, class Deallocator>
AHandleTo<T, Counter, Deallocator>::~AHandleTo() {
  release();
}

template <class T, class Counter, class Deallocator>
void AHandleTo<T, Counter, Deallocator>::release() {
  Holder* holder = holder_;
  holder_ = nullptr;
  if (holder != nullptr && holder->detach() == 0) delete holder;
}

// The accessors are always inlined: a dereference costs two loads and a test,
// the throw being out of line.
template <class T, class Counter, class Deallocator>
inline __attribute__((always_inline)) T* AHandleTo<T, Counter, Deallocator>::operator->() {
  if (__builtin_expect(holder_ == nullptr || holder_->object() == nullptr, 0)) {
    QUOREL_THROW(NULLDereferenceException)("this handle does not contain a valid object",
                                           sal::i::err::domain::kApplication, 0);
  }
  return holder_->object();
}

template <class T, class Counter, class Deallocator>
inline __attribute__((always_inline)) const T* AHandleTo<T, Counter, Deallocator>::operator->() const {
  if (__builtin_expect(holder_ == nullptr || holder_->object() == nullptr, 0)) {
    QUOREL_THROW(NULLDereferenceException)("this handle does not contain a valid object",
                                           sal::i::err::domain::kApplication, 0);
  }
  return holder_->object();
}

template <class T, class Counter, class Deallocator>
inline __attribute__((always_inline)) const T& AHandleTo<T, Counter, Deallocator>::reference() const {
  if (__builtin_expect(holder_ == nullptr || holder_->object() == nullptr, 0)) {
    QUOREL_THROW(NULLDereferenceException)("this handle does not contain a valid object",
                                           sal::i::err::domain::kApplication, 0);
  }
  return *holder_->object();
}

}  // namespace util
}  // namespace quorel
