// What the fuzz targets assert beyond "no crash": a broken property prints
// what it is and aborts, which libFuzzer reports as a crash with its input.
#ifndef QUOREL_FUZZ_CHECK_H
#define QUOREL_FUZZ_CHECK_H

#include <cstdio>
#include <cstdlib>

#define QUOREL_FUZZ_CHECK(condition)                                                     \
  do {                                                                                   \
    if (!(condition)) {                                                                  \
      std::fprintf(stderr, "%s:%d: property broken: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                      \
    }                                                                                    \
  } while (false)

#endif
