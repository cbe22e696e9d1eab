/// \file
/// Path: a path name as a value, with the everyday lexical operations.
#ifndef QUOREL_SAL_FS_PATH_H
#define QUOREL_SAL_FS_PATH_H

#include <iosfwd>
#include <string>

namespace quorel {
namespace sal {
namespace fs {

/// A path name. Everything but absolute() is text work on the name alone:
/// nothing asks the file system, so symbolic links are not taken into account
/// (normal() of "link/.." is "." whatever the link points to). A path is bytes,
/// as Linux names are; whether it is usable is checked when an operation hands
/// it to the system (see dir.h).
///
///   fs::Path logs = fs::Path("/var/log") / "app";       // "/var/log/app"
///   fs::Path("a/./b/../c").normal();                    // "a/c"
///   fs::Path("/srv/data.tar.gz").extension();           // ".gz"
class Path {
 public:
  Path() = default;
  Path(std::string text) : text_(std::move(text)) {}  // NOLINT: paths convert from text
  Path(const char* text) : text_(text) {}             // NOLINT

  const std::string& text() const { return text_; }
  const char* c_str() const { return text_.c_str(); }
  bool empty() const { return text_.empty(); }
  bool isAbsolute() const { return !text_.empty() && text_[0] == '/'; }

  /// Joins: other appended after one slash; an absolute other replaces this
  /// path, and an empty one leaves it as it is.
  Path operator/(const Path& other) const;
  Path& operator/=(const Path& other) { return *this = *this / other; }

  /// The path without its last component, trailing slashes ignored: "a/b/" ->
  /// "a", "a" -> ".", "/a" -> "/", "/" -> "/"; the empty path stays empty.
  Path parent() const;
  /// The last component, trailing slashes ignored: "a/b/" -> "b"; "" for the
  /// root and the empty path.
  std::string name() const;
  /// name() up to its last dot ("a.tar.gz" -> "a.tar"); a leading dot does
  /// not count (".profile" -> ".profile"), nor do "." and "..".
  std::string stem() const;
  /// From name()'s last dot on (".gz"), or "" when stem() is the whole name.
  std::string extension() const;

  /// Lexically normal form: no "." components, no empty ones, no trailing
  /// slash, each ".." cancels the component before it; a leading ".." of a
  /// relative path stays, one above the root is dropped ("/.." -> "/"). An
  /// empty result is "."; the empty path stays empty.
  Path normal() const;
  /// The path from the current directory (getcwd) when it is relative;
  /// an absolute path is returned as it is. Not normalised.
  Path absolute() const;

  /// Orders by components, bytewise: "a//b/" equals "a/b"; a relative path
  /// comes before an absolute one. "a/./b" and "a/b" differ (see normal()).
  int compare(const Path& other) const;

 private:
  std::string text_;
};

inline bool operator==(const Path& a, const Path& b) { return a.compare(b) == 0; }
inline bool operator!=(const Path& a, const Path& b) { return a.compare(b) != 0; }
inline bool operator<(const Path& a, const Path& b) { return a.compare(b) < 0; }

/// Writes the text as it is.
std::ostream& operator<<(std::ostream& out, const Path& path);

}  // namespace fs
}  // namespace sal
}  // namespace quorel

#endif
