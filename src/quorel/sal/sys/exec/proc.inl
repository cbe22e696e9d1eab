// Platform half of process launching and of the calling process: stat64,
// pthread_sigmask, fork, setsid, setpgid, sigprocmask, dup2, chdir, execve,
// waitpid, kill, getcwd, _exit. The environment is in env.inl, the launch
// that creates the child without fork (op::Spawn) in spawn.inl.
#include <quorel/sal/sys/exec/proc.h>

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <vector>

#include <quorel/sal/Exception.h>
#include <quorel/sal/sys/exec/env.inl>
#include <quorel/sal/sys/exec/spawn.inl>
#include <quorel/sal/sys/io/endpoint.h>
#include <quorel/util/Throw.h>
#include <quorel/util/str.h>

namespace quorel {
namespace sal {
namespace sys {
namespace exec {

LaunchProperty::LaunchProperty()
    : workingDirectoryWord(0), ownWindow(0), ownWindowValue(0), sameGroup(0), detach(0), spawn(0) {
  for (Handle& h : stdHandles) {
    h.mode = kInherit;
    h.descriptor = -1;
  }
}

namespace proc {

using i::err::domain::kSystemCall;

namespace {

bool exists(const std::string& path) {
  struct stat64 s;
  return ::stat64(path.c_str(), &s) == 0;
}

// "KEY=value" texts and the null-terminated pointer array over them.
class CStrings {
 public:
  void add(const std::string& text) { texts_.push_back(text); }
  char** array() {
    pointers_.clear();
    for (std::string& t : texts_) pointers_.push_back(&t[0]);
    pointers_.push_back(nullptr);
    return pointers_.data();
  }

