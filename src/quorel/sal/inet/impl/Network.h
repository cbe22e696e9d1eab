/// \file
/// The state behind inet::Network.
#ifndef QUOREL_SAL_INET_IMPL_NETWORK_H
#define QUOREL_SAL_INET_IMPL_NETWORK_H

#include <vector>

#include <quorel/sal/inet/Address.h>

namespace quorel {
namespace sal {
namespace inet {
namespace impl {

/// A network: its address with the host bits cleared, its prefix length and
/// the indexes of the links that have an address in it.
struct Network {
  inet::Address address;
  int prefixLength = 0;
  std::vector<int> links;
};

}  // namespace impl
}  // namespace inet
}  // namespace sal
}  // namespace quorel

#endif
