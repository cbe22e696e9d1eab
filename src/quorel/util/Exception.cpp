// quorel::Exception and the exception classes of the top and utility namespaces.
#include <quorel/util/Exception.h>

#include <locale>
#include <new>
#include <ostream>
#include <sstream>
#include <typeinfo>
#include <utility>

#include <quorel/sal/err.h>
#include <quorel/sal/xio/scsi/sense.h>
#include <quorel/util/impl/typeName.h>

namespace quorel {

namespace {

// Sense decoding reads fixed offsets; short or empty sense data reads as zeros.
std::string senseDescriptionOf(const std::string& senseData) {
  std::string padded(senseData);
  if (padded.size() < 32) padded.resize(32, '\0');
  return sal::xio::scsi::sense::kcq::descriptionFrom(padded.data());
}

}  // namespace

Exception::Exception(const char* where, const std::string& why, sal::i::err::domain::code domain,
                     int code, const char* file, int line, const std::string& auxData)
    : where_(where),
      why_(why),
      domain_(domain),
      code_(code),
      file_(file),
      line_(line),
      auxData_(auxData) {}

Exception::Exception(const Exception& other) = default;
Exception::Exception(Exception&& other) noexcept = default;

Exception& Exception::operator=(const Exception& other) {
  if (this != &other) {
    // Copied before the destruction: other may live inside something that
    // the destruction frees, and a copy that fails must leave the target whole.
    Exception copy(other);
    this->~Exception();
    new (this) Exception(std::move(copy));
  }
  return *this;
}

Exception::~Exception() = default;

std::string Exception::asString() const {
  std::ostringstream out;
  out.imbue(std::locale::classic());  // a fixed format: no digit grouping from the global locale
  out << util::impl::demangledNameOf(typeid(*this)) << ": where='" << where_ << " (" << line_ << "@" << file_
      << ")' why='" << why_ << "' domain='" << sal::err::asString(domain_) << " ("
      << static_cast<int>(domain_) << ")' code='" << code_ << " (0x" << std::hex
      << static_cast<unsigned int>(code_) << std::dec << ")'";
  if (domain_ != sal::i::err::domain::kApplication) {
    out << " message='" << sal::err::asString(code_, domain_) << "'";
  }
  if (domain_ == sal::i::err::domain::kSCSICDB) {
    out << " kcq='" << senseDescriptionOf(auxData_) << "' senseData='"
        << sal::xio::scsi::sense::hexStringFrom(auxData_.data(), static_cast<int>(auxData_.size()))
        << "'";
  }
  return out.str();
}

std::string Exception::asSimpleString() const {
  if (domain_ == sal::i::err::domain::kApplication) return why_;
  return why_ + " - " + sal::err::asString(code_, domain_);
}

std::ostream& operator<<(std::ostream& os, const Exception& e) { return os << e.asString(); }

InvalidArgumentException::~InvalidArgumentException() = default;
InvalidFormatException::~InvalidFormatException() = default;
OperationNotSupportedException::~OperationNotSupportedException() = default;
NULLDereferenceException::~NULLDereferenceException() = default;
BoneheadException::~BoneheadException() = default;
BraindeathException::~BraindeathException() = default;
CTORException::~CTORException() = default;

namespace util {
Exception::~Exception() = default;
namespace str {
Exception::~Exception() = default;
}  // namespace str
}  // namespace util

}  // namespace quorel
