// Number/text conversions, hexadecimal rendering, separators, trimming and
// the natural order.
#include <list>
#include <locale>
#include <random>
#include <sstream>
#include <string>
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

// Makes a locale the global one for a scope.
struct GlobalLocale {
  explicit GlobalLocale(const std::locale& locale) : previous(std::locale::global(locale)) {}
  ~GlobalLocale() { std::locale::global(previous); }
  const std::locale previous;
};

// Values around every power of two and of ten and random ones of every
// magnitude; cast to narrower and signed types they also give those types'
// limits and negative numbers.
std::vector<unsigned long long> samples() {
  std::vector<unsigned long long> values;
  std::mt19937_64 random(42);
  unsigned long long ten = 1;
  for (int i = 0; i < 64; ++i, ten *= 10) {
    for (const unsigned long long at : {1ULL << i, i < 20 ? ten : 0ULL}) {
      values.insert(values.end(), {at - 1, at, at + 1, 0 - at, 0 - at - 1});
    }
    for (int j = 0; j < 16; ++j) values.push_back(random() >> (random() % 64));
  }
  return values;
}

template <class T>
std::string parsed(const std::string& text) {
  T number = 0;
  try {
    str::to(number, text);
    return std::to_string(number);
  } catch (const util::str::Exception& e) {
    return e.why();
  }
}

// Each sample written by every integer type under plain and other flags, and
// read back by every reading type from texts with and without what the
// stream also takes: the texts, numbers and failure messages in order.
std::vector<std::string> conversions(const std::vector<unsigned long long>& values) {
  std::vector<std::string> results;
  const std::ios_base::fmtflags flags[] = {std::ios_base::dec, kHex, kOct, kHex | std::ios_base::showbase,
                                           std::ios_base::dec | std::ios_base::showpos};
  for (const unsigned long long v : values) {
    for (const std::ios_base::fmtflags f : flags) {
      for (const bool pad : {false, true}) {
        results.insert(results.end(),
                       {str::from(static_cast<unsigned char>(v), f, pad), str::from(static_cast<short>(v), f, pad),
                        str::from(static_cast<unsigned short>(v), f, pad), str::from(static_cast<int>(v), f, pad),
                        str::from(static_cast<unsigned int>(v), f, pad), str::from(static_cast<long long>(v), f, pad),
                        str::from(v, f, pad)});
      }
    }
    const std::string digits = std::to_string(v);
    for (const std::string& text : {digits, " \t" + digits + "\n", digits + "x7", digits + ",5", "+" + digits,
                                     "-" + digits, "0x" + digits, digits + "99999999999"}) {
      results.insert(results.end(), {parsed<unsigned char>(text), parsed<unsigned short>(text),
                                     parsed<unsigned int>(text)});
    }
  }
  for (const char* text : {"", " ", "abc", "\v"}) results.push_back(parsed<unsigned int>(text));
  return results;
}

TEST(StrFromAndTo, GiveTheStreamsResultsWithoutItUnderTheClassicLocaleAndFollowAnyOtherGlobalLocale) {
  const std::vector<unsigned long long> values = samples();
  std::vector<std::string> classic, streamed;
  {
    GlobalLocale global(std::locale::classic());
    classic = conversions(values);
  }
  {
    // The classic rules in a locale that is not the classic one: every
    // conversion goes through the stream.
    GlobalLocale global(std::locale(std::locale::classic(), new std::numpunct<char>));
    streamed = conversions(values);
  }
  ASSERT_EQ(classic.size(), streamed.size());
  for (std::size_t i = 0; i < classic.size(); ++i) ASSERT_EQ(classic[i], streamed[i]) << "conversion " << i;

  GlobalLocale global(std::locale(std::locale::classic(), new Thousands));
  for (const unsigned long long v : values) {
    std::ostringstream grouped, groupedLong;
    grouped << static_cast<unsigned int>(v);
    groupedLong << static_cast<long long>(v);
    ASSERT_EQ(str::from(static_cast<unsigned int>(v)), grouped.str());
    ASSERT_EQ(str::from(static_cast<long long>(v)), groupedLong.str());
    unsigned int back = 0;
    str::to(back, grouped.str());
    ASSERT_EQ(back, static_cast<unsigned int>(v)) << grouped.str();
  }
  EXPECT_EQ(str::from(1234567), "1,234,567");
  EXPECT_EQ(util::Version("1.2.3.12345").asString(), "1.2.3.12,345");  // made with str::from
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
