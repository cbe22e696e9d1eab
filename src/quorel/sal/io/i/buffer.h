/// \file
/// The byte-order tags of the binary buffers.
#ifndef QUOREL_SAL_IO_I_BUFFER_H
#define QUOREL_SAL_IO_I_BUFFER_H

namespace quorel {
namespace sal {
namespace io {
namespace i {
namespace order {

/// Most significant byte first: the buffers' default, and the order of
/// internet protocol headers.
struct Network {};
/// The processor's own order (least significant byte first on x86): for
/// peers on the same host, or formats that ask for it.
struct Host {};

}  // namespace order
}  // namespace i
}  // namespace io
}  // namespace sal
}  // namespace quorel

#endif
