// All figures of a finding at once.
#pragma once

#include <gtest/gtest.h>

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

}  // namespace quality_tests
