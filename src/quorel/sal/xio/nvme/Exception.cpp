// Destructors of the NVMe exceptions: their vtables live in the library.
#include <quorel/sal/xio/nvme/Exception.h>

namespace quorel {
namespace sal {
namespace xio {
namespace nvme {

Exception::~Exception() = default;
ReadException::~ReadException() = default;
WriteException::~WriteException() = default;

}  // namespace nvme
}  // namespace xio
}  // namespace sal
}  // namespace quorel
