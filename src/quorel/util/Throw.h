/// \file
/// QUOREL_EXCEPTION: the one macro that builds library exceptions, and
/// QUOREL_THROW, which throws what it builds.
///
///   QUOREL_THROW(sys::Exception)("::fork() failed", domain::kSystemCall, error);
///   QUOREL_THROW(xio::SCSIReadException)(why, domain::kSCSICDB, status, senseBytes);
///
///   // Handed to a handler instead of thrown:
///   AIOCompletionException e = QUOREL_EXCEPTION(AIOCompletionException)(why, kSystemCall, error);
///
/// The macro records the call site (the compiler's full signature of the
/// enclosing function, the source file relative to src/quorel/ and the line);
/// the parenthesised arguments that follow are why, domain, code and, for SCSI
/// failures, the auxiliary sense bytes.
#ifndef QUOREL_UTIL_THROW_H
#define QUOREL_UTIL_THROW_H

#include <string>

#include <quorel/sal/i/err.h>

namespace quorel {
namespace util {
namespace site {

/// Strips everything up to the last "/quorel/" so that headers compiled from an
/// installed include directory report the same path as the library's own build,
/// where -fmacro-prefix-map already made __FILE__ relative.
inline const char* relative(const char* path) noexcept {
  const char* result = path;
  for (const char* p = path; *p != '\0'; ++p) {
    if (p[0] == '/' && p[1] == 'q' && p[2] == 'u' && p[3] == 'o' && p[4] == 'r' && p[5] == 'e' &&
        p[6] == 'l' && p[7] == '/') {
      result = p + 8;
    }
  }
  return result;
}

/// A captured call site that builds an exception of class E from the rest of
/// the exception's fields. Building is kept out of line and marked cold, so a
/// throw costs the code that calls it only a few instructions and leaves small
/// hot functions (a handle's operator->, a mutex's lock) inlinable.
template <class E>
struct Thrower {
  const char* where;
  const char* file;
  int line;

  __attribute__((noinline, cold)) E operator()(const char* why, sal::i::err::domain::code domain,
                                               int code) const {
    return E(where, why, domain, code, file, line, std::string());
  }
  __attribute__((noinline, cold)) E operator()(const std::string& why, sal::i::err::domain::code domain,
                                               int code, const std::string& auxData = std::string()) const {
    return E(where, why, domain, code, file, line, auxData);
  }
};

}  // namespace site
}  // namespace util
}  // namespace quorel

#define QUOREL_EXCEPTION(Class)                                                                     \
  ::quorel::util::site::Thrower<Class> {                                                           \
    __PRETTY_FUNCTION__, ::quorel::util::site::relative(__FILE__), __LINE__                         \
  }

#define QUOREL_THROW(Class) throw QUOREL_EXCEPTION(Class)

#endif
