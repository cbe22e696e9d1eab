// The synchronous dispatcher: one pending request, performed in wait() by
// the function its spec chooses, completed to the handler's slot for the
// result.
#include <errno.h>

#include <string>

#include <quorel/sal/xio/Dispatcher.h>
#include <quorel/sal/xio/impl/ata/IOControl.h>
#include <quorel/sal/xio/impl/desc.h>
#include <quorel/sal/xio/impl/scsi/op.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace xio {
namespace impl {

template <class R>
class ASIODispatcherOf {
 public:
  explicit ASIODispatcherOf(const mux::Spec& spec)
      : pending_(nullptr),
        queued_(0),
        spec_(spec),
        status_(0),
        senseLength_(0),
        error_(0),
        io_(spec.enabled(i::mux::kSCSIExtended)) {}

  const mux::Spec& muxSpec() const { return spec_; }
  void lock() {}
  void unlock() {}
  void interrupt() {}
  int pending() const { return pending_ != nullptr ? 1 : 0; }

  bool queue(R& request) {
    if (pending_ != nullptr) {
      QUOREL_THROW(xio::Exception)("cannot queue multiple synchronous I/O requests",
                                   sal::i::err::domain::kApplication, 0);
    }
    pending_ = &request;
    ++queued_;
    return true;
  }

  void wait() {
    if (pending_ == nullptr) {
      QUOREL_THROW(xio::Exception)("no pending synchronous I/O to wait on", sal::i::err::domain::kApplication, 0);
    }
    R& request = *pending_;
    pending_ = nullptr;
    Context& context = *request.current;
    const int result = request.noTransfer() ? kHeldResult : context.perform(request);
    context.complete(request, result);
  }
  // The time-out is not used: the request is performed now.
  void waitFor(unsigned long long) { wait(); }

  void prepare(R& request) const {
    request.read.perform = readFunction();
    request.read.complete = completeRead;
    request.write.perform = writeFunction();
    request.write.complete = completeWrite;
  }

 private:
  typedef ADispatcherUsing<ASIODispatcherOf> Using;
  static const int kTimeout = 60;  // seconds, for pass-through commands

  // What performs each operation, by the options.
  enum class Path { kPositioned, kSocket, kSCSI, kUNMAP, kTRIM, kTRIMOnSCSI };

  bool socket() const { return spec_.enabled(i::mux::kTCP) || spec_.enabled(i::mux::kUDP); }
  Path readPath() const {
    if (spec_.enabled(i::mux::kSCSI)) return Path::kSCSI;
    return socket() ? Path::kSocket : Path::kPositioned;
  }
  Path writePath() const {
    if (spec_.enabled(i::mux::kSCSI)) return Path::kSCSI;
    if (spec_.enabled(i::mux::kSCSIUNMAP)) return Path::kUNMAP;
    if (!spec_.enabled(i::mux::kATATrim)) return socket() ? Path::kSocket : Path::kPositioned;
    return spec_.enabled(i::mux::kATAOnSCSI) ? Path::kTRIMOnSCSI : Path::kTRIM;
  }
  typename Context::Perform readFunction() const {
    switch (readPath()) {
      case Path::kSCSI: return readSCSI;
      case Path::kSocket: return readSocket;
      default: return readPositioned;
    }
  }
  typename Context::Perform writeFunction() const {
    switch (writePath()) {
      case Path::kSCSI: return writeSCSI;
      case Path::kUNMAP: return unmap;
      case Path::kTRIM: return trim;
      case Path::kTRIMOnSCSI: return trimOnSCSI;
      case Path::kSocket: return writeSocket;
      default: return writePositioned;
    }
  }

  int cdbSize() const {
    const int size = spec_.words[i::mux::kSCSICDBSize];
    return size == 1 ? 16 : size == 2 ? 32 : 10;
  }

  static int readPositioned(R& r) { return fio::readAt(r.endpointID(), r.buffer(), r.count(), r.offset()); }
  static int writePositioned(R& r) { return fio::writeAt(r.endpointID(), r.buffer(), r.count(), r.offset()); }
  static int readSocket(R& r) { return fio::receiveAll(r.endpointID(), r.buffer(), r.count()); }
  static int writeSocket(R& r) { return fio::sendAll(r.endpointID(), r.buffer(), r.count()); }

