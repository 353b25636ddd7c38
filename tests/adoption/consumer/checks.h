// How the hosts here hold their numbers against what is known.
#pragma once

#include <cmath>
#include <cstdio>

inline int failures = 0;

inline void check(bool holds, const char* what) {
  if (holds) return;
  std::printf("wrong: %s\n", what);
  ++failures;
}

inline void check_near(double value, double expected, double tolerance, const char* what) {
  if (std::abs(value - expected) <= tolerance) return;
  std::printf("wrong: %s is %.17g instead of %.17g\n", what, value, expected);
  ++failures;
}
