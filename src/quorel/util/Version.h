/// \file
/// Version: a dotted version number of up to four components.
#ifndef QUOREL_UTIL_VERSION_H
#define QUOREL_UTIL_VERSION_H

#include <string>

#include <quorel/util/pod.h>

namespace quorel {
namespace util {

/// major.minor.patch.build with 8-, 8-, 16- and 32-bit components.
class Version {
 public:
  /// 0.0.0
  Version();
  /// Cuts text at every '.' and reads the first four pieces as decimal
  /// numbers; missing pieces are 0, later ones ignored. The 8-bit components
  /// keep the low 8 bits ("300.1" has major 44). A piece that is not a number
  /// throws str::Exception "conversion from \"<piece>\" failed".
  explicit Version(const std::string& text);

  /// "major.minor.patch", with ".build" only when build is not 0
  /// ("2.6" prints as "2.6.0", "2.6.18.0" as "2.6.18").
  std::string asString() const;

  pod::uint8 majorNumber() const { return major_; }
  pod::uint8 minorNumber() const { return minor_; }
  pod::uint16 patch() const { return patch_; }
  pod::uint32 build() const { return build_; }

  bool operator==(const Version& other) const;
  bool operator!=(const Version& other) const { return !(*this == other); }
  /// Component by component, major first.
  bool operator<(const Version& other) const;

 private:
  pod::uint8 major_;
  pod::uint8 minor_;
  pod::uint16 patch_;
  pod::uint32 build_;
};

}  // namespace util
}  // namespace quorel

#endif
