// NVMe commands: built from their fields, checked against the namespace's
// geometry before anything is sent, cut to its limits where a byte range
// asks for more than one command carries, and sent through the platform half.
#include <quorel/sal/xio/impl/nvme/Device.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include <quorel/sal/fs/QueueLimits.h>
#include <quorel/sal/hostinfo.h>
#include <quorel/sal/xio/impl/nvme/ioctl.inl>
#include <quorel/sal/xio/nvme/status.h>

namespace quorel {
namespace sal {
namespace xio {
namespace impl {
namespace nvme {

namespace api = xio::nvme;
using sal::i::err::domain::kApplication;
using sal::i::err::domain::kSystemCall;

namespace {

// Opcodes: admin, then the NVM command set's.
const pod::uint8 kGetLogPage = 0x02;
const pod::uint8 kIdentify = 0x06;
const pod::uint8 kFlush = 0x00;
const pod::uint8 kWrite = 0x01;
const pod::uint8 kRead = 0x02;
const pod::uint8 kWriteZeroes = 0x08;
const pod::uint8 kDatasetManagement = 0x09;

const pod::uint64 kBlocksPerCommand = 65536;   // NLB: 16 bits, 0-based
const pod::uint32 kRangesPerCommand = 256;     // NR: 8 bits, 0-based
const pod::uint64 kBlocksPerRange = 0xFFFFFFFFu;
const pod::uint64 kDataLength = 0xFFFFFFFFu;   // the ioctl's data_len
const pod::uint32 kIdentifyLength = 4096;
const pod::uint32 kHealthLength = 512;
const pod::uint32 kAllNamespaces = 0xFFFFFFFFu;

pod::uint64 little(const std::string& data, std::size_t at, int bytes) {
  pod::uint64 value = 0;
  for (int i = bytes - 1; i >= 0; --i) value = value << 8 | static_cast<unsigned char>(data[at + i]);
  return value;
}

void storeLittle(unsigned char* at, pod::uint64 value, int bytes) {
  for (int i = 0; i < bytes; ++i) at[i] = static_cast<unsigned char>(value >> (8 * i));
}

// An ASCII field without the spaces (or zeros) that pad it.
std::string text(const std::string& data, std::size_t at, std::size_t length) {
  std::string field = data.substr(at, length);
  const std::size_t end = field.find_last_not_of(std::string(" \0", 2));
  return end == std::string::npos ? std::string() : field.substr(0, end + 1);
}

// A 128-bit counter of the health log, 2^64 - 1 when it holds more.
pod::uint64 counter(const std::string& data, std::size_t at) {
  return little(data, at + 8, 8) != 0 ? ~0ULL : little(data, at, 8);
}

std::string number(pod::uint64 value) { return std::to_string(value); }

template <class E>
[[noreturn]] void refuse(const char* command, const std::string& why, int code) {
  QUOREL_THROW(E)(std::string("NVMe ") + command + " refused: " + why, kApplication, code);
}

template <class E>
void check(int status, const char* command) {
  if (status != 0) {
    QUOREL_THROW(E)(std::string("NVMe ") + command + " failed: " + api::status::asString(status), kApplication,
                    status);
  }
}

template <class C>
void fill(C& out, const api::Command& c, pod::uint32 timeout) {
  std::memset(&out, 0, sizeof out);
  out.opcode = c.opcode;
  out.flags = c.flags;
  out.nsid = c.nsid;
  out.cdw2 = c.cdw2;
  out.cdw3 = c.cdw3;
  // The kernel takes 64-bit addresses from 32-bit programs too: zero-extended,
  // never sign-extended.
  out.metadata = static_cast<pod::uint64>(reinterpret_cast<pod::uintptr>(c.metadata));
  out.addr = static_cast<pod::uint64>(reinterpret_cast<pod::uintptr>(c.data));
  out.metadata_len = c.metadataLength;
  out.data_len = c.length;
  out.cdw10 = c.cdw10;
  out.cdw11 = c.cdw11;
  out.cdw12 = c.cdw12;
  out.cdw13 = c.cdw13;
  out.cdw14 = c.cdw14;
  out.cdw15 = c.cdw15;
  out.timeout_ms = timeout;
}

std::string hexByte(unsigned value) {
  static const char kDigits[] = "0123456789ABCDEF";
  return std::string("0x") + kDigits[(value >> 4) & 0xf] + kDigits[value & 0xf];
}

}  // namespace

Device::Device(const xio::Endpoint& endpoint)
    : endpoint_(endpoint),
      nsid_(0),
      block_(false),
      legacy_(false),
      known_(false),
      controllerLimit_(0),
      queueTransfer_(0),
      queueSegments_(0),
      queueDiscard_(0),
      queueDiscardSegments_(0),
      queueWriteZeroes_(0) {
  const unsigned int type = sys::typeOf(descriptor(), endpoint_.name());
  block_ = type == S_IFBLK;
  const int id = sys::namespaceIdentifier(descriptor());
  if (id > 0) {
    nsid_ = static_cast<pod::uint32>(id);
  } else if (!(id == -ENOTTY && type == S_IFCHR)) {
    QUOREL_THROW(api::Exception)("::ioctl('" + endpoint_.name() + "', NVME_IOCTL_ID) failed", kSystemCall,
                                 id < 0 ? -id : EINVAL);
  }
}

int Device::descriptor() const { return static_cast<int>(endpoint_.id()); }

template <class E>
int Device::pass(int fd, bool admin, api::Command& command, const std::string& name) {
  const std::string failed = "NVMe " + name + " failed: ::ioctl(";
  if (!legacy_) {
    nvme_passthru_cmd64 wide;
    fill(wide, command, timeout);
    const int result = sys::passThrough(fd, admin ? NVME_IOCTL_ADMIN64_CMD : NVME_IOCTL_IO64_CMD, &wide);
    if (result >= 0) {
      command.result = wide.result;
      return result;
    }
    if (result != -ENOTTY) {
      QUOREL_THROW(E)(failed + (admin ? "NVME_IOCTL_ADMIN64_CMD" : "NVME_IOCTL_IO64_CMD") + ") failed", kSystemCall,
                      -result);
    }
  }
  // A kernel before 5.3: the requests with a 32-bit result.
  nvme_passthru_cmd narrow;
  fill(narrow, command, timeout);
  const int result = sys::passThrough(fd, admin ? NVME_IOCTL_ADMIN_CMD : NVME_IOCTL_IO_CMD, &narrow);
  if (result != -ENOTTY) legacy_ = true;  // understood, whatever became of the command
  if (result < 0) {
    QUOREL_THROW(E)(failed + (admin ? "NVME_IOCTL_ADMIN_CMD" : "NVME_IOCTL_IO_CMD") + ") failed", kSystemCall,
                    -result);
  }
  command.result = narrow.result;
  return result;
}

int Device::submit(int fd, bool admin, api::Command& command) {
  return pass<api::Exception>(fd, admin, command,
                              std::string(admin ? "Admin Command " : "I/O Command ") + hexByte(command.opcode));
}

api::Controller Device::identifyController() {
  api::Controller c;
  c.data.assign(kIdentifyLength, '\0');
  api::Command command;
  command.opcode = kIdentify;
  command.cdw10 = 1;  // CNS: the controller
  command.data = &c.data[0];
  command.length = kIdentifyLength;
  check<api::Exception>(pass<api::Exception>(descriptor(), true, command, "Identify Controller"),
                        "Identify Controller");
  const std::string& d = c.data;
  c.vendor = static_cast<pod::uint16>(little(d, 0, 2));
  c.serial = text(d, 4, 20);
  c.model = text(d, 24, 40);
  c.firmware = text(d, 64, 8);
  c.mdts = static_cast<pod::uint8>(d[77]);
  c.controllerID = static_cast<pod::uint16>(little(d, 78, 2));
  c.version = static_cast<pod::uint32>(little(d, 80, 4));
  c.namespaces = static_cast<pod::uint32>(little(d, 516, 4));
  c.optionalCommands = static_cast<pod::uint16>(little(d, 520, 2));
  c.volatileWriteCache = (d[525] & 0x01) != 0;
  controllerLimit_ = c.maxTransfer();
  derive();
  return c;
}

api::Namespace Device::identifyNamespace(pod::uint32 nsid) {
  api::Namespace n;
  n.data.assign(kIdentifyLength, '\0');
  api::Command command;
  command.opcode = kIdentify;
  command.nsid = nsid;
  command.cdw10 = 0;  // CNS: a namespace
  command.data = &n.data[0];
  command.length = kIdentifyLength;
  check<api::Exception>(pass<api::Exception>(descriptor(), true, command, "Identify Namespace"),
                        "Identify Namespace");
  const std::string& d = n.data;
  n.id = nsid;
  n.size = little(d, 0, 8);
  n.capacity = little(d, 8, 8);
  n.utilization = little(d, 16, 8);
  const unsigned int count = static_cast<unsigned char>(d[25]);  // 0-based
  const unsigned int flbas = static_cast<unsigned char>(d[26]);
  n.formats = static_cast<pod::uint16>(count + 1);
  // Past 16 formats, FLBAS bits 6:5 are the index's upper bits.
  const unsigned int index = (flbas & 0x0f) | (count >= 16 ? (flbas >> 5 & 0x3) << 4 : 0);
  n.format = static_cast<pod::uint8>(index);
  const pod::uint64 format = little(d, 128 + 4 * index, 4);
  const unsigned int shift = static_cast<unsigned int>(format >> 16 & 0xff);
  n.blockSize = shift >= 9 && shift <= 31 ? 1u << shift : 0;  // 0: no format (an inactive namespace)
  n.metadataSize = static_cast<pod::uint16>(format & 0xffff);
  n.extendedMetadata = (flbas & 0x10) != 0;
  n.deallocatedReadsZero = (d[33] & 0x07) == 0x01;
  if (nsid == nsid_) {
    geometry_.blockSize = n.blockSize;
    geometry_.metadataSize = n.metadataSize;
    geometry_.blocks = n.size;
    derive();
  }
  return n;
}

api::Health Device::health() {
  api::Health h;
  h.data.assign(kHealthLength, '\0');
  api::Command command;
  command.opcode = kGetLogPage;
  command.nsid = kAllNamespaces;  // the controller's log
  command.cdw10 = 0x02 | (kHealthLength / 4 - 1) << 16;  // SMART / health, NUMDL
  command.data = &h.data[0];
  command.length = kHealthLength;
  check<api::Exception>(pass<api::Exception>(descriptor(), true, command, "Get Log Page"), "Get Log Page");
  const std::string& d = h.data;
  h.criticalWarning = static_cast<pod::uint8>(d[0]);
  h.temperature = static_cast<pod::uint16>(little(d, 1, 2));
  h.availableSpare = static_cast<pod::uint8>(d[3]);
  h.availableSpareThreshold = static_cast<pod::uint8>(d[4]);
  h.percentageUsed = static_cast<pod::uint8>(d[5]);
  h.dataUnitsRead = counter(d, 32);
  h.dataUnitsWritten = counter(d, 48);
  h.hostReadCommands = counter(d, 64);
  h.hostWriteCommands = counter(d, 80);
  h.controllerBusyTime = counter(d, 96);
  h.powerCycles = counter(d, 112);
  h.powerOnHours = counter(d, 128);
  h.unsafeShutdowns = counter(d, 144);
  h.mediaErrors = counter(d, 160);
  h.errorLogEntries = counter(d, 176);
  h.warningTemperatureTime = static_cast<pod::uint32>(little(d, 192, 4));
  h.criticalTemperatureTime = static_cast<pod::uint32>(little(d, 196, 4));
  for (int i = 0; i < 8; ++i) h.temperatureSensors[i] = static_cast<pod::uint16>(little(d, 200 + 2 * i, 2));
  return h;
}

// The limits of one command: its own fields, MDTS, the queue's limits and
// the ioctl's 32-bit length, in whole blocks.
void Device::derive() {
  Geometry& g = geometry_;
  const pod::uint64 size = g.blockSize;
  if (size == 0) return;
  pod::uint64 transfer = std::min(kBlocksPerCommand * size, kDataLength);
  if (controllerLimit_ != 0) transfer = std::min(transfer, controllerLimit_);
  if (queueTransfer_ != 0) transfer = std::min(transfer, queueTransfer_);
  g.maxTransfer = transfer / size * size;
  g.maxSegments = queueSegments_;
  g.maxRanges = queueDiscardSegments_ != 0 ? std::min(kRangesPerCommand, queueDiscardSegments_) : kRangesPerCommand;
  g.maxDeallocate = queueDiscard_ >= size ? queueDiscard_ / size : kBlocksPerRange * g.maxRanges;
  const pod::uint64 zeroes = queueWriteZeroes_ != 0 ? std::min(kBlocksPerCommand, queueWriteZeroes_ / size)
                                                     : kBlocksPerCommand;
  g.maxWriteZeroes = static_cast<pod::uint32>(zeroes);
}

template <class E>
const Geometry& Device::geometryFor(const char* command) {
  const std::string node = "'" + endpoint_.name() + "'";
  if (nsid_ == 0) refuse<E>(command, node + " is a controller node: I/O goes to a namespace's block node", ENOTBLK);
  if (!block_) refuse<E>(command, node + " is not a block device: I/O goes to a namespace's block node", ENOTBLK);
  if (!known_) {
    const fs::QueueLimits limits = fs::QueueLimits::ofDescriptor(descriptor());
    queueTransfer_ = limits.maxHardwareTransfer();
    queueSegments_ = limits.maxSegments();
    queueDiscard_ = limits.maxDiscard();
    queueDiscardSegments_ = limits.maxDiscardSegments();
    queueWriteZeroes_ = limits.maxWriteZeroes();
    identifyController();
    identifyNamespace(nsid_);
    known_ = true;
  }
  if (geometry_.blockSize == 0) {
    refuse<E>(command, "namespace " + number(nsid_) + " has no LBA format in use (it is not active)", ENXIO);
  }
  return geometry_;
}

const Geometry& Device::geometry() { return geometryFor<api::Exception>("Identify Namespace"); }

template <class E>
void Device::checkRange(const char* command, pod::uint64 lba, pod::uint64 blocks) {
  const Geometry& g = geometry_;
  if (lba >= g.blocks || blocks > g.blocks - lba) {
    refuse<E>(command, "blocks " + number(lba) + " to " + number(lba + blocks - 1) +
                           " reach past the namespace's last block (" + number(g.blocks - 1) + ")",
              EOVERFLOW);
  }
}

template <class E>
void Device::transferOne(const char* command, pod::uint8 opcode, int fd, pod::uint64 lba, pod::uint32 blocks,
                         void* buffer) {
  const Geometry& g = geometryFor<E>(command);
  if (g.metadataSize != 0) {
    refuse<E>(command, "the LBA format in use carries " + number(g.metadataSize) +
                           " bytes of metadata per block, which these commands do not move",
              EOPNOTSUPP);
  }
  if (blocks == 0) refuse<E>(command, "a command moves at least one block", EINVAL);
  if (blocks > kBlocksPerCommand) {
    refuse<E>(command, number(blocks) + " blocks are more than one command carries (" + number(kBlocksPerCommand) + ")",
              EINVAL);
  }
  const pod::uint64 bytes = static_cast<pod::uint64>(blocks) * g.blockSize;
  if (bytes > g.maxTransfer) {
    refuse<E>(command, number(bytes) + " bytes are more than one command carries on this device (" +
                           number(g.maxTransfer) + ")",
              EINVAL);
  }
  if (buffer == nullptr) refuse<E>(command, "no buffer", EINVAL);
  // The kernel maps the buffer page by page, each page a segment of the
  // request, and refuses a request with more than the queue takes.
  if (g.maxSegments != 0) {
    const pod::uint64 page = hostinfo::mem::pageSize();
    const pod::uint64 pages = (reinterpret_cast<pod::uintptr>(buffer) % page + bytes + page - 1) / page;
    if (pages > g.maxSegments) {
      refuse<E>(command, "the buffer spans " + number(pages) + " memory pages, more than one command maps (" +
                             number(g.maxSegments) + ")",
                EINVAL);
    }
  }
  checkRange<E>(command, lba, blocks);
  api::Command c;
  c.opcode = opcode;
  c.nsid = nsid_;
  c.cdw10 = static_cast<pod::uint32>(lba);
  c.cdw11 = static_cast<pod::uint32>(lba >> 32);
  c.cdw12 = blocks - 1;
  c.data = buffer;
  c.length = static_cast<pod::uint32>(bytes);
  check<E>(pass<E>(fd, false, c, command), command);
}

void Device::read(int fd, pod::uint64 lba, pod::uint32 blocks, void* buffer) {
  transferOne<api::ReadException>("Read", kRead, fd, lba, blocks, buffer);
}

void Device::write(int fd, pod::uint64 lba, pod::uint32 blocks, const void* buffer) {
  transferOne<api::WriteException>("Write", kWrite, fd, lba, blocks, const_cast<void*>(buffer));
}

void Device::writeZeroes(int fd, pod::uint64 lba, pod::uint32 blocks) {
  const char* const command = "Write Zeroes";
  const Geometry& g = geometryFor<api::WriteException>(command);
  if (blocks == 0) refuse<api::WriteException>(command, "a command covers at least one block", EINVAL);
  if (blocks > g.maxWriteZeroes) {
    refuse<api::WriteException>(command, number(blocks) + " blocks are more than one command covers on this device (" +
                                             number(g.maxWriteZeroes) + ")",
                                EINVAL);
  }
  checkRange<api::WriteException>(command, lba, blocks);
  api::Command c;
  c.opcode = kWriteZeroes;
  c.nsid = nsid_;
  c.cdw10 = static_cast<pod::uint32>(lba);
  c.cdw11 = static_cast<pod::uint32>(lba >> 32);
  c.cdw12 = blocks - 1;
  check<api::WriteException>(pass<api::WriteException>(fd, false, c, command), command);
}

void Device::flush(int fd) {
  if (nsid_ == 0) {
    refuse<api::Exception>("Flush", "'" + endpoint_.name() + "' is a controller node: I/O goes to a namespace's node",
                           ENOTBLK);
  }
  api::Command c;
  c.opcode = kFlush;
  c.nsid = nsid_;
  check<api::Exception>(pass<api::Exception>(fd, false, c, "Flush"), "Flush");
}

void Device::deallocate(int fd, const api::Range* ranges, std::size_t count) {
  const char* const command = "Dataset Management";
  typedef api::WriteException E;
  const Geometry& g = geometryFor<E>(command);
  if (count == 0) refuse<E>(command, "a command carries at least one range", EINVAL);
  if (count > g.maxRanges) {
    refuse<E>(command, number(count) + " ranges are more than one command carries on this device (" +
                           number(g.maxRanges) + ")",
              EINVAL);
  }
  pod::uint64 total = 0;
  for (std::size_t i = 0; i < count; ++i) {
    checkRange<E>(command, ranges[i].lba, ranges[i].blocks);
    total += ranges[i].blocks;
  }
  if (total > g.maxDeallocate) {
    refuse<E>(command, number(total) + " blocks are more than one command deallocates on this device (" +
                           number(g.maxDeallocate) + ")",
              EINVAL);
  }
  // Ranges of 16 bytes: context attributes, length in blocks, first block.
  std::vector<unsigned char> list(16 * count, 0);
  for (std::size_t i = 0; i < count; ++i) {
    storeLittle(&list[16 * i + 4], ranges[i].blocks, 4);
    storeLittle(&list[16 * i + 8], ranges[i].lba, 8);
  }
  api::Command c;
  c.opcode = kDatasetManagement;
  c.nsid = nsid_;
  c.cdw10 = static_cast<pod::uint32>(count - 1);
  c.cdw11 = 0x04;  // attribute: deallocate
  c.data = list.data();
  c.length = static_cast<pod::uint32>(list.size());
  check<E>(pass<E>(fd, false, c, command), command);
}

template <class E>
pod::uint64 Device::transferAll(const char* command, pod::uint8 opcode, int fd, char* buffer, pod::uint64 count,
                                pod::uint64 offset) {
  if (count == 0) return 0;
  const Geometry& g = geometryFor<E>(command);
  const pod::uint64 size = g.blockSize;
  if (offset % size != 0 || count % size != 0) {
    refuse<E>(command, "offset " + number(offset) + " and length " + number(count) + " are not whole " +
                           number(size) + "-byte blocks",
              EINVAL);
  }
  if (buffer == nullptr) refuse<E>(command, "no buffer", EINVAL);
  checkRange<E>(command, offset / size, count / size);
  const pod::uint64 page = hostinfo::mem::pageSize();
  pod::uint64 commands = 0;
  for (pod::uint64 done = 0; done < count; ++commands) {
    char* at = buffer + done;
    pod::uint64 bytes = std::min(count - done, g.maxTransfer);
    if (g.maxSegments != 0) {
      // As many whole blocks as the pages one command maps can hold.
      const pod::uint64 room = g.maxSegments * page - reinterpret_cast<pod::uintptr>(at) % page;
      if (bytes > room) bytes = std::max(room / size * size, size);
    }
    transferOne<E>(command, opcode, fd, (offset + done) / size, static_cast<pod::uint32>(bytes / size), at);
    done += bytes;
  }
  return commands;
}

pod::uint64 Device::transfer(bool write, int fd, void* buffer, pod::uint64 count, pod::uint64 offset) {
  char* at = static_cast<char*>(buffer);
  return write ? transferAll<api::WriteException>("Write", kWrite, fd, at, count, offset)
               : transferAll<api::ReadException>("Read", kRead, fd, at, count, offset);
}

pod::uint64 Device::discard(int fd, pod::uint64 offset, pod::uint64 length) {
  const char* const command = "Dataset Management";
  typedef api::WriteException E;
  if (length == 0) return 0;
  const Geometry& g = geometryFor<E>(command);
  const pod::uint64 size = g.blockSize;
  if (offset % size != 0 || length % size != 0) {
    refuse<E>(command, "offset " + number(offset) + " and length " + number(length) + " are not whole " +
                           number(size) + "-byte blocks",
              EINVAL);
  }
  const pod::uint64 first = offset / size, blocks = length / size;
  checkRange<E>(command, first, blocks);
  const pod::uint64 perRange = std::min(kBlocksPerRange, g.maxDeallocate);
  std::vector<api::Range> ranges;
  pod::uint64 commands = 0;
  for (pod::uint64 done = 0; done < blocks; ++commands) {
    ranges.clear();
    pod::uint64 inCommand = 0;
    while (ranges.size() < g.maxRanges && done < blocks && inCommand < g.maxDeallocate) {
      const pod::uint64 take = std::min(std::min(blocks - done, perRange), g.maxDeallocate - inCommand);
      ranges.push_back(api::Range{first + done, static_cast<pod::uint32>(take)});
      done += take;
      inCommand += take;
    }
    deallocate(fd, ranges.data(), ranges.size());
  }
  return commands;
}

}  // namespace nvme
}  // namespace impl
}  // namespace xio
}  // namespace sal
}  // namespace quorel
