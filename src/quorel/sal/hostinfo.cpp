// hostinfo, forwarding to the load-time snapshot.
#include <quorel/sal/hostinfo.h>

#include <set>

#include <quorel/sal/exec/Mutex.h>
#include <quorel/sal/impl/hostinfo.inl>
#include <quorel/util/ALockLatchFor.h>

namespace quorel {
namespace sal {
namespace hostinfo {

namespace os {
const std::string& name() { return impl::hostinfo::os::theName; }
const util::Version& version() { return impl::hostinfo::os::theVersion; }
int bits() { return static_cast<int>(sizeof(void*) * 8); }
const std::string& machine() { return impl::hostinfo::os::theMachine; }
}  // namespace os

namespace cpu {
const std::string& name() { return impl::hostinfo::cpu::theName; }
int count() {
  std::set<int> processors;
  impl::hostinfo::cpu::count(processors);
  return static_cast<int>(processors.size());
}
}  // namespace cpu

namespace mem {
unsigned int pageSize() { return impl::hostinfo::mem::thePageSize; }
pod::uint64 size() {
  const long pages = ::sysconf(_SC_PHYS_PAGES);
  return pages > 0 ? static_cast<pod::uint64>(pages) * impl::hostinfo::mem::thePageSize : 0;
}
}  // namespace mem

namespace env {

std::string id() {
  static exec::Mutex mutex;
  static std::string identity;
  util::ALockLatchFor<exec::Mutex> latch(mutex);
  if (identity.empty()) {
    identity = impl::hostinfo::dmi::identityOfHost("/sys/firmware/dmi/entries/", "/sys/firmware/dmi/tables/DMI",
                                                   "/dev/mem");
  }
  return identity;
}

bool isVM() { return impl::hostinfo::env::theVM; }
bool isVM(std::string& detail) {
  detail = impl::hostinfo::env::theVMDetail;
  return impl::hostinfo::env::theVM;
}
const std::string& execPath() {
  static const std::string none;
  return none;
}
const std::string& appStage() { return impl::hostinfo::env::theAppStage; }
const std::string& tempDirectory() { return impl::hostinfo::env::theTempDirectory; }
bool isInWindowStation() { return false; }

}  // namespace env

namespace build {
std::string os() { return "linux26"; }
std::string cpu() { return sizeof(void*) == 4 ? "ia32" : "x86_64"; }
std::string arch() { return sizeof(void*) == 4 ? "i386" : "x86_64"; }
}  // namespace build

}  // namespace hostinfo
}  // namespace sal
}  // namespace quorel
