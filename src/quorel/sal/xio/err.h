/// \file
/// The classes socket error numbers are thrown as.
///
///   catch (const sal::sys::Exception& e) {              // a connect of the socket layer
///     if (xio::err::kindOf(e.code()) == xio::err::kind::kConnectionRefused) retryLater();
///   }
///
///   // Throws ConnectionResetException for EPIPE, HostUnreachableException for
///   // EHOSTUNREACH, SocketException for what has no class of its own:
///   xio::err::raise(QUOREL_EXCEPTION(xio::SocketException), "::send() failed", errno);
#ifndef QUOREL_SAL_XIO_ERR_H
#define QUOREL_SAL_XIO_ERR_H

#include <string>

#include <quorel/sal/xio/Exception.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace xio {
namespace err {

/// The finest class of the exception tree for a socket error number.
enum class kind {
  kSocket,  ///< SocketException: no finer class
  kConnectionRefused,   ///< ECONNREFUSED
  kConnectionReset,     ///< ECONNRESET, EPIPE
  kConnectionAborted,   ///< ECONNABORTED
  kConnectionTimedout,  ///< ETIMEDOUT
  kHostDown,            ///< EHOSTDOWN
  kHostUnreachable,     ///< EHOSTUNREACH
  kNetworkDown,         ///< ENETDOWN
  kNetworkReset,        ///< ENETRESET
  kNetworkUnreachable   ///< ENETUNREACH
};

/// The class error is thrown as (kSocket for 0, negative and unknown numbers).
kind kindOf(int error) noexcept;
/// The class's name, e.g. "quorel::sal::xio::ConnectionRefusedException".
const char* nameOf(kind k) noexcept;

/// Throws the finest class for error, built at the call site that at
/// captured, with why as the message, domain 2 and error as the code.
[[noreturn]] void raise(const util::site::Thrower<SocketException>& at, const std::string& why, int error);

}  // namespace err
}  // namespace xio
}  // namespace sal
}  // namespace quorel

#endif
