// SCSI sense decoding.
#include <quorel/sal/xio/scsi/sense.h>

#include <algorithm>

#include <quorel/sal/xio/scsi/acq.inl>
#include <quorel/util/str.h>

namespace quorel {
namespace sal {
namespace xio {
namespace scsi {
namespace sense {

namespace {

void appendHexByte(std::string& out, unsigned char byte) {
  char digits[4];
  out += util::str::hexFrom(byte, digits, sizeof digits, true);
}

}  // namespace

namespace key {

const char* descriptionFor(unsigned char key) {
  static const char* const kKeys[] = {
      "NO SENSE",     "RECOVERED ERROR", "NOT READY",    "MEDIUM ERROR",    "HARDWARE ERROR", "ILLEGAL REQUEST",
      "UNIT ATTENTION", "DATA PROTECT",  "BLANK CHECK",  "VENDOR SPECIFIC", "COPY ABORTED",   "ABORTED COMMAND",
      "reserved",     "VOLUME OVERFLOW", "MISCOMPARE",   "COMPLETED",
  };
  return key < 16 ? kKeys[key] : "";
}

}  // namespace key

namespace acq {

const char* descriptionFor(unsigned char asc, unsigned char ascq) {
  if (asc == 0x40 && ascq >= 0x80) return "DIAGNOSTIC FAILURE ON COMPONENT NN (80h-FFh)";
  if (asc == 0x4D) return "TAGGED OVERLAPPED COMMANDS (NN = TASK TAG)";
  if (asc == 0x70) return "DECOMPRESSION EXCEPTION SHORT ALGORITHM ID OF NN";
  const Entry* end = kEntries + sizeof kEntries / sizeof kEntries[0];
  const Entry* found = std::lower_bound(kEntries, end, Entry{asc, ascq, nullptr}, [](const Entry& a, const Entry& b) {
    return a.asc != b.asc ? a.asc < b.asc : a.ascq < b.ascq;
  });
  if (found != end && found->asc == asc && found->ascq == ascq) return found->text;
  return asc >= 0x80 || ascq >= 0x80 ? "VENDOR SPECIFIC" : "UNKNOWN ADDITIONAL SENSE CODE";
}

}  // namespace acq

namespace kcq {

std::string descriptionFor(unsigned char key, unsigned char asc, unsigned char ascq) {
  std::string out;
  appendHexByte(out, key);
  out += '/';
  appendHexByte(out, asc);
  out += '/';
  appendHexByte(out, ascq);
  return out + " (" + key::descriptionFor(key) + " / " + acq::descriptionFor(asc, ascq) + ")";
}

std::string descriptionFrom(const char* senseData) {
  const unsigned char* s = reinterpret_cast<const unsigned char*>(senseData);
  const unsigned char responseCode = s[0] & 0x7f;
  if (responseCode == 0x7f) return "(vendor-specific sense data format)";
  if (responseCode == 0x72 || responseCode == 0x73) return descriptionFor(s[1] & 0x0f, s[2], s[3]);
  return descriptionFor(s[2] & 0x0f, s[12], s[13]);
}

}  // namespace kcq

std::string hexStringFrom(const char* data, int length) {
  std::string out;
  for (int i = 0; i < length; ++i) {
    if (i != 0 && i % 4 == 0) out += ' ';
    appendHexByte(out, static_cast<unsigned char>(data[i]));
  }
  return out;
}

}  // namespace sense
}  // namespace scsi
}  // namespace xio
}  // namespace sal
}  // namespace quorel
