// The libc functions that tests can make fail when libquorel.so calls them.
#include <errno.h>
#include <fcntl.h>
#include <netdb.h>
#include <stdarg.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <time.h>

#include "fault.h"

QUOREL_INTERPOSE(int, gettimeofday, (struct timeval* tv, void* tz), (tv, tz), true,
                 { errno = error; return -1; })

QUOREL_INTERPOSE(void*, valloc, (size_t size), (size), true, { errno = error; return nullptr; })

QUOREL_INTERPOSE(int, clock_gettime, (clockid_t clock, struct timespec* ts), (clock, ts), true,
                 { errno = error; return -1; })


QUOREL_INTERPOSE(int, socket, (int family, int type, int protocol), (family, type, protocol), true,
                 { errno = error; return -1; })
QUOREL_INTERPOSE(int, setsockopt, (int fd, int level, int name, const void* value, socklen_t length),
                 (fd, level, name, value, length), true, { errno = error; return -1; })
QUOREL_INTERPOSE(int, getsockopt, (int fd, int level, int name, void* value, socklen_t* length),
                 (fd, level, name, value, length), true, { errno = error; return -1; })
QUOREL_INTERPOSE(int, connect, (int fd, const struct sockaddr* address, socklen_t length), (fd, address, length),
                 false, { errno = error; return -1; })
QUOREL_INTERPOSE(int, select, (int n, fd_set* r, fd_set* w, fd_set* x, struct timeval* t), (n, r, w, x, t), false,
                 { errno = error; return -1; })
QUOREL_INTERPOSE(int, listen, (int fd, int backlog), (fd, backlog), true, { errno = error; return -1; })
QUOREL_INTERPOSE(int, accept, (int fd, struct sockaddr* address, socklen_t* length), (fd, address, length), false,
                 { errno = error; return -1; })
QUOREL_INTERPOSE(ssize_t, recv, (int fd, void* buffer, size_t size, int flags), (fd, buffer, size, flags), false,
                 { errno = error; return -1; })
QUOREL_INTERPOSE(ssize_t, recvfrom,
                 (int fd, void* buffer, size_t size, int flags, struct sockaddr* address, socklen_t* length),
                 (fd, buffer, size, flags, address, length), false, { errno = error; return -1; })
QUOREL_INTERPOSE(ssize_t, send, (int fd, const void* buffer, size_t size, int flags), (fd, buffer, size, flags), false,
                 { errno = error; return -1; })
QUOREL_INTERPOSE(ssize_t, sendto,
                 (int fd, const void* buffer, size_t size, int flags, const struct sockaddr* address, socklen_t length),
                 (fd, buffer, size, flags, address, length), false, { errno = error; return -1; })
QUOREL_INTERPOSE(ssize_t, recvmsg, (int fd, struct msghdr* message, int flags), (fd, message, flags), false,
                 { errno = error; return -1; })
QUOREL_INTERPOSE(int, getsockname, (int fd, struct sockaddr* address, socklen_t* length), (fd, address, length), true,
                 { errno = error; return -1; })
QUOREL_INTERPOSE(int, gethostname, (char* name, size_t length), (name, length), true,
                 { errno = error; return -1; })
// The resolver reports failure by returning its EAI_* code.
QUOREL_INTERPOSE(int, getaddrinfo,
                 (const char* node, const char* service, const struct addrinfo* hints, struct addrinfo** results),
                 (node, service, hints, results), false, { return error; })
QUOREL_INTERPOSE(int, getnameinfo,
                 (const struct sockaddr* address, socklen_t length, char* host, socklen_t hostLength, char* service,
                  socklen_t serviceLength, int flags),
                 (address, length, host, hostLength, service, serviceLength, flags), false, { return error; })

// fcntl is variadic: its optional argument is read as a long and passed on.
namespace {
::quorel::test::fault::Point point_fcntl("fcntl");
::quorel::test::fault::Registration registration_fcntl(point_fcntl);
}  // namespace
extern "C" int fcntl(int fd, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  const long argument = va_arg(arguments, long);
  va_end(arguments);
  int error = 0;
  if (point_fcntl.fires(__builtin_return_address(0), error)) {
    errno = error;
    return -1;
  }
  return reinterpret_cast<int (*)(int, int, ...)>(point_fcntl.real())(fd, command, argument);
}

