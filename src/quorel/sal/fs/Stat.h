/// \file
/// Stat: whether a path exists, what it is, its owner's access and its size.
#ifndef QUOREL_SAL_FS_STAT_H
#define QUOREL_SAL_FS_STAT_H

#include <string>
#include <typeinfo>

#include <quorel/sal/fs/i/stat.h>
#include <quorel/sal/fs/impl/Stat.h>
#include <quorel/util/AHandleTo.h>

namespace quorel {
namespace sal {
namespace fs {

/// For devices the size comes from the device itself (SCSI READ CAPACITY (10),
/// then (16), each tried twice) or else from the kernel (BLKSSZGET and
/// BLKGETSIZE, whose byte count wraps at 4 GiB as it always has). Device
/// failures do not throw: they are kept as texts (errorRC(), errorRC16(),
/// error()) next to whatever figures could be had. Copies share the result.
///
///   fs::Stat stat("/dev/sdb");
///   if (stat.is(typeid(fs::i::stat::type::Device))) use(stat.size(), stat.blockSize());
class Stat {
 public:
  /// Records the name and queries. A missing path is not an error: exists()
  /// is false. Other failures throw StatException "::open('<path>') failed"
  /// or "::stat('<path>') failed while trying todetermine the file
  /// characterstics" (domain 2, errno).
  explicit Stat(const std::string& name);

  /// Clears every figure and queries another path.
  void resetFor(const std::string& name);
  /// Queries the path again.
  void query();
  /// Tests a tag of i::stat (type::Directory, access::read::Enabled, ...).
  /// Throws StatException "<type> is not a supported query attribute" for
  /// any other type.
  bool is(const std::type_info& tag) const;

  const std::string& name() const { return handle_.reference().name; }
  bool exists() const { return handle_.reference().exists; }
  /// 0 undetermined, 1 directory, 2 regular file, 5 block device, 6 character device.
  int type() const { return handle_.reference().type; }
  /// The owner's permission bits (not the caller's access); 0 for devices.
  int readAccess() const { return handle_.reference().readAccess; }
  int writeAccess() const { return handle_.reference().writeAccess; }
  pod::uint64 size() const { return handle_.reference().size; }
  pod::uint32 blockSize() const { return handle_.reference().blockSize; }
  const std::string& error() const { return handle_.reference().error; }
  pod::uint64 sizeByRC() const { return handle_.reference().sizeByRC; }
  pod::uint32 blockSizeByRC() const { return handle_.reference().blockSizeByRC; }
  const std::string& errorRC() const { return handle_.reference().errorRC; }
  pod::uint64 sizeByRC16() const { return handle_.reference().sizeByRC16; }
  pod::uint32 blockSizeByRC16() const { return handle_.reference().blockSizeByRC16; }
  const std::string& errorRC16() const { return handle_.reference().errorRC16; }

 private:
  util::AHandleTo<impl::Stat> handle_;
};

}  // namespace fs
}  // namespace sal
}  // namespace quorel

#endif
