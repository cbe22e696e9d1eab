/// \file
/// Selector: waits on many sockets, pipes and other descriptors at once.
#ifndef QUOREL_SAL_IO_SELECTOR_H
#define QUOREL_SAL_IO_SELECTOR_H

#include <quorel/sal/io/ASocketEndpoint.h>
#include <quorel/sal/io/i/select.h>
#include <quorel/sal/io/impl/Selector.h>
#include <quorel/sal/xio/Endpoint.h>
#include <quorel/util/AHandleTo.h>

namespace quorel {
namespace sal {
namespace io {

/// Endpoints registered with an interest (i::select::kRead, kWrite, both,
/// optionally kEdge) and a wait for those that are ready. Built on epoll,
/// level-triggered unless kEdge is asked for: there is no ceiling on the
/// descriptor numbers or on their count, and a wait interrupted by a signal
/// resumes with the time left (waitFor(100) lasts 100 ms whatever signals
/// arrive, and no event is lost to them).
///
/// The selector does not keep what it watches alive. An endpoint closed
/// through this library, or whose last copy goes, is forgotten by every
/// selector that holds it before its descriptor closes: it is never reported
/// again, also not from a wait already collected, and a new endpoint that
/// gets the same descriptor number is a stranger until it is added. An
/// xio::Endpoint opened again (open(), reopen()) is forgotten the same way.
///
///   io::Selector selector;
///   selector.add(server, io::i::select::kRead, &server);
///   io::Selector::Ready ready;
///   for (;;) {
///     selector.wait();
///     while (selector.next(ready)) serve(ready.context, ready.events);
///   }
///
/// Copies share the selector. One thread waits and registers at a time;
/// wake() may be called from any thread, and an endpoint may be closed in
/// another thread (it is then not reported). Failed calls throw the class of
/// xio::err for their errno, naming the call and the descriptor:
/// "::epoll_ctl(ADD, 7) failed" (domain 2).
class Selector {
 public:
  /// One ready endpoint: its descriptor, what it is ready for and the
  /// context it was added with.
  typedef i::select::Ready Ready;

  /// Throws "::epoll_create1() failed" or "::eventfd() failed".
  Selector();

  /// Watches a socket or a descriptor endpoint (a pipe's end, a file, a wrapped
  /// descriptor) for interest; context comes back with each readiness. Adding
  /// an endpoint twice throws "::epoll_ctl(ADD, <fd>) failed" (EEXIST); a
  /// closed one, or one without a descriptor (memory, null), throws
  /// InvalidArgumentException "the endpoint is closed or has no descriptor".
  void add(const ASocketEndpoint& socket, unsigned interest, void* context = nullptr);
  void add(const xio::Endpoint& endpoint, unsigned interest, void* context = nullptr);
  /// A new interest (0 watches only for hang-ups and errors). Throws
  /// InvalidArgumentException "the endpoint is not registered with this
  /// selector" for one it does not hold.
  void change(const ASocketEndpoint& socket, unsigned interest);
  void change(const xio::Endpoint& endpoint, unsigned interest);
  /// Stops watching; false if it was not registered.
  bool remove(const ASocketEndpoint& socket);
  bool remove(const xio::Endpoint& endpoint);
  /// The endpoints registered.
  int size() const { return handle_.reference().size(); }

  /// Waits until something is ready or wake() is called; the number of
  /// readinesses collected (0 after a wake-up).
  int wait() { return handle_->wait(-1); }
  /// The same, for at most the time given (0: look and return); 0 when the
  /// time ran out.
  int waitFor(unsigned long long milliseconds);
  /// The next readiness of the last wait whose endpoint is still registered;
  /// false when there is none left.
  bool next(Ready& ready) { return handle_->next(ready); }
  /// Ends a wait in progress, or the next one at once. Any thread.
  void wake() { handle_->wake(); }

  impl::Selector& key() { return *handle_.operator->(); }

 private:
  util::AHandleTo<impl::Selector> handle_;
};

}  // namespace io
}  // namespace sal
}  // namespace quorel

#endif