QUOREL_INTERPOSE(int, dup, (int fd), (fd), true, { errno = error; return -1; })
QUOREL_INTERPOSE(int, close, (int fd), (fd), false, { errno = error; return -1; })
QUOREL_INTERPOSE(int, pipe, (int* ends), (ends), true, { errno = error; return -1; })
QUOREL_INTERPOSE(ssize_t, read, (int fd, void* buffer, size_t size), (fd, buffer, size), false,
                 { errno = error; return -1; })
QUOREL_INTERPOSE(ssize_t, write, (int fd, const void* buffer, size_t size), (fd, buffer, size), false,
                 { errno = error; return -1; })
QUOREL_INTERPOSE(ssize_t, pread64, (int fd, void* buffer, size_t size, off64_t offset), (fd, buffer, size, offset),
                 false, { errno = error; return -1; })
QUOREL_INTERPOSE(ssize_t, pwrite64, (int fd, const void* buffer, size_t size, off64_t offset),
                 (fd, buffer, size, offset), false, { errno = error; return -1; })
QUOREL_INTERPOSE(off64_t, lseek64, (int fd, off64_t offset, int whence), (fd, offset, whence), true,
                 { errno = error; return -1; })
QUOREL_INTERPOSE(int, ftruncate64, (int fd, off64_t length), (fd, length), true, { errno = error; return -1; })
QUOREL_INTERPOSE(int, fsync, (int fd), (fd), false, { errno = error; return -1; })
QUOREL_INTERPOSE(int, fstat64, (int fd, struct stat64* status), (fd, status), true, { errno = error; return -1; })

// Selectors.
QUOREL_INTERPOSE(int, epoll_create1, (int flags), (flags), true, { errno = error; return -1; })
QUOREL_INTERPOSE(int, epoll_ctl, (int epfd, int op, int fd, struct epoll_event* event), (epfd, op, fd, event), true,
                 { errno = error; return -1; })
QUOREL_INTERPOSE(int, epoll_wait, (int epfd, struct epoll_event* events, int capacity, int timeout),
                 (epfd, events, capacity, timeout), false, { errno = error; return -1; })
QUOREL_INTERPOSE(int, eventfd, (unsigned int count, int flags), (count, flags), true, { errno = error; return -1; })

// The rings of the io_uring dispatcher. ThreadSanitizer maps its shadow
// memory through mmap while it starts: its build leaves this one out.
#ifndef __SANITIZE_THREAD__
QUOREL_INTERPOSE(void*, mmap, (void* address, size_t length, int protection, int flags, int fd, off_t offset),
                 (address, length, protection, flags, fd, offset), true, { errno = error; return MAP_FAILED; })
#endif

// Paths and directories.
QUOREL_INTERPOSE(int, mkdir, (const char* path, mode_t mode), (path, mode), true, { errno = error; return -1; })
QUOREL_INTERPOSE(int, rmdir, (const char* path), (path), true, { errno = error; return -1; })
QUOREL_INTERPOSE(int, unlink, (const char* path), (path), true, { errno = error; return -1; })
QUOREL_INTERPOSE(int, unlinkat, (int dir, const char* name, int flags), (dir, name, flags), true,
                 { errno = error; return -1; })
QUOREL_INTERPOSE(int, rename, (const char* from, const char* to), (from, to), true, { errno = error; return -1; })
QUOREL_INTERPOSE(char*, mkdtemp, (char* name), (name), true, { errno = error; return nullptr; })
QUOREL_INTERPOSE(int, lstat64, (const char* path, struct stat64* status), (path, status), true,
                 { errno = error; return -1; })
QUOREL_INTERPOSE(int, stat64, (const char* path, struct stat64* status), (path, status), true,
                 { errno = error; return -1; })
QUOREL_INTERPOSE(int, fstatat64, (int dir, const char* name, struct stat64* status, int flags),
                 (dir, name, status, flags), true, { errno = error; return -1; })
QUOREL_INTERPOSE(ssize_t, getdents64, (int fd, void* buffer, size_t size), (fd, buffer, size), true,
                 { errno = error; return -1; })

// openat is variadic: the mode is read as an int and always passed on.
namespace {
::quorel::test::fault::Point point_openat("openat");
::quorel::test::fault::Registration registration_openat(point_openat);
}  // namespace
extern "C" int openat(int dir, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const int mode = va_arg(arguments, int);
  va_end(arguments);
  int error = 0;
  if (point_openat.fires(__builtin_return_address(0), error)) {
    errno = error;
    return -1;
  }
  return reinterpret_cast<int (*)(int, const char*, int, ...)>(point_openat.real())(dir, path, flags, mode);
}

