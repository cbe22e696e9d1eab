/// \file
/// Platform layer of selectors: epoll and the eventfd that wakes a wait.
/// Failures throw the class of xio::err for their errno (domain 2), naming
/// the call.
#ifndef QUOREL_SAL_SYS_IO_EPOLL_H
#define QUOREL_SAL_SYS_IO_EPOLL_H

#include <sys/epoll.h>

namespace quorel {
namespace sal {
namespace sys {
namespace io {
namespace epoll {

/// epoll_create1(EPOLL_CLOEXEC): "::epoll_create1() failed".
int create();
/// epoll_ctl(ADD or MOD): "::epoll_ctl(ADD, <fd>) failed", "::epoll_ctl(MOD, <fd>) failed".
void control(int epfd, int op, int fd, epoll_event& event);
/// epoll_ctl(DEL); never throws: the errno, or 0.
int remove(int epfd, int fd) noexcept;
/// epoll_wait for at most timeout milliseconds (-1: no limit): the events
/// collected, or -1 when a signal interrupted it. "::epoll_wait() failed".
int wait(int epfd, epoll_event* events, int capacity, int timeout);

/// eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK): "::eventfd() failed".
int createEvent();
/// Adds one to the event's counter (write); never throws: a counter that
/// is already set wakes the same.
void post(int fd) noexcept;
/// Reads the counter back to zero (read); never throws.
void drain(int fd) noexcept;

}  // namespace epoll
}  // namespace io
}  // namespace sys
}  // namespace sal
}  // namespace quorel

#endif
