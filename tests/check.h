// The checks of the C++ test programs: a failed check is reported with its place and
// counted, and the program goes on, so one run shows every failure.
#pragma once

#include <stdio.h>

namespace velcheck {
inline int failures = 0;
}  // namespace velcheck

#define CHECK(cond)                                                            \
  do {                                                                         \
    if (!(cond)) {                                                             \
      fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
      ++velcheck::failures;                                                    \
    }                                                                          \
  } while (0)
