/// \file
/// ExitException: thrown to unwind a thread or the application for exit.
#ifndef QUOREL_SAL_SYS_EXEC_EXITEXCEPTION_H
#define QUOREL_SAL_SYS_EXEC_EXITEXCEPTION_H

namespace quorel {
namespace sal {
namespace sys {
namespace exec {

/// Deliberately outside the exception tree: no base, no data, so that
/// handlers of quorel::Exception or std::exception never swallow an exit.
class ExitException {};

}  // namespace exec
}  // namespace sys
}  // namespace sal
}  // namespace quorel

#endif
