/// \file
/// Platform layer of process launching and of the calling process: the
/// launch record, fork/execve and waitpid, process-group signals, the
/// working directory and the environment.
#ifndef QUOREL_SAL_SYS_EXEC_PROC_H
#define QUOREL_SAL_SYS_EXEC_PROC_H

#include <list>
#include <map>
#include <string>

#include <quorel/util/pod.h>

namespace quorel {
namespace sal {
namespace sys {
namespace exec {

/// How to start a program. All flags false, modes 0 (inherit), descriptors -1.
class LaunchProperty {
 public:
  enum mode { kInherit = 0, kClose = 1, kReplace = 2 };
  /// A standard-handle slot: its mode and, for kReplace, the descriptor.
  struct Handle {
    pod::int32 mode;
    pod::int32 descriptor;
  };

  LaunchProperty();

  std::string workingDirectory;  // empty: the parent's
  pod::int32 workingDirectoryWord;
  std::map<std::string, std::string> envVars;  // the child's whole environment
  Handle stdHandles[3];                        // input, output, error
  pod::int32 ownWindow;                        // recorded only
  std::string ownWindowText;
  pod::int32 ownWindowValue;
  pod::uint8 sameGroup;  // recorded only
  pod::uint8 detach;
  pod::uint8 spawn;  // create the child in the caller's memory, not by fork
};

namespace proc {

typedef int handle;  // a process id
typedef std::list<std::string> ArgList;

/// The executable path is found by: a name holding "/" as it stands, if it
/// exists; otherwise the first PATH directory (a "/" added unless it ends in
/// one) where it exists. Empty when there is none.
std::string resolve(const std::string& path);

/// Starts path with args. The child blocks every signal (the mask survives
/// execve: the program unblocks what it needs), leads a new process group
/// (or, detached, a new session after a second fork), gets its standard
/// handles closed or replaced as lp says (inFd, outFd, errFd replace a slot's
/// descriptor when overrideStd and that slot's override are both true and
/// the slot's mode is kReplace), the environment of lp.envVars alone, and
/// lp's working directory. Returns the child's id (for a detached launch the
/// id of the intermediate process, already reaped).
/// Throws sys::Exception "unable to locate the specified file to excute"
/// (domain 2, code 2) or "::fork() failed" (errno). A child that cannot set
/// up its handles or directory writes the exception to its standard error
/// and exits 127; one whose execve fails aborts.
/// With lp.spawn the child is made by clone(CLONE_VM|CLONE_VFORK) instead,
/// takes the same steps without copying the caller's memory, and this
/// function returns once it has called execve. No atfork handler runs; a
/// failed step of the child is thrown here as the step throws it (and
/// "::execve('<path>') failed"), the child reaped; "::clone() failed" and
/// "::pipe2() failed" (errno) replace "::fork() failed".
handle exec(const std::string& path, const ArgList& args, const LaunchProperty& lp, bool overrideStd,
            bool overrideIn, pod::uintptr inFd, bool overrideOut, pod::uintptr outFd, bool overrideErr,
            pod::uintptr errFd);

/// waitpid: the exit status of a child that exited, -1 for one ended by a
/// signal. Throws sys::Exception "::waitpid() failed" (errno).
int wait(handle pid);
/// waitpid with WNOHANG: false while the child runs; true once it has ended,
/// with code set as wait() sets it (the child is then reaped). Throws
/// sys::Exception "::waitpid() failed" (errno).
bool tryWait(handle pid, int& code);

/// SIGTERM, SIGQUIT and SIGKILL to the process group -pid; results ignored.
void quit(int& pid);
void interrupt(int& pid);
void kill(int& pid);

/// _exit: no atexit handlers, no flushing.
[[noreturn]] void exit(int status);
int selfID();

/// Throws sys::Exception "::getcwd() failed" (errno).
const std::string currentDirectory();
/// Throws sys::Exception "::chdir(\"<path>\") failed" (errno).
void setCurrentDirectory(const std::string& path);

}  // namespace proc

namespace env {
/// getenv: an unset variable gives "".
std::string valueOf(const std::string& name);
/// Sets name and returns its former value. Throws sys::Exception
/// "::setenv() failed" (domain 1, errno).
const std::string setValueOf(const std::string& name, const std::string& value);
/// Every "key=value" of the environment with a non-empty key (later
/// duplicates win).
void fill(std::map<std::string, std::string>& vars);
}  // namespace env

}  // namespace exec
}  // namespace sys
}  // namespace sal
}  // namespace quorel

#endif
