/// \file
/// Readable names of run-time types.
#ifndef QUOREL_UTIL_IMPL_TYPENAME_H
#define QUOREL_UTIL_IMPL_TYPENAME_H

#include <string>
#include <typeinfo>

namespace quorel {
namespace util {
namespace impl {

/// The demangled name of type ("quorel::sal::sys::Exception"), or its raw
/// name if the demangler cannot read it.
std::string demangledNameOf(const std::type_info& type);

}  // namespace impl
}  // namespace util
}  // namespace quorel

#endif