 private:
  std::list<std::string> texts_;  // stable addresses
  std::vector<char*> pointers_;
};

// The child's side of exec(); never returns.
[[noreturn]] void becomeChild(const std::string& resolved, char** argv, char** envp, const LaunchProperty& lp,
                              const int* descriptors) {
  sigset_t all;
  sigfillset(&all);
  ::sigprocmask(SIG_BLOCK, &all, nullptr);
  if (lp.detach != 0) {
    ::setsid();
    if (::fork() != 0) ::_exit(0);  // the intermediate process (or a failed fork) ends here
  } else {
    ::setpgid(0, 0);
  }
  try {
    void (*const replace[3])(io::endpoint::handle, bool) = {io::endpoint::setStdIn, io::endpoint::setStdOut,
                                                            io::endpoint::setStdErr};
    for (int slot = 0; slot < 3; ++slot) {
      if (lp.stdHandles[slot].mode == LaunchProperty::kClose) io::endpoint::close(slot);
      if (lp.stdHandles[slot].mode == LaunchProperty::kReplace) replace[slot](descriptors[slot], true);
    }
    if (!lp.workingDirectory.empty()) setCurrentDirectory(lp.workingDirectory);
  } catch (const quorel::Exception& e) {
    // Unwinding would run the parent's code in this process: report and end.
    const std::string text = "quorel: launching " + resolved + ": " + e.asSimpleString() + "\n";
    static_cast<void>(::write(2, text.data(), text.size()));
    ::_exit(127);
  }
  ::execve(resolved.c_str(), argv, envp);
  ::abort();
}

}  // namespace

std::string resolve(const std::string& path) {
  if (path.find('/') != std::string::npos) return exists(path) ? path : std::string();
  std::list<std::string> directories;
  util::str::cut(env::valueOf("PATH"), ':', directories);
  for (const std::string& directory : directories) {
    const bool slashed = !directory.empty() && directory.rfind('/') == directory.size() - 1;
    const std::string candidate = directory + (slashed ? "" : "/") + path;
    if (exists(candidate)) return candidate;
  }
  return std::string();
}

handle exec(const std::string& path, const ArgList& args, const LaunchProperty& lp, bool overrideStd,
            bool overrideIn, pod::uintptr inFd, bool overrideOut, pod::uintptr outFd, bool overrideErr,
            pod::uintptr errFd) {
  const std::string resolved = resolve(path);
  if (resolved.empty()) QUOREL_THROW(sys::Exception)("unable to locate the specified file to excute", kSystemCall, 2);

  // Everything the child needs is made here: after fork, a child of a
  // threaded parent should do no more than system calls.
  CStrings argv, envp;
  argv.add(resolved);
  for (const std::string& arg : args) argv.add(arg);
  for (const auto& var : lp.envVars) envp.add(var.first + "=" + var.second);
  const bool overrides[3] = {overrideStd && overrideIn, overrideStd && overrideOut, overrideStd && overrideErr};
  const pod::uintptr given[3] = {inFd, outFd, errFd};
  int descriptors[3];
  for (int slot = 0; slot < 3; ++slot) {
    descriptors[slot] = overrides[slot] ? static_cast<int>(given[slot]) : lp.stdHandles[slot].descriptor;
  }
  char** argArray = argv.array();
  char** envArray = envp.array();
  if (lp.spawn != 0) return spawn(resolved, argArray, envArray, lp, descriptors);

  // Every signal is blocked across the fork, so that none reaches the child
  // before it is ready: the parent's handlers (the application's stop task)
  // would run there. The child keeps the full mask, which is where its first
  // step puts it anyway; the parent gets its own back at once.
  sigset_t all, previous;
  sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &previous);
  const pid_t pid = ::fork();
  const int error = errno;
  if (pid != 0) ::pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  if (pid == -1) QUOREL_THROW(sys::Exception)("::fork() failed", kSystemCall, error);
  if (pid == 0) becomeChild(resolved, argArray, envArray, lp, descriptors);
  if (lp.detach != 0) {
    int status;
    while (::waitpid(pid, &status, 0) == -1 && errno == EINTR) {
    }
  } else {
    // The child makes its group too; doing it here as well means the group
    // exists before the caller can signal it.
    ::setpgid(pid, pid);
  }
  return pid;
}

int wait(handle pid) {
  int status = 0;
  pid_t result;
  while ((result = ::waitpid(pid, &status, 0)) == -1 && errno == EINTR) {
  }
  if (result == -1) {
    const int error = errno;
    QUOREL_THROW(sys::Exception)("::waitpid() failed", kSystemCall, error);
  }
  return (status & 0x7f) == 0 ? (status >> 8) & 0xff : -1;
}

bool tryWait(handle pid, int& code) {
  int status = 0;
  pid_t result;
  while ((result = ::waitpid(pid, &status, WNOHANG)) == -1 && errno == EINTR) {
  }
  if (result == -1) {
    const int error = errno;
    QUOREL_THROW(sys::Exception)("::waitpid() failed", kSystemCall, error);
  }
  if (result == 0) return false;
  code = (status & 0x7f) == 0 ? (status >> 8) & 0xff : -1;
  return true;
}

void quit(int& pid) { ::kill(-pid, SIGTERM); }
void interrupt(int& pid) { ::kill(-pid, SIGQUIT); }
void kill(int& pid) { ::kill(-pid, SIGKILL); }

void exit(int status) { ::_exit(status); }

int selfID() { return ::getpid(); }

const std::string currentDirectory() {
  char* directory = ::getcwd(nullptr, 4096);
  if (directory == nullptr) {
    const int error = errno;
    QUOREL_THROW(sys::Exception)("::getcwd() failed", kSystemCall, error);
  }
  const std::string result(directory);
  ::free(directory);
  return result;
}

void setCurrentDirectory(const std::string& path) {
  if (::chdir(path.c_str()) != 0) {
    const int error = errno;
    QUOREL_THROW(sys::Exception)("::chdir(\"" + path + "\") failed", kSystemCall, error);
  }
}

}  // namespace proc


}  // namespace exec
}  // namespace sys
}  // namespace sal
}  // namespace quorel
