// What the process holds: open descriptors and threads.
#ifndef QUOREL_TESTS_SUPPORT_PROCESS_H
#define QUOREL_TESTS_SUPPORT_PROCESS_H

#include <dirent.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <string>
#include <thread>

namespace quorel {
namespace test {

// Entries of a /proc/self directory, "." and ".." excluded.
inline int entriesOf(const char* path) {
  DIR* dir = ::opendir(path);
  if (dir == nullptr) return -1;
  int count = 0;
  while (const dirent* entry = ::readdir(dir)) {
    if (entry->d_name[0] != '.') ++count;
  }
  ::closedir(dir);
  return count;
}

// Open descriptors, not counting the one used to list them.
inline int openDescriptorCount() { return entriesOf("/proc/self/fd") - 1; }
inline int threadCount() { return entriesOf("/proc/self/task"); }

// Polls until condition holds or the time is up; for state that other
// threads change a moment later (a detached thread winding down).
inline bool eventually(const std::function<bool()>& condition, int milliseconds = 5000) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

// Raises RLIMIT_NOFILE to at least needed descriptors for a scope (raising
// the hard limit too where the process may); ok() says whether it could.
class DescriptorLimit {
 public:
  explicit DescriptorLimit(rlim_t needed) {
    ::getrlimit(RLIMIT_NOFILE, &saved_);
    rlimit limit = saved_;
    if (limit.rlim_cur >= needed) return;
    limit.rlim_cur = needed;
    limit.rlim_max = std::max(limit.rlim_max, needed);
    ok_ = ::setrlimit(RLIMIT_NOFILE, &limit) == 0;
  }
  ~DescriptorLimit() { ::setrlimit(RLIMIT_NOFILE, &saved_); }
  bool ok() const { return ok_; }
  rlim_t hardLimit() const { return saved_.rlim_max; }

 private:
  rlimit saved_;
  bool ok_ = true;
};

}  // namespace test
}  // namespace quorel

#endif
