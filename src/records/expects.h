// Preconditions, which a release build does not check: capacities, plane numbers, call order. With
// KESTRANE_CHECKED a violated one is named on standard error, with the operation and the values
// that violate it, and the process aborts before memory is touched:
//
//   kestrane: save_compensator_coeffs: a device has at most 100 planes; record.plane_count is 101
//
// Without KESTRANE_CHECKED a check costs nothing.
#pragma once

// KESTRANE_EXPECTS(holds, text, value...) stands in the operation that it names;
// KESTRANE_EXPECTS_OF(operation, holds, text, value...) in a step of it. Values are counts, plane
// numbers and the like; a null pointer and an order of calls need none.
//
// A function would work out what it is handed, in every build.
// NOLINTBEGIN(cppcoreguidelines-macro-usage)
#ifdef KESTRANE_CHECKED
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

namespace kestrane {

// `source` is how the text and the values stand in the source: a literal, then one list of names.
template <class... Values>
[[noreturn]] void name_violation(const char* operation, [[maybe_unused]] const char* source,
                                 const char* text, Values... values) {
  std::fprintf(stderr, "kestrane: %s: %s", operation, text);
  if constexpr (sizeof...(values) > 0) {
    const char* names = std::strrchr(source, '"') + 1;
    names += std::strspn(names, ", ");
    const char* mark = ";";
    for (const long long value : {static_cast<long long>(values)...}) {
      const auto length = static_cast<int>(std::strcspn(names, ","));
      std::fprintf(stderr, "%s %.*s is %lld", mark, length, names, value);
      names += length + std::strspn(names + length, ", ");
      mark = ",";
    }
  }
  std::fprintf(stderr, "\n");
  std::abort();
}

}  // namespace kestrane

#define KESTRANE_EXPECTS_OF(operation, holds, ...)                                  \
  do {                                                                              \
    if (!(holds)) ::kestrane::name_violation(operation, #__VA_ARGS__, __VA_ARGS__); \
  } while (false)
#else
#define KESTRANE_EXPECTS_OF(operation, holds, ...) static_cast<void>(0)
#endif
#define KESTRANE_EXPECTS(holds, ...) \
  KESTRANE_EXPECTS_OF(static_cast<const char*>(__func__), holds, __VA_ARGS__)
// NOLINTEND(cppcoreguidelines-macro-usage)
