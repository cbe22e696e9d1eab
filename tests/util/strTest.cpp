// Number/text conversions, hexadecimal rendering, separators, trimming and
// the natural order.
#include <list>
#include <locale>
#include <sstream>
#include <vector>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

#include "support/expect.h"

namespace quorel {
namespace {

namespace str = util::str;
const std::ios_base::fmtflags kHex = std::ios_base::hex;
const std::ios_base::fmtflags kOct = std::ios_base::oct;

TEST(StrFrom, PadsHexAndOctalToTheTypesFullWidthAndWritesNumbersAndWords) {
  EXPECT_EQ(str::from(255, kHex, true), "000000ff");
  EXPECT_EQ(str::from(255, kHex, false), "ff");
  EXPECT_EQ(str::from(8, kOct, true), "000000000010");
  EXPECT_EQ(str::from(static_cast<unsigned char>(10), kHex, true), "0a");
  EXPECT_EQ(str::from(10ULL, kHex, true), "000000000000000a");
  // Floating point ignores the base but still takes the width and fill.
  EXPECT_EQ(str::from(1.5, kHex, true), "00000000000001.5");
  // A mixed base field with padding gives an empty text.
  EXPECT_EQ(str::from(5, kHex | kOct, true), "");
  // Numbers, not characters; bool as words.
  EXPECT_EQ(str::from(static_cast<unsigned char>(65)), "65");
  EXPECT_EQ(str::from(true, kHex, true), "true");
  EXPECT_EQ(str::from(-9223372036854775807LL - 1), "-9223372036854775808");
  EXPECT_EQ(str::from(255u, kHex | std::ios_base::uppercase | std::ios_base::showbase), "0XFF");
}

// Groups of three digits separated by commas.
struct Thousands : std::numpunct<char> {
  char do_thousands_sep() const override { return ','; }
  std::string do_grouping() const override { return "\3"; }
};

TEST(StrFromAndTo, FollowTheGlobalLocaleLikeTheStream) {
  const std::locale previous = std::locale::global(std::locale(std::locale::classic(), new Thousands));
  const std::string text = str::from(1234567);
  const std::string version = util::Version("1.2.3.12345").asString();  // made with str::from
  unsigned int u = 0;
  str::to(u, "1,234");
  std::locale::global(previous);
  EXPECT_EQ(text, "1,234,567");
  EXPECT_EQ(version, "1.2.3.12,345");
  EXPECT_EQ(u, 1234u);
  EXPECT_EQ(str::from(1234567), "1234567");
}

TEST(StrTo, TrimsReadsIgnoresTrailingTextAndFailuresNameTheUntrimmedText) {
  unsigned int u = 0;
  str::to(u, "  42  ");
  EXPECT_EQ(u, 42u);
  str::to(u, "ff", kHex);
  EXPECT_EQ(u, 255u);
  str::to(u, "12abc");
  EXPECT_EQ(u, 12u);
  unsigned char c = 0;
  str::to(c, "300");  // low 8 bits, no range check
  EXPECT_EQ(c, 44);
  unsigned short s = 0;
  QUOREL_EXPECT_THROW(str::to(u, " x "), util::str::Exception, "conversion from \" x \" failed", 0, 0);
  auto e = QUOREL_EXPECT_THROW(str::to(s, "70000"), util::str::Exception,
                               "conversion from \"70000\" failed", 0, 0);
  ASSERT_TRUE(e);
  EXPECT_STREQ(e->file(), "util/str.inl");
}

TEST(StrHexFrom, TrimsLeadingZeroBytesWholeAndTheBufferFormReturnsZeroOrTheBuffer) {
  EXPECT_EQ(str::hexFrom(0u, false), "0");
  EXPECT_EQ(str::hexFrom(0u, true), "00000000");
  EXPECT_EQ(str::hexFrom(0xABCu, false), "0ABC");
  EXPECT_EQ(str::hexFrom(static_cast<char>(-1), false), "FF");
  EXPECT_EQ(str::hexFrom(reinterpret_cast<void*>(0x1234), true), "00001234");
  // The buffer form returns the constant zero or the buffer.
  char buffer[9];
  const char* zero = str::hexFrom(0u, buffer, sizeof buffer, false);
  EXPECT_STREQ(zero, "0");
  EXPECT_NE(zero, buffer);
  EXPECT_EQ(str::hexFrom(0xDEADBEEFu, buffer, sizeof buffer, false), buffer);
  EXPECT_STREQ(buffer, "DEADBEEF");
  // The size check counts the value's bytes, not the characters written.
  EXPECT_EQ(str::hexFrom(1u, buffer, 5, false), buffer);
  QUOREL_EXPECT_THROW(str::hexFrom(1u, buffer, 4, false), util::str::Exception,
                      "conversion failed - the given buffer is too small", 0, 0);
}

TEST(StrSplitAndCut, SplitCutsAtTheFirstSeparatorAndMayAliasItsInputCutKeepsEmptyPieces) {
  std::string head, tail = "old";
  EXPECT_TRUE(str::split("k=v=w", head, tail, '='));
  EXPECT_EQ(head, "k");
  EXPECT_EQ(tail, "v=w");
  EXPECT_FALSE(str::split("plain", head, tail, '='));
  EXPECT_EQ(tail, "");
  std::string text = "a:b";
  EXPECT_TRUE(str::split(text, text, tail, ':'));
  EXPECT_EQ(text, "a");
  EXPECT_EQ(tail, "b");
  // cut appends every piece, empty ones included.
  std::list<std::string> pieces{"kept"};
  str::cut("a,,b", ',', pieces);
  EXPECT_EQ(pieces, (std::list<std::string>{"kept", "a", "", "b"}));
  pieces.clear();
  str::cut("", ',', pieces);
  EXPECT_TRUE(pieces.empty());
  str::cut(",", ',', pieces);
  EXPECT_EQ(pieces, (std::list<std::string>{"", ""}));
}

// A ctype facet that also counts 'x' as white space.
class XIsSpace : public std::ctype<char> {
 public:
  XIsSpace() : std::ctype<char>(table()) {}

