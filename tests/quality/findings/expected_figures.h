// All figures of a finding at once.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "kestrane/quality/findings.h"

namespace quality_tests {

// The finding has these figures, in any order, and no other.
inline void expect_figures(const kestrane::quality::Finding& found,
                           const std::vector<kestrane::quality::Figure>& expected) {
  EXPECT_EQ(found.figures.size(), expected.size());
  for (const kestrane::quality::Figure& figure : expected) {
    EXPECT_EQ(found.figure(figure.name), figure.value) << figure.name;
  }
}

// Gives a limit and takes it back, where the compiler cannot see that nothing reads the number.
inline void take_back(std::optional<double>& limit, double value) {
  static void (*volatile forget)(std::optional<double>&) = [](auto& given) { given.reset(); };
  limit = value;
  forget(limit);
}

}  // namespace quality_tests
