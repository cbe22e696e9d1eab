// Platform half of the run-time helpers: the light daemon (fork, setsid)
// and the registered control functions.
#include <quorel/sal/sys/runtime.h>

#include <errno.h>
#include <stdlib.h>
#include <unistd.h>

#include <quorel/sal/Exception.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace sys {

namespace runtime {

namespace {
Control control = {nullptr, nullptr, nullptr, nullptr};
}  // namespace

void beDaemon() {
  using i::err::domain::kSystemCall;
  const pid_t child = ::fork();
  if (child == -1) {
    const int error = errno;
    QUOREL_THROW(sys::Exception)("first ::fork() failed while initializing as daemon", kSystemCall, error);
  }
  if (child != 0) ::exit(0);
  if (::setsid() == -1) {
    const int error = errno;
    QUOREL_THROW(sys::Exception)("::setsid() failed in first child while initializing as daemon", kSystemCall,
                                 error);
  }
}

void registerControl(int (*query)(), void (*start)(), void (*stop)(), void (*interrupt)()) {
  control = Control{query, start, stop, interrupt};
}

const Control& registeredControl() { return control; }

}  // namespace runtime
}  // namespace sys
}  // namespace sal
}  // namespace quorel
