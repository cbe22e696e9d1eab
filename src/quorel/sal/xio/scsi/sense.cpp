// SCSI sense data renderings.
//
// PLACEHOLDER: kcq::descriptionFrom prints the sense key, additional sense
// code and qualifier as bare numbers ("05/24/00"). The sense key and ASC/ASCQ
// description tables of the SCSI pass-through layer replace it.
#include <quorel/sal/xio/scsi/sense.h>

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

namespace kcq {

std::string descriptionFrom(const char* senseData) {
  const unsigned char* s = reinterpret_cast<const unsigned char*>(senseData);
  const unsigned char responseCode = s[0] & 0x7f;
  if (responseCode == 0x7f) return "(vendor-specific sense data format)";
  const bool descriptorFormat = responseCode == 0x72 || responseCode == 0x73;
  const unsigned char key = (descriptorFormat ? s[1] : s[2]) & 0x0f;
  const unsigned char asc = descriptorFormat ? s[2] : s[12];
  const unsigned char ascq = descriptorFormat ? s[3] : s[13];
  std::string out;
  appendHexByte(out, key);
  out += '/';
  appendHexByte(out, asc);
  out += '/';
  appendHexByte(out, ascq);
  return out;
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
