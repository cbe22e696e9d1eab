/// \file
/// Starting other programs (Process, LaunchProperty and its options) and the
/// calling process's own directory, environment and CPUs.
///
///   exec::LaunchProperty lp;
///   xio::Pipe pipe{xio::open::Spec(), xio::open::Spec()};
///   lp.set(exec::op::StdOutput(pipe.forWrite())).set(exec::op::EnvVars(exec::Process::envVars()));
///   exec::Process child = exec::Process::create("ls", {"-l", "/"}, lp);
///   ... read pipe.forRead() ...
///   int code = child.wait();  // -1 when a signal ended it
#ifndef QUOREL_SAL_EXEC_PROCESS_H
#define QUOREL_SAL_EXEC_PROCESS_H

#include <list>
#include <map>
#include <string>

#include <quorel/sal/exec/Mutex.h>
#include <quorel/sal/sys/exec/proc.h>
#include <quorel/sal/xio/Endpoint.h>
#include <quorel/util/AHandleTo.h>

namespace quorel {
namespace sal {
namespace exec {

namespace op {

/// Start detached: a new session, not a child the caller can wait for.
struct Detach {
  explicit Detach(bool enabled = true) : on(enabled) {}
  bool on;
};
/// Create the child without copying the caller's address space, so that a
/// launch costs the same from a small process as from one of gigabytes (a
/// fork copies the caller's page tables). The child is made by clone with
/// CLONE_VM|CLONE_VFORK on a stack of its own: it runs in the caller's memory
/// while the calling thread waits, with every signal blocked and every
/// caught signal's handler reset to the default, and takes the same steps as
/// a forked child up to execve (a detached launch makes its intermediate
/// process the same way). What differs from the default fork:
///   - no pthread_atfork handler runs, in the caller or in the child;
///   - a step of the child that fails is thrown by Process::create, in the
///     caller, with the class, message, domain and code that the step throws
///     in a forked child ("::dup2() failed", "::fcntl() failed",
///     "::chdir(\"<dir>\") failed"), where a forked child reports it on its
///     standard error and exits with status 127; a failed execve throws
///     "::execve('<path>') failed" (errno), where a forked child aborts;
///     the child, which has exited then, is reaped first;
///   - the creation itself fails with "::clone() failed" (errno) instead of
///     "::fork() failed", and "::pipe2() failed" (errno) if the pipe that
///     carries the child's failure cannot be made.
struct Spawn {
  explicit Spawn(bool enabled = true) : on(enabled) {}
  bool on;
};
/// Recorded only.
struct SameGroup {};
/// Recorded only (no windows on this platform).
struct OwnWindow {
  explicit OwnWindow(const std::string& text = std::string(), int number = 0) : title(text), value(number) {}
  std::string title;
  int value;
};
/// A standard handle: given to close() as it is, to set() with the endpoint
/// that replaces it (a null endpoint replaces it with nothing valid).
struct StdInput {
  StdInput() = default;
  explicit StdInput(const xio::Endpoint& with) : endpoint(with) {}
  xio::Endpoint endpoint;
};
/// Standard output, as StdInput.
struct StdOutput {
  StdOutput() = default;
  explicit StdOutput(const xio::Endpoint& with) : endpoint(with) {}
  xio::Endpoint endpoint;
};
/// Standard error, as StdInput.
struct StdError {
  StdError() = default;
  explicit StdError(const xio::Endpoint& with) : endpoint(with) {}
  xio::Endpoint endpoint;
};
/// The child's working directory (and a word kept with it, unused).
struct WorkingDirectory {
  explicit WorkingDirectory(const std::string& directory, int number = 0) : path(directory), word(number) {}
  std::string path;
  int word;
};
/// Variables of the child's environment, which holds nothing else.
struct EnvVars {
  explicit EnvVars(const std::map<std::string, std::string>& variables) : vars(variables) {}
  std::map<std::string, std::string> vars;
};

}  // namespace op

/// How to start a program; copies share one record. Standard handles are
/// inherited unless closed or replaced; the environment is empty unless
/// EnvVars fill it.
class LaunchProperty {
 public:
  LaunchProperty();

