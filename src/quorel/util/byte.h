/// \file
/// Byte order.
#ifndef QUOREL_UTIL_BYTE_H
#define QUOREL_UTIL_BYTE_H

#include <type_traits>

namespace quorel {
namespace util {
namespace byte {

/// value with its bytes in reverse order.
template <class T>
T reversed(T value) {
  static_assert(std::is_integral<T>::value && sizeof(T) >= 2, "reversed() takes a 16- to 64-bit integer");
  typedef typename std::make_unsigned<T>::type U;
  const U u = static_cast<U>(value);
  if (sizeof(T) == 2) return static_cast<T>(__builtin_bswap16(static_cast<unsigned short>(u)));
  if (sizeof(T) == 4) return static_cast<T>(__builtin_bswap32(static_cast<unsigned int>(u)));
  return static_cast<T>(__builtin_bswap64(static_cast<unsigned long long>(u)));
}

/// Multi-byte fields of wire formats (SCSI command blocks and parameter
/// data): the low `bytes` bytes of value, most significant first, and back.
inline void storeBigEndian(unsigned char* at, unsigned long long value, int bytes) {
  for (int i = bytes - 1; i >= 0; --i) {
    at[i] = static_cast<unsigned char>(value);
    value >>= 8;
  }
}

inline unsigned long long loadBigEndian(const unsigned char* at, int bytes) {
  unsigned long long value = 0;
  for (int i = 0; i < bytes; ++i) value = value << 8 | at[i];
  return value;
}

namespace order {

/// From host order to big-endian (network) order.
template <class T>
T normalized(T value) {
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  return reversed(value);
#else
  return value;
#endif
}

/// From big-endian (network) order to host order.
template <class T>
T naturalized(T value) {
  return normalized(value);
}

}  // namespace order
}  // namespace byte
}  // namespace util
}  // namespace quorel

#endif
