/// \file
/// Error domains: which number space an exception's code belongs to.
#ifndef QUOREL_SAL_I_ERR_H
#define QUOREL_SAL_I_ERR_H

namespace quorel {
namespace sal {
namespace i {
namespace err {
namespace domain {

/// The numeric values are printed by Exception::asString() and are part of the
/// interface: never renumber them.
enum code : int {
  kApplication = 0,           // the thrower's own value (often 0, or the rejected argument)
  kCRuntime = 1,              // errno after a C library call
  kSystemCall = 2,            // errno after a system call
  kDynamicLinker = 3,         // 0; the text comes from dlerror() when formatted
  kAddressResolution = 4,     // getaddrinfo()/getnameinfo() result
  kSCSICDB = 5,               // SCSI status byte, SG_IO host status << 16 or driver status << 24
  kInterfaceEnumeration = 6,  // errno after enumerating network interfaces
};

}  // namespace domain
}  // namespace err
}  // namespace i
}  // namespace sal
}  // namespace quorel

#endif
