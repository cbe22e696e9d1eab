// Destructors of the quorel::sal::exec exceptions: their vtables live in the library.
#include <quorel/sal/exec/Exception.h>

namespace quorel {
namespace sal {
namespace exec {

Exception::~Exception() = default;
SyncException::~SyncException() = default;
SyncAcquireException::~SyncAcquireException() = default;
SyncReleaseException::~SyncReleaseException() = default;

}  // namespace exec
}  // namespace sal
}  // namespace quorel