// open64 is variadic: the mode is read as an int and always passed on.
namespace {
::quorel::test::fault::Point point_open64("open64");
::quorel::test::fault::Registration registration_open64(point_open64);
}  // namespace
extern "C" int open64(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const int mode = va_arg(arguments, int);
  va_end(arguments);
  int error = 0;
  if (point_open64.fires(__builtin_return_address(0), error)) {
    errno = error;
    return -1;
  }
  return reinterpret_cast<int (*)(const char*, int, ...)>(point_open64.real())(path, flags, mode);
}

// open is variadic too. A stand-in has the type int (*)(const char*, int, int).
namespace {
::quorel::test::fault::Point point_open("open");
::quorel::test::fault::Registration registration_open(point_open);
}  // namespace
extern "C" int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const int mode = va_arg(arguments, int);
  va_end(arguments);
  void* caller = __builtin_return_address(0);
  if (void* standIn = point_open.standIn(caller)) {
    return reinterpret_cast<int (*)(const char*, int, int)>(standIn)(path, flags, mode);
  }
  int error = 0;
  if (point_open.fires(caller, error)) {
    errno = error;
    return -1;
  }
  return reinterpret_cast<int (*)(const char*, int, ...)>(point_open.real())(path, flags, mode);
}

// ioctl is variadic: its one argument is a pointer here. A stand-in has the
// type int (*)(int, unsigned long, void*).
namespace {
::quorel::test::fault::Point point_ioctl("ioctl");
::quorel::test::fault::Registration registration_ioctl(point_ioctl);
}  // namespace
extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
  va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  void* caller = __builtin_return_address(0);
  if (void* standIn = point_ioctl.standIn(caller)) {
    return reinterpret_cast<int (*)(int, unsigned long, void*)>(standIn)(fd, request, argument);
  }
  int error = 0;
  if (point_ioctl.fires(caller, error)) {
    errno = error;
    return -1;
  }
  return reinterpret_cast<int (*)(int, unsigned long, ...)>(point_ioctl.real())(fd, request, argument);
}

// syscall is variadic: six long arguments are read and passed on (the
// callers that do not pass them all leave the rest unused). A stand-in has
// the type long (*)(long, long, long, long, long, long, long). AddressSanitizer
// on 32-bit x86 makes its own system calls through syscall() while it starts,
// before instrumented code can run: its build leaves this one out.
#ifndef __SANITIZE_ADDRESS__
namespace {
::quorel::test::fault::Point point_syscall("syscall");
::quorel::test::fault::Registration registration_syscall(point_syscall);
}  // namespace
extern "C" long syscall(long number, ...) noexcept {
  va_list arguments;
  va_start(arguments, number);
  long a[6];
  for (long& argument : a) argument = va_arg(arguments, long);
  va_end(arguments);
  void* caller = __builtin_return_address(0);
  if (void* standIn = point_syscall.standIn(caller)) {
    return reinterpret_cast<long (*)(long, long, long, long, long, long, long)>(standIn)(number, a[0], a[1], a[2],
                                                                                         a[3], a[4], a[5]);
  }
  int error = 0;
  if (point_syscall.fires(caller, error)) {
    errno = error;
    return -1;
  }
  return reinterpret_cast<long (*)(long, ...)>(point_syscall.real())(number, a[0], a[1], a[2], a[3], a[4], a[5]);
}
#endif  // __SANITIZE_ADDRESS__

QUOREL_INTERPOSE(char*, getcwd, (char* buffer, size_t size), (buffer, size), true, { errno = error; return nullptr; })
QUOREL_INTERPOSE(int, chdir, (const char* path), (path), true, { errno = error; return -1; })
QUOREL_INTERPOSE(int, setenv, (const char* name, const char* value, int replace), (name, value, replace), true,
                 { errno = error; return -1; })
QUOREL_INTERPOSE(int, dup2, (int from, int to), (from, to), true, { errno = error; return -1; })
QUOREL_INTERPOSE(pid_t, setsid, (), (), true, { errno = error; return -1; })
QUOREL_INTERPOSE(pid_t, waitpid, (pid_t pid, int* status, int options), (pid, status, options), false,
                 { errno = error; return -1; })
