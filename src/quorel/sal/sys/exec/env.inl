// Platform half of the environment: getenv, setenv, environ.
#include <quorel/sal/sys/exec/proc.h>

#include <errno.h>
#include <stdlib.h>
#include <unistd.h>

#include <quorel/sal/Exception.h>
#include <quorel/util/Throw.h>
#include <quorel/util/str.h>

namespace quorel {
namespace sal {
namespace sys {
namespace exec {

namespace env {

std::string valueOf(const std::string& name) {
  const char* value = ::getenv(name.c_str());
  return value != nullptr ? value : "";
}

const std::string setValueOf(const std::string& name, const std::string& value) {
  const std::string previous = valueOf(name);
  if (::setenv(name.c_str(), value.c_str(), 1) != 0) {
    const int error = errno;
    QUOREL_THROW(sys::Exception)("::setenv() failed", i::err::domain::kCRuntime, error);
  }
  return previous;
}

void fill(std::map<std::string, std::string>& vars) {
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    std::string key, value;
    util::str::split(*entry, key, value, '=');
    if (!key.empty()) vars[key] = value;
  }
}

}  // namespace env

}  // namespace exec
}  // namespace sys
}  // namespace sal
}  // namespace quorel
