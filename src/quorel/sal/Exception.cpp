// Destructors of the quorel::sal exceptions: their vtables live in the library.
#include <quorel/sal/Exception.h>

namespace quorel {
namespace sal {

Exception::~Exception() = default;
diag::Exception::~Exception() = default;
sys::Exception::~Exception() = default;
vm::Exception::~Exception() = default;

}  // namespace sal
}  // namespace quorel
