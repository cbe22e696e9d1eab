/// \file
/// UUID: a 128-bit time-based identifier.
#ifndef QUOREL_UTIL_UUID_H
#define QUOREL_UTIL_UUID_H

#include <string>

#include <quorel/util/pod.h>

namespace quorel {
namespace util {

/// A version-1 style identifier made from the wall clock (in 100 ns units
/// counted from 1601), the monotonic tick, a clock sequence from rand() and
/// the hardware address of the host's first network link (see
/// sal::inet::Link::fill: on Linux that is the loopback, whose address is 0),
/// or three rand() values when the host has no link.
///
/// Creating one reseeds the C library's generator (srand) from the tick.
class UUID {
 public:
  /// A new identifier. Throws what the clock and link enumeration throw
  /// (sys::Exception "::gettimeofday() failed", inet::Exception
  /// "::socket(AF_NETLINK, NETLINK_ROUTE) failed" and the other failures of
  /// sal::inet::Link::list()).
  UUID();
  /// From the 16-byte wire form.
  explicit UUID(const unsigned char* bytes);

  /// Writes the 16-byte wire form: time fields big-endian, the rest as held.
  void to(unsigned char* bytes) const;
  /// 36 characters, lower-case hexadecimal.
  std::string asString() const;

  /// Field by field; a smaller earlier field does not decide, so this is not
  /// a total order: two identifiers may each be not less than the other
  /// without being equal. Do not use it as a std::map key order.
  bool operator<(const UUID& other) const;
  bool operator==(const UUID& other) const;
  bool operator!=(const UUID& other) const { return !(*this == other); }

 private:
  pod::uint64 words_[2];
};

}  // namespace util
}  // namespace quorel

#endif
