// What a checked build says of a violated precondition.
#pragma once

#include <gmock/gmock.h>

#include <string>

namespace kestrane_test {

// Matches the whole line for operation, text and values: "count is 51, shape.cells is 50".
inline auto violation(const std::string& operation, const std::string& text,
                      const std::string& values = "") {
  return testing::HasSubstr("kestrane: " + operation + ": " + text +
                            (values.empty() ? "" : "; " + values) + "\n");
}

}  // namespace kestrane_test
