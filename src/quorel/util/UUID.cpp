// UUID, forwarding to the platform layer.
#include <quorel/util/UUID.h>

#include <quorel/sal/sys/uuid.inl>

namespace quorel {
namespace util {

UUID::UUID() { sal::sys::uuid::create(words_); }
UUID::UUID(const unsigned char* bytes) { sal::sys::uuid::from(words_, bytes); }
void UUID::to(unsigned char* bytes) const { sal::sys::uuid::to(words_, bytes); }
std::string UUID::asString() const { return sal::sys::uuid::str::from(words_); }
bool UUID::operator<(const UUID& other) const { return sal::sys::uuid::less(words_, other.words_); }
bool UUID::operator==(const UUID& other) const {
  return words_[0] == other.words_[0] && words_[1] == other.words_[1];
}

}  // namespace util
}  // namespace quorel
