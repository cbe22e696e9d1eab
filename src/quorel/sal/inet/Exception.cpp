// Destructors of the quorel::sal::inet exceptions: their vtables live in the library.
#include <quorel/sal/inet/Exception.h>

namespace quorel {
namespace sal {
namespace inet {

Exception::~Exception() = default;

}  // namespace inet
}  // namespace sal
}  // namespace quorel
