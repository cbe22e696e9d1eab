/// \file
/// Fixed-width plain integer types used in the library's signatures.
#ifndef QUOREL_UTIL_POD_H
#define QUOREL_UTIL_POD_H

#include <cstdint>

namespace quorel {
namespace pod {

typedef std::uint8_t uint8;
typedef std::uint16_t uint16;
typedef std::uint32_t uint32;
typedef std::uint64_t uint64;
typedef std::int64_t int64;
typedef std::int32_t int32;
typedef std::uintptr_t uintptr;  // pointer-sized unsigned integer
typedef std::int32_t integer;

}  // namespace pod
}  // namespace quorel

#endif
