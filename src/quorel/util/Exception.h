/// \file
/// quorel::Exception, the root of every exception the library throws, and the
/// classes of the top and utility namespaces.
#ifndef QUOREL_UTIL_EXCEPTION_H
#define QUOREL_UTIL_EXCEPTION_H

#include <exception>
#include <iosfwd>
#include <string>

#include <quorel/sal/i/err.h>

namespace quorel {

/// An exception records which function failed, why, the error number and its
/// domain, the throw's source position and, for SCSI failures, the sense bytes.
/// It is thrown by value and caught by reference.
///
/// where() and file() point at static text that is never copied; why() and
/// auxData() are owned copies. what() is std::exception's: use asString() for
/// the full diagnostic and asSimpleString() for a line fit for end users.
class Exception : public std::exception {
 public:
  Exception(const char* where, const std::string& why, sal::i::err::domain::code domain, int code,
            const char* file, int line, const std::string& auxData);
  Exception(const Exception& other);
  Exception(Exception&& other) noexcept;
  /// Destroys the target and copy-constructs a quorel::Exception in its place:
  /// after assignment the target's dynamic type is quorel::Exception, whatever
  /// it was before. Callers rely on this slicing. Self-assignment does nothing.
  /// The source is copied first, so it may live inside something that the
  /// target owns, and a copy that throws (std::bad_alloc) leaves the target
  /// as it was.
  Exception& operator=(const Exception& other);
  ~Exception() override;

  const char* where() const { return where_; }
  const std::string& why() const { return why_; }
  sal::i::err::domain::code domain() const { return domain_; }
  int code() const { return code_; }
  const char* file() const { return file_; }
  int line() const { return line_; }
  const std::string& auxData() const { return auxData_; }

  /// "<dynamic class>: where='<where> (<line>@<file>)' why='<why>' domain='<text> (<n>)'
  ///  code='<code> (0x<hex>)'", then " message='<text>'" unless the domain is 0,
  /// then " kcq='...' senseData='...'" for the SCSI domain.
  std::string asString() const;
  /// why(), then " - <message>" unless the domain is 0.
  std::string asSimpleString() const;

 private:
  const char* where_;
  std::string why_;
  sal::i::err::domain::code domain_;
  int code_;
  const char* file_;
  int line_;
  std::string auxData_;
};

/// Writes e.asString().
std::ostream& operator<<(std::ostream& os, const Exception& e);

/// An argument outside its allowed set (unknown enumeration value, empty name, bad size).
class InvalidArgumentException : public Exception {
 public:
  using Exception::Exception;
  ~InvalidArgumentException() override;
};

/// Declared for malformed input; the library itself does not throw it.
class InvalidFormatException : public Exception {
 public:
  using Exception::Exception;
  ~InvalidFormatException() override;
};

/// An operation that the object or the platform does not offer.
class OperationNotSupportedException : public Exception {
 public:
  using Exception::Exception;
  ~OperationNotSupportedException() override;
};

/// Dereferencing an empty handle.
class NULLDereferenceException : public Exception {
 public:
  using Exception::Exception;
  ~NULLDereferenceException() override;
};

/// Declared for callers' use; the library itself does not throw it.
class BoneheadException : public Exception {
 public:
  using Exception::Exception;
  ~BoneheadException() override;
};

/// Declared for callers' use; the library itself does not throw it.
class BraindeathException : public Exception {
 public:
  using Exception::Exception;
  ~BraindeathException() override;
};

/// Declared for callers' use; the library itself does not throw it.
class CTORException : public Exception {
 public:
  using Exception::Exception;
  ~CTORException() override;
};

namespace util {

/// Base of the utility namespace's exceptions.
class Exception : public quorel::Exception {
 public:
  using quorel::Exception::Exception;
  ~Exception() override;
};

namespace str {

/// A string conversion that failed.
class Exception : public util::Exception {
 public:
  using util::Exception::Exception;
  ~Exception() override;
};

}  // namespace str
}  // namespace util
}  // namespace quorel

#endif
