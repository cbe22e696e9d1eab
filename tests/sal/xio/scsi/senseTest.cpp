// Sense keys, additional sense codes, key/code/qualifier texts and dumps.
#include <string>

#include <gtest/gtest.h>

#include <quorel/quorel.h>
#include <quorel/sal/xio/scsi/acq.inl>

namespace quorel {
namespace {

namespace sense = sal::xio::scsi::sense;

TEST(SenseKey, TextsForAllSixteenKeys) {
  EXPECT_STREQ(sense::key::descriptionFor(0), "NO SENSE");
  EXPECT_STREQ(sense::key::descriptionFor(5), "ILLEGAL REQUEST");
  EXPECT_STREQ(sense::key::descriptionFor(12), "reserved");
  EXPECT_STREQ(sense::key::descriptionFor(15), "COMPLETED");
  EXPECT_STREQ(sense::key::descriptionFor(16), "");
}

TEST(SenseCodes, TableIsSortedWithoutDuplicatesForTheBinarySearch) {
  using sense::acq::kEntries;
  const size_t count = sizeof kEntries / sizeof kEntries[0];
  EXPECT_GT(count, 700u);
  for (size_t i = 1; i < count; ++i) {
    const int previous = kEntries[i - 1].asc << 8 | kEntries[i - 1].ascq;
    const int current = kEntries[i].asc << 8 | kEntries[i].ascq;
    EXPECT_LT(previous, current) << std::hex << current;
  }
  for (size_t i = 0; i < count; ++i) {
    EXPECT_STREQ(sense::acq::descriptionFor(kEntries[i].asc, kEntries[i].ascq), kEntries[i].text);
  }
}

TEST(SenseCodes, StandardTextsRangeRulesAndUnknownCodes) {
  EXPECT_STREQ(sense::acq::descriptionFor(0x00, 0x00), "NO ADDITIONAL SENSE INFORMATION");
  EXPECT_STREQ(sense::acq::descriptionFor(0x21, 0x00), "LOGICAL BLOCK ADDRESS OUT OF RANGE");
  EXPECT_STREQ(sense::acq::descriptionFor(0x24, 0x00), "INVALID FIELD IN CDB");
  EXPECT_STREQ(sense::acq::descriptionFor(0x40, 0x80), "DIAGNOSTIC FAILURE ON COMPONENT NN (80h-FFh)");
  EXPECT_STREQ(sense::acq::descriptionFor(0x40, 0xFF), "DIAGNOSTIC FAILURE ON COMPONENT NN (80h-FFh)");
  EXPECT_STREQ(sense::acq::descriptionFor(0x40, 0x00), "RAM FAILURE (SHOULD USE 40 NN)");
  EXPECT_STREQ(sense::acq::descriptionFor(0x4D, 0x17), "TAGGED OVERLAPPED COMMANDS (NN = TASK TAG)");
  EXPECT_STREQ(sense::acq::descriptionFor(0x70, 0x00), "DECOMPRESSION EXCEPTION SHORT ALGORITHM ID OF NN");
  EXPECT_STREQ(sense::acq::descriptionFor(0x24, 0x7E), "UNKNOWN ADDITIONAL SENSE CODE");
  EXPECT_STREQ(sense::acq::descriptionFor(0x85, 0x00), "VENDOR SPECIFIC");
}

std::string senseBytes(std::initializer_list<int> bytes) {
  std::string s(32, '\0');
  int i = 0;
  for (int b : bytes) s[i++] = static_cast<char>(b);
  return s;
}

TEST(SenseData, DecodesFixedDescriptorAndVendorFormats) {
  std::string fixed = senseBytes({0x70, 0x00, 0x05});
  fixed[12] = 0x24;
  EXPECT_EQ(sense::kcq::descriptionFrom(fixed.data()), "05/24/00 (ILLEGAL REQUEST / INVALID FIELD IN CDB)");
  std::string deferred = senseBytes({0xF1, 0x00, 0x03});  // valid bit set, deferred error
  deferred[12] = 0x11;
  EXPECT_EQ(sense::kcq::descriptionFrom(deferred.data()), "03/11/00 (MEDIUM ERROR / UNRECOVERED READ ERROR)");
  EXPECT_EQ(sense::kcq::descriptionFrom(senseBytes({0x72, 0x06, 0x29, 0x00}).data()),
            "06/29/00 (UNIT ATTENTION / POWER ON, RESET, OR BUS DEVICE RESET OCCURRED)");
  EXPECT_EQ(sense::kcq::descriptionFrom(senseBytes({0x73, 0xF5, 0x21, 0x00}).data()),
            "05/21/00 (ILLEGAL REQUEST / LOGICAL BLOCK ADDRESS OUT OF RANGE)");
  EXPECT_EQ(sense::kcq::descriptionFrom(senseBytes({0xFF}).data()), "(vendor-specific sense data format)");
}

TEST(SenseData, HexDumpGroupsFourBytes) {
  const std::string bytes("\x70\x00\x05\x00\xab\xcd\x01\x02\x03", 9);
  EXPECT_EQ(sense::hexStringFrom(bytes.data(), 9), "70000500 ABCD0102 03");
  EXPECT_EQ(sense::hexStringFrom(bytes.data(), 4), "70000500");
  EXPECT_EQ(sense::hexStringFrom(bytes.data(), 0), "");
}

}  // namespace
}  // namespace quorel
