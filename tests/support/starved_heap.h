// A heap that has run out, for death tests: the limit is that of a whole process.
#pragma once

#include <sys/resource.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <fstream>

namespace starved {

// Leaves this process without room for more than another 300 MB; for use in a death test only.
inline void starve_heap() {
  std::size_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  const std::size_t used = pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  const rlimit limit = {used + (std::size_t{300} << 20), used + (std::size_t{300} << 20)};
  if (pages == 0 || setrlimit(RLIMIT_AS, &limit) != 0) std::_Exit(77);
}

// The address sanitizer reserves more address space than any limit, and ends a process whose
// allocation fails instead of returning null.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kHeapCanRunOut = false;
#else
inline constexpr bool kHeapCanRunOut = true;
#endif

}  // namespace starved
