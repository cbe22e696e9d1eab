/// \file
/// The records behind open::Spec and fopen::Spec.
#ifndef QUOREL_SAL_XIO_IMPL_SPEC_H
#define QUOREL_SAL_XIO_IMPL_SPEC_H

#include <string>

#include <quorel/sal/xio/i/types.h>

namespace quorel {
namespace sal {
namespace xio {
namespace impl {

namespace open {

/// inherit and nonblock, both Disabled by default.
class Spec {
 public:
  Spec() : states{i::option::kDisabled, i::option::kDisabled} {}
  bool enabled(int option) const { return states[option] == i::option::kEnabled; }
  /// "FD_CLOEXEC" unless inherit is Enabled, then "O_NONBLOCK" when enabled.
  std::string asString() const;

  int states[i::open::kCount];
};

}  // namespace open

namespace fopen {

/// The file options, the copied descriptor options and the open64 flags and
/// mode they give.
class Spec {
 public:
  explicit Spec(const open::Spec& descriptor);

  bool enabled(int option) const { return options[option] == i::option::kEnabled; }
  /// Fills flags and mode from the options.
  void compute();
  /// "O_WRONLY O_CREAT O_TRUNC O_LARGEFILE S_IRUSR S_IWUSR F_SETFD=FD_CLOEXEC";
  /// O_EXCL follows the access mode for an exclusive open.
  std::string flagNames(bool exclusive = false) const;
  /// open64(path, flags, mode), with O_EXCL when exclusive, then fcntlOn;
  /// the caller owns the descriptor. Throws OpenException
  /// "::open('<path>', <flag names>) failed".
  i::id::type open(const std::string& path, bool exclusive = false) const;
  /// Nonblock (F_SETFL, O_NONBLOCK: the status flags become O_NONBLOCK alone,
  /// clearing O_APPEND or O_DIRECT) and close-on-exec, as the options say.
  void fcntlOn(int fd, const std::string& path) const;

  open::Spec descriptor;
  int options[i::fopen::kCount];
  int flags;
  int mode;
};

}  // namespace fopen
}  // namespace impl
}  // namespace xio
}  // namespace sal
}  // namespace quorel

#endif