// libc's clone entry under its own name, which the library calls (see
// sal/sys/exec/spawn.inl); no sanitizer run-time calls it.
QUOREL_INTERPOSE(int, __clone, (int (*fn)(void*), void* stack, int flags, void* arg), (fn, stack, flags, arg), true,
                 { errno = error; return -1; })

// ThreadSanitizer calls several of these while it starts, before it can run
// instrumented code: a definition here would take those calls. Its build
// leaves them out and the tests that need them skip.
#ifndef __SANITIZE_THREAD__

// POSIX threads calls report failure by returning the error number.
#define QUOREL_INTERPOSE_PTHREAD(name, params, args, isNoexcept) \
  QUOREL_INTERPOSE(int, name, params, args, isNoexcept, { return error; })

QUOREL_INTERPOSE_PTHREAD(pthread_mutex_init, (pthread_mutex_t* m, const pthread_mutexattr_t* a), (m, a), true)
QUOREL_INTERPOSE_PTHREAD(pthread_mutex_lock, (pthread_mutex_t* m), (m), true)
QUOREL_INTERPOSE_PTHREAD(pthread_mutex_unlock, (pthread_mutex_t* m), (m), true)
QUOREL_INTERPOSE_PTHREAD(pthread_mutex_trylock, (pthread_mutex_t* m), (m), true)
QUOREL_INTERPOSE_PTHREAD(pthread_cond_init, (pthread_cond_t* c, const pthread_condattr_t* a), (c, a), true)
QUOREL_INTERPOSE_PTHREAD(pthread_cond_wait, (pthread_cond_t* c, pthread_mutex_t* m), (c, m), false)
QUOREL_INTERPOSE_PTHREAD(pthread_cond_timedwait,
                         (pthread_cond_t* c, pthread_mutex_t* m, const struct timespec* t), (c, m, t), false)
QUOREL_INTERPOSE_PTHREAD(pthread_cond_signal, (pthread_cond_t* c), (c), true)
QUOREL_INTERPOSE_PTHREAD(pthread_cond_broadcast, (pthread_cond_t* c), (c), true)
QUOREL_INTERPOSE_PTHREAD(pthread_key_create, (pthread_key_t* k, void (*d)(void*)), (k, d), true)
QUOREL_INTERPOSE_PTHREAD(pthread_setspecific, (pthread_key_t k, const void* v), (k, v), true)
QUOREL_INTERPOSE_PTHREAD(pthread_attr_init, (pthread_attr_t* a), (a), true)
QUOREL_INTERPOSE_PTHREAD(pthread_attr_setdetachstate, (pthread_attr_t* a, int s), (a, s), true)
QUOREL_INTERPOSE_PTHREAD(pthread_attr_setstacksize, (pthread_attr_t* a, size_t s), (a, s), true)
QUOREL_INTERPOSE_PTHREAD(pthread_sigmask, (int how, const sigset_t* set, sigset_t* old), (how, set, old), true)
QUOREL_INTERPOSE_PTHREAD(pthread_kill, (pthread_t t, int s), (t, s), true)
QUOREL_INTERPOSE(int, sigaction, (int s, const struct sigaction* action, struct sigaction* old), (s, action, old),
                 true, { errno = error; return -1; })
// ThreadSanitizer's own fork and kill keep its state right in the child.
QUOREL_INTERPOSE(pid_t, fork, (), (), true, { errno = error; return -1; })
QUOREL_INTERPOSE(int, kill, (pid_t pid, int s), (pid, s), true, { errno = error; return -1; })
QUOREL_INTERPOSE_PTHREAD(pthread_create,
                         (pthread_t* t, const pthread_attr_t* a, void* (*f)(void*), void* arg), (t, a, f, arg),
                         true)

#endif  // __SANITIZE_THREAD__

// The scheduling attributes of a new thread, whose failures the library
// ignores. ThreadSanitizer does not call these while it starts.
QUOREL_INTERPOSE(int, pthread_attr_setinheritsched, (pthread_attr_t* a, int i), (a, i), true, { return error; })
QUOREL_INTERPOSE(int, pthread_attr_setschedpolicy, (pthread_attr_t* a, int p), (a, p), true, { return error; })
QUOREL_INTERPOSE(int, pthread_attr_setschedparam, (pthread_attr_t* a, const struct sched_param* p), (a, p), true,
                 { return error; })
