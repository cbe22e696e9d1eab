// The table from socket error numbers to exception classes.
#include <cxxabi.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string>
#include <typeinfo>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

namespace quorel {
namespace {

using namespace sal::xio;

std::string classOf(const std::exception& e) {
  int status = 0;
  std::unique_ptr<char, void (*)(void*)> name(abi::__cxa_demangle(typeid(e).name(), nullptr, nullptr, &status),
                                              std::free);
  return status == 0 ? name.get() : typeid(e).name();
}

TEST(XioErr, EachNumberIsRaisedAsTheClassItsKindNames) {
  const struct {
    int error;
    err::kind kind;
    const char* name;
  } rows[] = {
      {ECONNREFUSED, err::kind::kConnectionRefused, "quorel::sal::xio::ConnectionRefusedException"},
      {ECONNRESET, err::kind::kConnectionReset, "quorel::sal::xio::ConnectionResetException"},
      {EPIPE, err::kind::kConnectionReset, "quorel::sal::xio::ConnectionResetException"},
      {ECONNABORTED, err::kind::kConnectionAborted, "quorel::sal::xio::ConnectionAbortedException"},
      {ETIMEDOUT, err::kind::kConnectionTimedout, "quorel::sal::xio::ConnectionTimedoutException"},
      {EHOSTDOWN, err::kind::kHostDown, "quorel::sal::xio::HostDownException"},
      {EHOSTUNREACH, err::kind::kHostUnreachable, "quorel::sal::xio::HostUnreachableException"},
      {ENETDOWN, err::kind::kNetworkDown, "quorel::sal::xio::NetworkDownException"},
      {ENETRESET, err::kind::kNetworkReset, "quorel::sal::xio::NetworkResetException"},
      {ENETUNREACH, err::kind::kNetworkUnreachable, "quorel::sal::xio::NetworkUnreachableException"},
      {EBADF, err::kind::kSocket, "quorel::sal::xio::SocketException"},
      {0, err::kind::kSocket, "quorel::sal::xio::SocketException"},
      {-1, err::kind::kSocket, "quorel::sal::xio::SocketException"},
      {99999, err::kind::kSocket, "quorel::sal::xio::SocketException"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.error);
    EXPECT_EQ(err::kindOf(row.error), row.kind);
    EXPECT_STREQ(err::nameOf(row.kind), row.name);
    const int line = __LINE__ + 2;
    try {
      err::raise(QUOREL_EXCEPTION(SocketException), "::send() failed", row.error);
    } catch (const SocketException& e) {
      EXPECT_EQ(classOf(e), row.name);
      EXPECT_EQ(e.why(), "::send() failed");
      EXPECT_EQ(e.domain(), sal::i::err::domain::kSystemCall);
      EXPECT_EQ(e.code(), row.error);
      EXPECT_STREQ(e.where(), __PRETTY_FUNCTION__);
      EXPECT_STREQ(e.file(), util::site::relative(__FILE__));
      EXPECT_EQ(e.line(), line);
    }
  }
}

}  // namespace
}  // namespace quorel
