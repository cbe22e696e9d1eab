/// \file
/// open::Spec and fopen::Spec: how a descriptor or a file is to be opened.
#ifndef QUOREL_SAL_XIO_SPEC_H
#define QUOREL_SAL_XIO_SPEC_H

#include <string>

#include <quorel/sal/xio/i/types.h>
#include <quorel/sal/xio/impl/Spec.h>
#include <quorel/util/AHandleTo.h>

namespace quorel {
namespace sal {
namespace xio {

namespace open {

/// Descriptor options: inherit (default Disabled: close-on-exec) and nonblock
/// (default Disabled). Copies share one record: set() on a copy changes both.
///
///   open::Spec spec;
///   spec.set<i::open::nonblock::Enabled>();
class Spec {
 public:
  Spec();

  template <class Tag>
  Spec& set() {
    static_assert(Tag::group == i::option::kOpen, "open::Spec takes the i::open tags");
    handle_->states[Tag::index] = Tag::value;
    return *this;
  }
  template <class Tag>
  bool is() const {
    static_assert(Tag::group == i::option::kOpen, "open::Spec takes the i::open tags");
    return handle_->states[Tag::index] == Tag::value;
  }

  const impl::open::Spec& key() const { return handle_.reference(); }
  /// "FD_CLOEXEC" by default; "O_NONBLOCK" is added when nonblock is Enabled.
  std::string asString() const { return handle_->asString(); }

 private:
  util::AHandleTo<impl::open::Spec> handle_;
};

}  // namespace open

namespace fopen {

/// File options on top of the descriptor options copied from an open::Spec.
/// Each is unspecified, Enabled or Disabled; only Enabled adds to the open.
/// A created file gets mode 0600 unless the posix permission tags change it.
/// Options of other platforms (win, sol, mac) are accepted and ignored.
///
///   fopen::Spec spec;
///   spec.set<i::fopen::write::Enabled>().set<i::fopen::write::create::Enabled>()
///       .set<i::fopen::write::init::Truncate>();
class Spec {
 public:
  explicit Spec(const open::Spec& descriptor = open::Spec());

  template <class Tag>
  Spec& set() {
    if constexpr (Tag::group == i::option::kOpen) handle_->descriptor.states[Tag::index] = Tag::value;
    if constexpr (Tag::group == i::option::kFile) handle_->options[Tag::index] = Tag::value;
    return *this;
  }
  template <class Tag>
  bool is() const {
    if constexpr (Tag::group == i::option::kOpen) return handle_->descriptor.states[Tag::index] == Tag::value;
    if constexpr (Tag::group == i::option::kFile) return handle_->options[Tag::index] == Tag::value;
    return false;
  }

  const impl::fopen::Spec& key() const { return handle_.reference(); }
  /// The flag names of the open this spec makes.
  std::string asString() const { return handle_->flagNames(); }

 private:
  util::AHandleTo<impl::fopen::Spec> handle_;
};

/// Opens path as Endpoint::open(path, spec) would, and a block device for
/// this process alone (O_EXCL): the kernel refuses the open with EBUSY while
/// the device is mounted, part of a RAID or device-mapper volume, or opened
/// exclusively by another program, so a discard or raw write cannot reach a
/// file system in use. On anything but a block device O_EXCL changes
/// nothing, except with write::create, where it makes the open fail with
/// EEXIST when the file exists. The descriptor is the caller's, to hand to
/// Endpoint::adopt (whose open::Spec should say what this spec said).
/// Throws OpenException "::open('<path>', O_RDWR O_EXCL O_LARGEFILE ...)
/// failed" (domain 2, errno).
///
///   const i::id::type fd = fopen::openExclusive("/dev/sdb", spec);
///   Endpoint disk = Endpoint::adopt(fd, open::Spec());
i::id::type openExclusive(const std::string& path, const Spec& spec);

}  // namespace fopen
}  // namespace xio
}  // namespace sal
}  // namespace quorel

#endif
