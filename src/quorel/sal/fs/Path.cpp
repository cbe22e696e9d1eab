// Path: lexical operations on path names.
#include <quorel/sal/fs/Path.h>

#include <ostream>
#include <vector>

#include <quorel/sal/sys/exec/proc.h>

namespace quorel {
namespace sal {
namespace fs {

namespace {

// The components of a path: the pieces between slashes, empty ones skipped.
// Views into text, which must outlive them.
struct Piece {
  std::string::size_type begin, size;
};

std::vector<Piece> piecesOf(const std::string& text) {
  std::vector<Piece> pieces;
  std::string::size_type at = 0;
  while (at < text.size()) {
    while (at < text.size() && text[at] == '/') ++at;
    const std::string::size_type end = std::min(text.find('/', at), text.size());
    if (end > at) pieces.push_back({at, end - at});
    at = end;
  }
  return pieces;
}

// The end of the text without its trailing slashes (a root keeps one).
std::string::size_type trimmedEnd(const std::string& text) {
  std::string::size_type end = text.size();
  while (end > 1 && text[end - 1] == '/') --end;
  return end;
}

bool isDots(const std::string& name) { return name == "." || name == ".."; }

}  // namespace

Path Path::operator/(const Path& other) const {
  if (other.isAbsolute() || text_.empty()) return other;
  if (other.text_.empty()) return *this;
  return Path(text_.back() == '/' ? text_ + other.text_ : text_ + '/' + other.text_);
}

Path Path::parent() const {
  if (text_.empty()) return Path();
  std::string::size_type end = trimmedEnd(text_);
  const std::string::size_type slash = text_.rfind('/', end - 1);
  if (slash == std::string::npos) return Path(".");
  end = slash;
  while (end > 0 && text_[end - 1] == '/') --end;
  return end == 0 ? Path("/") : Path(text_.substr(0, end));
}

std::string Path::name() const {
  const std::string::size_type end = trimmedEnd(text_);
  const std::string::size_type slash = end == 0 ? std::string::npos : text_.rfind('/', end - 1);
  const std::string::size_type begin = slash == std::string::npos ? 0 : slash + 1;
  return text_.substr(begin, end - begin);
}

std::string Path::stem() const {
  const std::string whole = name();
  const std::string::size_type dot = whole.rfind('.');
  return dot == std::string::npos || dot == 0 || isDots(whole) ? whole : whole.substr(0, dot);
}

std::string Path::extension() const {
  const std::string whole = name();
  return whole.substr(stem().size());
}

Path Path::normal() const {
  if (text_.empty()) return Path();
  std::vector<std::string> kept;
  for (const Piece& piece : piecesOf(text_)) {
    const std::string component = text_.substr(piece.begin, piece.size);
    if (component == ".") continue;
    if (component != "..") {
      kept.push_back(component);
    } else if (!kept.empty() && kept.back() != "..") {
      kept.pop_back();
    } else if (!isAbsolute()) {
      kept.push_back(component);
    }
  }
  std::string result = isAbsolute() ? "/" : "";
  for (std::size_t i = 0; i < kept.size(); ++i) result += (i == 0 ? "" : "/") + kept[i];
  return Path(result.empty() ? "." : result);
}

Path Path::absolute() const { return isAbsolute() ? *this : Path(sys::exec::proc::currentDirectory()) / *this; }

int Path::compare(const Path& other) const {
  if (isAbsolute() != other.isAbsolute()) return isAbsolute() ? 1 : -1;
  const std::vector<Piece> mine = piecesOf(text_), theirs = piecesOf(other.text_);
  for (std::size_t i = 0; i < mine.size() && i < theirs.size(); ++i) {
    const int order = text_.compare(mine[i].begin, mine[i].size, other.text_, theirs[i].begin, theirs[i].size);
    if (order != 0) return order < 0 ? -1 : 1;
  }
  return mine.size() == theirs.size() ? 0 : mine.size() < theirs.size() ? -1 : 1;
}

std::ostream& operator<<(std::ostream& out, const Path& path) { return out << path.text(); }

}  // namespace fs
}  // namespace sal
}  // namespace quorel
