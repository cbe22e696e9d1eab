/// \file
/// Blob: a typed value container holding one value of one of eleven types.
#ifndef QUOREL_UTIL_BLOB_H
#define QUOREL_UTIL_BLOB_H

#include <string>
#include <typeinfo>

#include <quorel/util/AHandleTo.h>
#include <quorel/util/impl/Blob.h>

namespace quorel {
namespace util {

/// Holds a bool, signed char, unsigned char, short, unsigned short, int,
/// unsigned int, long long, unsigned long long, double or std::string,
/// remembers which, renders it as text and refuses to hand it out as any
/// other type.
///
/// Copies share one value: setting a copy changes the original too. A blob is
/// not shared between threads.
///
/// Each set() over a string blob abandons the previous string's storage (it is
/// never freed); programs that set strings repeatedly grow by each string's
/// size. Leak checkers should ignore allocations made by
/// the function newHeldString (in an unnamed namespace of util/impl).
class Blob {
 public:
  Blob(bool value);
  Blob(signed char value);
  Blob(unsigned char value);
  Blob(short value);
  Blob(unsigned short value);
  Blob(int value);
  Blob(unsigned int value);
  Blob(long long value);
  Blob(unsigned long long value);
  Blob(double value);
  Blob(const std::string& value);
  /// A string blob (without this, a literal would convert to bool).
  Blob(const char* value);
  /// A blob of type whose value is zero (for std::string: empty).
  explicit Blob(const std::type_info& type);
  /// Shares other's value.
  Blob(const Blob& other);
  Blob& operator=(const Blob& other);
  ~Blob();

  /// Replace type and value.
  void set(bool value);
  void set(signed char value);
  void set(unsigned char value);
  void set(short value);
  void set(unsigned short value);
  void set(int value);
  void set(unsigned int value);
  void set(long long value);
  void set(unsigned long long value);
  void set(double value);
  void set(const std::string& value);
  void set(const char* value);

  /// Copy the value out. Throw InvalidArgumentException
  /// "type mismatch - expected '<held type>' but requested type is '<type>'"
  /// when the blob holds another type.
  void get(bool& out) const;
  void get(signed char& out) const;
  void get(unsigned char& out) const;
  void get(short& out) const;
  void get(unsigned short& out) const;
  void get(int& out) const;
  void get(unsigned int& out) const;
  void get(long long& out) const;
  void get(unsigned long long& out) const;
  void get(double& out) const;
  void get(std::string& out) const;

  /// "true"/"false", a decimal number, or the string itself; "" for a type
  /// outside the eleven.
  std::string valueAsString() const;
  /// The held type.
  const std::type_info& type() const;

  /// True if both hold equal values. Throws InvalidArgumentException "type
  /// mismatch - ..." when the types differ (an int blob never equals a
  /// long long blob: it is an error to compare them).
  bool operator==(const Blob& other) const;
  bool operator!=(const Blob& other) const { return !(*this == other); }

 private:
  template <class T>
  static impl::Blob* make(const T& value);

  AHandleTo<impl::Blob, int> handle_;
};

}  // namespace util
}  // namespace quorel

#endif
