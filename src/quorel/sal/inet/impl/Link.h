/// \file
/// One network link of the host: name, interface index, hardware address.
#ifndef QUOREL_SAL_INET_IMPL_LINK_H
#define QUOREL_SAL_INET_IMPL_LINK_H

#include <string>

#include <quorel/util/pod.h>

struct ifaddrs;

namespace quorel {
namespace sal {
namespace inet {
namespace impl {

/// One network interface: its name, index and hardware address.
class Link {
 public:
  Link(const std::string& name, int index, pod::uint64 address, unsigned int flags)
      : name_(name), index_(index), address_(address), flags_(flags) {}

  const std::string& name() const { return name_; }
  int index() const { return index_; }
  pod::uint64 address() const { return address_; }
  unsigned int flags() const { return flags_; }

 private:
  std::string name_;
  int index_;
  pod::uint64 address_;  // 48-bit hardware address; 0 when the link has none
  unsigned int flags_;   // IFF_* flags
};

namespace link {

/// The host's interface addresses (getifaddrs). Throws inet::Exception
/// "::getifaddrs() failed" in the interface enumeration domain with errno.
ifaddrs* list();
/// Releases a list from list() (freeifaddrs); null is ignored.
void release(ifaddrs* entries);

}  // namespace link
}  // namespace impl
}  // namespace inet
}  // namespace sal
}  // namespace quorel

#endif
