/// \file
/// Platform layer of UUIDs: an identifier as two unsigned 64-bit words, read
/// through the UUID field layout in host byte order.
#ifndef QUOREL_SAL_SYS_UUID_H
#define QUOREL_SAL_SYS_UUID_H

#include <string>

#include <quorel/util/pod.h>

namespace quorel {
namespace sal {
namespace sys {
namespace uuid {

typedef pod::uint64 Words[2];

/// A new time-based (version 1) identifier.
void create(Words& words);
/// From / to the 16-byte wire form (the three time fields big-endian).
void from(Words& words, const unsigned char* bytes);
void to(const Words& words, unsigned char* bytes);
/// Field-wise comparison; not a total order (see UUID::operator<).
bool less(const Words& a, const Words& b);

namespace str {
/// "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx", lower case.
std::string from(const Words& words);
}  // namespace str

}  // namespace uuid
}  // namespace sys
}  // namespace sal
}  // namespace quorel

#endif
