// Destructors of the quorel::sal::io exceptions: their vtables live in the library.
#include <quorel/sal/io/Exception.h>

namespace quorel {
namespace sal {
namespace io {

Exception::~Exception() = default;
TimeoutException::~TimeoutException() = default;

}  // namespace io
}  // namespace sal
}  // namespace quorel
