/// \file
/// Implementation objects of the synchronisation primitives: each owns one
/// platform object and lives as long as the last public object sharing it.
#ifndef QUOREL_SAL_EXEC_IMPL_SYNC_H
#define QUOREL_SAL_EXEC_IMPL_SYNC_H

#include <quorel/sal/sys/exec/CondVar.h>
#include <quorel/sal/sys/exec/Mutex.h>
#include <quorel/sal/sys/exec/TSDPair.h>

namespace quorel {
namespace sal {
namespace exec {
namespace impl {

class Mutex : public sys::exec::Mutex {};
class CondVar : public sys::exec::CondVar {};
class TSDPair : public sys::exec::TSDPair {};

}  // namespace impl
}  // namespace exec
}  // namespace sal
}  // namespace quorel

#endif
