#include "fast/plane_cell.h"

#include "simulation/random.h"
#include "tests/fast/fast_support.h"
#include "tests/literal/fast_calibration.h"

namespace {

using namespace fast_support;
using simulation::Random;

constexpr double kGuard = 2.220446049250313e-16;

struct Found {
  bool found;
  double coeffs[3] = {-7, -7, -7};
  double normal[3] = {-7, -7, -7};
  double axis_point[3] = {-7, -7, -7};
};

Found look_up(const fast_scene::Standard& standard, double x, double y, double z, int plane = 0) {
  Found result{};
  const double point[3] = {x, y, z};
  result.found = kestrane::lookup_plane_cell(point, standard.table(), plane, result.coeffs,
                                             result.normal, result.axis_point);
  return result;
}

TEST(LookupPlaneCell, GivesCoefficientsUnitNormalAndAxisPoint) {
  fast_scene::Standard standard(1);
  standard.cell(0, 7, 5) = {{-4.0, 0.0, 3.0}};
  const Found found = look_up(standard, 1.0, 0.0, 300.0);
  ASSERT_TRUE(found.found);
  EXPECT_EQ(found.coeffs[0], -4.0);
  EXPECT_EQ(found.coeffs[2], 3.0);
  EXPECT_EQ(found.normal[0], -0.8);
  EXPECT_EQ(found.normal[1], 0.0);
  EXPECT_EQ(found.normal[2], 0.6);
  EXPECT_EQ(found.axis_point[0], 0.25);
  EXPECT_EQ(found.axis_point[1], 0.0);
  EXPECT_EQ(found.axis_point[2], 0.0);
}

TEST(LookupPlaneCell, IgnoresX) {
  const fast_scene::Standard standard = flat_standard(1);
  EXPECT_TRUE(look_up(standard, kNaN, 0.0, 300.0).found);
  EXPECT_TRUE(look_up(standard, 1e300, 0.0, 300.0).found);
}

TEST(LookupPlaneCell, ReadsTheTableOfThePointsOwnPlane) {
  fast_scene::Standard standard = flat_standard(2);
  standard.fill(1, {{-2.0, 0.0, 0.0}});
  EXPECT_EQ(look_up(standard, 0.0, 0.0, 300.0, 1).coeffs[0], -2.0);
}

TEST(LookupPlaneCell, TruncatesDepthTowardZero) {
  fast_scene::Standard standard(1);
  standard.cell(0, 7, 0) = {{-1.0, 0.0, 0.0}};
  standard.cell(0, 7, 49) = {{-2.0, 0.0, 0.0}};
  EXPECT_EQ(look_up(standard, 0, 0, 150.0).coeffs[0], -1.0);
  EXPECT_EQ(look_up(standard, 0, 0, 123.5).coeffs[0], -1.0) << "just above -1 truncates to 0";
  EXPECT_FALSE(look_up(standard, 0, 0, 123.0).found);
  EXPECT_EQ(look_up(standard, 0, 0, 1499.5).coeffs[0], -2.0);
  EXPECT_FALSE(look_up(standard, 0, 0, 1500.0).found);
}

TEST(LookupPlaneCell, TruncatesTheFanPositionTowardZero) {
  fast_scene::Standard standard(1);
  standard.cell(0, 0, 5) = {{-1.0, 0.0, 0.0}};
  standard.cell(0, 14, 5) = {{-2.0, 0.0, 0.0}};
  const double start = standard.grids().grid_y_start[5];
  const double step = standard.grids().grid_y_step[5];
  EXPECT_EQ(look_up(standard, 0, start, 300.0).coeffs[0], -1.0);
  EXPECT_EQ(look_up(standard, 0, start - 0.99 * step, 300.0).coeffs[0], -1.0);
  EXPECT_FALSE(look_up(standard, 0, start - 1.01 * step, 300.0).found);
  EXPECT_EQ(look_up(standard, 0, start + 14.99 * step, 300.0).coeffs[0], -2.0);
  EXPECT_FALSE(look_up(standard, 0, start + 15.01 * step, 300.0).found);
}

TEST(LookupPlaneCell, GivesAPointOnAnEdgeToTheHigherCell) {
  fast_scene::Standard standard(1);
  // A grid with exact edges.
  for (int k = 0; k < 51; ++k) {
    standard.grids().grid_y_start[k] = -8.0;
    standard.grids().grid_y_step[k] = 1.0;
  }
  standard.cell(0, 8, 5) = {{-1.0, 0.0, 0.0}};
  standard.cell(0, 8, 6) = {{-2.0, 0.0, 0.0}};
  standard.cell(0, 9, 5) = {{-3.0, 0.0, 0.0}};
  EXPECT_EQ(look_up(standard, 0, 0.5, depth_of(6)).coeffs[0], -2.0);
  EXPECT_EQ(look_up(standard, 0, 1.0, depth_of(5)).coeffs[0], -3.0);
  EXPECT_EQ(look_up(standard, 0, 0.0, depth_of(5)).coeffs[0], -1.0);
}

TEST(LookupPlaneCell, RefusesPositionsThatAreNotNumbersOrHuge) {
  const fast_scene::Standard standard = flat_standard(1);
  for (const double bad : {kNaN, kInf, -kInf, 1e300, -1e300, 1e12}) {
    EXPECT_FALSE(look_up(standard, 0, bad, 300.0).found) << bad;
    EXPECT_FALSE(look_up(standard, 0, 0, bad).found) << bad;
  }
}

TEST(LookupPlaneCell, RefusesACellWhoseCoefficientsAreAllTiny) {
  fast_scene::Standard standard(1);
  EXPECT_FALSE(look_up(standard, 0, 0, 300.0).found);
  standard.cell(0, 7, 5) = {{2.2e-16, -2.2e-16, 2.2e-16}};
  const Found refused = look_up(standard, 0, 0, 300.0);
  EXPECT_FALSE(refused.found);
  EXPECT_EQ(refused.coeffs[0], -7) << "nothing is written";
  for (int i = 0; i < 3; ++i) {
    standard.cell(0, 7, 5) = {{0, 0, 0}};
    standard.cell(0, 7, 5).v[i] = -kGuard;
    EXPECT_TRUE(look_up(standard, 0, 0, 300.0).found) << i;
  }
}

TEST(LookupPlaneCell, TakesACellWithoutXForValid) {
  fast_scene::Standard standard(1);
  standard.cell(0, 7, 5) = {{0.0, 0.5, -0.25}};
  const Found found = look_up(standard, 0, 0, 300.0);
  ASSERT_TRUE(found.found);
  EXPECT_EQ(found.axis_point[0], 0.0);
  EXPECT_EQ(found.axis_point[1], -2.0);
  EXPECT_EQ(found.axis_point[2], 0.0);
}

TEST(LookupPlaneCell, PutsTheAxisPointOnTheLargestCoefficientAndTheEarlierOneOnATie) {
  fast_scene::Standard standard(1);
  const auto axis_point_of = [&](kestrane::_LASER_TRIPLE abc) {
    standard.cell(0, 7, 5) = abc;
    const Found found = look_up(standard, 0, 0, 300.0);
    return std::vector<double>(found.axis_point, found.axis_point + 3);
  };
  using Point = std::vector<double>;
  EXPECT_EQ(axis_point_of({{1, 1, 1}}), (Point{-1, 0, 0}));
  EXPECT_EQ(axis_point_of({{1, -2, 2}}), (Point{0, 0.5, 0}));
  EXPECT_EQ(axis_point_of({{1, 2, -4}}), (Point{0, 0, 0.25}));
  EXPECT_EQ(axis_point_of({{-4, 2, 4}}), (Point{0.25, 0, 0}));
  EXPECT_EQ(axis_point_of({{0, 0, 4}}), (Point{0, 0, -0.25}));
  EXPECT_EQ(axis_point_of({{0, kNaN, 4}}), (Point{0, 0, -0.25}));
}

// No coefficient is greater than a 0 in front, so none decides where the axis point lies.
TEST(LookupPlaneCell, HasNoAxisPointWhereOnlyNansFollowAnAOfZero) {
  fast_scene::Standard standard(1);
  for (const kestrane::_LASER_TRIPLE abc :
       {kestrane::_LASER_TRIPLE{{0, kNaN, 0}}, {{-0.0, 0, kNaN}}, {{0, kNaN, kNaN}}}) {
    standard.cell(0, 7, 5) = abc;
    const Found found = look_up(standard, 0, 0, 300.0);
    EXPECT_TRUE(found.found);
    for (const double coordinate : found.axis_point) EXPECT_EQ(coordinate, 0.0);
  }
}

TEST(LookupPlaneCell, LeavesACellThatIsNotANumberUnscaled) {
  fast_scene::Standard standard(1);
  standard.cell(0, 7, 5) = {{kNaN, 2.0, 1.0}};
  const Found found = look_up(standard, 0, 0, 300.0);
  ASSERT_TRUE(found.found);
  EXPECT_EQ(found.normal[1], 2.0);
  expect_same(found.axis_point[0], kNaN);
}

TEST(TransformPlane, KeepsAPlaneThatIsNotMoved) {
  const double abc[3] = {-0.5, 0.25, 0.125};
  double moved[3], d;
  kestrane::transform_plane(abc, moved, literal::identity(), d);
  EXPECT_EQ(d, 1.0);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(moved[i], abc[i]);
}

TEST(TransformPlane, ShiftsASheetAlongX) {
  _MRV_EXTRINSIC_PARAM shift = literal::identity();
  shift.T[0] = 4.0;
  const double sheet_at_4[3] = {-0.25, 0, 0};
  double moved[3], d;
  kestrane::transform_plane(sheet_at_4, moved, shift, d);
  EXPECT_EQ(d, 2.0);
  EXPECT_EQ(moved[0], -0.125) << "now at x = 8";
}

TEST(TransformPlane, TurnsASheetAboutZ) {
  const _MRV_EXTRINSIC_PARAM quarter = {{0, -1, 0, 1, 0, 0, 0, 0, 1}, {0, 0, 0}};
  const double sheet_at_4[3] = {-0.25, 0, 0};
  double moved[3], d;
  kestrane::transform_plane(sheet_at_4, moved, quarter, d);
  EXPECT_EQ(moved[0], 0.0);
  EXPECT_EQ(moved[1], -0.25) << "now at y = 4";
  EXPECT_EQ(moved[2], 0.0);
}

TEST(TransformPlane, DoesNotGuardTheDivisionByA) {
  const double abc[3] = {0.0, 0.5, 0.5};
  double moved[3], d;
  kestrane::transform_plane(abc, moved, literal::identity(), d);
  for (const double coefficient : moved) expect_same(coefficient, kNaN);
}

TEST(PlaneCell, AgreesWithTheLiteralFormOnRandomInput) {
  Random random(11);
  fast_scene::Standard standard(1);
  for (int j = 0; j < 15; ++j) {
    for (int k = 0; k < 50; ++k) {
      const double scale = std::pow(10.0, random.uniform(-18, 3));
      for (double& v : standard.cell(0, j, k).v) v = scale * random.gaussian();
      if (random.index(4) == 0) standard.cell(0, j, k).v[random.index(3)] = 0.0;
      if (random.index(40) == 0) standard.cell(0, j, k).v[random.index(3)] = kNaN;
      if (random.index(40) == 0) standard.cell(0, j, k).v[random.index(3)] = kInf;
    }
  }
  int hits = 0;
  for (int i = 0; i < 20000; ++i) {
    const double z = random.uniform(60, 1600);
    const double point[3] = {random.gaussian(), random.uniform(-0.7, 0.7) * z, z};
    Found expected{};
    expected.found = literal::lookup_plane_cell(point, standard.table(), 0, expected.coeffs,
                                                expected.normal, expected.axis_point);
    const Found found = look_up(standard, point[0], point[1], point[2]);
    ASSERT_EQ(found.found, expected.found);
    hits += found.found ? 1 : 0;
    if (!found.found) continue;
    _MRV_EXTRINSIC_PARAM motion;
    for (double& r : motion.R) r = random.gaussian();
    for (double& t : motion.T) t = 100 * random.gaussian();
    double moved[3], moved_expected[3], d;
    kestrane::transform_plane(found.coeffs, moved, motion, d);
    literal::transform_plane(found.coeffs, moved_expected, motion);
    for (int c = 0; c < 3; ++c) {
      ASSERT_TRUE(same_bits(found.coeffs[c], expected.coeffs[c]));
      ASSERT_TRUE(same_bits(found.normal[c], expected.normal[c]));
      ASSERT_TRUE(same_bits(found.axis_point[c], expected.axis_point[c]));
      ASSERT_TRUE(same_bits(moved[c], moved_expected[c]));
    }
  }
  EXPECT_GT(hits, 5000);
}

}  // namespace
