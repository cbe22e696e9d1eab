/// \file
/// The value held by a Blob: one scalar or string and its type.
#ifndef QUOREL_UTIL_IMPL_BLOB_H
#define QUOREL_UTIL_IMPL_BLOB_H

#include <string>
#include <typeinfo>

namespace quorel {
namespace util {
namespace impl {

/// Confined to one thread (its handles use the int counter).
class Blob {
 public:
  /// A value of type whose bytes are zero (for a string: no string yet).
  explicit Blob(const std::type_info& type);
  Blob(const Blob&) = delete;
  Blob& operator=(const Blob&) = delete;
  ~Blob();

  /// Replaces type and value. For bool, signed char, unsigned char, short,
  /// unsigned short, int, unsigned int, long long, unsigned long long, double
  /// and std::string.
  template <class T>
  void set(const T& value);
  /// Copies the value out; InvalidArgumentException "type mismatch - ..." if
  /// the held type is not T.
  template <class T>
  void get(T& out) const;

  std::string valueAsString() const;
  /// True for equal values; InvalidArgumentException if the types differ.
  bool hasSameValueAs(const Blob& other) const;
  const std::type_info& type() const { return *type_; }

 private:
  void release();
  template <class T>
  T scalar() const;
  const std::string* string() const;

  const std::type_info* type_;
  alignas(8) unsigned char value_[8];  // a scalar, or a std::string* for the string type
};

}  // namespace impl
}  // namespace util
}  // namespace quorel

#endif
