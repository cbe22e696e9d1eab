// JSON text for the tool's --json output: a small object builder.
#ifndef QUOREL_TOOLS_QUOREL_JSON_H
#define QUOREL_TOOLS_QUOREL_JSON_H

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

namespace tool {
namespace json {

inline std::string quote(const std::string& text) {
  std::string out = "\"";
  for (unsigned char c : text) {
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\t': out += "\\t"; break;
      default:
        if (c < 0x20) {
          char escaped[8];
          std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
          out += escaped;
        } else {
          out += static_cast<char>(c);
        }
    }
  }
  return out + "\"";
}

// {"key": value, ...} in the order added.
class Object {
 public:
  Object& add(const std::string& key, const std::string& value) { return raw(key, quote(value)); }
  Object& add(const std::string& key, const char* value) { return raw(key, quote(value)); }
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
  for (const std::string& item : items) out += (out.empty() ? "" : ", ") + item;
  return "[" + out + "]";
}

}  // namespace json
}  // namespace tool

#endif
