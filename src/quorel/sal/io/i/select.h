/// \file
/// What a selector watches for and what it reports.
#ifndef QUOREL_SAL_IO_I_SELECT_H
#define QUOREL_SAL_IO_I_SELECT_H

namespace quorel {
namespace sal {
namespace io {
namespace i {
namespace select {

/// Bits of an interest (what to watch for) and of a readiness (what was found).
enum : unsigned {
  kRead = 1u,   ///< data to read, a connection to accept, or the peer's end
  kWrite = 2u,  ///< room to write
  /// Interest only: report a change of readiness once instead of for as long
  /// as it lasts (edge-triggered); the owner then reads or writes until
  /// the call would block.
  kEdge = 4u,
  kHangUp = 8u,  ///< readiness only: the peer hung up (reported whatever the interest)
  kError = 16u   ///< readiness only: an error is pending on the descriptor
};

/// One ready endpoint, as a selector hands it out.
struct Ready {
  unsigned long long id;  ///< its descriptor
  unsigned events;        ///< kRead, kWrite, kHangUp, kError
  void* context;          ///< what it was registered with
};

}  // namespace select
}  // namespace i
}  // namespace io
}  // namespace sal
}  // namespace quorel

#endif
