// Blob: the public value forwarding to impl::Blob.
#include <quorel/util/Blob.h>

#include <quorel/util/impl/Blob.inl>

namespace quorel {
namespace util {

template <class T>
impl::Blob* Blob::make(const T& value) {
  impl::Blob* blob = new impl::Blob(typeid(T));
  blob->set(value);
  return blob;
}

Blob::Blob(bool value) : handle_(make(value)) {}
Blob::Blob(signed char value) : handle_(make(value)) {}
Blob::Blob(unsigned char value) : handle_(make(value)) {}
Blob::Blob(short value) : handle_(make(value)) {}
Blob::Blob(unsigned short value) : handle_(make(value)) {}
Blob::Blob(int value) : handle_(make(value)) {}
Blob::Blob(unsigned int value) : handle_(make(value)) {}
Blob::Blob(long long value) : handle_(make(value)) {}
Blob::Blob(unsigned long long value) : handle_(make(value)) {}
Blob::Blob(double value) : handle_(make(value)) {}
Blob::Blob(const std::string& value) : handle_(make(value)) {}
Blob::Blob(const char* value) : handle_(make(std::string(value))) {}
Blob::Blob(const std::type_info& type) : handle_(new impl::Blob(type)) {}
Blob::Blob(const Blob& other) = default;
Blob& Blob::operator=(const Blob& other) = default;
Blob::~Blob() = default;

void Blob::set(bool value) { handle_->set(value); }
void Blob::set(signed char value) { handle_->set(value); }
void Blob::set(unsigned char value) { handle_->set(value); }
void Blob::set(short value) { handle_->set(value); }
void Blob::set(unsigned short value) { handle_->set(value); }
void Blob::set(int value) { handle_->set(value); }
void Blob::set(unsigned int value) { handle_->set(value); }
void Blob::set(long long value) { handle_->set(value); }
void Blob::set(unsigned long long value) { handle_->set(value); }
void Blob::set(double value) { handle_->set(value); }
void Blob::set(const std::string& value) { handle_->set(value); }
void Blob::set(const char* value) { handle_->set(std::string(value)); }

void Blob::get(bool& out) const { handle_->get(out); }
void Blob::get(signed char& out) const { handle_->get(out); }
void Blob::get(unsigned char& out) const { handle_->get(out); }
void Blob::get(short& out) const { handle_->get(out); }
void Blob::get(unsigned short& out) const { handle_->get(out); }
void Blob::get(int& out) const { handle_->get(out); }
void Blob::get(unsigned int& out) const { handle_->get(out); }
void Blob::get(long long& out) const { handle_->get(out); }
void Blob::get(unsigned long long& out) const { handle_->get(out); }
void Blob::get(double& out) const { handle_->get(out); }
void Blob::get(std::string& out) const { handle_->get(out); }

std::string Blob::valueAsString() const { return handle_->valueAsString(); }
const std::type_info& Blob::type() const { return handle_->type(); }
bool Blob::operator==(const Blob& other) const { return handle_->hasSameValueAs(other.handle_.reference()); }

}  // namespace util
}  // namespace quorel
