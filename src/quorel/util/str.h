/// \file
/// Text functions: numbers to text and back under stream format flags,
/// hexadecimal rendering, splitting, trimming, lower-casing and the natural
/// order of names that end in a number.
///
/// Failures throw quorel::util::str::Exception (domain 0, code 0).
#ifndef QUOREL_UTIL_STR_H
#define QUOREL_UTIL_STR_H

#include <ios>
#include <iosfwd>
#include <list>
#include <locale>
#include <string>

namespace quorel {
namespace util {
namespace str {

/// The value as text under flags, which replace the stream's flags as a whole.
/// With pad true and a hexadecimal or octal base field, the text is
/// zero-padded to the type's full width (2 or 3 digits per byte: int in hex is
/// 8 digits, unsigned char in octal 3). With pad true and an empty or mixed
/// base field the result is empty, deliberately without an error.
/// unsigned char is written as a number. from<bool> ignores flags and pad and
/// gives "true" or "false".
/// For bool, unsigned char, short, unsigned short, int, unsigned int,
/// long long, unsigned long long and double.
template <class T>
const std::string from(T value, std::ios_base::fmtflags flags = std::ios_base::dec, bool pad = false);
template <>
const std::string from<bool>(bool value, std::ios_base::fmtflags flags, bool pad);

/// Reads one T from text, trimmed under the classic locale, with flags as the
/// stream's flags; characters after the number are ignored. to<unsigned char>
/// reads an unsigned int and keeps its low 8 bits ("300" gives 44). Throws
/// "conversion from \"<text>\" failed" with the untrimmed text.
/// For unsigned char, unsigned short and unsigned int.
template <class T>
void to(T& out, const std::string& text, std::ios_base::fmtflags flags = std::ios_base::dec);

/// Upper-case hexadecimal digits of value into buffer, most significant byte
/// first, leading zero bytes skipped unless keepLeadingZeros (trimming is by
/// whole bytes: 0x100 gives "0100"). Returns buffer, or the constant "0" when
/// nothing was written. size must be greater than the value's size in bytes
/// (else "conversion failed - the given buffer is too small"); the caller
/// must provide room for 2 * bytes + 1 characters.
/// For char, unsigned char, unsigned int and void* (the pointer's value as an
/// unsigned int).
template <class T>
const char* hexFrom(T value, char* buffer, int size, bool keepLeadingZeros);

/// The same text as a string.
template <class T>
std::string hexFrom(T value, bool keepLeadingZeros);

/// At the first separator: head = what stands before it, tail = what follows,
/// true. Without one: head = text, tail cleared, false. head or tail may be
/// text itself.
bool split(const std::string& text, std::string& head, std::string& tail, char separator);

/// Appends every piece between separators to pieces, empty pieces included
/// ("a,,b" gives "a", "", "b"; "a," gives "a", ""); an empty text adds none.
void cut(const std::string& text, char separator, std::list<std::string>& pieces);

/// text without trailing, or leading, white space as the locale classifies it.
std::string trimRightOf(const std::string& text, const std::locale& locale = std::locale());
std::string trimLeftOf(const std::string& text, const std::locale& locale = std::locale());
/// trimRightOf under locale, then trimLeftOf under the classic locale (the left
/// pass ignores the caller's locale by design).
std::string trim(const std::string& text, const std::locale& locale = std::locale());
/// Each character through tolower under the locale.
std::string lower(const std::string& text, const std::locale& locale = std::locale());

/// Writes the start of an indented, labelled line for diagnostics printers:
/// level * indentWidth spaces, then label left-aligned in labelWidth columns,
/// then ": ". The caller writes the value and the line's end.
void prettyPrint(std::ostream& os, int level, int indentWidth, int labelWidth, const char* label);

namespace cmp {

/// Natural order: a trailing number compares by value, so "disk2" sorts before
/// "disk10" and "9" before "10". Names whose numbers have leading zeros, or
/// that differ before the number, compare as plain text; "a1" and "a1x" are
/// equivalent (neither is less). Numbers past 2^64 - 1 compare as text.
bool lessThan(const std::string& a, const std::string& b);

}  // namespace cmp
}  // namespace str
}  // namespace util
}  // namespace quorel

#endif
