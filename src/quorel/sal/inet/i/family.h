/// \file
/// Address family codes of the internet configuration.
#ifndef QUOREL_SAL_INET_I_FAMILY_H
#define QUOREL_SAL_INET_I_FAMILY_H

namespace quorel {
namespace sal {
namespace inet {
namespace i {
namespace family {

enum code : int {
  kUnspecified = 0,  // accepted where an IPv6 default is meant
  kIPv4 = 1,
  kIPv6 = 2,
};

}  // namespace family
}  // namespace i
}  // namespace inet
}  // namespace sal
}  // namespace quorel

#endif
