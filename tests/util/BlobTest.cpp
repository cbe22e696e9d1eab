// Blob and StringToBlob.
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

#include "support/expect.h"

namespace quorel {
namespace {

using util::Blob;

TEST(Blob, RendersEachTypeAsText) {
  EXPECT_EQ(Blob(7).valueAsString(), "7");
  EXPECT_EQ(Blob(true).valueAsString(), "true");
  EXPECT_EQ(Blob(static_cast<signed char>(-5)).valueAsString(), "-5");
  EXPECT_EQ(Blob(static_cast<unsigned char>(200)).valueAsString(), "200");
  EXPECT_EQ(Blob(static_cast<short>(-300)).valueAsString(), "-300");
  EXPECT_EQ(Blob(std::numeric_limits<unsigned long long>::max()).valueAsString(), "18446744073709551615");
  EXPECT_EQ(Blob(1.5).valueAsString(), "1.5");
  EXPECT_EQ(Blob(std::string("text")).valueAsString(), "text");
  EXPECT_EQ(Blob("literal").valueAsString(), "literal");  // a string, not a bool
  EXPECT_EQ(Blob(typeid(unsigned short)).valueAsString(), "0");
  EXPECT_EQ(Blob(typeid(std::string)).valueAsString(), "");
  EXPECT_EQ(Blob(typeid(float)).valueAsString(), "");
}

TEST(Blob, GetReturnsTheValueOfTheHeldTypeOnlyAndCopiesShareIt) {
  Blob blob(7);
  int i = 0;
  blob.get(i);
  EXPECT_EQ(i, 7);
  double d = 0;
  auto e = QUOREL_EXPECT_THROW(blob.get(d), InvalidArgumentException,
                               "type mismatch - expected 'int' but requested type is 'double'", 0, 0);
  ASSERT_TRUE(e);
  EXPECT_STREQ(e->file(), "util/impl/Blob.inl");
  std::string s;
  blob.set(std::string("now text"));
  blob.get(s);
  EXPECT_EQ(s, "now text");
  EXPECT_TRUE(blob.type() == typeid(std::string));
  // Copies share one value.
  Blob copy(blob);
  copy.set(2.5);
  blob.get(d);
  EXPECT_EQ(d, 2.5);
}

template <class T>
std::string mismatchFor(const Blob& blob) {
  T out{};
  try {
    blob.get(out);
  } catch (const InvalidArgumentException& e) {
    return e.why();
  }
  return "no exception";
}

TEST(Blob, MismatchMessagesNameTheRequestedType) {
  const Blob blob(true);
  const std::string prefix = "type mismatch - expected 'bool' but requested type is '";
  EXPECT_EQ(mismatchFor<double>(blob), prefix + "double'");
  EXPECT_EQ(mismatchFor<unsigned long long>(blob), prefix + "unsigned long long'");
  EXPECT_EQ(mismatchFor<long long>(blob), prefix + "long long'");
  EXPECT_EQ(mismatchFor<unsigned int>(blob), prefix + "unsigned int'");
  EXPECT_EQ(mismatchFor<int>(blob), prefix + "int'");
  EXPECT_EQ(mismatchFor<unsigned short>(blob), prefix + "unsigned short'");
  EXPECT_EQ(mismatchFor<short>(blob), prefix + "short'");
  EXPECT_EQ(mismatchFor<unsigned char>(blob), prefix + "unsigned char'");
  EXPECT_EQ(mismatchFor<signed char>(blob), prefix + "signed char'");
  EXPECT_EQ(mismatchFor<std::string>(blob), prefix + "std::string'");
  EXPECT_EQ(mismatchFor<bool>(Blob(1)), "type mismatch - expected 'int' but requested type is 'bool'");
}

TEST(Blob, ComparesValuesOfTheSameTypeAndRefusesOthers) {
  EXPECT_TRUE(Blob(3) == Blob(3));
  EXPECT_TRUE(Blob(3) != Blob(4));
  EXPECT_TRUE(Blob("a") == Blob(std::string("a")));
  EXPECT_FALSE(Blob("a") == Blob("b"));
  EXPECT_TRUE(Blob(typeid(std::string)) == Blob(""));
  EXPECT_TRUE(Blob(0.0) == Blob(-0.0));
  EXPECT_TRUE(Blob(typeid(int)) == Blob(0));
  QUOREL_EXPECT_THROW((void)(Blob(1) == Blob(1LL)), InvalidArgumentException,
                      "type mismatch - expected 'int' but requested type is 'long long'", 0, 0);
}

TEST(Blob, SettingStringsRepeatedlyKeepsTheLatestAndStringToBlobStoresAString) {
  // Each set over a string abandons the previous string; the sanitizer
  // build is told to expect exactly these allocations.
  Blob blob("first");
  for (int i = 0; i < 100; ++i) blob.set(std::string(64, static_cast<char>('a' + i % 26)));
  EXPECT_EQ(blob.valueAsString(), std::string(64, 'v'));
  // StringToBlob stores text as a string.
  blob.set(5);
  std::string error = "untouched";
  EXPECT_TRUE(util::StringToBlob().set(blob, "12", error));
  EXPECT_EQ(error, "untouched");
  std::string out;
  blob.get(out);
  EXPECT_EQ(out, "12");
}

}  // namespace
}  // namespace quorel
