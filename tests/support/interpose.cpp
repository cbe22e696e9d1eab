// The libc functions that tests can make fail when libquorel.so calls them.
#include <errno.h>
#include <ifaddrs.h>
#include <stdlib.h>
#include <sys/time.h>
#include <time.h>

#include "fault.h"

QUOREL_INTERPOSE(int, gettimeofday, (struct timeval* tv, void* tz), (tv, tz), true,
                 { errno = error; return -1; })

QUOREL_INTERPOSE(void*, valloc, (size_t size), (size), true, { errno = error; return nullptr; })

QUOREL_INTERPOSE(int, clock_gettime, (clockid_t clock, struct timespec* ts), (clock, ts), true,
                 { errno = error; return -1; })

QUOREL_INTERPOSE(int, getifaddrs, (struct ifaddrs** entries), (entries), true,
                 { errno = error; return -1; })
