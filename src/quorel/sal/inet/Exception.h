/// \file
/// Exceptions of internet configuration.
#ifndef QUOREL_SAL_INET_EXCEPTION_H
#define QUOREL_SAL_INET_EXCEPTION_H

#include <quorel/sal/Exception.h>

namespace quorel {
namespace sal {
namespace inet {

/// Internet configuration.
class Exception : public sal::Exception {
 public:
  using sal::Exception::Exception;
  ~Exception() override;
};

}  // namespace inet
}  // namespace sal
}  // namespace quorel

#endif
