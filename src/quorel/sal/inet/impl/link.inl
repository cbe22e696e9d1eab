// Platform half of link enumeration: getifaddrs and freeifaddrs.
#include <quorel/sal/inet/impl/Link.h>

#include <errno.h>
#include <ifaddrs.h>

#include <quorel/sal/inet/Exception.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace inet {
namespace impl {
namespace link {

ifaddrs* list() {
  ifaddrs* entries = nullptr;
  if (::getifaddrs(&entries) != 0) {
    const int error = errno;
    QUOREL_THROW(inet::Exception)("::getifaddrs() failed", i::err::domain::kInterfaceEnumeration, error);
  }
  return entries;
}

void release(ifaddrs* entries) {
  if (entries != nullptr) ::freeifaddrs(entries);
}

}  // namespace link
}  // namespace impl
}  // namespace inet
}  // namespace sal
}  // namespace quorel
