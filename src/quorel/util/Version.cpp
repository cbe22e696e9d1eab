// Version parsing and printing.
#include <quorel/util/Version.h>

#include <list>
#include <tuple>

#include <quorel/util/str.h>

namespace quorel {
namespace util {

Version::Version() : major_(0), minor_(0), patch_(0), build_(0) {}

Version::Version(const std::string& text) : Version() {
  std::list<std::string> pieces;
  str::cut(text, '.', pieces);
  std::list<std::string>::const_iterator piece = pieces.begin();
  if (piece != pieces.end()) str::to(major_, *piece++);
  if (piece != pieces.end()) str::to(minor_, *piece++);
  if (piece != pieces.end()) str::to(patch_, *piece++);
  if (piece != pieces.end()) str::to(build_, *piece++);
}

std::string Version::asString() const {
  std::string text = str::from(major_) + "." + str::from(minor_) + "." + str::from(patch_);
  if (build_ != 0) text += "." + str::from(build_);
  return text;
}

bool Version::operator==(const Version& other) const {
  return std::tie(major_, minor_, patch_, build_) ==
         std::tie(other.major_, other.minor_, other.patch_, other.build_);
}

bool Version::operator<(const Version& other) const {
  return std::tie(major_, minor_, patch_, build_) <
         std::tie(other.major_, other.minor_, other.patch_, other.build_);
}

}  // namespace util
}  // namespace quorel
