// The epoll instance behind io::Selector: registrations by table index and
// generation, wake-ups through an eventfd, waits resumed after signals on a
// monotonic deadline, and the lists by which closing endpoints are forgotten.
#include <quorel/sal/io/impl/Selector.h>

#include <climits>

#include <quorel/sal/Exception.h>
#include <quorel/sal/sys/io/endpoint.h>
#include <quorel/sal/sys/io/epoll.inl>
#include <quorel/sal/sys/time.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace io {
namespace impl {

namespace {

using sal::i::err::domain::kApplication;
namespace epoll = sys::io::epoll;

const pod::uint32 kWakeIndex = 0xffffffffu;  // the event data of the eventfd

unsigned readinessOf(pod::uint32 events) {
  unsigned ready = 0;
  if ((events & (EPOLLIN | EPOLLRDHUP)) != 0) ready |= i::select::kRead;
  if ((events & EPOLLOUT) != 0) ready |= i::select::kWrite;
  if ((events & EPOLLHUP) != 0) ready |= i::select::kHangUp;
  if ((events & EPOLLERR) != 0) ready |= i::select::kError;
  return ready;
}

}  // namespace

void Watchers::link(Watcher& w) noexcept {
  w.watchers = this;
  w.nextWatcher = head_;
  head_ = &w;
}

void Watchers::unlink(Watcher& w) noexcept {
  for (Watcher** at = &head_; *at != nullptr; at = &(*at)->nextWatcher) {
    if (*at == &w) {
      *at = w.nextWatcher;
      w.watchers = nullptr;
      w.nextWatcher = nullptr;
      return;
    }
  }
}

Watcher* Watchers::find(const void* owner) const noexcept {
  for (Watcher* w = head_; w != nullptr; w = w->nextWatcher) {
    if (w->owner == owner) return w;
  }
  return nullptr;
}

void Watchers::closing() noexcept {
  while (head_ != nullptr) {
    Watcher& w = *head_;
    head_ = w.nextWatcher;
    w.watchers = nullptr;
    w.nextWatcher = nullptr;
    w.closing();
  }
}

Registration::Registration(Selector* selector) : Watcher(selector) {}

void Registration::closing() noexcept { static_cast<Selector*>(const_cast<void*>(owner))->forget(*this); }

Selector::Selector() : epfd_(epoll::create()), wakeFd_(-1) {
  try {
    wakeFd_ = epoll::createEvent();
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.u64 = kWakeIndex;
    epoll::control(epfd_, EPOLL_CTL_ADD, wakeFd_, event);
  } catch (...) {
    if (wakeFd_ >= 0) sys::io::endpoint::close(wakeFd_);
    sys::io::endpoint::close(epfd_);
    throw;
  }
}

Selector::~Selector() {
  for (const std::unique_ptr<Registration>& r : table_) {
    if (r->inUse && r->watchers != nullptr) r->watchers->unlink(*r);
  }
  sys::io::endpoint::close(wakeFd_);
  sys::io::endpoint::close(epfd_);
}

epoll_event Selector::eventFor(const Registration& r) {
  epoll_event event = {};
  if ((r.interest & i::select::kRead) != 0) event.events |= EPOLLIN | EPOLLRDHUP;
  if ((r.interest & i::select::kWrite) != 0) event.events |= EPOLLOUT;
  if ((r.interest & i::select::kEdge) != 0) event.events |= EPOLLET;
  event.data.u64 = static_cast<pod::uint64>(r.generation) << 32 | r.index;
  return event;
}

Registration& Selector::allocate() {
  if (free_.empty()) {
    table_.emplace_back(new Registration(this));
    table_.back()->index = static_cast<pod::uint32>(table_.size() - 1);
    free_.reserve(table_.capacity());
    return *table_.back();
  }
  Registration& r = *table_[free_.back()];
  free_.pop_back();
  return r;
}

void Selector::release(Registration& r) noexcept {
  if (r.watchers != nullptr) r.watchers->unlink(r);
  r.inUse = false;
  r.fd.store(-1, std::memory_order_relaxed);
  r.context = nullptr;
  ++r.generation;
  free_.push_back(r.index);  // never allocates: reserved as the table grew
  --size_;
}

void Selector::add(Watchers& watchers, int fd, unsigned interest, void* context) {
  if (fd < 0) QUOREL_THROW(InvalidArgumentException)("the endpoint is closed or has no descriptor", kApplication, 0);
  sweep();
  Registration& r = allocate();
  r.fd.store(fd, std::memory_order_relaxed);
  r.interest = interest;
  r.context = context;
  epoll_event event = eventFor(r);
  try {
    epoll::control(epfd_, EPOLL_CTL_ADD, fd, event);
  } catch (...) {
    r.fd.store(-1, std::memory_order_relaxed);
    ++r.generation;
    free_.push_back(r.index);
    throw;
  }
  r.inUse = true;
  ++size_;
  watchers.link(r);
}

void Selector::change(Watchers& watchers, unsigned interest) {
  Registration* r = static_cast<Registration*>(watchers.find(this));
  if (r == nullptr) {
    QUOREL_THROW(InvalidArgumentException)("the endpoint is not registered with this selector", kApplication, 0);
  }
  if (r->interest == interest) return;
  const unsigned previous = r->interest;
  r->interest = interest;
  epoll_event event = eventFor(*r);
  try {
    epoll::control(epfd_, EPOLL_CTL_MOD, r->fd.load(std::memory_order_relaxed), event);
  } catch (...) {
    r->interest = previous;
    throw;
  }
}

bool Selector::remove(Watchers& watchers) noexcept {
  Registration* r = static_cast<Registration*>(watchers.find(this));
  if (r == nullptr) return false;
  epoll::remove(epfd_, r->fd.load(std::memory_order_relaxed));
  release(*r);
  return true;
}

void Selector::forget(Registration& r) noexcept {
  epoll::remove(epfd_, r.fd.load(std::memory_order_relaxed));
  r.fd.store(-1, std::memory_order_release);
  Registration* head = closed_.load(std::memory_order_relaxed);
  do {
    r.nextClosed = head;
  } while (!closed_.compare_exchange_weak(head, &r, std::memory_order_release, std::memory_order_relaxed));
  if (keepForgotten_) epoll::post(wakeFd_);
}

void Selector::sweep() {
  Registration* r = closed_.exchange(nullptr, std::memory_order_acquire);
  for (; r != nullptr; r = r->nextClosed) {
    if (keepForgotten_) forgotten_.push_back(r->context);
    release(*r);
  }
}

void Selector::takeForgotten(std::vector<void*>& contexts) {
  sweep();
  contexts.clear();
  contexts.swap(forgotten_);
}

int Selector::wait(long long timeout) {
  sweep();
  collected_ = next_ = 0;
  woken_ = false;
  const pod::uint64 start = timeout > 0 ? sys::time::tick::now() : 0;
  long long left = timeout;
  for (;;) {
    const int count = epoll::wait(epfd_, events_, kEvents, left > INT_MAX ? INT_MAX : static_cast<int>(left));
    if (count < 0 || (count == 0 && left > INT_MAX)) {
      // A signal, or a slice of a wait longer than epoll_wait takes: go on
      // with the time left.
      if (timeout > 0) {
        const long long spent = static_cast<long long>((sys::time::tick::now() - start) / 1000000u);
        left = spent >= timeout ? 0 : timeout - spent;
      }
      continue;
    }
    int ready = 0;
    bool woken = false;
    for (int k = 0; k < count; ++k) {
      if (static_cast<pod::uint32>(events_[k].data.u64) == kWakeIndex) {
        epoll::drain(wakeFd_);
        woken = wakeRequested_.exchange(false);
        events_[k].data.u64 = kWakeIndex;  // next() skips it
      } else {
        ++ready;
      }
    }
    collected_ = count;
    woken_ = woken;
    // An endpoint closed in another thread posts too, so that the socket
    // dispatcher fails what was queued on it without waiting for more.
    if (ready > 0 || woken || count == 0 || closed_.load(std::memory_order_relaxed) != nullptr) return ready;
  }
}

bool Selector::next(i::select::Ready& ready) {
  while (next_ < collected_) {
    const epoll_event& event = events_[next_++];
    const pod::uint32 index = static_cast<pod::uint32>(event.data.u64);
    if (index == kWakeIndex || index >= table_.size()) continue;
    const Registration& r = *table_[index];
    // Removed, closed, or removed and reused since the wait collected it.
    if (!r.inUse || r.generation != static_cast<pod::uint32>(event.data.u64 >> 32)) continue;
    const int fd = r.fd.load(std::memory_order_acquire);
    if (fd < 0) continue;
    ready.id = static_cast<unsigned long long>(fd);
    ready.events = readinessOf(event.events);
    ready.context = r.context;
    return true;
  }
  return false;
}

void Selector::wake() noexcept {
  wakeRequested_.store(true);
  epoll::post(wakeFd_);
}

}  // namespace impl
}  // namespace io
}  // namespace sal
}  // namespace quorel
