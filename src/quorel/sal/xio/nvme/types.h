/// \file
/// What NVMe pass-through carries: a raw command, the Identify data of a
/// controller and a namespace, the SMART / health information log, ranges to
/// deallocate, and the tags that choose how a node opens and which queue a
/// command goes to.
#ifndef QUOREL_SAL_XIO_NVME_TYPES_H
#define QUOREL_SAL_XIO_NVME_TYPES_H

#include <string>

#include <quorel/util/pod.h>

namespace quorel {
namespace sal {
namespace xio {
namespace nvme {

namespace i {
namespace open {
/// O_RDWR, and O_RDWR | O_EXCL: a block device opened exclusively fails
/// with EBUSY while it is mounted or held by another exclusive opener.
struct ReadWrite {};
struct Exclusive {};
}  // namespace open
namespace queue {
/// Admin commands (Identify, Get Log Page) and I/O commands (Read, Write).
struct Admin {};
struct IO {};
}  // namespace queue
namespace op {
/// A dispatcher whose write requests deallocate their range.
struct Deallocate {};
}  // namespace op
}  // namespace i

/// One command as the pass-through ioctl takes it. The data moves as the
/// opcode's two low bits say (1: to the controller, 2: from it); data and
/// metadata may be null with a length of 0. result is what the controller
/// returned in the completion's dwords 0 and 1 (dword 0 only on kernels
/// older than 5.3).
struct Command {
  pod::uint8 opcode = 0;
  pod::uint8 flags = 0;
  pod::uint32 nsid = 0;
  pod::uint32 cdw2 = 0;
  pod::uint32 cdw3 = 0;
  pod::uint32 cdw10 = 0;
  pod::uint32 cdw11 = 0;
  pod::uint32 cdw12 = 0;
  pod::uint32 cdw13 = 0;
  pod::uint32 cdw14 = 0;
  pod::uint32 cdw15 = 0;
  void* data = nullptr;
  pod::uint32 length = 0;
  void* metadata = nullptr;
  pod::uint32 metadataLength = 0;
  pod::uint64 result = 0;
};

/// Identify Controller. Text fields lose the spaces that pad them.
struct Controller {
  pod::uint16 vendor = 0;        // PCI vendor identifier
  std::string serial;
  std::string model;
  std::string firmware;
  pod::uint16 controllerID = 0;
  pod::uint32 version = 0;       // major << 16 | minor << 8 | tertiary (0: not reported)
  pod::uint8 mdts = 0;           // maximum data transfer size, a power of two of pages (0: no limit)
  pod::uint32 namespaces = 0;    // the highest namespace identifier
  pod::uint16 optionalCommands = 0;  // ONCS
  bool volatileWriteCache = false;
  std::string data;              // the 4096 bytes as the controller returned them

  /// Bytes one command may move by MDTS: 4096 << mdts, 4096 being the
  /// smallest memory page a controller may have, so the figure never
  /// exceeds the controller's own; 0 for no limit.
  pod::uint64 maxTransfer() const { return mdts == 0 || mdts > 40 ? 0 : 4096ULL << mdts; }
  bool supportsWriteZeroes() const { return (optionalCommands & 0x08) != 0; }
  bool supportsDatasetManagement() const { return (optionalCommands & 0x04) != 0; }
};

/// Identify Namespace, with the LBA format in use.
struct Namespace {
  pod::uint32 id = 0;
  pod::uint64 size = 0;          // blocks (NSZE)
  pod::uint64 capacity = 0;      // blocks that may be allocated (NCAP)
  pod::uint64 utilization = 0;   // blocks allocated (NUSE)
  pod::uint8 formats = 0;        // LBA formats the namespace supports
  pod::uint8 format = 0;         // the index of the one in use
  pod::uint32 blockSize = 0;     // its data bytes per block (0: an inactive namespace)
  pod::uint16 metadataSize = 0;  // its metadata bytes per block
  bool extendedMetadata = false; // metadata at the end of each block's data
  bool deallocatedReadsZero = false;  // DLFEAT: deallocated blocks read as zeros
  std::string data;              // the 4096 bytes as the controller returned them

  pod::uint64 bytes() const { return size * blockSize; }
};

/// The SMART / health information log (log page 2), controller wide.
/// Counters the log keeps in 128 bits read as 2^64 - 1 beyond that.
struct Health {
  pod::uint8 criticalWarning = 0;     // bits: spare, temperature, reliability, read only, backup, PMR
  pod::uint16 temperature = 0;        // kelvin
  pod::uint8 availableSpare = 0;      // percent
  pod::uint8 availableSpareThreshold = 0;
  pod::uint8 percentageUsed = 0;      // may pass 100
  pod::uint64 dataUnitsRead = 0;      // in thousands of 512-byte units
  pod::uint64 dataUnitsWritten = 0;
  pod::uint64 hostReadCommands = 0;
  pod::uint64 hostWriteCommands = 0;
  pod::uint64 controllerBusyTime = 0; // minutes
  pod::uint64 powerCycles = 0;
  pod::uint64 powerOnHours = 0;
  pod::uint64 unsafeShutdowns = 0;
  pod::uint64 mediaErrors = 0;
  pod::uint64 errorLogEntries = 0;
  pod::uint32 warningTemperatureTime = 0;   // minutes
  pod::uint32 criticalTemperatureTime = 0;  // minutes
  pod::uint16 temperatureSensors[8] = {};   // kelvin, 0: no such sensor
  std::string data;                   // the 512 bytes as the controller returned them
};

/// A range of blocks for Dataset Management.
struct Range {
  pod::uint64 lba;
  pod::uint32 blocks;
};

}  // namespace nvme
}  // namespace xio
}  // namespace sal
}  // namespace quorel

#endif
