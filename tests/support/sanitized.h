// Whether this program runs under a sanitizer, which makes everything some twenty times slower.
#pragma once

#include <algorithm>

namespace kestrane_test {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif
#else
inline constexpr bool kSanitized = false;
#endif

// How many seeds a test over `all` of them draws: a sanitizer looks at the same code with each.
constexpr int seeds_to_draw(int all) { return kSanitized ? std::min(all, 2) : all; }

}  // namespace kestrane_test

// For the first line of a study over many seeds: its statistics have nothing to tell a sanitizer
// that the other tests of the same code do not.
#define KESTRANE_SKIP_STUDY_UNDER_SANITIZERS()              \
  if (kestrane_test::kSanitized) {                          \
    GTEST_SKIP() << "a study of many seeds, left out here"; \
  }                                                         \
  static_cast<void>(0)
