// StringToBlob.
#include <quorel/util/StringToBlob.h>

namespace quorel {
namespace util {

StringToBlob::~StringToBlob() = default;

bool StringToBlob::set(Blob& blob, const std::string& text, std::string& error) const {
  try {
    blob.set(text);
    return true;
  } catch (const quorel::Exception& e) {
    error = "failed to set '" + text + "' in blob - " + e.why();
    return false;
  }
}

}  // namespace util
}  // namespace quorel
