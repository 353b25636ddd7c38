#include "fast/interior_planes.h"

#include <algorithm>

#include "simulation/random.h"
#include "tests/fast/fast_support.h"
#include "tests/literal/fast_calibration.h"

namespace {

using namespace fast_support;
using simulation::Random;

// Bounds whose quotients are exact: line j begins at y = j - 8 at every depth.
kestrane::_LASER_PLANE_GRIDS unit_grids() {
  kestrane::_LASER_PLANE_GRIDS grids{};
  grids.z_start = 150.0;
  grids.z_step = 27.0;
  for (int k = 0; k < 51; ++k) {
    grids.grid_y_start[k] = -8.0;
    grids.grid_y_step[k] = 1.0;
  }
  return grids;
}

PlanePoints divided(const List& list, const kestrane::_LASER_PLANE_GRIDS& grids = unit_grids()) {
  PointSets points;
  kestrane::divide_into_interior_planes({list}, grids, points);
  EXPECT_EQ(points.size(), 1u);
  return points.at(0);
}

// A point at a position across the fan given in lines; x is its number.
_KESTRANE_ID_POINT3D at_line(double line, double number, double z = 300.0) {
  return {number, line - 8.0, z, 0};
}

std::vector<double> numbers(const PlanePoints& points) {
  std::vector<double> x;
  for (Eigen::Index j = 0; j < points.cols(); ++j) x.push_back(points(0, j));
  return x;
}

using Numbers = std::vector<double>;

// Too few points for a fit: what comes out shows the zones, one after the other.

TEST(DivideIntoInteriorPlanes, PutsLinesFourFiveNineAndTenIntoTheirZones) {
  const List list = {at_line(10, 1), at_line(4, 2), at_line(9, 3), at_line(5, 4), at_line(4, 5)};
  EXPECT_EQ(numbers(divided(list)), (Numbers{2, 5, 3, 4, 1}));
}

TEST(DivideIntoInteriorPlanes, DividesAtTheLinesLowerEdges) {
  const List list = {at_line(9.99, 1), at_line(4.99, 2), at_line(10.0, 3), at_line(5.0, 4)};
  EXPECT_EQ(numbers(divided(list)), (Numbers{2, 1, 4, 3}));
}

TEST(DivideIntoInteriorPlanes, LeavesTheLastZoneOpen) {
  const List list = {at_line(20, 1), at_line(15, 2), at_line(1e12, 3), at_line(0, 4)};
  EXPECT_EQ(numbers(divided(list)), (Numbers{4, 1, 2, 3}));
}

TEST(DivideIntoInteriorPlanes, TakesAnInfinitePositionForBeyondTheLastLine) {
  const List list = {{1, kInf, 300, 0}, {2, -8.0, 300, 0}};
  EXPECT_EQ(numbers(divided(list)), (Numbers{2, 1}));
}

TEST(DivideIntoInteriorPlanes, TruncatesALineJustBelowZeroIntoTheFirstZone) {
  const List list = {at_line(-0.5, 1), at_line(-1.0, 2), at_line(-0.99, 3), at_line(-7, 4)};
  EXPECT_EQ(numbers(divided(list)), (Numbers{1, 3}));
}

TEST(DivideIntoInteriorPlanes, DropsPointsOutsideTheDepth) {
  const List list = {at_line(3, 1, 150.0 + 50 * 27.0), at_line(20, 2, 1600), at_line(3, 3, 123),
                     at_line(3, 4, 123.5), at_line(3, 5, 1499)};
  EXPECT_EQ(numbers(divided(list)), (Numbers{4, 5}));
}

TEST(DivideIntoInteriorPlanes, DropsPositionsThatAreNotNumbers) {
  const List list = {{1, kNaN, 300, 0}, {2, 0, kNaN, 0},  {3, -kInf, 300, 0},
                     {4, 0, kInf, 0},   {5, 0, -kInf, 0}, {6, 0, 1e300, 0}};
  EXPECT_EQ(divided(list).cols(), 0);
}

TEST(DivideIntoInteriorPlanes, GivesAMatrixWithoutColumnsForAnEmptyList) {
  PointSets points;
  kestrane::divide_into_interior_planes({List{}, {at_line(3, 1)}, List{}}, unit_grids(), points);
  ASSERT_EQ(points.size(), 3u);
  EXPECT_EQ(points[0].cols(), 0);
  EXPECT_EQ(points[1].cols(), 1);
  EXPECT_EQ(points[2].cols(), 0);
}

TEST(DivideIntoInteriorPlanes, AppendsToWhatIsThere) {
  PointSets points(2);
  kestrane::divide_into_interior_planes({{at_line(3, 1)}}, unit_grids(), points);
  EXPECT_EQ(points.size(), 3u);
}

TEST(DivideIntoInteriorPlanes, KeepsAZoneThatCannotBeFitted) {
  List list;
  for (int i = 0; i < 50; ++i) list.push_back(at_line(i % 5, 1000.0 * i, 400.0));
  list.push_back(at_line(2, -50, 230));
  list.push_back(at_line(2, 5000, 231));
  EXPECT_EQ(divided(list).cols(), 52) << "two points in the depth band make no plane";
}

// The sheet x = 128 in all three zones, so that the fit is exact.
List sheet_of_zones() {
  List list;
  for (const int line : {1, 3, 6, 8, 11, 13}) {
    for (int i = 0; i < 8; ++i) list.push_back(at_line(line, 128.0, 224.0 + 16.0 * i));
  }
  return list;
}

TEST(DivideIntoInteriorPlanes, DropsAPointFartherThanTwoFromItsZonesPlane) {
  List list = sheet_of_zones();
  const auto count = static_cast<Eigen::Index>(list.size());
  // Outside the band, so that the fit does not see them.
  list.push_back(at_line(2, 130.0, 400));
  list.push_back(at_line(7, 126.0, 200));
  list.push_back(at_line(12, 130.0000001, 400));
  list.push_back(at_line(12, 125.9999999, 400));
  EXPECT_EQ(divided(list).cols(), count + 2) << "exactly 2.0 stays";
}

TEST(DivideIntoInteriorPlanes, FitsEachZoneItsOwnPlane) {
  List list = sheet_of_zones();
  for (auto& point : list) {
    if (point.y >= 2.0) point.x += 40.0;  // zone 2
  }
  EXPECT_EQ(divided(list).cols(), static_cast<Eigen::Index>(list.size()));
}

TEST(DivideIntoInteriorPlanes, TakesTheBandFrom220To350IntoTheFit) {
  // Points beyond the band lie on another sheet; they are many, and only measured.
  List list;
  for (int i = 0; i < 20; ++i) list.push_back(at_line(i % 5, 128, 220.0 + 6.5 * i));
  for (int i = 0; i < 400; ++i) list.push_back(at_line(i % 5, 138, 350.5 + 0.25 * i));
  for (int i = 0; i < 400; ++i) list.push_back(at_line(i % 5, 138, 219.5 - 0.1 * i));
  EXPECT_EQ(numbers(divided(list)), Numbers(20, 128.0));
}

TEST(DivideIntoInteriorPlanes, KeepsAPointWhoseDistanceIsNotANumber) {
  List list = sheet_of_zones();
  const auto count = static_cast<Eigen::Index>(list.size());
  list.push_back(at_line(2, kNaN, 400));
  list.push_back(at_line(2, 1e300, 400));
  EXPECT_EQ(divided(list).cols(), count + 1);
}

TEST(DivideIntoInteriorPlanes, GoesByThePlaneOfAFitThatFailedAfterwards) {
  // The corners of a tetrahedron in the last zone: any plane through their middle has all of them
  // beyond the limit of the fit's rejection, which leaves no row.
  const List list = {at_line(10, 100, 280), at_line(10, 180, 320), at_line(60, 100, 320),
                     at_line(60, 180, 280)};
  double plane[4] = {0, 0, 0, 0};
  fit_by_library(matrix_of(list).transpose(), plane);
  double length = 0;
  for (int i = 0; i < 3; ++i) length += plane[i] * plane[i];
  constexpr double kRounding = 1e-12;
  ASSERT_NEAR(length, 1.0, kRounding) << "written before the failure";
  double nearest = kInf;
  for (const auto& p : list) {
    nearest =
        std::min(nearest, std::abs(plane[0] * p.x + plane[1] * p.y + plane[2] * p.z + plane[3]));
  }
  ASSERT_GT(nearest, 2.0);
  EXPECT_EQ(divided(list).cols(), 0);
}

TEST(DivideIntoInteriorPlanes, DividesByTheNormalsLengthToTheLastBit) {
  int told_apart = 0;
  for (int tilt = 1; tilt <= 20; ++tilt) {
    List list;
    for (int i = 0; i < 24; ++i) {
      const double z = 224.0 + 5.0 * i;
      list.push_back(at_line(i % 5, 128.0 + 0.03 * tilt * (i % 5) - 0.01 * tilt * z, z));
    }
    double plane[4] = {0, 0, 0, 0};
    fit_by_library(matrix_of(list).transpose(), plane);
    const double a = plane[0], b = plane[1], c = plane[2], d = plane[3];
    // Neighbouring doubles about the place where the distance passes the limit, out of the band.
    double x = (2.0 - b * -6.0 - c * 400.0 - d) / a;
    for (int step = 0; step < 60; ++step) x = std::nextafter(x, -kInf);
    auto expected = static_cast<Eigen::Index>(list.size());
    for (int step = 0; step < 120; ++step) {
      x = std::nextafter(x, kInf);
      list.push_back({x, -6.0, 400.0, 0});
      const double off = std::abs(a * x + b * -6.0 + c * 400.0 + d);
      const bool far = off / std::sqrt(a * a + b * b + c * c) > 2.0;
      if (!far) ++expected;
      if (far != (off > 2.0)) ++told_apart;
    }
    EXPECT_EQ(divided(list).cols(), expected) << tilt;
  }
  EXPECT_GT(told_apart, 0);
}

TEST(DivideIntoInteriorPlanes, EqualsTheLiteralFormOnRandomInput) {
  const fast_scene::Standard standard(1);
  Eigen::Index kept = 0, all = 0;
  for (std::uint64_t seed = 0; seed < 60; ++seed) {
    Random random(seed);
    FrameLists lists(static_cast<std::size_t>(1 + random.index(4)));
    for (List& list : lists) {
      const int count = random.index(5) == 0 ? random.index(12) : random.index(600);
      for (int i = 0; i < count; ++i) {
        const double z = random.uniform(100, 450);
        const double y = random.uniform(-0.62, 0.62) * z;
        double x = 120 + 0.02 * y - 0.1 * z + random.gaussian();
        if (random.index(10) == 0) x += random.uniform(-30, 30);
        if (random.index(9000) == 0) x = kNaN;
        list.push_back({x, y, z, 0});
      }
      all += static_cast<Eigen::Index>(list.size());
    }
    PointSets points, expected;
    kestrane::divide_into_interior_planes(lists, standard.grids(), points);
    literal::divide_interior_planes(lists, standard.grids(), fit_by_library, expected);
    ASSERT_EQ(points.size(), expected.size());
    for (std::size_t i = 0; i < points.size(); ++i) {
      expect_same(points[i], expected[i]);
      kept += points[i].cols();
    }
  }
  EXPECT_LT(kept, all);
  EXPECT_GT(kept, all / 2);
}

}  // namespace
