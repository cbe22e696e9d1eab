// JSON text for the tool's --json output: strings, a small object builder and
// arrays, always valid UTF-8 and never losing a byte of what they print.
//
// File names, firmware strings and system messages are bytes, not text, so
// every string goes through quoteInto():
// - a string that is valid UTF-8 is written as it is, with '"', '\\', the
//   control characters 0x00-0x1f and DEL (0x7f) escaped;
// - in a string that is not, each byte that is not part of a valid UTF-8
//   sequence is written as the escape \ufffd (U+FFFD, the replacement
//   character), and the exact bytes are kept beside it in lower-case
//   hexadecimal, two digits per byte: in an object as a companion member
//   named key + "_hex" right after the member, in an array by item(), whose
//   element is then {"text": ..., "hex": ...} instead of a plain string.
// Strings that are valid UTF-8 never get a companion, so ordinary output does
// not change. Valid UTF-8 is that of Unicode: no overlong forms, no surrogates
// (U+D800..U+DFFF) and nothing above U+10FFFF. A U+FFFD that a string really
// holds is written as its three bytes, never as the escape, so in the output
// \ufffd always marks a replaced byte.
#ifndef QUOREL_TOOLS_QUOREL_JSON_H
#define QUOREL_TOOLS_QUOREL_JSON_H

#include <cstddef>
#include <sstream>
#include <string>
#include <vector>

namespace tool {
namespace json {

// Appends text to out as a JSON string (in quotes), each byte outside a
// valid UTF-8 sequence as \ufffd; false when there was such a byte, that is
// when the string written is not the text's exact bytes.
inline bool quoteInto(std::string& out, const std::string& text) {
  static const char kDigits[] = "0123456789abcdef";
  bool exact = true;
  out += '"';
  for (size_t at = 0; at < text.size();) {
    const unsigned char c = static_cast<unsigned char>(text[at]);
    if (c >= 0x80) {
      // The lead byte gives the length and the range of the second byte, which
      // rules out overlong forms (E0, F0), surrogates (ED) and code points
      // past U+10FFFF (F4); every further byte is 80..BF.
      size_t length = 0;
      unsigned char low = 0x80, high = 0xbf;
      if (c >= 0xc2 && c <= 0xdf) {
        length = 2;
      } else if (c >= 0xe0 && c <= 0xef) {
        length = 3;
        low = c == 0xe0 ? 0xa0 : 0x80;
        high = c == 0xed ? 0x9f : 0xbf;
      } else if (c >= 0xf0 && c <= 0xf4) {
        length = 4;
        low = c == 0xf0 ? 0x90 : 0x80;
        high = c == 0xf4 ? 0x8f : 0xbf;
      }
      size_t n = 1;
      for (; n < length && at + n < text.size(); ++n) {
        const unsigned char next = static_cast<unsigned char>(text[at + n]);
        if (next < (n == 1 ? low : 0x80) || next > (n == 1 ? high : 0xbf)) break;
      }
      if (length != 0 && n == length) {
        out.append(text, at, length);
        at += length;
      } else {
        out += "\\ufffd";  // this byte only: the next one may start a valid sequence
        exact = false;
        ++at;
      }
      continue;
    }
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\t': out += "\\t"; break;
      default:
        if (c < 0x20 || c == 0x7f) {
          out += "\\u00";
          out += kDigits[c >> 4];
          out += kDigits[c & 0xf];
        } else {
          out += static_cast<char>(c);
        }
    }
    ++at;
  }
  out += '"';
  return exact;
}

// The bytes of text in lower-case hexadecimal, two digits per byte.
inline std::string hex(const std::string& text) {
  static const char kDigits[] = "0123456789abcdef";
  std::string out;
  out.reserve(2 * text.size());
  for (unsigned char c : text) {
    out += kDigits[c >> 4];
    out += kDigits[c & 0xf];
  }
  return out;
}

// text as a JSON string. Meant for the tool's own words (keys, fixed
// values): a text that is not UTF-8 loses its stray bytes here, so any other
// text goes through Object::add or item().
inline std::string quote(const std::string& text) {
  std::string out;
  quoteInto(out, text);
  return out;
}

// text as an element of an array: a JSON string, or, when the text is not
// valid UTF-8, {"text": the readable string, "hex": its exact bytes}.
inline std::string item(const std::string& text) {
  std::string out;
  if (quoteInto(out, text)) return out;
  return "{\"text\": " + out + ", \"hex\": \"" + hex(text) + "\"}";
}

// {"key": value, ...} in the order added. A string value that is not valid
// UTF-8 is followed by its companion key + "_hex".
class Object {
 public:
  Object& add(const std::string& key, const std::string& value) {
    std::string quoted;
    const bool exact = quoteInto(quoted, value);
    raw(key, quoted);
    return exact ? *this : raw(key + "_hex", "\"" + hex(value) + "\"");
  }
  Object& add(const std::string& key, const char* value) { return add(key, std::string(value)); }
  Object& add(const std::string& key, bool value) { return raw(key, value ? "true" : "false"); }
  template <class Number>
  Object& add(const std::string& key, Number value) {
    std::ostringstream text;
    text << +value;  // small integer types as numbers, not characters
    return raw(key, text.str());
  }
  // value is JSON text already (an object or an array).
  Object& raw(const std::string& key, const std::string& value) {
    text_ += (text_.empty() ? "" : ", ") + quote(key) + ": " + value;
    return *this;
  }
  std::string str() const { return "{" + text_ + "}"; }

 private:
  std::string text_;
};

// [item, ...] of JSON texts.
inline std::string array(const std::vector<std::string>& items) {
  std::string out;
  for (const std::string& element : items) out += (out.empty() ? "" : ", ") + element;
  return "[" + out + "]";
}

}  // namespace json
}  // namespace tool

#endif
