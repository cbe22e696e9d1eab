// Error domain names and per-domain message texts.
#include <quorel/sal/err.h>

#include <quorel/sal/sys/err.inl>

namespace quorel {
namespace sal {
namespace err {

namespace {

const char kUnknownCode[] = "unknown error code";

// SCSI status bytes and SG_IO host/driver statuses, matched for exact equality.
struct SCSIText {
  int code;
  const char* text;
};

const SCSIText kSCSITexts[] = {
    {0x00, "GOOD"},
    {0x02, "CHECK CONDITION"},
    {0x04, "CONDITION MET"},
    {0x08, "BUSY"},
    {0x10, "*Obsolete*"},
    {0x14, "*Obsolete*"},
    {0x18, "RESERVATION CONFLICT"},
    {0x22, "*Obsolete*"},
    {0x28, "TASK SET FULL"},
    {0x30, "ACA ACTIVE"},
    {0x40, "TASK ABORTED"},
    {0x10000, "SG_IO host_status 0x01 DID_NO_CONNECT"},
    {0x20000, "SG_IO host_status 0x02 DID_BUS_BUSY"},
    {0x30000, "SG_IO host_status 0x03 DID_TIME_OUT"},
    {0x40000, "SG_IO host_status 0x04 DID_BAD_TARGET"},
    {0x50000, "SG_IO host_status 0x05 DID_ABORT"},
    {0x60000, "SG_IO host_status 0x06 DID_PARITY"},
    {0x70000, "SG_IO host_status 0x07 DID_ERROR"},
    {0x80000, "SG_IO host_status 0x08 DID_RESET"},
    {0x90000, "SG_IO host_status 0x09 DID_BAD_INTR"},
    {0xa0000, "SG_IO host_status 0x0a DID_PASSTHROUGH"},
    {0xb0000, "SG_IO host_status 0x0b DID_SOFT_ERROR"},
    {0xc0000, "SG_IO host_status 0x0c DID_IMM_RETRY"},
    {0xd0000, "SG_IO host_status 0x0d DID_REQUEUE"},
    {0x1000000, "SG_IO driver_status 0x01 DRIVER_BUSY"},
    {0x2000000, "SG_IO driver_status 0x02 DRIVER_SOFT"},
    {0x3000000, "SG_IO driver_status 0x03 DRIVER_MEDIA"},
    {0x4000000, "SG_IO driver_status 0x04 DRIVER_ERROR"},
    {0x5000000, "SG_IO driver_status 0x05 DRIVER_INVALID"},
    {0x6000000, "SG_IO driver_status 0x06 DRIVER_TIMEOUT"},
    {0x7000000, "SG_IO driver_status 0x07 DRIVER_HARD"},
    {0x8000000, "SG_IO driver_status 0x08 DRIVER_SENSE"},
};

std::string scsiText(int code) {
  for (const SCSIText& entry : kSCSITexts) {
    if (entry.code == code) return entry.text;
  }
  // Combinations are not decomposed: anything else with a status byte is
  // reserved, anything else without one is unknown.
  return (code & 0xff) != 0 ? "*Reserved*" : kUnknownCode;
}

}  // namespace

std::string asString(i::err::domain::code domain) {
  using namespace i::err::domain;
  switch (domain) {
    case kApplication: return "application-specific error";
    case kCRuntime: return "C runtime library error";
    case kSystemCall: return "system call error";
    case kDynamicLinker: return "dynamic linker error";
    case kAddressResolution: return "network address or host name resolution error";
    case kSCSICDB: return "SCSI CDB error";
    case kInterfaceEnumeration: return "network interface enumeration error";
  }
  return "unknown error domain";
}

std::string asString(int code, i::err::domain::code domain) {
  using namespace i::err::domain;
  switch (domain) {
    case kApplication: return "application-specific error";
    case kCRuntime:
    case kSystemCall:
    case kInterfaceEnumeration: return sys::err::errnoText(code);
    case kDynamicLinker: {
      // Read when formatted, not when thrown: a second formatting finds the
      // linker's message already consumed.
      const char* text = sys::err::dlerrorText();
      return text != nullptr ? text : kUnknownCode;
    }
    case kAddressResolution: return sys::err::gaiText(code);
    case kSCSICDB: return scsiText(code);
  }
  return kUnknownCode;
}

}  // namespace err
}  // namespace sal
}  // namespace quorel
