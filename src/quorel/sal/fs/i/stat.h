/// \file
/// The query tags of fs::Stat: empty classes used through their type identity.
#ifndef QUOREL_SAL_FS_I_STAT_H
#define QUOREL_SAL_FS_I_STAT_H

namespace quorel {
namespace sal {
namespace fs {
namespace i {
namespace stat {

namespace type {
struct Undefined {};
struct Directory {};
struct RegularFile {};
struct Device {};
struct TapeDevice {};
struct UnixBlockDevice {};
struct UnixCharacterDevice {};
}  // namespace type

namespace access {
namespace read {
struct Enabled {};
struct Disabled {};
}  // namespace read
namespace write {
struct Enabled {};
struct Disabled {};
}  // namespace write
}  // namespace access

}  // namespace stat
}  // namespace i
}  // namespace fs
}  // namespace sal
}  // namespace quorel

#endif
