/// \file
/// The socket address behind inet::Address.
#ifndef QUOREL_SAL_INET_IMPL_ADDRESS_H
#define QUOREL_SAL_INET_IMPL_ADDRESS_H

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstring>

namespace quorel {
namespace sal {
namespace inet {
namespace impl {

/// An IPv4 or IPv6 socket address; bytes beyond the family's structure are zero.
class Address {
 public:
  Address() { std::memset(&storage, 0, sizeof storage); }

  union {
    sockaddr any;
    sockaddr_in v4;
    sockaddr_in6 v6;
  } storage;
};

}  // namespace impl
}  // namespace inet
}  // namespace sal
}  // namespace quorel

#endif
