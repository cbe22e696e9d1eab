// Destructors of the quorel::sal::fs exceptions: their vtables live in the library.
#include <quorel/sal/fs/Exception.h>

namespace quorel {
namespace sal {
namespace fs {

Exception::~Exception() = default;
IOCTLException::~IOCTLException() = default;
PathNameException::~PathNameException() = default;
StatException::~StatException() = default;

}  // namespace fs
}  // namespace sal
}  // namespace quorel
