// Assertions for exceptions thrown by the library.
#ifndef QUOREL_TESTS_SUPPORT_EXPECT_H
#define QUOREL_TESTS_SUPPORT_EXPECT_H

#include <gtest/gtest.h>

#include <fstream>
#include <optional>
#include <string>
#include <typeinfo>

#include <quorel/util/Exception.h>

namespace quorel {
namespace test {

// The text of a line of a file under src/quorel/, or "" if there is none.
inline std::string sourceLine(const char* relativeFile, int line) {
  std::ifstream in(std::string(QUOREL_TEST_SOURCE_DIR "/src/quorel/") + relativeFile);
  std::string text;
  for (int i = 0; i < line && std::getline(in, text); ++i) {
  }
  return in ? text : std::string();
}

// Expects that f throws exactly class E (not a subclass) and returns it. An
// unexpected quorel::Exception is reported with its asString().
template <class E, class F>
std::optional<E> caught(F&& f) {
  try {
    f();
    ADD_FAILURE() << "no exception was thrown";
  } catch (const E& e) {
    EXPECT_TRUE(typeid(e) == typeid(E)) << "caught a subclass: " << e.asString();
    return e;
  } catch (const quorel::Exception& e) {
    ADD_FAILURE() << "unexpected exception " << e.asString();
  } catch (const std::exception& e) {
    ADD_FAILURE() << "unexpected std::exception " << e.what();
  }
  return std::nullopt;
}

// Checks the fields every failure test looks at: why, domain, code, a file
// relative to src/quorel/ and a line that really holds the throw.
inline void expectFields(const quorel::Exception& e, const std::string& why, int domain, int code) {
  SCOPED_TRACE(e.asString());
  EXPECT_EQ(e.why(), why);
  EXPECT_EQ(static_cast<int>(e.domain()), domain);
  EXPECT_EQ(e.code(), code);
  ASSERT_NE(e.file(), nullptr);
  EXPECT_NE(e.file()[0], '/') << "file() must be relative to src/quorel/";
  EXPECT_EQ(std::string(e.file()).find(".."), std::string::npos) << "file() must be a canonical path";
  const std::string source = sourceLine(e.file(), e.line());
  EXPECT_TRUE(source.find("QUOREL_THROW") != std::string::npos || source.find("QUOREL_EXCEPTION") != std::string::npos)
      << "line " << e.line() << " of " << e.file() << " does not build the exception";
  if (domain != 5) {
    EXPECT_TRUE(e.auxData().empty());
  }
}

}  // namespace test
}  // namespace quorel

// Runs statement, expects it to throw Class with these fields, and makes the
// caught exception available as an std::optional<Class>.
#define QUOREL_EXPECT_THROW(statement, Class, why, domain, code)                                   \
  [&]() {                                                                                          \
    auto e_ = ::quorel::test::caught<Class>([&]() { statement; });                                 \
    if (e_) ::quorel::test::expectFields(*e_, why, domain, code);                                  \
    return e_;                                                                                     \
  }()

// QUOREL_EXPECT_THROW with the next library call of function (support/fault.h)
// failing with error.
#define QUOREL_EXPECT_FAULT(function, error, statement, Class, why, domain, code)                  \
  [&]() {                                                                                          \
    ::quorel::test::fault::Injection f_(function, error);                                          \
    return QUOREL_EXPECT_THROW(statement, Class, why, domain, code);                               \
  }()

#endif
