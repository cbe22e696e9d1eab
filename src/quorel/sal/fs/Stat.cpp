// Stat, forwarding to impl::Stat.
#include <quorel/sal/fs/Stat.h>

#include <quorel/sal/fs/impl/Stat.inl>

namespace quorel {
namespace sal {
namespace fs {

namespace impl {

Stat::Stat(const std::string& path) : name(path) {}

void Stat::clear() { *this = Stat(name); }

void Stat::resetFor(const std::string& path) {
  name = path;
  clear();
  query();
}

}  // namespace impl

Stat::Stat(const std::string& name) : handle_(new impl::Stat(name)) { handle_->query(); }
void Stat::resetFor(const std::string& name) { handle_->resetFor(name); }
void Stat::query() { handle_->query(); }
bool Stat::is(const std::type_info& tag) const { return handle_->is(tag); }

}  // namespace fs
}  // namespace sal
}  // namespace quorel
