#include "fast/residual_filter.h"

#include "fast/residual_measurement.h"
#include "simulation/random.h"
#include "tests/fast/fast_support.h"
#include "tests/literal/fast_calibration.h"

namespace {

using namespace fast_support;
using kestrane::filter_point_by_residual;
using simulation::Random;

TEST(FilterPointByResidual, KeepsExactlyOneAndAHalf) {
  PointSets kept;
  filter_point_by_residual({columns({{1, 0, 0}, {2, 0, 0}, {3, 0, 0}, {4, 0, 0}})},
                           {{1.5, 1.5000000001, 0.0, 7.0}}, kept);
  ASSERT_EQ(kept.size(), 1u);
  expect_same(kept[0], columns({{1, 0, 0}, {3, 0, 0}}));
}

TEST(FilterPointByResidual, KeepsAPointWhoseResidualIsNotANumber) {
  PointSets kept;
  filter_point_by_residual({columns({{1, 0, 0}, {2, 0, 0}})}, {{kNaN, kInf}}, kept);
  expect_same(kept[0], columns({{1, 0, 0}}));
}

TEST(FilterPointByResidual, KeepsAPointWithoutACell) {
  const fast_scene::Standard standard = flat_standard(1);
  const PointSets points = {columns({{140, 0, 300}, {140, 0, 2000}})};
  ResidualSets residuals(1);
  kestrane::measure_residuals(points, standard.table(), 0, literal::identity(), residuals);
  PointSets kept;
  filter_point_by_residual(points, residuals, kept);
  expect_same(kept[0], columns({{140, 0, 2000}}));
}

TEST(FilterPointByResidual, KeepsAPlaceForEveryPlane) {
  PointSets kept;
  filter_point_by_residual({columns({{1, 0, 0}}), PlanePoints(3, 0), columns({{2, 0, 0}})},
                           {{9.0}, {}, {1.0}}, kept);
  ASSERT_EQ(kept.size(), 3u);
  EXPECT_EQ(kept[0].cols(), 0);
  EXPECT_EQ(kept[1].cols(), 0);
  EXPECT_EQ(kept[2].cols(), 1);
}

TEST(FilterPointByResidual, EqualsTheLiteralFormOnRandomInput) {
  Random random(8);
  for (int round = 0; round < 200; ++round) {
    PointSets points;
    ResidualSets residuals;
    for (int i = 0; i < 3; ++i) {
      PlanePoints set(3, random.index(60));
      residuals.emplace_back();
      for (Eigen::Index j = 0; j < set.cols(); ++j) {
        set.col(j) << random.gaussian(), random.gaussian(), random.gaussian();
        residuals.back().push_back(random.index(20) == 0 ? kNaN : random.uniform(0, 3));
      }
      points.push_back(set);
    }
    PointSets kept, expected;
    filter_point_by_residual(points, residuals, kept);
    literal::filter_point_by_residual(points, residuals, expected);
    ASSERT_EQ(kept.size(), expected.size());
    for (std::size_t i = 0; i < kept.size(); ++i) expect_same(kept[i], expected[i]);
  }
}

}  // namespace
