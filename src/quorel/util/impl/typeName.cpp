// Demangling of run-time type names.
#include <quorel/util/impl/typeName.h>

#include <cxxabi.h>

#include <cstdlib>

namespace quorel {
namespace util {
namespace impl {

std::string demangledNameOf(const std::type_info& type) {
  int status = 0;
  char* demangled = abi::__cxa_demangle(type.name(), nullptr, nullptr, &status);
  if (demangled == nullptr) return type.name();
  std::string name(demangled);
  std::free(demangled);
  return name;
}

}  // namespace impl
}  // namespace util
}  // namespace quorel
