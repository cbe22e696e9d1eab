// The socket dispatcher: requests on socket endpoints queued per socket and
// performed, without blocking, as a selector finds each socket ready.
#include <errno.h>
#include <sys/socket.h>

#include <deque>
#include <unordered_map>
#include <vector>

#include <quorel/sal/io/impl/Selector.h>
#include <quorel/sal/sys/io/BSDSocket.h>
#include <quorel/sal/xio/Dispatcher.h>
#include <quorel/util/Throw.h>

namespace quorel {
namespace sal {
namespace xio {
namespace impl {

template <class R>
class ASelectDispatcherOf {
  typedef ADispatcherUsing<ASelectDispatcherOf> Using;

 public:
  ASelectDispatcherOf() {
    spec_.words[i::mux::kType] = i::mux::type::Select::value;
    spec_.words[i::mux::kTCP] = i::mux::kEnabled;
    spec_.words[i::mux::kUDP] = i::mux::kEnabled;
    selector_.keepForgotten();
  }
  ASelectDispatcherOf(const ASelectDispatcherOf&) = delete;
  ASelectDispatcherOf& operator=(const ASelectDispatcherOf&) = delete;

  const mux::Spec& muxSpec() const { return spec_; }
  // No signal reaches into the wait: interrupt() goes through the selector's
  // eventfd, so there is no mask to set.
  void lock() {}
  void unlock() {}
  int pending() const { return pending_; }
  void interrupt() { selector_.wake(); }

  bool queue(R& request) {
    if (request.noTransfer()) {
      held_.push_back(&request);
    } else {
      // Keyed by what selectors watch: two endpoints over one socket share
      // its channel.
      Channel& channel = channels_[&request.endpoint->watchersOf()];
      if (channel.record == nullptr) {
        channel.record = request.endpoint;
        channel.endpoint = request.owner->endpoint;
      }
      if (request.reading()) {
        channel.reads.push_back(&request);
      } else {
        channel.writes.push_back(&request);
        // A socket can nearly always take a write at once: it is tried before
        // the next wait rather than after a round through the selector.
        fresh_.push_back(&channel);
      }
      touch(channel);
    }
    ++pending_;
    return true;
  }

  // Performs requests as their sockets become ready until none is queued or
  // interrupt() is called.
  void wait() {
    Waiting scope(*this);
    while (pending_ > 0) {
      if (!round(-1, true)) break;
    }
  }

  // One round: what can be done now, then one wait of at most the time given.
  void waitFor(unsigned long long milliseconds) {
    Waiting scope(*this);
    const unsigned long long kLongest = 0x7fffffffffffffffULL;
    round(static_cast<long long>(milliseconds < kLongest ? milliseconds : kLongest), false);
  }

  // Requests are performed by the rounds; their contexts complete here.
  void prepare(R& request) const {
    request.read.perform = nullptr;
    request.read.complete = completeRead;
    request.write.perform = nullptr;
    request.write.complete = completeWrite;
  }

 private:
  // The requests queued on one socket endpoint and how the selector watches
  // it (registered: the interest it holds; the socket is not registered while
  // nothing is queued on it).
  struct Channel {
    impl::Endpoint* record = nullptr;
    xio::Endpoint endpoint;  // kept open while the channel is
    std::deque<R*> reads;
    std::deque<R*> writes;
    int sent = 0;  // of the first write
    bool registered = false;
    unsigned interest = 0;
    bool dirty = false;  // the interest may have to change before the next wait
  };

  class Waiting {
   public:
    explicit Waiting(ASelectDispatcherOf& d) : d_(d) {
      if (d_.waiting_) {
        QUOREL_THROW(xio::Exception)("the socket dispatcher is already waiting", sal::i::err::domain::kApplication, 0);
      }
      d_.waiting_ = true;
    }
    ~Waiting() { d_.waiting_ = false; }

   private:
    ASelectDispatcherOf& d_;
  };

  static void completeRead(R& r, int result) { complete(r, i::op::Read(), result); }
  static void completeWrite(R& r, int result) { complete(r, i::op::Write(), result); }

  // Counts the request done before its handler runs, so that the count holds
  // whatever the handler does (a handler that throws leaves the rest queued).
  template <class Op>
  static void complete(R& r, Op op, int result) {
    --Using::of(r).pending_;
    if (result >= 0 || result == kHeldResult) {
      r.handler().on(op, result, r.origin());
    } else if (r.reading()) {
      ReadException e = QUOREL_EXCEPTION(ReadException)("::recv() failed", sal::i::err::domain::kSystemCall, -result);
      r.handler().on(e, r.origin());
    } else {
      WriteException e = QUOREL_EXCEPTION(WriteException)("::send() failed", sal::i::err::domain::kSystemCall, -result);
      r.handler().on(e, r.origin());
    }
  }

  void touch(Channel& channel) {
    if (channel.dirty) return;
    channel.dirty = true;
    dirty_.push_back(&channel);
  }

  // The held requests and the fresh writes, the watch list brought up to
  // date, one wait, the requests of the sockets found ready, and the writes
  // their handlers queued (an echo's reply goes out in the round that read
  // its request). Waits without completing anything first only when block
  // (wait()); waitFor() returns what is ready now if anything completed.
  // False when interrupt() ended the wait, or it timed out with nothing done.
  bool round(long long timeout, bool block) {
    bool done = dispatchHeld();
    done = tryFreshWrites() || done;
    done = failForgotten() || done;
    if (pending_ == 0) return true;
    updateInterests();
    const int ready = selector_.wait(done && !block ? 0 : timeout);
    done = failForgotten() || done;
    io::i::select::Ready event;
    while (selector_.next(event)) perform(*static_cast<Channel*>(event.context), event.events);
    done = tryFreshWrites() || done;
    if (selector_.woken()) return false;
    return ready > 0 || done;
  }

