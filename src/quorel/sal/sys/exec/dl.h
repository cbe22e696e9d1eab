/// \file
/// Platform layer of dynamic modules: dlopen, dlsym, dlclose and the
/// platform's library file names.
#ifndef QUOREL_SAL_SYS_EXEC_DL_H
#define QUOREL_SAL_SYS_EXEC_DL_H

#include <string>

namespace quorel {
namespace sal {
namespace sys {
namespace exec {
namespace dl {

/// dlopen(name, RTLD_LAZY); throws sys::Exception "::dlopen(\"<name>\") failed"
/// in the dynamic linker domain (the linker's text is read when the exception
/// is formatted).
void* open(const std::string& name);
/// dlclose; never throws.
void close(void* handle);
/// dlsym; a null address, also that of a symbol whose value is null, throws
/// sys::Exception "::dlsym(\"<symbol>\") failed" in the dynamic linker domain.
void* addressOf(std::string symbol, void* handle);

const char* prefix();                  // "lib"
const char* suffix(bool variant);      // ".so"
std::string bundleSuffix(bool variant);  // ".so" (the variant part is empty here)
std::string naturalizedNameOf(const std::string& name, bool variant);        // "lib" + name + ".so"
std::string naturalizedBundleNameOf(const std::string& name, bool variant);  // "lib" + name + ".so"

}  // namespace dl
}  // namespace exec
}  // namespace sys
}  // namespace sal
}  // namespace quorel

#endif
