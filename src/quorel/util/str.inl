// Text conversions, splitting, trimming and the natural order.
#include <quorel/util/str.h>

#include <charconv>
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

// Streams take the global locale. While it is the classic one, integers in a
// plain base convert without a stream and give the same text or number. The
// classic locale is made once; a call copies the global one and compares the
// two, which settles at once when they share their implementation.
bool globalLocaleIsClassic() {
  static const std::locale classic = std::locale::classic();
  return std::locale() == classic;
}

// The base of flags that name one base and nothing else (no sign, prefix,
// case or adjustment), else 0.
int plainRadixOf(std::ios_base::fmtflags flags) {
  if (flags == std::ios_base::dec) return 10;
  if (flags == std::ios_base::hex) return 16;
  if (flags == std::ios_base::oct) return 8;
  return 0;
}

// What a classic stream writes for value in radix, zero-filled on the left to
// width: in hexadecimal and octal a negative number shows its two's
// complement bits, as the stream shows them.
template <class T>
std::string digitsOf(T value, int radix, std::size_t width) {
  char digits[24];  // 22 octal digits of 64 bits; a sign and 19 decimal ones
  const char* const end =
      radix == 10 ? std::to_chars(digits, digits + sizeof digits, value).ptr
                  : std::to_chars(digits, digits + sizeof digits,
                                  static_cast<typename std::make_unsigned<T>::type>(value), radix)
                        .ptr;
  const std::size_t length = static_cast<std::size_t>(end - digits);
  if (length >= width) return std::string(digits, length);
  std::string text(width - length, '0');
  text.append(digits, length);
  return text;
}

}  // namespace

template <class T>
const std::string from(T value, std::ios_base::fmtflags flags, bool pad) {
  const std::ios_base::fmtflags base = flags & std::ios_base::basefield;
  std::size_t width = 0;
  if (pad && base != std::ios_base::dec) {
    if (base != std::ios_base::hex && base != std::ios_base::oct) return std::string();
    width = (base == std::ios_base::hex ? 2 : 3) * sizeof(T);
  }
  if constexpr (std::is_integral<T>::value) {
    const int radix = plainRadixOf(flags);
    if (radix != 0 && globalLocaleIsClassic()) return digitsOf(value, radix, width);
  }
  std::ostringstream out;
  out.flags(flags);
  if (width != 0) {
    out.fill('0');
    out.width(static_cast<std::streamsize>(width));
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
  Read value;
  // Decimal digits that fit read without a stream: the white space skipped is
  // what trimming removes, and like the stream the reading stops at the first
  // non-digit. Signs, other bases, other locales and numbers out of range go
  // through the stream, which decides their fate.
  if (flags == std::ios_base::dec) {
    static const std::ctype<char>& classic = std::use_facet<std::ctype<char>>(std::locale::classic());
    const char* first = text.data();
    const char* const last = first + text.size();
    while (first != last && classic.is(std::ctype_base::space, *first)) ++first;
    if (first != last && isDigit(*first) && std::from_chars(first, last, value).ec == std::errc() &&
        globalLocaleIsClassic()) {
      out = static_cast<T>(value);  // unsigned char keeps the low 8 bits
      return;
    }
  }
  const std::string trimmed = trim(text, std::locale::classic());
  std::istringstream in(trimmed);
  in.flags(flags);
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