  LaunchProperty& hint(const op::Detach& option);
  LaunchProperty& hint(const op::Spawn& option);
  LaunchProperty& hint(const op::SameGroup& option);
  LaunchProperty& hint(const op::OwnWindow& option);
  LaunchProperty& close(const op::StdInput& option);
  LaunchProperty& close(const op::StdOutput& option);
  LaunchProperty& close(const op::StdError& option);
  LaunchProperty& set(const op::StdInput& option);
  LaunchProperty& set(const op::StdOutput& option);
  LaunchProperty& set(const op::StdError& option);
  LaunchProperty& set(const op::WorkingDirectory& option);
  /// Adds the variables; names already set keep their values.
  LaunchProperty& set(const op::EnvVars& option);

  const sys::exec::LaunchProperty& key() const { return handle_.reference(); }

 private:
  LaunchProperty& closeSlot(int slot);
  LaunchProperty& replaceSlot(int slot, const xio::Endpoint& endpoint);

  util::AHandleTo<sys::exec::LaunchProperty> handle_;
};

namespace i {
/// A started process.
class Process {
 public:
  virtual ~Process();
  virtual int id() const = 0;
  virtual const std::string& name() const = 0;
  virtual int wait() = 0;
  virtual void interrupt() = 0;
  virtual void quit() = 0;
  virtual void die() = 0;
};
}  // namespace i

namespace impl {
/// The state behind exec::Process: the remembered exit code, under its mutex, and the launch record.
class Process {
 public:
  Process(const std::string& path, int id) : exitCode(-1), waited(false), name(path), word1(0), word2(0), pid(id) {}

  exec::Mutex mutex;
  int exitCode;
  bool waited;
  std::string name;
  int word1;
  int word2;
  int pid;
};
}  // namespace impl

/// A started process; copies share it. Failures throw the platform's
/// sys::Exception: "unable to locate the specified file to excute" (a
/// name not found, code 2), "::fork() failed", "::waitpid() failed",
/// "::getcwd() failed", "::chdir(\"<dir>\") failed", "::setenv() failed".
class Process : public i::Process {
 public:
  typedef sys::exec::proc::ArgList ArgList;

  Process() = default;
  /// Finds path (a name without "/" on PATH), starts it with args and lp.
  /// The program starts with every signal blocked (the mask survives
  /// execve: it unblocks what it needs); a signal that reaches the child
  /// while it starts stays pending for the program and never runs this
  /// process's handlers there. With op::Spawn the child is made without
  /// fork and what fails in it is thrown here (see op::Spawn).
  static Process create(const std::string& path, const ArgList& args, const LaunchProperty& lp);
  /// The same, replacing a standard handle whose lp slot is set (mode
  /// replace) with the given descriptor when its flag is true.
  static Process create(const std::string& path, const ArgList& args, const LaunchProperty& lp, bool overrideIn,
                        unsigned int inFd, bool overrideOut, unsigned int outFd, bool overrideErr, unsigned int errFd);

  int id() const override { return handle_.reference().pid; }
  const std::string& name() const override { return handle_.reference().name; }
  /// The exit status, or -1 when a signal ended it. Waits once; later calls
  /// (from any thread) return the same code.
  int wait() override;
  /// Does not block: false while the process runs; true once it has ended,
  /// after which wait() returns its code at once. Waits for the object's
  /// mutex while another thread is in wait(). Throws sys::Exception
  /// "::waitpid() failed" (ECHILD for a detached launch).
  bool tryWait();
  /// SIGQUIT, SIGTERM and SIGKILL to the child's process group.
  void interrupt() override;
  void quit() override;
  void die() override;

  static int selfID();
  [[noreturn]] static void exit(int status);
  static void bindTo(const std::list<int>& cpus);
  static const std::string currentDirectory();
  static void setCurrentDirectory(const std::string& path);
  static std::string envValueOf(const std::string& name);
  /// Returns the former value.
  static const std::string setEnvValueOf(const std::string& name, const std::string& value);
  static void envVars(std::map<std::string, std::string>& vars);
  static std::map<std::string, std::string> envVars();

 private:
  explicit Process(impl::Process* owned) : handle_(owned) {}

  util::AHandleTo<impl::Process> handle_;
};

}  // namespace exec
}  // namespace sal
}  // namespace quorel

#endif
