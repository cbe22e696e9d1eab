/// \file
/// The state behind inet::LinkAddress.
#ifndef QUOREL_SAL_INET_IMPL_LINKADDRESS_H
#define QUOREL_SAL_INET_IMPL_LINKADDRESS_H

#include <string>

#include <quorel/sal/inet/Address.h>

namespace quorel {
namespace sal {
namespace inet {
namespace impl {

/// One address of a link, as the kernel reports it.
struct LinkAddress {
  inet::Address address;    // with the link's index as scope id when IPv6 link-local
  inet::Address peer;       // the other end on a point-to-point link; empty otherwise
  inet::Address broadcast;  // IPv4 only; empty otherwise
  int prefixLength = 0;
  int scope = 0;            // RT_SCOPE_*
  unsigned int flags = 0;   // IFA_F_*
  std::string label;        // the IPv4 label ("eth0:1"); empty otherwise
};

}  // namespace impl
}  // namespace inet
}  // namespace sal
}  // namespace quorel

#endif
