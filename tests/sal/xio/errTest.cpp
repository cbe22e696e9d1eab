// The table from socket error numbers to exception classes.
#include <cxxabi.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string>
#include <typeinfo>
#include <utility>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

namespace quorel {
namespace {

using namespace sal::xio;

TEST(XioErr, EachNumberIsRaisedAsTheClassItsKindNames) {
  const std::pair<int, const char*> rows[] = {
      {ECONNREFUSED, "ConnectionRefused"}, {ECONNRESET, "ConnectionReset"},   {EPIPE, "ConnectionReset"},
      {ECONNABORTED, "ConnectionAborted"}, {ETIMEDOUT, "ConnectionTimedout"}, {EHOSTDOWN, "HostDown"},
      {EHOSTUNREACH, "HostUnreachable"},   {ENETDOWN, "NetworkDown"},         {ENETRESET, "NetworkReset"},
      {ENETUNREACH, "NetworkUnreachable"}, {EBADF, "Socket"}};
  for (const auto& [error, stem] : rows) {
    const std::string name = std::string("quorel::sal::xio::") + stem + "Exception";
    SCOPED_TRACE(name);
    EXPECT_EQ(err::nameOf(err::kindOf(error)), name);
    const int line = __LINE__ + 2;
    try {
      err::raise(QUOREL_EXCEPTION(SocketException), "::send() failed", error);
    } catch (const SocketException& e) {
      const std::unique_ptr<char, void (*)(void*)> actual(
          abi::__cxa_demangle(typeid(e).name(), nullptr, nullptr, nullptr), std::free);
      EXPECT_STREQ(actual.get(), name.c_str());
      EXPECT_EQ(e.why(), "::send() failed");
      EXPECT_EQ(e.domain(), sal::i::err::domain::kSystemCall);
      EXPECT_EQ(e.code(), error);
      EXPECT_STREQ(e.where(), __PRETTY_FUNCTION__);
      EXPECT_STREQ(e.file(), util::site::relative(__FILE__));
      EXPECT_EQ(e.line(), line);
    }
  }
}

}  // namespace
}  // namespace quorel
