// LaunchProperty, Process and the calling process's helpers.
#include <quorel/sal/exec/Process.h>

#include <typeinfo>

#include <quorel/util/ALockLatchFor.h>
#include <quorel/sal/sys/exec/proc.inl>
#include <quorel/sal/sys/exec/thr.h>

namespace quorel {
namespace sal {
namespace exec {

typedef sys::exec::LaunchProperty Record;

LaunchProperty::LaunchProperty() : handle_(new Record) {}

LaunchProperty& LaunchProperty::hint(const op::Detach& option) {
  handle_->detach = option.on ? 1 : 0;
  return *this;
}
LaunchProperty& LaunchProperty::hint(const op::Spawn& option) {
  handle_->spawn = option.on ? 1 : 0;
  return *this;
}
LaunchProperty& LaunchProperty::hint(const op::SameGroup&) {
  handle_->sameGroup = 1;
  return *this;
}
LaunchProperty& LaunchProperty::hint(const op::OwnWindow& option) {
  handle_->ownWindow = 1;
  handle_->ownWindowText = option.title;
  handle_->ownWindowValue = option.value;
  return *this;
}

LaunchProperty& LaunchProperty::closeSlot(int slot) {
  handle_->stdHandles[slot].mode = Record::kClose;
  handle_->stdHandles[slot].descriptor = -1;
  return *this;
}
LaunchProperty& LaunchProperty::replaceSlot(int slot, const xio::Endpoint& endpoint) {
  handle_->stdHandles[slot].mode = Record::kReplace;
  // A null endpoint has no descriptor to give.
  const xio::impl::AOpenSpec& spec = endpoint.key();
  if (typeid(spec) != typeid(xio::impl::NULLOpenSpec)) {
    handle_->stdHandles[slot].descriptor = static_cast<pod::int32>(endpoint.id());
  }
  return *this;
}
LaunchProperty& LaunchProperty::close(const op::StdInput&) { return closeSlot(0); }
LaunchProperty& LaunchProperty::close(const op::StdOutput&) { return closeSlot(1); }
LaunchProperty& LaunchProperty::close(const op::StdError&) { return closeSlot(2); }
LaunchProperty& LaunchProperty::set(const op::StdInput& option) { return replaceSlot(0, option.endpoint); }
LaunchProperty& LaunchProperty::set(const op::StdOutput& option) { return replaceSlot(1, option.endpoint); }
LaunchProperty& LaunchProperty::set(const op::StdError& option) { return replaceSlot(2, option.endpoint); }

LaunchProperty& LaunchProperty::set(const op::WorkingDirectory& option) {
  handle_->workingDirectory = option.path;
  handle_->workingDirectoryWord = option.word;
  return *this;
}

LaunchProperty& LaunchProperty::set(const op::EnvVars& option) {
  handle_->envVars.insert(option.vars.begin(), option.vars.end());
  return *this;
}

i::Process::~Process() {}

Process Process::create(const std::string& path, const ArgList& args, const LaunchProperty& lp) {
  const int pid = sys::exec::proc::exec(path, args, lp.key(), false, false, 0, false, 0, false, 0);
  return Process(new impl::Process(path, pid));
}

Process Process::create(const std::string& path, const ArgList& args, const LaunchProperty& lp, bool overrideIn,
                        unsigned int inFd, bool overrideOut, unsigned int outFd, bool overrideErr,
                        unsigned int errFd) {
  const int pid =
      sys::exec::proc::exec(path, args, lp.key(), true, overrideIn, inFd, overrideOut, outFd, overrideErr, errFd);
  return Process(new impl::Process(path, pid));
}

int Process::wait() {
  impl::Process& p = *handle_.operator->();
  util::ALockLatchFor<Mutex> latch(p.mutex);
  if (!p.waited) {
    p.exitCode = sys::exec::proc::wait(p.pid);
    p.waited = true;
  }
  return p.exitCode;
}

bool Process::tryWait() {
  impl::Process& p = *handle_.operator->();
  util::ALockLatchFor<Mutex> latch(p.mutex);
  if (!p.waited) p.waited = sys::exec::proc::tryWait(p.pid, p.exitCode);
  return p.waited;
}

void Process::interrupt() { sys::exec::proc::interrupt(handle_->pid); }
void Process::quit() { sys::exec::proc::quit(handle_->pid); }
void Process::die() { sys::exec::proc::kill(handle_->pid); }

int Process::selfID() { return sys::exec::proc::selfID(); }
void Process::exit(int status) { sys::exec::proc::exit(status); }
void Process::bindTo(const std::list<int>& cpus) { sys::exec::thr::bindProcessTo(cpus); }
const std::string Process::currentDirectory() { return sys::exec::proc::currentDirectory(); }
void Process::setCurrentDirectory(const std::string& path) { sys::exec::proc::setCurrentDirectory(path); }
std::string Process::envValueOf(const std::string& name) { return sys::exec::env::valueOf(name); }
const std::string Process::setEnvValueOf(const std::string& name, const std::string& value) {
  return sys::exec::env::setValueOf(name, value);
}
void Process::envVars(std::map<std::string, std::string>& vars) { sys::exec::env::fill(vars); }
std::map<std::string, std::string> Process::envVars() {
  std::map<std::string, std::string> vars;
  sys::exec::env::fill(vars);
  return vars;
}

}  // namespace exec
}  // namespace sal
}  // namespace quorel
