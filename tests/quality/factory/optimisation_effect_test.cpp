#include "quality/factory/optimisation_effect.h"

#include <gtest/gtest.h>

namespace {

using kestrane::quality::corner_moves;
using kestrane::quality::JobRun;
using kestrane::quality::OptimisationFigures;

JobRun corners_at(const std::vector<double>& xs) {
  JobRun run;
  for (const double x : xs) run.corners.push_back({{x, 1.0, 2.0}});
  return run;
}

TEST(CornerMoves, AreWithMinusWithout) {
  const OptimisationFigures figures =
      corner_moves(corners_at({1.25, -2.0, 3.0}), corners_at({1.0, -1.5, 3.0}));
  EXPECT_EQ(figures.corner_moves, (std::vector<double>{0.25, -0.5, 0.0}));
  EXPECT_EQ(figures.largest_move, 0.5);
}

TEST(CornerMoves, StandAtTheBoundFrom4999On) {
  const OptimisationFigures figures = corner_moves(
      corners_at({0.4999, -0.4999, 0.49989, -0.49989, 0.5}), corners_at({0.0, 0.0, 0.0, 0.0, 0.0}));
  EXPECT_EQ(figures.at_bound, 3);
}

TEST(CornerMoves, AreExactlyZeroWhereNothingMoved) {
  EXPECT_EQ(corner_moves(corners_at({7.0}), corners_at({7.0})).largest_move, 0.0);
}

}  // namespace
