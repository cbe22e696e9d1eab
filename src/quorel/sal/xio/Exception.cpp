// Destructors of the quorel::sal::xio exceptions: their vtables live in the library.
#include <quorel/sal/xio/Exception.h>

namespace quorel {
namespace sal {
namespace xio {

Exception::~Exception() = default;
AdoptException::~AdoptException() = default;
CloneException::~CloneException() = default;
CloseException::~CloseException() = default;
OpenException::~OpenException() = default;
ReadException::~ReadException() = default;
EOFException::~EOFException() = default;
SCSIReadException::~SCSIReadException() = default;
WriteException::~WriteException() = default;
SCSIWriteException::~SCSIWriteException() = default;
SeekException::~SeekException() = default;
SyncException::~SyncException() = default;
TruncateException::~TruncateException() = default;
WrapException::~WrapException() = default;
AIOException::~AIOException() = default;
AIORequestException::~AIORequestException() = default;
AIOCompletionException::~AIOCompletionException() = default;
AIOCancellationException::~AIOCancellationException() = default;
SocketException::~SocketException() = default;
SocketOptionException::~SocketOptionException() = default;
GetSocketOptionException::~GetSocketOptionException() = default;
SetSocketOptionException::~SetSocketOptionException() = default;
ConnectionException::~ConnectionException() = default;
ConnectionAbortedException::~ConnectionAbortedException() = default;
ConnectionRefusedException::~ConnectionRefusedException() = default;
ConnectionResetException::~ConnectionResetException() = default;
ConnectionTimedoutException::~ConnectionTimedoutException() = default;
HostException::~HostException() = default;
HostDownException::~HostDownException() = default;
HostUnreachableException::~HostUnreachableException() = default;
NetworkException::~NetworkException() = default;
NetworkDownException::~NetworkDownException() = default;
NetworkResetException::~NetworkResetException() = default;
NetworkUnreachableException::~NetworkUnreachableException() = default;

}  // namespace xio
}  // namespace sal
}  // namespace quorel
