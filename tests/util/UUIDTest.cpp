// Time-based UUIDs: creation from the clocks, the generator and the first
// link; wire and text forms; the field-wise order.
#include <stdlib.h>
#include <sys/time.h>
#include <time.h>

#include <cerrno>
#include <cstring>
#include <list>
#include <locale>
#include <map>

#include <gtest/gtest.h>

#include <quorel/quorel.h>

#include "support/expect.h"
#include "support/fault.h"
#include "support/rtnetlink.h"

namespace quorel {
namespace {

using util::UUID;

// A fixed wall clock: 1,700,000,000.123456 s after the epoch.
int fixedWallClock(struct timeval* tv, void*) noexcept {
  tv->tv_sec = 1700000000;
  tv->tv_usec = 123456;
  return 0;
}

// A monotonic clock that advances 6 µs per reading from 5.001234 s.
long long monotonicNanos = 0;
int steppingTick(clockid_t, struct timespec* ts) noexcept {
  ts->tv_sec = static_cast<time_t>(monotonicNanos / 1000000000);
  ts->tv_nsec = static_cast<long>(monotonicNanos % 1000000000);
  monotonicNanos += 6000;
  return 0;
}

struct Wire {
  unsigned char bytes[16];
};

Wire wireOf(const UUID& id) {
  Wire w;
  id.to(w.bytes);
  return w;
}

pod::uint64 firstLinkAddress() {
  std::list<sal::inet::Link> links;
  std::map<std::string, sal::inet::Link> byName;
  sal::inet::Link::fill(links, byName);
  return links.empty() ? 0 : links.front().address();
}

class UUIDCreation : public ::testing::Test {
 protected:
  UUIDCreation()
      : wall_("gettimeofday", reinterpret_cast<void*>(&fixedWallClock)),
        tick_("clock_gettime", reinterpret_cast<void*>(&steppingTick)) {
    monotonicNanos = 5001234000LL;
    sal::sys::time::tick::lastTick = 0;
  }
  ~UUIDCreation() override { sal::sys::time::tick::lastTick = 0; }

  test::fault::StandIn wall_;
  test::fault::StandIn tick_;
};

TEST_F(UUIDCreation, TimestampCountsFrom1601WithTheTicksMicrosecondsBelowTheMillisecond) {
  const UUID id;
  const Wire w = wireOf(id);
  // 1700000000123 ms * 10000 + (5001234 µs % 10000) + the 1601 offset.
  const pod::uint64 t = 1700000000123ULL * 10000 + 1234 + 0x019DB1DED53E8000ULL;
  const pod::uint64 timeLow = (pod::uint64{w.bytes[0]} << 24) | (w.bytes[1] << 16) | (w.bytes[2] << 8) | w.bytes[3];
  EXPECT_EQ(timeLow, t & 0xffffffffu);
  EXPECT_EQ((w.bytes[4] << 8) | w.bytes[5], static_cast<int>((t >> 32) & 0xffff));
  EXPECT_EQ((w.bytes[6] << 8) | w.bytes[7], static_cast<int>(((t >> 48) & 0x0fff) | 0x1000));
  // Clock sequence: rand() after srand(tick), high byte first, no variant bits.
  ::srand(static_cast<unsigned int>(5001234000ULL));
  const int r = ::rand();
  EXPECT_EQ(w.bytes[8], (r >> 8) & 0xff);
  EXPECT_EQ(w.bytes[9], r & 0xff);
  // Node: the first link's hardware address, most significant byte first.
  const pod::uint64 node = firstLinkAddress();
  for (int i = 0; i < 6; ++i) EXPECT_EQ(w.bytes[10 + i], (node >> (8 * (5 - i))) & 0xff) << i;
}

TEST_F(UUIDCreation, TwoInOneMillisecondDifferByTheTickAndTheReseededSequence) {
  const Wire a = wireOf(UUID());
  const Wire b = wireOf(UUID());
  EXPECT_EQ(std::memcmp(a.bytes + 4, b.bytes + 4, 4), 0);  // same millisecond
  EXPECT_EQ(b.bytes[3] - a.bytes[3], 6);                    // 6 µs later on the tick
  EXPECT_NE(std::memcmp(a.bytes + 8, b.bytes + 8, 2), 0);   // srand from a different tick
  EXPECT_EQ(std::memcmp(a.bytes + 10, b.bytes + 10, 6), 0); // same node
}

TEST_F(UUIDCreation, NodeComesFromRandWhenTheHostHasNoLink) {
  // Every dump ends before its first entry.
  test::rtnetlink::Rewrite empty([](char* answer, ssize_t, int) { return test::rtnetlink::endOfDump(answer); });
  const Wire w = wireOf(UUID());
  ::srand(static_cast<unsigned int>(5001234000ULL));
  ::rand();  // the clock sequence
  for (int i = 0; i < 3; ++i) {
    const int r = ::rand() & 0xffff;
    EXPECT_EQ(w.bytes[10 + 2 * i], r >> 8) << i;
    EXPECT_EQ(w.bytes[11 + 2 * i], r & 0xff) << i;
  }
}

TEST(UUID, FailedLinkEnumerationReachesTheCaller) {
  test::fault::Injection fail("socket", EMFILE);
  QUOREL_EXPECT_THROW(UUID(), sal::inet::Exception, "::socket(AF_NETLINK, NETLINK_ROUTE) failed", 2, EMFILE);
}

TEST(UUID, WireFormRoundTripsReadsTimeFieldsBigEndianAndNewOnesAreVersionOneAndDistinct) {
  unsigned char bytes[16];
  for (int i = 0; i < 16; ++i) bytes[i] = static_cast<unsigned char>(i + 1);
  const UUID id(bytes);
  unsigned char back[16];
  id.to(back);
  EXPECT_EQ(std::memcmp(bytes, back, 16), 0);
  EXPECT_EQ(id.asString(), "01020304-0506-0708-090a-0b0c0d0e0f10");
  const unsigned char zeros[16] = {};
  EXPECT_EQ(UUID(zeros).asString(), "00000000-0000-0000-0000-000000000000");
  // New identifiers are version one and distinct.
  const UUID a, b;
  EXPECT_NE(a, b);
  EXPECT_EQ(a.asString().size(), 36u);
  EXPECT_EQ(a.asString()[14], '1');
}

// Groups of three digits separated by commas.
struct Thousands : std::numpunct<char> {
  char do_thousands_sep() const override { return ','; }
  std::string do_grouping() const override { return "\3"; }
};

TEST(UUID, TextIgnoresTheGlobalLocale) {
  unsigned char bytes[16];
  for (int i = 0; i < 16; ++i) bytes[i] = static_cast<unsigned char>(0xf0 + i);
  const std::locale previous = std::locale::global(std::locale(std::locale::classic(), new Thousands));
  const std::string text = UUID(bytes).asString();
  std::locale::global(previous);
  EXPECT_EQ(text, "f0f1f2f3-f4f5-f6f7-f8f9-fafbfcfdfeff");
}

TEST(UUID, OrderIsFieldWiseAndNotTotal) {
  unsigned char a[16] = {}, b[16] = {};
  a[15] = 1;  // a: time low 0, last byte 1
  b[3] = 1;   // b: time low 1, last byte 0
  EXPECT_FALSE(UUID(a) < UUID(b));
  EXPECT_FALSE(UUID(b) < UUID(a));
  EXPECT_NE(UUID(a), UUID(b));
  unsigned char c[16] = {};
  c[15] = 2;
  EXPECT_TRUE(UUID(a) < UUID(c));
}

}  // namespace
}  // namespace quorel
