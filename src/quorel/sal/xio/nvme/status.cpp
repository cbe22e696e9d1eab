// NVMe completion status decoding: the NVMe standard's tables of
// generic, command specific, media and path related status codes, with the
// NVM command set's codes in their ranges.
#include <quorel/sal/xio/nvme/status.h>

#include <cstdio>

namespace quorel {
namespace sal {
namespace xio {
namespace nvme {
namespace status {

namespace {

struct Entry {
  unsigned char code;
  const char* text;
};

const Entry kGeneric[] = {
    {0x00, "Successful Completion"},
    {0x01, "Invalid Command Opcode"},
    {0x02, "Invalid Field in Command"},
    {0x03, "Command ID Conflict"},
    {0x04, "Data Transfer Error"},
    {0x05, "Commands Aborted due to Power Loss Notification"},
    {0x06, "Internal Error"},
    {0x07, "Command Abort Requested"},
    {0x08, "Command Aborted due to SQ Deletion"},
    {0x09, "Command Aborted due to Failed Fused Command"},
    {0x0A, "Command Aborted due to Missing Fused Command"},
    {0x0B, "Invalid Namespace or Format"},
    {0x0C, "Command Sequence Error"},
    {0x0D, "Invalid SGL Segment Descriptor"},
    {0x0E, "Invalid Number of SGL Descriptors"},
    {0x0F, "Data SGL Length Invalid"},
    {0x10, "Metadata SGL Length Invalid"},
    {0x11, "SGL Descriptor Type Invalid"},
    {0x12, "Invalid Use of Controller Memory Buffer"},
    {0x13, "PRP Offset Invalid"},
    {0x14, "Atomic Write Unit Exceeded"},
    {0x15, "Operation Denied"},
    {0x16, "SGL Offset Invalid"},
    {0x18, "Host Identifier Inconsistent Format"},
    {0x19, "Keep Alive Timer Expired"},
    {0x1A, "Keep Alive Timeout Invalid"},
    {0x1B, "Command Aborted due to Preempt and Abort"},
    {0x1C, "Sanitize Failed"},
    {0x1D, "Sanitize In Progress"},
    {0x1E, "SGL Data Block Granularity Invalid"},
    {0x1F, "Command Not Supported for Queue in CMB"},
    {0x20, "Namespace is Write Protected"},
    {0x21, "Command Interrupted"},
    {0x22, "Transient Transport Error"},
    {0x23, "Command Prohibited by Command and Feature Lockdown"},
    {0x24, "Admin Command Media Not Ready"},
    // The NVM command set's.
    {0x80, "LBA Out of Range"},
    {0x81, "Capacity Exceeded"},
    {0x82, "Namespace Not Ready"},
    {0x83, "Reservation Conflict"},
    {0x84, "Format In Progress"},
    {0x85, "Invalid Value Size"},
    {0x86, "Invalid Key Size"},
    {0x87, "KV Key Does Not Exist"},
    {0x88, "Unrecovered Error"},
    {0x89, "Key Exists"},
};

const Entry kCommandSpecific[] = {
    {0x00, "Completion Queue Invalid"},
    {0x01, "Invalid Queue Identifier"},
    {0x02, "Invalid Queue Size"},
    {0x03, "Abort Command Limit Exceeded"},
    {0x05, "Asynchronous Event Request Limit Exceeded"},
    {0x06, "Invalid Firmware Slot"},
    {0x07, "Invalid Firmware Image"},
    {0x08, "Invalid Interrupt Vector"},
    {0x09, "Invalid Log Page"},
    {0x0A, "Invalid Format"},
    {0x0B, "Firmware Activation Requires Conventional Reset"},
    {0x0C, "Invalid Queue Deletion"},
    {0x0D, "Feature Identifier Not Saveable"},
    {0x0E, "Feature Not Changeable"},
    {0x0F, "Feature Not Namespace Specific"},
    {0x10, "Firmware Activation Requires NVM Subsystem Reset"},
    {0x11, "Firmware Activation Requires Controller Level Reset"},
    {0x12, "Firmware Activation Requires Maximum Time Violation"},
    {0x13, "Firmware Activation Prohibited"},
    {0x14, "Overlapping Range"},
    {0x15, "Namespace Insufficient Capacity"},
    {0x16, "Namespace Identifier Unavailable"},
    {0x18, "Namespace Already Attached"},
    {0x19, "Namespace Is Private"},
    {0x1A, "Namespace Not Attached"},
    {0x1B, "Thin Provisioning Not Supported"},
    {0x1C, "Controller List Invalid"},
    {0x1D, "Device Self-test In Progress"},
    {0x1E, "Boot Partition Write Prohibited"},
    {0x1F, "Invalid Controller Identifier"},
    {0x20, "Invalid Secondary Controller State"},
    {0x21, "Invalid Number of Controller Resources"},
    {0x22, "Invalid Resource Identifier"},
    {0x23, "Sanitize Prohibited While Persistent Memory Region is Enabled"},
    {0x24, "ANA Group Identifier Invalid"},
    {0x25, "ANA Attach Failed"},
    {0x26, "Insufficient Capacity"},
    {0x27, "Namespace Attachment Limit Exceeded"},
    {0x28, "Prohibition of Command Execution Not Supported"},
    {0x29, "I/O Command Set Not Supported"},
    {0x2A, "I/O Command Set Not Enabled"},
    {0x2B, "I/O Command Set Combination Rejected"},
    {0x2C, "Invalid I/O Command Set"},
    {0x2D, "Identifier Unavailable"},
    // The NVM command set's, then its zoned namespaces'.
    {0x80, "Conflicting Attributes"},
    {0x81, "Invalid Protection Information"},
    {0x82, "Attempted Write to Read Only Range"},
    {0x83, "Command Size Limit Exceeded"},
    {0xB8, "Zoned Boundary Error"},
    {0xB9, "Zone Is Full"},
    {0xBA, "Zone Is Read Only"},
    {0xBB, "Zone Is Offline"},
    {0xBC, "Zone Invalid Write"},
    {0xBD, "Too Many Active Zones"},
    {0xBE, "Too Many Open Zones"},
    {0xBF, "Invalid Zone State Transition"},
};

const Entry kMedia[] = {
    {0x80, "Write Fault"},
    {0x81, "Unrecovered Read Error"},
    {0x82, "End-to-end Guard Check Error"},
    {0x83, "End-to-end Application Tag Check Error"},
    {0x84, "End-to-end Reference Tag Check Error"},
    {0x85, "Compare Failure"},
    {0x86, "Access Denied"},
    {0x87, "Deallocated or Unwritten Logical Block"},
    {0x88, "End-to-end Storage Tag Check Error"},
};

// 0x70 and 0x71 are the host's own: the kernel completes a command with them
// when no path to the controller is left or when it aborted the command.
const Entry kPath[] = {
    {0x00, "Internal Path Error"},
    {0x01, "Asymmetric Access Persistent Loss"},
    {0x02, "Asymmetric Access Inaccessible"},
    {0x03, "Asymmetric Access Transition"},
    {0x60, "Controller Pathing Error"},
    {0x70, "Host Pathing Error"},
    {0x71, "Command Aborted By Host"},
};

template <std::size_t N>
const char* find(const Entry (&table)[N], int code) {
  for (const Entry& entry : table) {
    if (entry.code == code) return entry.text;
  }
  return "Reserved";
}

}  // namespace

const char* typeDescriptionFor(int type) {
  switch (type) {
    case 0: return "Generic Command Status";
    case 1: return "Command Specific Status";
    case 2: return "Media and Data Integrity Errors";
    case 3: return "Path Related Status";
    case 7: return "Vendor Specific";
    default: return "Reserved";
  }
}

const char* descriptionFor(int status) {
  const int type = typeOf(status), code = codeOf(status);
  if (type == 7 || code >= 0xC0) return "Vendor Specific";
  switch (type) {
    case 0: return find(kGeneric, code);
    case 1: return find(kCommandSpecific, code);
    case 2: return find(kMedia, code);
    case 3: return find(kPath, code);
    default: return "Reserved";
  }
}

std::string asString(int status) {
  char fields[64];
  std::snprintf(fields, sizeof fields, " (status type %d, code 0x%02X", typeOf(status), codeOf(status));
  std::string text = std::string(descriptionFor(status)) + fields;
  if (retryDelayOf(status) != 0) text += ", retry delay " + std::to_string(retryDelayOf(status));
  if (more(status)) text += ", more";
  if (doNotRetry(status)) text += ", do not retry";
  return text + ")";
}

}  // namespace status
}  // namespace nvme
}  // namespace xio
}  // namespace sal
}  // namespace quorel
