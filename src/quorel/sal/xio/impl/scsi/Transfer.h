/// \file
/// The state behind scsi::Transfer: the dispatcher, its one request, the
/// limits pieces are cut to, and the handler that keeps each piece's outcome.
#ifndef QUOREL_SAL_XIO_IMPL_SCSI_TRANSFER_H
#define QUOREL_SAL_XIO_IMPL_SCSI_TRANSFER_H

#include <exception>
#include <memory>
#include <string>

#include <quorel/sal/xio/Dispatcher.h>
#include <quorel/sal/xio/Endpoint.h>
#include <quorel/util/pod.h>

namespace quorel {
namespace sal {
namespace fs {
class QueueLimits;
}  // namespace fs

namespace xio {
namespace impl {
namespace scsi {

/// What one command may carry (scsi::Transfer::Limits), in bytes.
struct TransferLimits {
  /// The limits of a block device's queue: its logical block size,
  /// max_hw_sectors_kb, max_segments and discard_max_bytes.
  static TransferLimits of(const fs::QueueLimits& limits);

  pod::uint32 blockSize = 0;    // the logical block: offsets and lengths come in these
  pod::uint64 maxTransfer = 0;  // one READ or WRITE
  pod::uint32 maxSegments = 0;  // memory pages one READ or WRITE may span (0: no limit)
  pod::uint64 maxDiscard = 0;   // one UNMAP or TRIM (0: the device does not discard)
};

/// See scsi::Transfer. One thread at a time.
class Transfer {
 public:
  Transfer(const xio::Dispatcher& dispatcher, const xio::Endpoint& endpoint, const TransferLimits& limits);
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;

  pod::uint64 read(void* buffer, pod::uint64 count, pod::uint64 offset);
  pod::uint64 write(const void* buffer, pod::uint64 count, pod::uint64 offset);
  pod::uint64 discard(pod::uint64 count, pod::uint64 offset);

  pod::uint64 done() const { return done_; }
  const TransferLimits& limits() const { return limits_; }

 private:
  // Keeps the outcome of the one request in flight: its result, or its
  // failure as an exception of the class the dispatcher built.
  class Outcome : public xio::AHandler {
   public:
    void on(i::op::Read, int result, xio::Request&) override { result_ = result; }
    void on(i::op::Write, int result, xio::Request&) override { result_ = result; }
    void on(AIOCompletionException& e, xio::Request&) override;
    void on(AIORequestException& e, xio::Request&) override;
    void on(AIOCancellationException& e, xio::Request&) override;
    void on(ReadException& e, xio::Request&) override;
    void on(WriteException& e, xio::Request&) override;

    void clear();
    /// The result; throws the failure if there was one.
    int result() const;

   private:
    int result_ = 0;
    std::exception_ptr failure_;
  };

  // How the dispatcher performs a write: what discard() may use.
  enum class Writes { kData, kUNMAP, kTRIM, kTRIMOnSCSI, kOther };

  Writes writes() const;
  int cdbSize() const;
  pod::uint64 transfer(bool writing, char* buffer, pod::uint64 count, pod::uint64 offset);
  // The bytes of the piece at buffer address `at`: at most `most`, and no
  // more memory pages than one command maps; 0 if not even a block fits.
  pod::uint64 piece(const char* at, pod::uint64 remaining, pod::uint64 most) const;
  // One request: submitted, waited for, its result or its failure thrown.
  int send(bool reading, char* at, pod::uint64 bytes, pod::uint64 offset);
  template <class E>
  [[noreturn]] void refuse(const std::string& command, const std::string& why, int code) const;

  xio::Dispatcher dispatcher_;
  TransferLimits limits_;
  Outcome outcome_;  // before request_, which refers to it
  std::unique_ptr<xio::Request> request_;
  pod::uint64 done_;
};

}  // namespace scsi
}  // namespace impl
}  // namespace xio
}  // namespace sal
}  // namespace quorel

#endif
