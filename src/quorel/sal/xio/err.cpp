// One table from socket error numbers to exception classes, used by everything
// that throws for a failed socket call.
#include <quorel/sal/xio/err.h>

#include <errno.h>

namespace quorel {
namespace sal {
namespace xio {
namespace err {

namespace {

struct Row {
  int error;
  kind k;
};

const Row kTable[] = {
    {ECONNREFUSED, kind::kConnectionRefused}, {ECONNRESET, kind::kConnectionReset},
    {EPIPE, kind::kConnectionReset},          {ECONNABORTED, kind::kConnectionAborted},
    {ETIMEDOUT, kind::kConnectionTimedout},   {EHOSTDOWN, kind::kHostDown},
    {EHOSTUNREACH, kind::kHostUnreachable},   {ENETDOWN, kind::kNetworkDown},
    {ENETRESET, kind::kNetworkReset},         {ENETUNREACH, kind::kNetworkUnreachable},
};

// Builds class E at the captured site.
template <class E>
[[noreturn]] void raiseAs(const util::site::Thrower<SocketException>& at, const std::string& why, int error) {
  throw util::site::Thrower<E>{at.where, at.file, at.line}(why, sal::i::err::domain::kSystemCall, error);
}

}  // namespace

kind kindOf(int error) noexcept {
  for (const Row& row : kTable) {
    if (row.error == error) return row.k;
  }
  return kind::kSocket;
}

const char* nameOf(kind k) noexcept {
  static const char* const kNames[] = {
      "quorel::sal::xio::SocketException",           "quorel::sal::xio::ConnectionRefusedException",
      "quorel::sal::xio::ConnectionResetException",  "quorel::sal::xio::ConnectionAbortedException",
      "quorel::sal::xio::ConnectionTimedoutException", "quorel::sal::xio::HostDownException",
      "quorel::sal::xio::HostUnreachableException",  "quorel::sal::xio::NetworkDownException",
      "quorel::sal::xio::NetworkResetException",     "quorel::sal::xio::NetworkUnreachableException"};
  return kNames[static_cast<int>(k)];
}

void raise(const util::site::Thrower<SocketException>& at, const std::string& why, int error) {
  switch (kindOf(error)) {
    case kind::kConnectionRefused: raiseAs<ConnectionRefusedException>(at, why, error);
    case kind::kConnectionReset: raiseAs<ConnectionResetException>(at, why, error);
    case kind::kConnectionAborted: raiseAs<ConnectionAbortedException>(at, why, error);
    case kind::kConnectionTimedout: raiseAs<ConnectionTimedoutException>(at, why, error);
    case kind::kHostDown: raiseAs<HostDownException>(at, why, error);
    case kind::kHostUnreachable: raiseAs<HostUnreachableException>(at, why, error);
    case kind::kNetworkDown: raiseAs<NetworkDownException>(at, why, error);
    case kind::kNetworkReset: raiseAs<NetworkResetException>(at, why, error);
    case kind::kNetworkUnreachable: raiseAs<NetworkUnreachableException>(at, why, error);
    default: raiseAs<SocketException>(at, why, error);
  }
}

}  // namespace err
}  // namespace xio
}  // namespace sal
}  // namespace quorel