  bool dispatchHeld() {
    if (held_.empty()) return false;
    heldRound_.clear();  // what a throwing handler left is dropped, as before
    heldRound_.swap(held_);
    for (R* r : heldRound_) r->current->complete(*r, kHeldResult);
    return true;
  }

  bool tryFreshWrites() {
    if (fresh_.empty()) return false;
    round_.clear();
    round_.swap(fresh_);
    bool done = false;
    for (Channel* channel : round_) done = write(*channel) || done;
    return done;
  }

  // Readable, hung up or failed: the first read; writable (or failed): the
  // writes. Each call says why through its own result, so the readiness only
  // says which to try.
  void perform(Channel& channel, unsigned events) {
    using namespace io::i::select;
    if ((events & (kRead | kHangUp | kError)) != 0) read(channel);
    if ((events & (kWrite | kHangUp | kError)) != 0) write(channel);
  }

  // One recv() for the first read; another for the next read queued only
  // while each fills its buffer (more may be waiting).
  bool read(Channel& channel) {
    bool done = false;
    while (!channel.reads.empty()) {
      R& r = *channel.reads.front();
      const int fd = channel.record->descriptor();
      const sys::io::socket::size got =
          fd < 0 ? -1 : sys::io::socket::receiveSome(fd, r.buffer(), static_cast<size_t>(r.count()), MSG_DONTWAIT);
      const int error = fd < 0 ? EBADF : errno;
      if (got < 0 && (error == EAGAIN || error == EINTR)) break;
      channel.reads.pop_front();
      touch(channel);
      done = true;
      r.current->complete(r, got < 0 ? -error : static_cast<int>(got));
      if (got < r.count()) break;
    }
    return done;
  }

  // Sends the queued writes in order until each is whole; a partial send
  // waits for room.
  bool write(Channel& channel) {
    bool done = false;
    while (!channel.writes.empty()) {
      R& r = *channel.writes.front();
      const int fd = channel.record->descriptor();
      const char* from = static_cast<const char*>(r.buffer()) + channel.sent;
      const sys::io::socket::size sent =
          fd < 0 ? -1
                 : sys::io::socket::sendSome(fd, from, static_cast<size_t>(r.count() - channel.sent),
                                             MSG_DONTWAIT | MSG_NOSIGNAL);
      const int error = fd < 0 ? EBADF : errno;
      if (sent < 0 && (error == EAGAIN || error == EINTR)) break;
      if (sent >= 0) {
        channel.sent += static_cast<int>(sent);
        if (channel.sent < r.count()) break;
      }
      channel.writes.pop_front();
      channel.sent = 0;
      touch(channel);
      done = true;
      r.current->complete(r, sent < 0 ? -error : r.count());
    }
    if (!channel.writes.empty()) touch(channel);
    return done;
  }

  // Brings the selector's interest in each changed socket up to date: read
  // while a read is queued, write while a write waits for room. A socket with
  // nothing queued leaves the selector, and its channel goes.
  void updateInterests() {
    round_.clear();
    round_.swap(dirty_);
    for (Channel* channel : round_) {
      if (!channel->dirty) continue;
      channel->dirty = false;
      const unsigned interest = (channel->reads.empty() ? 0u : unsigned(io::i::select::kRead)) |
                                (channel->writes.empty() ? 0u : unsigned(io::i::select::kWrite));
      io::impl::Watchers& watchers = channel->record->watchersOf();
      // Closed since it was registered: failForgotten() fails its requests
      // and clears the way.
      if (channel->registered && watchers.find(&selector_) == nullptr) continue;
      if (interest == 0) {
        if (channel->registered) selector_.remove(watchers);
        channels_.erase(&watchers);
        continue;
      }
      if (!channel->registered) {
        const int fd = channel->record->descriptor();
        if (fd < 0) {
          failAll(*channel, EBADF);
          continue;
        }
        selector_.add(watchers, fd, interest, channel);
        channel->registered = true;
      } else if (interest != channel->interest) {
        selector_.change(watchers, interest);
      }
      channel->interest = interest;
    }
  }

  // Sockets closed while requests were queued on them: those requests fail
  // with EBADF.
  bool failForgotten() {
    selector_.takeForgotten(forgotten_);
    for (void* context : forgotten_) {
      Channel& channel = *static_cast<Channel*>(context);
      channel.registered = false;
      failAll(channel, EBADF);
    }
    return !forgotten_.empty();
  }

  void failAll(Channel& channel, int error) {
    while (!channel.reads.empty() || !channel.writes.empty()) {
      std::deque<R*>& queue = channel.reads.empty() ? channel.writes : channel.reads;
      R& r = *queue.front();
      queue.pop_front();
      channel.sent = 0;
      touch(channel);
      r.current->complete(r, -error);
    }
    touch(channel);
  }

  mux::Spec spec_;
  io::impl::Selector selector_;
  std::unordered_map<io::impl::Watchers*, Channel> channels_;
  std::vector<R*> held_;
  std::vector<Channel*> fresh_;
  std::vector<Channel*> dirty_;
  std::vector<void*> forgotten_;
  // The lists being gone through, swapped with the ones handlers add to; both
  // keep their capacity, so rounds allocate nothing once warm. Emptied before
  // each use: a handler that throws leaves the rest of its round behind.
  std::vector<R*> heldRound_;
  std::vector<Channel*> round_;
  int pending_ = 0;
  bool waiting_ = false;
};

}  // namespace impl
}  // namespace xio
}  // namespace sal
}  // namespace quorel
