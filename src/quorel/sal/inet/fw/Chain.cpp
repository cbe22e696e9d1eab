// Chain and Spec: checking the settings and handing the operations to
// impl::fw::Chain.
#include <quorel/sal/inet/fw/Chain.h>

#include <quorel/sal/inet/impl/fw/chain.inl>
#include <quorel/util/Exception.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace inet {
namespace fw {

using sal::i::err::domain::kApplication;

Spec::Spec() : handle_(new impl::fw::Spec) {}

Spec& Spec::set(const op::Programs& option) {
  if (option.family != inet::i::family::kIPv4 && option.family != inet::i::family::kIPv6) {
    QUOREL_THROW(InvalidArgumentException)("unrecognized address family", kApplication, option.family);
  }
  if (option.tool.empty() || option.restore.empty()) {
    QUOREL_THROW(InvalidArgumentException)("a program name must not be empty", kApplication, 0);
  }
  const int f = option.family == inet::i::family::kIPv4 ? 0 : 1;
  handle_->tool[f] = option.tool;
  handle_->restore[f] = option.restore;
  return *this;
}

Spec& Spec::set(const op::LockWait& option) {
  if (option.seconds < 1 || option.seconds > 3600) {
    QUOREL_THROW(InvalidArgumentException)("the lock wait must be from 1 to 3600 seconds", kApplication,
                                           option.seconds);
  }
  handle_->lockWaitSeconds = option.seconds;
  return *this;
}

Spec& Spec::set(const op::Deadline& option) {
  if (option.milliseconds < 1 || option.milliseconds > 3600000) {
    QUOREL_THROW(InvalidArgumentException)("the deadline must be from 1 to 3600000 milliseconds", kApplication,
                                           option.milliseconds);
  }
  handle_->deadlineMilliseconds = option.milliseconds;
  return *this;
}

const char* Chain::name() { return impl::fw::kChain; }

Chain::Chain(const Spec& spec) : handle_(new impl::fw::Chain(spec.key())) {}

void Chain::install() { handle_->install(); }
void Chain::uninstall() { handle_->uninstall(); }
void Chain::add(const DynamicRule& rule) { handle_->add({rule}, false); }
void Chain::add(const std::list<DynamicRule>& rules) { handle_->add(rules, true); }
void Chain::remove(const DynamicRule& rule) { handle_->remove({rule}, false); }
void Chain::remove(const std::list<DynamicRule>& rules) { handle_->remove(rules, true); }
std::list<DynamicRule> Chain::list() const { return handle_.reference().list(); }
void Chain::flush() { handle_->flush(); }

}  // namespace fw
}  // namespace inet
}  // namespace sal
}  // namespace quorel
