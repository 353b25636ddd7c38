// Preconditions, which a release build does not check: capacities, plane numbers, call order. With
// KESTRANE_CHECKED a violated one is named on standard error and the process aborts before memory
// is touched; without it the check costs nothing.
#pragma once

// A function would work out what it is handed, in every build.
// NOLINTBEGIN(cppcoreguidelines-macro-usage)
#ifdef KESTRANE_CHECKED
#include <cstdio>
#include <cstdlib>

#define KESTRANE_EXPECTS(holds, text)                                      \
  do {                                                                     \
    if (!(holds)) {                                                        \
      std::fprintf(stderr, "kestrane: precondition violated: %s\n", text); \
      std::abort();                                                        \
    }                                                                      \
  } while (false)
#else
#define KESTRANE_EXPECTS(holds, text) static_cast<void>(0)
#endif
// NOLINTEND(cppcoreguidelines-macro-usage)
