/// \file
/// The epoll instance behind io::Selector, its registrations, and the list by
/// which an endpoint tells the selectors holding it that it closes.
#ifndef QUOREL_SAL_IO_IMPL_SELECTOR_H
#define QUOREL_SAL_IO_IMPL_SELECTOR_H

#include <sys/epoll.h>

#include <atomic>
#include <memory>
#include <vector>

#include <quorel/sal/io/i/select.h>
#include <quorel/util/pod.h>

namespace quorel {
namespace sal {
namespace io {
namespace impl {

class Selector;
class Watchers;

/// Something told before an endpoint's descriptor closes: a selector's
/// registration, or an endpoint that shares a socket and must stop using its
/// number. owner says whose it is (a selector finds its own by it).
class Watcher {
 public:
  explicit Watcher(const void* whose) : owner(whose) {}
  Watcher(const Watcher&) = delete;
  Watcher& operator=(const Watcher&) = delete;
  /// Runs in the thread that closes, before the descriptor closes; the watcher
  /// is already off the list.
  virtual void closing() noexcept = 0;

  const void* owner;
  Watchers* watchers = nullptr;  // the list it is on; null once off
  Watcher* nextWatcher = nullptr;

 protected:
  ~Watcher() = default;
};

/// What is told before one endpoint's descriptor closes. The endpoint calls
/// closing() before its descriptor closes (and when it goes), so that every
/// selector takes the descriptor out of its epoll set while the number still
/// means this endpoint: a closed endpoint is never reported, and a new one
/// that is given the same number is not mistaken for it. An empty list is one
/// null pointer; nothing is kept for the process as a whole.
class Watchers {
 public:
  Watchers() = default;
  Watchers(const Watchers&) = delete;
  Watchers& operator=(const Watchers&) = delete;
  ~Watchers() { closing(); }

  void link(Watcher& w) noexcept;
  void unlink(Watcher& w) noexcept;
  Watcher* find(const void* owner) const noexcept;
  /// Tells every watcher, emptying the list.
  void closing() noexcept;

 private:
  Watcher* head_ = nullptr;
};

/// One endpoint held by one selector. It lives in the selector's table.
class Registration final : public Watcher {
 public:
  explicit Registration(Selector* selector);
  void closing() noexcept override;

  Registration* nextClosed = nullptr;  // the selector's list of forgotten ones
  std::atomic<int> fd{-1};             // -1 once forgotten
  unsigned interest = 0;
  void* context = nullptr;
  pod::uint32 index = 0;       // in the selector's table
  pod::uint32 generation = 0;  // changes each time the entry is reused
  bool inUse = false;
};

/// An epoll instance with an eventfd for wake-ups and a table of
/// registrations. Event data carries a registration's index and generation,
/// never a descriptor number, so a collected event of a forgotten or reused
/// entry is recognised and dropped.
class Selector {
 public:
  static const int kEvents = 256;  // collected per epoll_wait at most

  Selector();
  ~Selector();
  Selector(const Selector&) = delete;
  Selector& operator=(const Selector&) = delete;

  /// Registers fd of the endpoint whose list is watchers. Throws
  /// InvalidArgumentException "the endpoint is closed or has no descriptor" for fd -1 and the
  /// epoll_ctl failure.
  void add(Watchers& watchers, int fd, unsigned interest, void* context);
  /// Throws InvalidArgumentException "the endpoint is not registered with
  /// this selector".
  void change(Watchers& watchers, unsigned interest);
  bool remove(Watchers& watchers) noexcept;
  int size() const { return size_; }

  /// timeout: milliseconds, -1 for no limit. The readinesses collected.
  int wait(long long timeout);
  bool next(i::select::Ready& ready);
  void wake() noexcept;
  /// Whether the last wait was ended by wake().
  bool woken() const { return woken_; }

  /// Called by Watchers::closing, maybe from another thread.
  void forget(Registration& r) noexcept;

  /// From now on, keeps the contexts of the registrations forgotten because
  /// their endpoint closed, until taken (for the socket dispatcher, which
  /// fails the requests still queued on them).
  void keepForgotten() { keepForgotten_ = true; }
  /// Moves the contexts kept since the last call into contexts (emptied first).
  void takeForgotten(std::vector<void*>& contexts);

 private:
  Registration& allocate();
  void release(Registration& r) noexcept;
  /// Releases the registrations that closing endpoints left.
  void sweep();
  static epoll_event eventFor(const Registration& r);

  int epfd_;
  int wakeFd_;
  std::vector<std::unique_ptr<Registration>> table_;
  std::vector<pod::uint32> free_;
  int size_ = 0;
  std::atomic<Registration*> closed_{nullptr};
  std::vector<void*> forgotten_;
  bool keepForgotten_ = false;
  epoll_event events_[kEvents];
  int collected_ = 0;
  bool woken_ = false;
  std::atomic<bool> wakeRequested_{false};
  int next_ = 0;
};

}  // namespace impl
}  // namespace io
}  // namespace sal
}  // namespace quorel

#endif
