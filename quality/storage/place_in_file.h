// Words for how far a file is whole.
#pragma once

#include <cstdint>
#include <string>

namespace kestrane::quality {

// "after plane 3, line 7": the last line that is whole. `line` is the first that is not; where that
// is 0 the last plane that is whole is named.
inline std::string after(std::int32_t plane, std::int32_t line) {
  if (line > 0)
    return "after plane " + std::to_string(plane) + ", line " + std::to_string(line - 1);
  if (plane > 0) return "after plane " + std::to_string(plane - 1);
  return "before plane 0";
}

// "plane 3, line 7".
inline std::string at(std::int32_t plane, std::int32_t line) {
  return "plane " + std::to_string(plane) + ", line " + std::to_string(line);
}

}  // namespace kestrane::quality
