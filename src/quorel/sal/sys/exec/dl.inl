// Platform half of dynamic modules: dlopen, dlsym, dlclose.
#include <quorel/sal/sys/exec/dl.h>

#include <dlfcn.h>

#include <quorel/sal/Exception.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace sys {
namespace exec {
namespace dl {

void* open(const std::string& name) {
  void* handle = ::dlopen(name.c_str(), RTLD_LAZY);
  if (handle == nullptr) {
    QUOREL_THROW(sys::Exception)("::dlopen(\"" + name + "\") failed", i::err::domain::kDynamicLinker, 0);
  }
  return handle;
}

void close(void* handle) { ::dlclose(handle); }

void* addressOf(std::string symbol, void* handle) {
  void* address = ::dlsym(handle, symbol.c_str());
  if (address == nullptr) {
    QUOREL_THROW(sys::Exception)("::dlsym(\"" + symbol + "\") failed", i::err::domain::kDynamicLinker, 0);
  }
  return address;
}

const char* prefix() { return "lib"; }
const char* suffix(bool) { return ".so"; }
// The variant part of a bundle's suffix is empty on this platform.
std::string bundleSuffix(bool) { return std::string() + ".so"; }
std::string naturalizedNameOf(const std::string& name, bool variant) { return prefix() + name + suffix(variant); }
std::string naturalizedBundleNameOf(const std::string& name, bool variant) {
  // The bundle suffix already ends in ".so" here, so the plain suffix is not added twice.
  return prefix() + name + bundleSuffix(variant);
}

}  // namespace dl
}  // namespace exec
}  // namespace sys
}  // namespace sal
}  // namespace quorel