  // The pass-through functions return -1 on failure; the dispatcher keeps
  // their status, sense length and errno (0 unless the call itself failed)
  // for the completion.
  template <class F>
  static int passThrough(R& r, F function) {
    ASIODispatcherOf& d = Using::of(r);
    d.status_ = 0;
    d.senseLength_ = 0;
    errno = 0;
    const pod::int64 result = function(d);
    d.error_ = result < 0 ? errno : 0;
    return result < 0 ? -1 : static_cast<int>(result);
  }
  static int scsiOp(R& r, bool write) {
    return passThrough(r, [&r, write](ASIODispatcherOf& d) {
      return fio::scsi::op(write, d.io_, r.endpointID(), r.buffer(), r.count(), r.blockSize, r.offset(),
                           d.spec_.enabled(i::mux::kSCSIFUA), d.spec_.enabled(i::mux::kSCSIT10PI), kTimeout,
                           d.status_, d.senseLength_, d.cdbSize());
    });
  }
  static int readSCSI(R& r) { return scsiOp(r, false); }
  static int writeSCSI(R& r) { return scsiOp(r, true); }
  static int unmap(R& r) {
    return passThrough(r, [&r](ASIODispatcherOf& d) {
      return fio::scsiUNMAPWithoutException(d.io_, r.endpointID(), r.blockSize, r.offset(), r.count(), kTimeout,
                                            d.status_, d.senseLength_);
    });
  }
  static int trim(R& r) {
    return passThrough(r, [&r](ASIODispatcherOf& d) {
      return fio::ataTRIMWithoutException(d.ata_, r.endpointID(), r.blockSize, r.offset(), r.count(), kTimeout,
                                          d.status_, d.senseLength_);
    });
  }
  static int trimOnSCSI(R& r) {
    return passThrough(r, [&r](ASIODispatcherOf& d) {
      return fio::ataOnSCSITRIMWithoutException(d.io_, r.endpointID(), r.blockSize, r.offset(), r.count(), kTimeout,
                                                d.status_, d.senseLength_);
    });
  }

  // A request that moved nothing completes with its sentinel like any
  // other completion.
  static void completeRead(R& r, int result) {
    if (result >= 0 || result == kHeldResult) {
      r.handler().on(i::op::Read(), result, r.origin());
      return;
    }
    ASIODispatcherOf& d = Using::of(r);
    using namespace sal::i::err::domain;
    switch (d.readPath()) {
      case Path::kSCSI: {
        SCSIReadException e = d.passThroughFailure<SCSIReadException>("device I/O control failed for SCSI Read " +
                                                                       d.cdbName());
        r.handler().on(e, r.origin());
        return;
      }
      case Path::kSocket: {
        ReadException e = QUOREL_EXCEPTION(ReadException)("::recv() failed", kSystemCall, -result);
        r.handler().on(e, r.origin());
        return;
      }
      default: {
        ReadException e = QUOREL_EXCEPTION(ReadException)("::pread() failed", kSystemCall, -result);
        r.handler().on(e, r.origin());
        return;
      }
    }
  }

  static void completeWrite(R& r, int result) {
    if (result >= 0 || result == kHeldResult) {
      r.handler().on(i::op::Write(), result, r.origin());
      return;
    }
    ASIODispatcherOf& d = Using::of(r);
    using namespace sal::i::err::domain;
    switch (d.writePath()) {
      case Path::kSCSI: {
        SCSIWriteException e =
            d.passThroughFailure<SCSIWriteException>("device I/O control failed for SCSI Write " + d.cdbName());
        r.handler().on(e, r.origin());
        return;
      }
      case Path::kUNMAP: {
        SCSIWriteException e = d.passThroughFailure<SCSIWriteException>(
            d.error_ != 0 ? "device I/O control failed for SCSI UNMAP" : "SCSI UNMAP failed");
        r.handler().on(e, r.origin());
        return;
      }
      case Path::kTRIM: {
        WriteException e = d.passThroughFailure<WriteException>("ATA TRIM failed");
        r.handler().on(e, r.origin());
        return;
      }
      case Path::kTRIMOnSCSI: {
        SCSIWriteException e = d.passThroughFailure<SCSIWriteException>("ATA TRIM (SATL) failed");
        r.handler().on(e, r.origin());
        return;
      }
      case Path::kSocket: {
        WriteException e = QUOREL_EXCEPTION(WriteException)("::send() failed", kSystemCall, -result);
        r.handler().on(e, r.origin());
        return;
      }
      default: {
        WriteException e = QUOREL_EXCEPTION(WriteException)("::pwrite() failed", kSystemCall, -result);
        r.handler().on(e, r.origin());
        return;
      }
    }
  }

  std::string cdbName() const {
    const int size = cdbSize();
    return size == 16 ? "(16)" : size == 32 ? "(32)" : "(10)";
  }

  // A failed pass-through command: the errno of a failed call (domain 2);
  // ATA status and error registers (an odd status: ERR is bit 0, which no
  // SCSI status sets) as status | error << 8 (domain 0); otherwise the
  // packed SCSI status with the sense bytes (domain 4).
  template <class E>
  E passThroughFailure(const std::string& why) const {
    using namespace sal::i::err::domain;
    if (error_ != 0) return QUOREL_EXCEPTION(E)(why, kSystemCall, error_);
    if ((status_ & 0x01) != 0) return QUOREL_EXCEPTION(E)(why, kApplication, status_ | (senseLength_ & 0xff) << 8);
    const int length = senseLength_ < 0 ? 0 : senseLength_ > 256 ? 256 : senseLength_;
    return QUOREL_EXCEPTION(E)(why, kSCSICDB, status_, std::string(io_.senseData(), static_cast<size_t>(length)));
  }

  R* pending_;
  int queued_;
  mux::Spec spec_;
  pod::int32 status_;
  pod::int32 senseLength_;
  int error_;
  impl::scsi::IOControl io_;
  ata::IOControl ata_;
};

}  // namespace impl
}  // namespace xio
}  // namespace sal
}  // namespace quorel
