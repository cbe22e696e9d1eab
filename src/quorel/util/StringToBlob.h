/// \file
/// StringToBlob: stores a text into a blob, reporting failure as a message.
#ifndef QUOREL_UTIL_STRINGTOBLOB_H
#define QUOREL_UTIL_STRINGTOBLOB_H

#include <string>

#include <quorel/util/Blob.h>

namespace quorel {
namespace util {

/// Converts a text to the blob's own type and stores it; the failure is kept as a message.
class StringToBlob {
 public:
  virtual ~StringToBlob();

  /// Stores text into blob as a string and returns true. If a library
  /// exception is thrown, error becomes "failed to set '<text>' in blob - " and
  /// the exception's why(), and the result is false.
  bool set(Blob& blob, const std::string& text, std::string& error) const;
};

}  // namespace util
}  // namespace quorel

#endif
