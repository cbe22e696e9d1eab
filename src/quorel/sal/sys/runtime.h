/// \file
/// Run-time helpers of the platform layer: the light daemon and the control
/// functions a program registers.
#ifndef QUOREL_SAL_SYS_RUNTIME_H
#define QUOREL_SAL_SYS_RUNTIME_H

namespace quorel {
namespace sal {
namespace sys {

namespace runtime {
/// A light daemon: fork, the parent exits 0 at once, the child leads a new
/// session and returns. Throws as Daemon's first fork and setsid.
void beDaemon();
/// Records control functions for the run-time (nothing in this library calls
/// them).
struct Control {
  int (*query)();
  void (*start)();
  void (*stop)();
  void (*interrupt)();
};
void registerControl(int (*query)(), void (*start)(), void (*stop)(), void (*interrupt)());
const Control& registeredControl();
}  // namespace runtime

}  // namespace sys
}  // namespace sal
}  // namespace quorel

#endif
