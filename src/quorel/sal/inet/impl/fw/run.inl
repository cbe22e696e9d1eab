// Running the firewall programs: exec::Process with pipes for the standard
// handles, io::Selector over the outputs up to the deadline, and
// fcntl(F_SETPIPE_SZ) for input larger than a pipe holds.
#include <errno.h>
#include <fcntl.h>

#include <list>
#include <map>
#include <string>

#include <quorel/sal/exec/Process.h>
#include <quorel/sal/inet/Exception.h>
#include <quorel/sal/io/Selector.h>
#include <quorel/sal/time.h>
#include <quorel/sal/xio/Endpoint.h>
#include <quorel/sal/xio/Exception.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace inet {
namespace impl {
namespace fw {

/// One run of a program: its name (found on PATH unless it holds "/") and
/// arguments, what goes to its standard input, the milliseconds it may take,
/// and a note appended to the message of a failure.
struct Run {
  std::string program;
  std::list<std::string> args;
  std::string input;
  int deadline;
  std::string note;
};

/// How a program ended (its exit status, -1 when a signal ended it) and what
/// it printed.
struct Outcome {
  int status;
  std::string output;
  std::string errors;
};

namespace pipe {

/// Makes the pipe whose end is id hold at least bytes. Throws inet::Exception
/// "::fcntl(F_SETPIPE_SZ) failed" (errno; EPERM past the system's limit for
/// a process without the privilege to exceed it).
inline void reserve(xio::i::id::type id, size_t bytes) {
  if (::fcntl(static_cast<int>(id), F_SETPIPE_SZ, static_cast<int>(bytes)) == -1) {
    const int error = errno;
    QUOREL_THROW(inet::Exception)("::fcntl(F_SETPIPE_SZ) failed", sal::i::err::domain::kSystemCall, error);
  }
}

}  // namespace pipe

namespace {

using sal::i::err::domain::kApplication;

/// The program and its arguments as the messages show them.
std::string commandLineOf(const Run& run) {
  std::string line = run.program;
  for (const std::string& arg : run.args) line += " " + arg;
  return line;
}

/// Fills the write end of a pipe nobody reads yet with all of input. A pipe
/// that is full (the end is non-blocking) is made large enough, once.
void fill(xio::Endpoint& end, const std::string& input) {
  xio::Channel channel(end);
  bool grown = false;
  for (size_t done = 0; done < input.size();) {
    try {
      done += static_cast<size_t>(channel.write(input.data() + done, static_cast<int>(input.size() - done)));
    } catch (const xio::WriteException& e) {
      if (e.code() != EAGAIN || grown) throw;
      pipe::reserve(end.id(), input.size());
      grown = true;
    }
  }
}

/// Kills and reaps a child that has not ended when the run is left (at the
/// deadline, or by a failure while it runs), so that no run leaves a
/// process behind. A child already reaped is never signalled: its process
/// group's number may belong to another by then.
struct Reaper {
  exec::Process& child;
  ~Reaper() {
    try {
      if (!child.tryWait()) {
        child.die();
        child.wait();
      }
    } catch (const quorel::Exception&) {
      // waitpid failed: there is no child of this id to end.
    }
  }
};

/// One of the program's outputs, read until its end.
struct Stream {
  xio::Endpoint endpoint;
  std::string text;
};

}  // namespace

/// Starts the program and collects its outputs until it has ended. Its
/// standard input holds run.input (written before it starts, so no write
/// can meet a reader that has gone) and ends there. A program that is still
/// running at the deadline, or when a failure leaves the run, is killed
/// with its process group and reaped.
/// Throws inet::Exception "program '<name>' not found" (code 0) or "'<command
/// line>' ran past its deadline of <n> ms and was killed" (code -1), each
/// followed by run.note; and what exec::Process::create throws (a program
/// that cannot be started among it).
inline Outcome launch(const Run& run) {
  const std::string path = sys::exec::proc::resolve(run.program);
  if (path.empty()) QUOREL_THROW(inet::Exception)("program '" + run.program + "' not found" + run.note, kApplication, 0);

  const pod::uint64 started = time::tick::now();
  const xio::open::Spec plain;
  xio::open::Spec nonblocking;
  nonblocking.set<xio::i::open::nonblock::Enabled>();
  xio::Pipe in{plain, nonblocking}, out{plain, plain}, err{plain, plain};
  fill(in.forWrite(), run.input);
  in.forWrite().close();

  // The environment is PATH alone, which a program may need to find its
  // helpers; the messages come in the programs' own language whatever the
  // caller's locale.
  std::map<std::string, std::string> environment;
  const std::string searchPath = exec::Process::envValueOf("PATH");
  if (!searchPath.empty()) environment["PATH"] = searchPath;
  // Spawned: a launch costs the same whatever the caller's size, and a
  // program that cannot be started is thrown here.
  exec::LaunchProperty lp;
  lp.hint(exec::op::Spawn())
      .set(exec::op::StdInput(in.forRead()))
      .set(exec::op::StdOutput(out.forWrite()))
      .set(exec::op::StdError(err.forWrite()))
      .set(exec::op::EnvVars(environment));
  exec::Process child = exec::Process::create(path, run.args, lp);
  Reaper reaper{child};
  in.forRead().close();  // the child holds the only copies now
  out.forWrite().close();
  err.forWrite().close();

  const pod::uint64 deadline = static_cast<pod::uint64>(run.deadline);
  auto left = [started, deadline] {
    const pod::uint64 elapsed = time::tick::as::milli(started, time::tick::now());
    return elapsed < deadline ? deadline - elapsed : 0;
  };
  Stream streams[2] = {{out.forRead(), std::string()}, {err.forRead(), std::string()}};
  io::Selector selector;
  for (Stream& stream : streams) selector.add(stream.endpoint, io::i::select::kRead, &stream);
  int open = 2;
  char buffer[4096];
  for (pod::uint64 wait; open > 0 && (wait = left()) > 0;) {
    selector.waitFor(wait);
    io::Selector::Ready ready;
    while (selector.next(ready)) {
      Stream& stream = *static_cast<Stream*>(ready.context);
      const int count = xio::Channel(stream.endpoint).read(buffer, static_cast<int>(sizeof buffer));
      if (count > 0) {
        stream.text.append(buffer, static_cast<size_t>(count));
      } else {
        selector.remove(stream.endpoint);
        --open;
      }
    }
  }
  // The outputs close as the program exits, mostly just before it can be
  // reaped; when it cannot be yet (about one run of iptables in six), it is
  // looked at every millisecond (the selector, watching nothing now, serves
  // as the clock) until the deadline.
  bool ended = false;
  while (open == 0 && !(ended = child.tryWait()) && left() > 0) selector.waitFor(1);
  if (!ended) {
    QUOREL_THROW(inet::Exception)("'" + commandLineOf(run) + "' ran past its deadline of " +
                                      std::to_string(run.deadline) + " ms and was killed" + run.note,
                                  kApplication, -1);
  }
  return Outcome{child.wait(), streams[0].text, streams[1].text};
}

/// launch(), and a program that did not exit with status 0 throws
/// inet::Exception "'<command line>' exited with status <n>: <standard
/// error>" (or "... was ended by a signal: ..."), code the status, followed
/// by run.note; the standard error's lines are joined by "; ", without a
/// final full stop. The program's standard output.
inline std::string outputOf(const Run& run) {
  Outcome outcome = launch(run);
  if (outcome.status == 0) return outcome.output;
  std::string errors;
  for (char c : outcome.errors) {
    if (c == '\n') {
      errors += "; ";
    } else {
      errors += c;
    }
  }
  // The message ends as the library's do, without a full stop.
  while (!errors.empty() && (errors.back() == ' ' || errors.back() == ';' || errors.back() == '.')) errors.pop_back();
  const std::string how =
      outcome.status < 0 ? "was ended by a signal" : "exited with status " + std::to_string(outcome.status);
  QUOREL_THROW(inet::Exception)("'" + commandLineOf(run) + "' " + how + (errors.empty() ? "" : ": " + errors) +
                                    run.note,
                                kApplication, outcome.status);
}

}  // namespace fw
}  // namespace impl
}  // namespace inet
}  // namespace sal
}  // namespace quorel
