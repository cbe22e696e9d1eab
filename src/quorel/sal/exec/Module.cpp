// Module, forwarding to the platform's loader.
#include <quorel/sal/exec/Module.h>

#include <quorel/sal/sys/exec/dl.inl>

namespace quorel {
namespace sal {
namespace exec {

Module::Module(const std::string& name) : handle_(new impl::Module(name)) {}
void* Module::addressOf(const std::string& symbol) const { return sys::exec::dl::addressOf(symbol, handle_->handle); }
const char* Module::prefix() { return sys::exec::dl::prefix(); }
const char* Module::suffix(bool variant) { return sys::exec::dl::suffix(variant); }
std::string Module::bundleSuffix(bool variant) { return sys::exec::dl::bundleSuffix(variant); }
std::string Module::naturalizedNameOf(const std::string& name, bool variant) {
  return sys::exec::dl::naturalizedNameOf(name, variant);
}
std::string Module::naturalizedBundleNameOf(const std::string& name, bool variant) {
  return sys::exec::dl::naturalizedBundleNameOf(name, variant);
}

}  // namespace exec
}  // namespace sal
}  // namespace quorel
