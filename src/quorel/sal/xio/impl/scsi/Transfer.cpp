// scsi::Transfer: ranges cut into pieces that fit the device, each piece one
// request of a synchronous dispatcher.
#include <quorel/sal/xio/impl/scsi/Transfer.h>

#include <errno.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>

#include <quorel/sal/fs/QueueLimits.h>
#include <quorel/sal/hostinfo.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace xio {
namespace impl {
namespace scsi {

namespace {

// What a request counts (an int), what a request's offset reaches (a signed
// 64-bit byte), what 10-byte commands address and count, and the blocks a
// TRIM entry addresses (48 bits).
const pod::uint64 kRequestBytes = static_cast<pod::uint64>(std::numeric_limits<int>::max());
const pod::uint64 kLastByte = static_cast<pod::uint64>(std::numeric_limits<long long>::max());
const pod::uint64 kTenByteBlocks = 1ULL << 32;
const pod::uint64 kTenByteCount = 0xFFFF;
const pod::uint64 kTRIMBlocks = 1ULL << 48;

std::string number(pod::uint64 value) { return std::to_string(value); }

// The failure as an exception of its own class: the handler receives it by
// a base class's reference, and rethrowing that would slice it.
template <class Base>
std::exception_ptr concrete(const Base& e) {
  return std::make_exception_ptr(e);
}
template <class Base, class Known, class... More>
std::exception_ptr concrete(const Base& e) {
  if (const Known* known = dynamic_cast<const Known*>(&e)) return std::make_exception_ptr(*known);
  return concrete<Base, More...>(e);
}

}  // namespace

TransferLimits TransferLimits::of(const fs::QueueLimits& queue) {
  TransferLimits limits;
  limits.blockSize = queue.logicalBlockSize();
  limits.maxTransfer = queue.maxHardwareTransfer();
  limits.maxSegments = queue.maxSegments();
  limits.maxDiscard = queue.maxDiscard();
  return limits;
}

void Transfer::Outcome::on(AIOCompletionException& e, xio::Request&) { failure_ = concrete(e); }
void Transfer::Outcome::on(AIORequestException& e, xio::Request&) { failure_ = concrete(e); }
void Transfer::Outcome::on(AIOCancellationException& e, xio::Request&) { failure_ = concrete(e); }
void Transfer::Outcome::on(ReadException& e, xio::Request&) {
  failure_ = concrete<ReadException, SCSIReadException, EOFException>(e);
}
void Transfer::Outcome::on(WriteException& e, xio::Request&) {
  failure_ = concrete<WriteException, SCSIWriteException>(e);
}

void Transfer::Outcome::clear() {
  result_ = 0;
  failure_ = nullptr;
}

int Transfer::Outcome::result() const {
  if (failure_) std::rethrow_exception(failure_);
  return result_;
}

Transfer::Transfer(const xio::Dispatcher& dispatcher, const xio::Endpoint& endpoint, const TransferLimits& limits)
    : dispatcher_(dispatcher), limits_(limits), done_(0) {
  using namespace i::mux;
  const mux::Spec& spec = dispatcher_.muxSpec();
  if (spec.words[kType] != type::Sync::value ||
      !(spec.enabled(kSCSI) || spec.enabled(kSCSIUNMAP) || spec.enabled(kATATrim))) {
    QUOREL_THROW(InvalidArgumentException)(
        "a transfer needs a synchronous pass-through dispatcher (type::Sync with scsi, scsi::unmap or ata::trim)",
        sal::i::err::domain::kApplication, EINVAL);
  }
  if (limits_.blockSize == 0 || limits_.blockSize > kRequestBytes) {
    QUOREL_THROW(InvalidArgumentException)("the block size " + number(limits_.blockSize) + " is not a positive int",
                                           sal::i::err::domain::kApplication, EINVAL);
  }
  request_.reset(dispatcher_.newRequestFor(&outcome_, endpoint));
  request_->setBlockSize(static_cast<int>(limits_.blockSize));
}

template <class E>
void Transfer::refuse(const std::string& command, const std::string& why, int code) const {
  QUOREL_THROW(E)(command + " refused: " + why, sal::i::err::domain::kApplication, code);
}

// The same choice as the synchronous dispatcher's for a write.
Transfer::Writes Transfer::writes() const {
  const mux::Spec& spec = dispatcher_.muxSpec();
  if (spec.enabled(i::mux::kSCSI)) return Writes::kData;
  if (spec.enabled(i::mux::kSCSIUNMAP)) return Writes::kUNMAP;
  if (!spec.enabled(i::mux::kATATrim)) return Writes::kOther;
  return spec.enabled(i::mux::kATAOnSCSI) ? Writes::kTRIMOnSCSI : Writes::kTRIM;
}

int Transfer::cdbSize() const {
  const int size = dispatcher_.muxSpec().words[i::mux::kSCSICDBSize];
  return size == 1 ? 16 : size == 2 ? 32 : 10;
}

pod::uint64 Transfer::read(void* buffer, pod::uint64 count, pod::uint64 offset) {
  return transfer(false, static_cast<char*>(buffer), count, offset);
}

pod::uint64 Transfer::write(const void* buffer, pod::uint64 count, pod::uint64 offset) {
  // The dispatcher only reads from a write's buffer.
  return transfer(true, static_cast<char*>(const_cast<void*>(buffer)), count, offset);
}

pod::uint64 Transfer::piece(const char* at, pod::uint64 remaining, pod::uint64 most) const {
  pod::uint64 bytes = std::min(remaining, most);
  if (limits_.maxSegments != 0) {
    // The kernel maps the buffer page by page, each page a segment of the
    // request: a piece that starts inside a page has that much less room.
    const pod::uint64 page = hostinfo::mem::pageSize();
    const pod::uint64 room = limits_.maxSegments * page - reinterpret_cast<pod::uintptr>(at) % page;
    if (bytes > room) bytes = room / limits_.blockSize * limits_.blockSize;
  }
  return bytes;
}

int Transfer::send(bool reading, char* at, pod::uint64 bytes, pod::uint64 offset) {
  outcome_.clear();
  const int count = static_cast<int>(bytes);
  const long long position = static_cast<long long>(offset);
  const bool queued = reading ? request_->submit(i::op::Read(), at, count, position)
                              : request_->submit(i::op::Write(), at, count, position);
  if (queued) dispatcher_.wait();
  return outcome_.result();
}

pod::uint64 Transfer::transfer(bool writing, char* buffer, pod::uint64 count, pod::uint64 offset) {
  done_ = 0;
  const int size = cdbSize();
  const std::string command = std::string(writing ? "SCSI Write (" : "SCSI Read (") + number(size) + ")";
  auto no = [&](const std::string& why, int code) {
    if (writing) refuse<SCSIWriteException>(command, why, code);
    refuse<SCSIReadException>(command, why, code);
  };
  if (writes() != Writes::kData) {
    no("the dispatcher does not send SCSI READ and WRITE (its spec does not enable scsi)", EINVAL);
  }
  if (count == 0) return 0;
  const pod::uint64 block = limits_.blockSize;
  if (buffer == nullptr) no("no buffer", EINVAL);
  if (offset % block != 0 || count % block != 0) {
    no("offset " + number(offset) + " and length " + number(count) + " are not whole " + number(block) +
           "-byte blocks",
       EINVAL);
  }
  if (count > std::numeric_limits<pod::uintptr>::max() - reinterpret_cast<pod::uintptr>(buffer)) {
    no("a buffer of " + number(count) + " bytes there runs past the end of memory", EINVAL);
  }
  if (offset > kLastByte || count > kLastByte - offset + 1) {
    no("offset " + number(offset) + " and length " + number(count) + " reach past byte " + number(kLastByte) +
           ", the last a request addresses",
       EOVERFLOW);
  }
  const pod::uint64 first = offset / block, end = (offset + count) / block;
  if (size == 10 && end > kTenByteBlocks) {
    no("blocks " + number(first) + " to " + number(end - 1) + " reach past block " + number(kTenByteBlocks - 1) +
           ", the last a 10-byte command addresses",
       EOVERFLOW);
  }
  pod::uint64 most = std::min(limits_.maxTransfer, kRequestBytes);
  if (size == 10) most = std::min(most, kTenByteCount * block);
  most = most / block * block;
  if (most == 0) {
    no("the device's transfer limit of " + number(limits_.maxTransfer) + " bytes holds no whole " + number(block) +
           "-byte block",
       EINVAL);
  }
  // Where a piece could start so far inside a page that the pages one command
  // maps hold no block, every piece is laid out first.
  const pod::uint64 page = hostinfo::mem::pageSize();
  if (limits_.maxSegments != 0 && limits_.maxSegments * page < block + page - 1) {
    for (pod::uint64 at = 0; at < count;) {
      const pod::uint64 bytes = piece(buffer + at, count - at, most);
      if (bytes == 0) {
        no("the piece at byte " + number(at) + " of the buffer starts " +
               number(reinterpret_cast<pod::uintptr>(buffer + at) % page) + " bytes into a memory page, which leaves "
               "no room for a " + number(block) + "-byte block in the " + number(limits_.maxSegments) +
               " pages one command maps",
           EINVAL);
      }
      at += bytes;
    }
  }
  for (pod::uint64 at = 0; at < count;) {
    const pod::uint64 bytes = piece(buffer + at, count - at, most);
    const int moved = send(!writing, buffer + at, bytes, offset + at);
    done_ += static_cast<pod::uint64>(moved);
    if (static_cast<pod::uint64>(moved) < bytes) break;  // the device moved less: the call ends there
    at += bytes;
  }
  return done_;
}

pod::uint64 Transfer::discard(pod::uint64 count, pod::uint64 offset) {
  done_ = 0;
  const Writes how = writes();
  if (how == Writes::kData) {
    refuse<WriteException>("discard", "the dispatcher's writes are SCSI WRITE commands (its spec enables scsi)",
                           EINVAL);
  }
  if (how == Writes::kOther) {
    refuse<WriteException>("discard",
                           "the dispatcher does not discard (its spec enables neither scsi::unmap nor ata::trim)",
                           EINVAL);
  }
  const char* const command =
      how == Writes::kUNMAP ? "SCSI UNMAP" : how == Writes::kTRIM ? "ATA TRIM" : "ATA TRIM (SATL)";
  auto no = [&](const std::string& why, int code) {
    if (how == Writes::kTRIM) refuse<WriteException>(command, why, code);
    refuse<SCSIWriteException>(command, why, code);
  };
  if (count == 0) return 0;
  const pod::uint64 block = limits_.blockSize;
  if (offset % block != 0 || count % block != 0) {
    no("offset " + number(offset) + " and length " + number(count) + " are not whole " + number(block) +
           "-byte blocks",
       EINVAL);
  }
  if (offset > kLastByte || count > kLastByte - offset + 1) {
    no("offset " + number(offset) + " and length " + number(count) + " reach past byte " + number(kLastByte) +
           ", the last a request addresses",
       EOVERFLOW);
  }
  const pod::uint64 first = offset / block, end = (offset + count) / block;
  if (how != Writes::kUNMAP && end > kTRIMBlocks) {
    no("blocks " + number(first) + " to " + number(end - 1) + " reach past block " + number(kTRIMBlocks - 1) +
           ", the last a TRIM entry addresses",
       EOVERFLOW);
  }
  if (limits_.maxDiscard == 0) no("the device takes no discards (its discard limit is 0)", EOPNOTSUPP);
  const pod::uint64 most = std::min(limits_.maxDiscard, kRequestBytes) / block * block;
  if (most == 0) {
    no("the device's discard limit of " + number(limits_.maxDiscard) + " bytes holds no whole " + number(block) +
           "-byte block",
       EINVAL);
  }
  for (pod::uint64 at = 0; at < count; at += most) {
    const pod::uint64 bytes = std::min(count - at, most);
    done_ += static_cast<pod::uint64>(send(false, nullptr, bytes, offset + at));
  }
  return done_;
}

}  // namespace scsi
}  // namespace impl
}  // namespace xio
}  // namespace sal
}  // namespace quorel