 private:
  static const mask* table() {
    static std::vector<mask> t(classic_table(), classic_table() + table_size);
    t['x'] |= space;
    return t.data();
  }
};

TEST(StrTrimLowerAndPrettyPrint, TrimsRightByTheLocaleLeftClassicallyLowerKeepsLengthLabelsAlign) {
  EXPECT_EQ(str::trim(" \t a b \n"), "a b");
  EXPECT_EQ(str::trim("   "), "");
  const std::locale xSpace(std::locale::classic(), new XIsSpace);
  EXPECT_EQ(str::trimLeftOf("xxa", xSpace), "a");
  EXPECT_EQ(str::trim("xx a xx", xSpace), "xx a");
  EXPECT_EQ(str::lower("AbC-9\xC3"), "abc-9\xC3");
  std::ostringstream out;
  str::prettyPrint(out, 2, 3, 8, "size");
  out << 42;
  EXPECT_EQ(out.str(), "      size    : 42");
}

TEST(StrLessThan, OrdersTrailingNumbersByValueWithItsRequiredConsequences) {
  using str::cmp::lessThan;
  EXPECT_TRUE(lessThan("disk2", "disk10"));
  EXPECT_FALSE(lessThan("disk10", "disk2"));
  EXPECT_TRUE(lessThan("010", "9"));           // leading zero: plain text
  EXPECT_TRUE(lessThan("disk2", "disk10p1"));  // text after b's number is ignored
  EXPECT_TRUE(lessThan("", "1"));
  // a1 and a1x are equivalent.
  EXPECT_FALSE(lessThan("a1", "a1x"));
  EXPECT_FALSE(lessThan("a1x", "a1"));
  EXPECT_TRUE(lessThan("Disk10", "disk2"));  // prefixes compare case-sensitively
  // Numbers past 2^64 - 1 compare as text.
  EXPECT_TRUE(lessThan("n18446744073709551616", "n2"));
  EXPECT_TRUE(lessThan("n2", "n18446744073709551615"));
}

TEST(ByteOrder, ReversesAndConvertsToNetworkOrder) {
  EXPECT_EQ(util::byte::reversed<unsigned short>(0x1234), 0x3412);
  EXPECT_EQ(util::byte::reversed(0x0102030405060708ULL), 0x0807060504030201ULL);
  EXPECT_EQ(util::byte::order::normalized(1), 0x01000000);
  EXPECT_EQ(util::byte::order::naturalized(0x0100000000000000ULL), 1ULL);
}

}  // namespace
}  // namespace quorel
