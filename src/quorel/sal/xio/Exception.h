/// \file
/// Exceptions of extended I/O: descriptors, files, asynchronous requests and sockets.
#ifndef QUOREL_SAL_XIO_EXCEPTION_H
#define QUOREL_SAL_XIO_EXCEPTION_H

#include <quorel/sal/Exception.h>

namespace quorel {
namespace sal {
namespace xio {

/// Extended I/O root.
class Exception : public sal::Exception {
 public:
  using sal::Exception::Exception;
  ~Exception() override;
};

/// Adopting a descriptor.
class AdoptException : public xio::Exception {
 public:
  using xio::Exception::Exception;
  ~AdoptException() override;
};

/// Duplicating a descriptor.
class CloneException : public xio::Exception {
 public:
  using xio::Exception::Exception;
  ~CloneException() override;
};

/// Closing.
class CloseException : public xio::Exception {
 public:
  using xio::Exception::Exception;
  ~CloseException() override;
};

/// Opening.
class OpenException : public xio::Exception {
 public:
  using xio::Exception::Exception;
  ~OpenException() override;
};

/// Reading.
class ReadException : public xio::Exception {
 public:
  using xio::Exception::Exception;
  ~ReadException() override;
};

/// End of data while reading.
class EOFException : public ReadException {
 public:
  using ReadException::ReadException;
  ~EOFException() override;
};

/// A SCSI read command.
class SCSIReadException : public ReadException {
 public:
  using ReadException::ReadException;
  ~SCSIReadException() override;
};

/// Writing.
class WriteException : public xio::Exception {
 public:
  using xio::Exception::Exception;
  ~WriteException() override;
};

/// A SCSI write command.
class SCSIWriteException : public WriteException {
 public:
  using WriteException::WriteException;
  ~SCSIWriteException() override;
};

/// Positioning.
class SeekException : public xio::Exception {
 public:
  using xio::Exception::Exception;
  ~SeekException() override;
};

/// Flushing to storage.
class SyncException : public xio::Exception {
 public:
  using xio::Exception::Exception;
  ~SyncException() override;
};

/// Truncating.
class TruncateException : public xio::Exception {
 public:
  using xio::Exception::Exception;
  ~TruncateException() override;
};

/// Wrapping a foreign descriptor.
class WrapException : public xio::Exception {
 public:
  using xio::Exception::Exception;
  ~WrapException() override;
};

/// Asynchronous I/O.
class AIOException : public xio::Exception {
 public:
  using xio::Exception::Exception;
  ~AIOException() override;
};

/// Submitting an asynchronous request.
class AIORequestException : public AIOException {
 public:
  using AIOException::AIOException;
  ~AIORequestException() override;
};

/// An asynchronous request that completed with an error.
class AIOCompletionException : public AIOException {
 public:
  using AIOException::AIOException;
  ~AIOCompletionException() override;
};

/// An asynchronous request that was cancelled.
class AIOCancellationException : public AIOCompletionException {
 public:
  using AIOCompletionException::AIOCompletionException;
  ~AIOCancellationException() override;
};

/// Socket errors.
class SocketException : public xio::Exception {
 public:
  using xio::Exception::Exception;
  ~SocketException() override;
};

/// Socket options.
class SocketOptionException : public SocketException {
 public:
  using SocketException::SocketException;
  ~SocketOptionException() override;
};

/// Reading a socket option.
class GetSocketOptionException : public SocketOptionException {
 public:
  using SocketOptionException::SocketOptionException;
  ~GetSocketOptionException() override;
};

/// Setting a socket option.
class SetSocketOptionException : public SocketOptionException {
 public:
  using SocketOptionException::SocketOptionException;
  ~SetSocketOptionException() override;
};

/// Connection errors.
class ConnectionException : public SocketException {
 public:
  using SocketException::SocketException;
  ~ConnectionException() override;
};

/// Connection aborted.
class ConnectionAbortedException : public ConnectionException {
 public:
  using ConnectionException::ConnectionException;
  ~ConnectionAbortedException() override;
};

/// Connection refused.
class ConnectionRefusedException : public ConnectionException {
 public:
  using ConnectionException::ConnectionException;
  ~ConnectionRefusedException() override;
};

/// Connection reset.
class ConnectionResetException : public ConnectionException {
 public:
  using ConnectionException::ConnectionException;
  ~ConnectionResetException() override;
};

/// Connection timed out.
class ConnectionTimedoutException : public ConnectionException {
 public:
  using ConnectionException::ConnectionException;
  ~ConnectionTimedoutException() override;
};

/// Host errors.
class HostException : public SocketException {
 public:
  using SocketException::SocketException;
  ~HostException() override;
};

/// Host down.
class HostDownException : public HostException {
 public:
  using HostException::HostException;
  ~HostDownException() override;
};

/// Host unreachable.
class HostUnreachableException : public HostException {
 public:
  using HostException::HostException;
  ~HostUnreachableException() override;
};

/// Network errors.
class NetworkException : public SocketException {
 public:
  using SocketException::SocketException;
  ~NetworkException() override;
};

/// Network down.
class NetworkDownException : public NetworkException {
 public:
  using NetworkException::NetworkException;
  ~NetworkDownException() override;
};

/// Network reset.
class NetworkResetException : public NetworkException {
 public:
  using NetworkException::NetworkException;
  ~NetworkResetException() override;
};

/// Network unreachable.
class NetworkUnreachableException : public NetworkException {
 public:
  using NetworkException::NetworkException;
  ~NetworkUnreachableException() override;
};

}  // namespace xio
}  // namespace sal
}  // namespace quorel

#endif
