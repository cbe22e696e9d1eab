// Fuzzes the SCSI sense decoder with arbitrary sense bytes: the key/code/
// qualifier description (read from an exact-size copy, so that a read past
// the 14 bytes it may look at is seen), the hexadecimal dump, and an
// exception of the SCSI domain carrying the bytes. Beyond "no crash" it
// checks that the description names the key, code and qualifier found where
// the bytes' format puts them, and that the dump reads back as the bytes.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <quorel/quorel.h>

#include "check.h"

namespace {

namespace sense = quorel::sal::xio::scsi::sense;

const size_t kRead = 14;  // bytes that the description may read

int digitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The dump: two upper-case digits per byte and a space before every fourth
// byte but the first, reading back as the bytes.
void checkDump(const std::string& bytes) {
  const std::string dump = sense::hexStringFrom(bytes.data(), static_cast<int>(bytes.size()));
  size_t at = 0;
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (i != 0 && i % 4 == 0) {
      QUOREL_FUZZ_CHECK(at < dump.size() && dump[at] == ' ');
      ++at;
    }
    QUOREL_FUZZ_CHECK(at + 2 <= dump.size());
    const int high = digitValue(dump[at]), low = digitValue(dump[at + 1]);
    QUOREL_FUZZ_CHECK(high >= 0 && low >= 0);
    QUOREL_FUZZ_CHECK((high << 4 | low) == static_cast<unsigned char>(bytes[i]));
    at += 2;
  }
  QUOREL_FUZZ_CHECK(at == dump.size());
}

// The description of at least kRead sense bytes, and what it must say.
std::string checkedDescription(const unsigned char* s) {
  const std::string description = sense::kcq::descriptionFrom(reinterpret_cast<const char*>(s));
  const unsigned char code = s[0] & 0x7F;
  if (code == 0x7F) {
    QUOREL_FUZZ_CHECK(description == "(vendor-specific sense data format)");
    return description;
  }
  const bool descriptorFormat = code == 0x72 || code == 0x73;
  const unsigned char key = (descriptorFormat ? s[1] : s[2]) & 0x0F;
  const unsigned char asc = descriptorFormat ? s[2] : s[12];
  const unsigned char ascq = descriptorFormat ? s[3] : s[13];
  QUOREL_FUZZ_CHECK(description == sense::kcq::descriptionFor(key, asc, ascq));
  const std::string expected = std::string("0") + "0123456789ABCDEF"[key] + "/" +
                               quorel::util::str::hexFrom(asc, true) + "/" + quorel::util::str::hexFrom(ascq, true) +
                               " (" + sense::key::descriptionFor(key) + " / " +
                               sense::acq::descriptionFor(asc, ascq) + ")";
  QUOREL_FUZZ_CHECK(description == expected);
  return description;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  checkDump(bytes);
  std::string padded(bytes);
  if (padded.size() < 32) padded.resize(32, '\0');
  const std::string description = checkedDescription(reinterpret_cast<const unsigned char*>(padded.data()));
  if (size >= kRead) {
    // An exact-size copy: any read past the end is seen.
    const std::vector<unsigned char> exact(data, data + size);
    QUOREL_FUZZ_CHECK(checkedDescription(exact.data()) == description);
  }
  // A key above 15 and any code and qualifier still describe.
  if (size >= 3) {
    QUOREL_FUZZ_CHECK(!sense::kcq::descriptionFor(data[0], data[1], data[2]).empty());
    QUOREL_FUZZ_CHECK(std::strlen(sense::acq::descriptionFor(data[1], data[2])) > 0);
  }
  // The same bytes carried by an exception of the SCSI domain, with a status
  // word from the first four bytes.
  int status = 0;
  std::memcpy(&status, padded.data(), sizeof status);
  const quorel::Exception e(__PRETTY_FUNCTION__, "SCSI command failed", quorel::sal::i::err::domain::kSCSICDB, status,
                            __FILE__, __LINE__, bytes);
  const std::string text = e.asString();
  const std::string tail = " kcq='" + description +
                           "' senseData='" + sense::hexStringFrom(bytes.data(), static_cast<int>(size)) + "'";
  QUOREL_FUZZ_CHECK(text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0);
  QUOREL_FUZZ_CHECK(e.asSimpleString() ==
                    "SCSI command failed - " + quorel::sal::err::asString(status, quorel::sal::i::err::domain::kSCSICDB));
  return 0;
}
