// Dotted version numbers.
#include <gtest/gtest.h>

#include <quorel/quorel.h>

#include "support/expect.h"

namespace quorel {
namespace {

using util::Version;

TEST(Version, ParsesUpToFourComponentsAndPrintsTheFourthOnlyIfSet) {
  EXPECT_EQ(Version("").asString(), "0.0.0");
  EXPECT_EQ(Version().asString(), "0.0.0");
  EXPECT_EQ(Version("2.6").asString(), "2.6.0");
  EXPECT_EQ(Version("1.2.3.4").asString(), "1.2.3.4");
  EXPECT_EQ(Version("1.2.3.4.5").asString(), "1.2.3.4");
  EXPECT_EQ(Version("2.6.18.0").asString(), "2.6.18");
  EXPECT_EQ(Version(" 6 . 1 ").asString(), "6.1.0");
  EXPECT_EQ(Version("255.255.65535.4294967295").asString(), "255.255.65535.4294967295");
}

TEST(Version, EightBitComponentsWrap) {
  const Version v("300.257.7");
  EXPECT_EQ(v.majorNumber(), 44);
  EXPECT_EQ(v.minorNumber(), 1);
  EXPECT_EQ(v.asString(), "44.1.7");
  // The wider components are range-checked by the stream instead.
  QUOREL_EXPECT_THROW(Version("1.2.70000"), util::str::Exception, "conversion from \"70000\" failed", 0, 0);
}

TEST(Version, RoundTripsAndOrders) {
  for (const char* text : {"0.0.0", "1.2.3", "6.1.0.55", "255.0.1"}) {
    EXPECT_EQ(Version(Version(text).asString()), Version(text)) << text;
  }
  EXPECT_TRUE(Version("2.6.18") < Version("2.6.32"));
  EXPECT_FALSE(Version("3.0") < Version("2.9.9.9"));
}

TEST(Version, NonNumericPieceThrowsStrException) {
  QUOREL_EXPECT_THROW(Version("1.x"), util::str::Exception, "conversion from \"x\" failed", 0, 0);
  QUOREL_EXPECT_THROW(Version("1..2"), util::str::Exception, "conversion from \"\" failed", 0, 0);
}

}  // namespace
}  // namespace quorel
