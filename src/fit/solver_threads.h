// How many threads the nonlinear solver gets.
#pragma once

#include <algorithm>
#include <thread>

namespace kestrane {

// Six, lowered to what the hardware offers. The solver would lower them itself, but with a line on
// standard error.
inline int solver_threads() {
  constexpr unsigned kWanted = 6;
  const unsigned offered = std::thread::hardware_concurrency();  // 0 where it cannot tell
  return static_cast<int>(offered == 0 ? kWanted : std::min(kWanted, offered));
}

}  // namespace kestrane
