/// \file
/// What one query found out about a path.
#ifndef QUOREL_SAL_FS_IMPL_STAT_H
#define QUOREL_SAL_FS_IMPL_STAT_H

#include <string>
#include <typeinfo>

#include <quorel/util/pod.h>

namespace quorel {
namespace sal {
namespace fs {
namespace impl {

/// The characteristics behind fs::Stat, filled by its query.
class Stat {
 public:
  enum type { kUndefined = 0, kDirectory = 1, kRegularFile = 2, kDevice = 3, kTapeDevice = 4, kBlockDevice = 5,
              kCharacterDevice = 6 };

  explicit Stat(const std::string& name);
  /// Starts over for another path: every figure is cleared, then queried.
  void resetFor(const std::string& name);
  void query();
  bool is(const std::type_info& tag) const;

  pod::uint32 mode = 0;
  std::string name;
  bool exists = false;
  int type = kUndefined;
  int readAccess = 0;
  int writeAccess = 0;
  pod::uint32 blockSizeByRC16 = 0;
  pod::uint64 sizeByRC16 = 0;
  std::string errorRC16;
  pod::uint32 blockSizeByRC = 0;
  pod::uint64 sizeByRC = 0;
  std::string errorRC;
  pod::uint32 blockSize = 0;
  pod::uint64 size = 0;
  std::string error;

 private:
  void clear();
  void queryDevice(int fd);
  bool capacityOf(int fd);
};

}  // namespace impl
}  // namespace fs
}  // namespace sal
}  // namespace quorel

#endif
