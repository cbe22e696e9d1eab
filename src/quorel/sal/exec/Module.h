/// \file
/// Module: a shared library loaded at run time.
#ifndef QUOREL_SAL_EXEC_MODULE_H
#define QUOREL_SAL_EXEC_MODULE_H

#include <string>

#include <quorel/sal/sys/exec/dl.h>
#include <quorel/util/AHandleTo.h>

namespace quorel {
namespace sal {
namespace exec {

namespace impl {
/// The loader's handle, closed with the last copy.
class Module {
 public:
  explicit Module(const std::string& name) : handle(sys::exec::dl::open(name)) {}
  ~Module() { sys::exec::dl::close(handle); }
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;
  void* handle;
};
}  // namespace impl

/// Copies share the loaded library. Names go to the loader unchanged: use
/// naturalizedNameOf("z") for "libz.so".
class Module {
 public:
  /// Throws sys::Exception "::dlopen(\"<name>\") failed" (dynamic linker
  /// domain; the message is the loader's text when formatted).
  explicit Module(const std::string& name);
  /// Throws sys::Exception "::dlsym(\"<symbol>\") failed", also for a symbol
  /// whose value is null.
  void* addressOf(const std::string& symbol) const;

  static const char* prefix();
  static const char* suffix(bool variant);
  static std::string bundleSuffix(bool variant);
  static std::string naturalizedNameOf(const std::string& name, bool variant);
  static std::string naturalizedBundleNameOf(const std::string& name, bool variant);

 private:
  util::AHandleTo<impl::Module> handle_;
};

}  // namespace exec
}  // namespace sal
}  // namespace quorel

#endif
