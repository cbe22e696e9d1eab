/// \file
/// The socket behind every socket class: a BSDSocket that tells the selectors
/// holding it before its descriptor closes.
#ifndef QUOREL_SAL_IO_IMPL_SOCKET_H
#define QUOREL_SAL_IO_IMPL_SOCKET_H

#include <quorel/sal/io/impl/Selector.h>
#include <quorel/sal/sys/io/BSDSocket.h>

namespace quorel {
namespace sal {
namespace io {
namespace impl {

class Socket : public sys::io::BSDSocket {
 public:
  using BSDSocket::BSDSocket;
  /// The selectors forget the socket first (destruction does the same,
  /// through watchers' destructor, before the base closes the descriptor).
  void close(bool graceful) {
    watchers.closing();
    BSDSocket::close(graceful);
  }

  Watchers watchers;
};

}  // namespace impl
}  // namespace io
}  // namespace sal
}  // namespace quorel

#endif
