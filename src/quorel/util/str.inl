// Text conversions, splitting, trimming and the natural order.
#include <quorel/util/str.h>

#include <cstdint>
#include <iomanip>
#include <limits>
#include <ostream>
#include <sstream>
#include <type_traits>

#include <quorel/util/Exception.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace util {
namespace str {

namespace {

using sal::i::err::domain::kApplication;

// The type a stream reads or writes for T: unsigned char is a number here,
// not a character.
template <class T>
struct StreamedAs {
  typedef T type;
};
template <>
struct StreamedAs<unsigned char> {
  typedef unsigned int type;
};

const char kHexDigits[] = "0123456789ABCDEF";

// The value rendered by hexFrom and its width in bytes.
unsigned int bitsOf(char v) { return static_cast<unsigned char>(v); }
unsigned int bitsOf(unsigned char v) { return v; }
unsigned int bitsOf(unsigned int v) { return v; }
unsigned int bitsOf(void* v) { return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(v)); }
template <class T>
constexpr int bytesOf() {
  return sizeof(T) == 1 ? 1 : static_cast<int>(sizeof(unsigned int));
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

bool allDigits(const std::string& s) {
  for (char c : s) {
    if (!isDigit(c)) return false;
  }
  return true;
}

// Reads the decimal number that starts at from, stopping at the first
// non-digit. False if there is no digit or the number exceeds 64 bits.
bool readNumber(const std::string& s, std::string::size_type from, std::uint64_t& out) {
  std::uint64_t n = 0;
  std::string::size_type i = from;
  for (; i < s.size() && isDigit(s[i]); ++i) {
    const unsigned digit = static_cast<unsigned>(s[i] - '0');
    if (n > (std::numeric_limits<std::uint64_t>::max() - digit) / 10) return false;
    n = n * 10 + digit;
  }
  if (i == from) return false;
  out = n;
  return true;
}

// Streams use the global locale; with the classic one, plain decimal
// conversions can skip the stream and give the same text.
bool globalLocaleIsClassic() { return std::locale() == std::locale::classic(); }

}  // namespace

template <class T>
const std::string from(T value, std::ios_base::fmtflags flags, bool pad) {
  if constexpr (std::is_integral<T>::value) {
    if (flags == std::ios_base::dec && globalLocaleIsClassic()) return std::to_string(+value);
  }
  std::ostringstream out;
  out.flags(flags);
  const std::ios_base::fmtflags base = flags & std::ios_base::basefield;
  if (pad && base != std::ios_base::dec) {
    if (base != std::ios_base::hex && base != std::ios_base::oct) return std::string();
    out.fill('0');
    out.width(static_cast<std::streamsize>((base == std::ios_base::hex ? 2 : 3) * sizeof(T)));
  }
  out << static_cast<typename StreamedAs<T>::type>(value);
  if (out.fail()) {
    QUOREL_THROW(Exception)("conversion to ::std::string failed", kApplication, 0);
  }
  return out.str();
}

template <>
const std::string from<bool>(bool value, std::ios_base::fmtflags, bool) {
  return value ? "true" : "false";
}

template <class T>
void to(T& out, const std::string& text, std::ios_base::fmtflags flags) {
  typedef typename StreamedAs<T>::type Read;
  // Plain digits in decimal read directly; signs, other bases, locales and
  // out-of-range numbers go through the stream, which decides their fate.
  static const std::ctype<char>& classic = std::use_facet<std::ctype<char>>(std::locale::classic());
  std::string::size_type first = 0;
  while (first < text.size() && classic.is(std::ctype_base::space, text[first])) ++first;
  std::uint64_t number = 0;
  if (flags == std::ios_base::dec && first < text.size() && isDigit(text[first]) &&
      readNumber(text, first, number) && number <= std::numeric_limits<Read>::max() &&
      globalLocaleIsClassic()) {
    out = static_cast<T>(static_cast<Read>(number));
    return;
  }
  const std::string trimmed = trim(text, std::locale::classic());
  std::istringstream in(trimmed);
  in.flags(flags);
  Read value;
  in >> value;
  if (in.fail()) {
    QUOREL_THROW(Exception)("conversion from \"" + text + "\" failed", kApplication, 0);
  }
  out = static_cast<T>(value);  // unsigned char keeps the low 8 bits
}

template <class T>
const char* hexFrom(T value, char* buffer, int size, bool keepLeadingZeros) {
  constexpr int kBytes = bytesOf<T>();
  if (size <= kBytes) {
    QUOREL_THROW(Exception)("conversion failed - the given buffer is too small", kApplication, 0);
  }
  const unsigned int bits = bitsOf(value);
  char* p = buffer;
  for (int i = kBytes - 1; i >= 0; --i) {
    const unsigned int byte = (bits >> (8 * i)) & 0xffu;
    if (p == buffer && byte == 0 && !keepLeadingZeros) continue;
    *p++ = kHexDigits[byte >> 4];
    *p++ = kHexDigits[byte & 0x0fu];
  }
  if (p == buffer) return "0";
  *p = '\0';
  return buffer;
}

template <class T>
std::string hexFrom(T value, bool keepLeadingZeros) {
  char buffer[64];
  return hexFrom(value, buffer, sizeof buffer, keepLeadingZeros);
}

bool split(const std::string& text, std::string& head, std::string& tail, char separator) {
  const std::string copy(text);  // head or tail may be text itself
  const std::string::size_type at = copy.find(separator);
  if (at == std::string::npos) {
    head = copy;
    tail.clear();
    return false;
  }
  tail = copy.substr(at + 1);
  head = copy.substr(0, at);
  return true;
}

void cut(const std::string& text, char separator, std::list<std::string>& pieces) {
  if (text.empty()) return;
  std::string::size_type start = 0;
  for (;;) {
    const std::string::size_type at = text.find(separator, start);
    if (at == std::string::npos) {
      pieces.push_back(text.substr(start));
      return;
    }
    pieces.push_back(text.substr(start, at - start));
    start = at + 1;
  }
}

std::string trimRightOf(const std::string& text, const std::locale& locale) {
  const std::ctype<char>& ctype = std::use_facet<std::ctype<char>>(locale);
  std::string::size_type end = text.size();
  while (end > 0 && ctype.is(std::ctype_base::space, text[end - 1])) --end;
  return text.substr(0, end);
}

std::string trimLeftOf(const std::string& text, const std::locale& locale) {
  const std::ctype<char>& ctype = std::use_facet<std::ctype<char>>(locale);
  std::string::size_type begin = 0;
  while (begin < text.size() && ctype.is(std::ctype_base::space, text[begin])) ++begin;
  return text.substr(begin);
}

std::string trim(const std::string& text, const std::locale& locale) {
  return trimLeftOf(trimRightOf(text, locale), std::locale::classic());
}

std::string lower(const std::string& text, const std::locale& locale) {
  const std::ctype<char>& ctype = std::use_facet<std::ctype<char>>(locale);
  std::string result(text);
  for (char& c : result) c = ctype.tolower(c);
  return result;
}

void prettyPrint(std::ostream& os, int level, int indentWidth, int labelWidth, const char* label) {
  const int indent = level > 0 && indentWidth > 0 ? level * indentWidth : 0;
  os << std::string(static_cast<std::string::size_type>(indent), ' ') << std::left
     << std::setw(labelWidth > 0 ? labelWidth : 0) << (label != nullptr ? label : "") << std::right
     << ": ";
}

namespace cmp {

bool lessThan(const std::string& a, const std::string& b) {
  const bool plain = a < b;
  std::uint64_t na = 0;
  std::uint64_t nb = 0;
  if (allDigits(a)) {
    if ((!a.empty() && a[0] == '0') || !allDigits(b) || (!b.empty() && b[0] == '0')) return plain;
    if (!readNumber(a, 0, na) || !readNumber(b, 0, nb)) return plain;
    return na < nb;
  }
  // q: just after the last non-digit of a, where a's trailing number starts.
  std::string::size_type q = a.size();
  while (isDigit(a[q - 1])) --q;
  if (q == a.size() || a[q] == '0') return plain;
  if (b.size() <= q || b.compare(0, q, a, 0, q) != 0 || b[q] == '0') return plain;
  if (!readNumber(a, q, na) || !readNumber(b, q, nb)) return plain;
  return na < nb;
}

}  // namespace cmp

}  // namespace str
}  // namespace util
}  // namespace quorel
