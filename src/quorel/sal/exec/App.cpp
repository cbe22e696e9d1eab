// The run contexts and the process's application.
#include <quorel/sal/exec/App.h>

#include <memory>
#include <typeinfo>

#include <quorel/sal/exec/Exception.h>
#include <quorel/sal/exec/SpinLock.h>
#include <quorel/sal/sys/exec/AApp.inl>
#include <quorel/sal/sys/exec/Daemon.inl>
#include <quorel/sal/sys/runtime.inl>
#include <quorel/sal/sys/exec/sig.inl>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace exec {

ARunContext::ARunContext(const std::string& name, const std::string& description, const util::Version& version,
                         int argc, char** argv, const TaskHandle& startTask, const TaskHandle& stopTask,
                         const TaskHandle& interruptTask)
    : name_(name),
      description_(description),
      version_(version),
      startTask_(startTask),
      stopTask_(stopTask),
      interruptTask_(interruptTask) {
  for (int n = 1; n < argc; ++n) argVector_.push_back(argv[n]);  // the program name is not kept
}

ARunContext::~ARunContext() {}

ARunContext* ARunContext::newAppContext(const std::string& name, const std::string& description,
                                        const util::Version& version, int argc, char** argv,
                                        const TaskHandle& startTask, const TaskHandle& stopTask,
                                        const TaskHandle& interruptTask) {
  return new impl::AppContext(name, description, version, argc, argv, startTask, stopTask, interruptTask);
}

ARunContext* ARunContext::newDaemonContext(const std::string& name, const std::string& description,
                                           const util::Version& version, int argc, char** argv,
                                           const TaskHandle& startTask, const TaskHandle& stopTask,
                                           const TaskHandle& interruptTask) {
  return new impl::DaemonContext(name, description, version, argc, argv, startTask, stopTask, interruptTask);
}

bool ARunContext::isApp() const { return typeid(*this) == typeid(impl::AppContext); }
bool ARunContext::isDaemon() const { return typeid(*this) == typeid(impl::DaemonContext); }

namespace impl {

namespace {
// Runs the start task in a platform application object of type A.
template <class A>
int runIn(const ARunContext& context) {
  try {
    A app(context.startTask(), context.stopTask(), context.interruptTask());
    return app.run();
  } catch (const sys::Exception& e) {
    throw exec::Exception(e);
  }
}
}  // namespace

int AppContext::run() { return runIn<sys::exec::App>(*this); }
int DaemonContext::run() { return runIn<sys::exec::Daemon>(*this); }

}  // namespace impl

namespace {
SpinLock appLock;
std::unique_ptr<App> theApp;
}  // namespace

App& App::init(const Context& context) {
  appLock.lock();
  if (theApp) {
    appLock.unlock();
    QUOREL_THROW(OperationNotSupportedException)("an application instance already exists",
                                                 sal::i::err::domain::kApplication, 0);
  }
  try {
    theApp.reset(new App(context));
  } catch (...) {
    appLock.unlock();
    throw;
  }
  appLock.unlock();
  return *theApp;
}

App& App::self() {
  appLock.lock();
  App* app = theApp.get();
  appLock.unlock();
  if (app == nullptr) {
    QUOREL_THROW(OperationNotSupportedException)("no application instance has been initialized",
                                                 sal::i::err::domain::kApplication, 0);
  }
  return *app;
}

int App::run() { return context_->run(); }

}  // namespace exec
}  // namespace sal
}  // namespace quorel
