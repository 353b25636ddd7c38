#include "fast/residual_measurement.h"

#include "simulation/random.h"
#include "tests/fast/fast_support.h"
#include "tests/literal/fast_calibration.h"

namespace {

using namespace fast_support;
using kestrane::measure_residuals;
using kestrane::ResidualIndicators;
using simulation::Random;

Eigen::Vector3d at_distance(double distance) { return {128.0 + distance, 0.0, 300.0}; }

const Eigen::Vector3d kOutside(128.0, 0.0, 2000.0);

TEST(MeasureResiduals, GivesMeanLargestAndHalfTheMeanAbsoluteDeviation) {
  const fast_scene::Standard standard = flat_standard(1);
  const PointSets points = {columns({at_distance(1), at_distance(-3)})};
  ResidualSets residuals(1);
  const ResidualIndicators measured =
      measure_residuals(points, standard.table(), 0, literal::identity(), residuals);
  EXPECT_EQ(residuals[0], (std::vector<double>{1, 3}));
  EXPECT_EQ(measured.mean, 2.0);
  EXPECT_EQ(measured.max, 3.0);
  EXPECT_EQ(measured.deviation, 0.5) << "deviations of 1 and 1 over a count of 4";
}

TEST(MeasureResiduals, MovesTheStandardAndNotThePoints) {
  const fast_scene::Standard standard = flat_standard(1);
  _MRV_EXTRINSIC_PARAM motion = literal::identity();
  motion.T[0] = 128.0;
  ResidualSets residuals(1);
  const PointSets points = {columns({at_distance(128), at_distance(0)})};
  measure_residuals(points, standard.table(), 0, motion, residuals);
  EXPECT_EQ(residuals[0], (std::vector<double>{0, 128}));
}

TEST(MeasureResiduals, CountsPlanesFromTheFirstPlane) {
  fast_scene::Standard standard = flat_standard(3);
  standard.fill(2, {{-0.00390625, 0, 0}});  // x = 256
  const PointSets points = {columns({at_distance(0)}), columns({at_distance(0)})};
  ResidualSets residuals(2);
  measure_residuals(points, standard.table(), 1, literal::identity(), residuals);
  EXPECT_EQ(residuals[0][0], 0.0);
  EXPECT_EQ(residuals[1][0], 128.0);
}

TEST(MeasureResiduals, LeavesTheEntryOfAPointWithoutACellAsItWas) {
  const fast_scene::Standard standard = flat_standard(1);
  const PointSets points = {columns({kOutside, at_distance(2), kOutside})};
  ResidualSets residuals = {{5.0}};
  const ResidualIndicators measured =
      measure_residuals(points, standard.table(), 0, literal::identity(), residuals);
  EXPECT_EQ(residuals[0], (std::vector<double>{5, 2, 0})) << "new entries are zero";
  EXPECT_EQ(measured.mean, 2.0) << "counted nowhere";
  EXPECT_EQ(measured.deviation, 0.0);
}

TEST(MeasureResiduals, CutsTheRowToThePoints) {
  const fast_scene::Standard standard = flat_standard(1);
  ResidualSets residuals = {{5.0, 6.0, 7.0}, {8.0}};
  const PointSets points = {columns({kOutside})};
  measure_residuals(points, standard.table(), 0, literal::identity(), residuals);
  EXPECT_EQ(residuals[0], (std::vector<double>{5}));
  EXPECT_EQ(residuals[1], (std::vector<double>{8})) << "rows beyond the points stay";
}

TEST(MeasureResiduals, HasNoFiguresWithoutAPointThatHasACell) {
  const fast_scene::Standard standard = flat_standard(1);
  ResidualSets residuals(1);
  for (const PointSets& points :
       {PointSets{}, PointSets{PlanePoints(3, 0)}, PointSets{columns({kOutside})}}) {
    const ResidualIndicators measured =
        measure_residuals(points, standard.table(), 0, literal::identity(), residuals);
    expect_same(measured.mean, kNaN);
    EXPECT_EQ(measured.max, -1000.0);
    expect_same(measured.deviation, kNaN);
  }
}

TEST(MeasureResiduals, LetsACellWithoutXSpoilMeanAndDeviation) {
  fast_scene::Standard standard = flat_standard(1);
  standard.cell(0, 7, 6) = {{0.0, 0.5, 0.25}};
  const PointSets points = {columns({at_distance(2), {128, 0, 325}})};
  ResidualSets residuals(1);
  const ResidualIndicators measured =
      measure_residuals(points, standard.table(), 0, literal::identity(), residuals);
  expect_same(residuals[0][1], kNaN);
  expect_same(measured.mean, kNaN);
  expect_same(measured.deviation, kNaN);
  EXPECT_EQ(measured.max, 2.0) << "a NaN is never greater";
}

TEST(MeasureResiduals, LetsAPointWithoutXSpoilTheMean) {
  const fast_scene::Standard standard = flat_standard(1);
  ResidualSets residuals(1);
  const PointSets points = {columns({at_distance(2), {kNaN, 0, 300}})};
  expect_same(measure_residuals(points, standard.table(), 0, literal::identity(), residuals).mean,
              kNaN);
}

// A table of cells of any size, some empty, some not finite.
void fill_wildly(fast_scene::Standard& standard, int planes, Random& random) {
  for (int p = 0; p < planes; ++p) {
    for (int j = 0; j < 15; ++j) {
      for (int k = 0; k < 50; ++k) {
        double* v = standard.cell(p, j, k).v;
        const double scale = random.index(20) == 0 ? std::pow(10.0, random.uniform(-300, 300)) : 1;
        v[0] = -0.01 * scale * random.uniform(0.5, 2);
        v[1] = 0.001 * scale * random.gaussian();
        v[2] = 0.001 * scale * random.gaussian();
        if (random.index(10) == 0) v[0] = v[1] = v[2] = 0.0;
        if (random.index(3000) == 0) v[random.index(3)] = kNaN;
        if (random.index(3000) == 0) v[random.index(3)] = kInf;
        if (random.index(3000) == 0) v[0] = 0.0;
      }
    }
  }
}

TEST(MeasureResiduals, EqualsTheLiteralFormToTheLastBit) {
  int finite_runs = 0;
  for (std::uint64_t seed = 0; seed < 60; ++seed) {
    Random random(seed);
    fast_scene::Standard standard(3);
    if (seed % 2 == 0) {
      fill_wildly(standard, 3, random);
    } else {
      standard.fill(0, {{-0.011, 0.0004, 0.002}});
      standard.fill(1, {{-0.009, -0.0002, 0.001}});
      standard.fill(2, {{-0.013, 0.0001, -0.003}});
    }
    _MRV_EXTRINSIC_PARAM motion = literal::identity();
    for (double& r : motion.R) r += 0.01 * random.gaussian();
    for (double& t : motion.T) t = random.gaussian();
    PointSets points;
    for (int i = 0; i < 2; ++i) {
      PlanePoints set(3, 700);
      for (Eigen::Index j = 0; j < set.cols(); ++j) {
        const double z = random.uniform(100, 1600);
        set.col(j) << random.uniform(50, 150), random.uniform(-0.7, 0.7) * z, z;
        if (seed % 4 == 0 && random.index(400) == 0) set(random.index(3), j) = kNaN;
        if (seed % 4 == 0 && random.index(400) == 0) set(random.index(3), j) = -kInf;
        if (seed % 4 == 1 && random.index(100) == 0) set(0, j) = 1e200;
      }
      points.push_back(set);
    }
    ResidualSets residuals(2, std::vector<double>(300, 4.5));
    ResidualSets expected = residuals;
    literal::Indicators indicators;
    const ResidualIndicators measured =
        measure_residuals(points, standard.table(), 1, motion, residuals);
    literal::cal_residual(points, standard.table(), 1, motion, expected, indicators);
    expect_same(measured.mean, indicators.mean);
    expect_same(measured.max, indicators.max);
    expect_same(measured.deviation, indicators.deviation);
    finite_runs += std::isfinite(measured.deviation) ? 1 : 0;
    for (std::size_t i = 0; i < 2; ++i) {
      ASSERT_EQ(residuals[i].size(), expected[i].size());
      for (std::size_t j = 0; j < residuals[i].size(); ++j) {
        ASSERT_TRUE(same_bits(residuals[i][j], expected[i][j])) << seed << ' ' << i << ' ' << j;
      }
    }
  }
  EXPECT_GE(finite_runs, 15) << "most of the comparison is about numbers";
}

}  // namespace
