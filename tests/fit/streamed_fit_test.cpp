#include "fit/streamed_fit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "fit/plane_fit.h"
#include "tests/fit/plane_clouds.h"
#include "tests/literal/plane_fit.h"

namespace {

using namespace plane_clouds;
using kestrane::best_row_vectors;
using kestrane::fit_in_band;
using kestrane::fit_in_band_by_decomposition;
using kestrane::RobustFit;
using kestrane::RowVectors;

constexpr DepthBand kBand{100, 1000};
constexpr DepthBand kEverywhere{std::numeric_limits<std::int32_t>::min(),
                                std::numeric_limits<std::int32_t>::max()};

struct Literal {
  Result result;
  bool complete;

  Literal(const PointMatrix3& points, DepthBand band)
      : complete(literal::fit_plane_robust(points, result.plane, result.stats, result.inliers, band,
                                           0)) {}
};

Result result_of(const RobustFit& robust) {
  return {robust.fit->plane, robust.fit->stats, robust.inliers};
}

// Rows to the last bit, in both vector sets, which agree in every number.
RobustFit expect_literal_rows(const PointMatrix3& points, DepthBand band) {
  const Literal expected(points, band);
  RobustFit robust = fit_in_band(points, band, kestrane::Wanted::kAll, RowVectors::kBaseline);
  EXPECT_EQ(robust.complete, expected.complete);
  if (expected.complete) {
    EXPECT_TRUE(same(robust.inliers, expected.result.inliers));
  } else {
    EXPECT_EQ(robust.inliers.rows(), 0);
  }
  const RobustFit wide = fit_in_band(points, band, kestrane::Wanted::kAll, best_row_vectors());
  const RobustFit alone = fit_in_band(points, band, kestrane::Wanted::kPlane);
  EXPECT_EQ(alone.complete, robust.complete);
  EXPECT_EQ(alone.decompositions, robust.decompositions);
  EXPECT_EQ(alone.inliers.rows(), 0);
  if (robust.fit && alone.fit) {
    EXPECT_TRUE(same(alone.fit->plane, robust.fit->plane));
    EXPECT_TRUE(same(alone.fit->stats, {0.0, 0.0, 0.0}));
  } else {
    EXPECT_EQ(robust.fit.has_value(), alone.fit.has_value());
  }
  EXPECT_EQ(wide.complete, robust.complete);
  EXPECT_EQ(wide.decompositions, robust.decompositions);
  if (robust.fit && wide.fit) {
    EXPECT_TRUE(same(result_of(robust), result_of(wide)));
  } else {
    EXPECT_EQ(robust.fit.has_value(), wide.fit.has_value());
  }
  return robust;
}

// The same, with plane and statistics to rounding.
RobustFit expect_literal_fit(const PointMatrix3& points, DepthBand band, double far = 1e3) {
  RobustFit robust = expect_literal_rows(points, band);
  if (robust.fit) {
    EXPECT_TRUE(same_to_rounding(result_of(robust), Literal(points, band).result, far));
  }
  return robust;
}

Sheet any_sheet(Random& random) {
  return {random.uniform(-200.0, 200.0), random.uniform(-0.3, 0.3), random.uniform(-0.5, 0.5),
          std::pow(10.0, random.uniform(-2.0, 0.5)), random.uniform(0.0, 0.3)};
}

TEST(FitInBand, KeepsTheRowsOfItsLiteralFormForSheetsOfAllKinds) {
  Random random(1);
  int streamed = 0;
  for (int run = 0; run < 400; ++run) {
    const PointMatrix3 points = sheet_cloud(random, 64 + random.index(4000), any_sheet(random));
    if (expect_literal_fit(points, kBand).decompositions == 0) ++streamed;
    ASSERT_FALSE(HasFailure()) << run;
  }
  EXPECT_GE(streamed, 380);
}

TEST(FitInBand, KeepsTheRowsOfItsLiteralFormAroundEveryBorderOfWordsAndShortClouds) {
  Random random(2);
  for (Eigen::Index count = 3; count < 330; ++count) {
    expect_literal_fit(sheet_cloud(random, count, any_sheet(random)), kBand);
    ASSERT_FALSE(HasFailure()) << count;
  }
  for (const Eigen::Index count : {511, 512, 513, 16383, 16384, 16385}) {
    expect_literal_fit(sheet_cloud(random, count, {}), kBand);
  }
}

// A quarter of the rows lies `height` off the plane, half of it on either side, the others in it:
// two sigmas are `height`, and rounding alone decides which of those rows stay.
PointMatrix3 rows_on_both_bounds(Random& random, Eigen::Index quads, double height) {
  const Eigen::Matrix3d tilt =
      Eigen::AngleAxisd(random.uniform(-0.3, 0.3),
                        Eigen::Vector3d(0.0, random.uniform(-1.0, 1.0), 1.0).normalized())
          .toRotationMatrix();
  const Eigen::RowVector3d centre(random.uniform(10.0, 200.0), 0.0, 500.0);
  PointMatrix3 points(4 * quads, 3);
  for (Eigen::Index i = 0; i < quads; ++i) {
    const double x = i % 4 == 0 ? height : 0.0;
    const double y = 1.0 + random.index(100);
    const double z = random.index(50);
    points.middleRows(4 * i, 4) << x, y, z, x, -y, -z, -x, y, z, -x, -y, -z;
  }
  return (points * tilt.transpose()).rowwise() + centre;
}

TEST(FitInBand, KeepsTheRowsOfItsLiteralFormWhereRoundingDecides) {
  Random random(3);
  int decomposed = 0;
  for (int run = 0; run < 200; ++run) {
    const double height = run % 3 == 0 ? 2.5 : random.uniform(0.1, 2.5);
    const RobustFit robust = expect_literal_rows(
        rows_on_both_bounds(random, 20 + random.index(600), height), kEverywhere);
    if (robust.decompositions > 0) ++decomposed;
    ASSERT_FALSE(HasFailure()) << run;
  }
  EXPECT_GE(decomposed, 100);
}

TEST(FitInBand, KeepsTheRowsOfItsLiteralFormFarFromTheOrigin) {
  Random random(4);
  for (int run = 0; run < 200; ++run) {
    const double far = std::pow(10.0, random.uniform(4.0, 12.0));
    const Box box{random_rotation(random),
                  {100.0, 80.0, std::pow(10.0, random.uniform(-3.0, 1.0))},
                  {far, 0.3 * far, random.index(2) * 2.0 * far}};
    expect_literal_rows(box_cloud(random, 64 + random.index(2000), box), kEverywhere);
    ASSERT_FALSE(HasFailure()) << run << " at " << far;
  }
}

TEST(FitInBand, KeepsTheRowsOfItsLiteralFormAtEveryScale) {
  Random random(5);
  for (int run = 0; run < 200; ++run) {
    const double size = std::pow(10.0, random.uniform(-15.0, -3.0));
    const Box box{random_rotation(random), {size, size, 0.01 * size}, {50.0, 3.0, 500.0}};
    expect_literal_rows(box_cloud(random, 64 + random.index(2000), box), kEverywhere);
    ASSERT_FALSE(HasFailure()) << run << " of " << size;
  }
  for (const double scale : {1e-305, 1e-150, 1e-80, 1e-20, 1e20, 1e80, 1e150, 1e160, 1e305}) {
    const PointMatrix3 points =
        scale * box_cloud(random, 700, {random_rotation(random), {9, 6, 0.4}, {5, 50, 20}});
    expect_literal_rows(points, kEverywhere);
    EXPECT_FALSE(HasFailure()) << scale;
  }
}

// Lines, points, rods, needles and planes without thickness; rows that repeat; grids.
TEST(FitInBand, KeepsTheRowsOfItsLiteralFormForDegenerateClouds) {
  Random random(6);
  const Eigen::Vector3d centre(100.0, 20.0, 500.0);
  for (const Eigen::Vector3d& spreads :
       {Eigen::Vector3d(90.0, 0.0, 0.0), Eigen::Vector3d(90.0, 60.0, 0.0),
        Eigen::Vector3d(90.0, 1e-7, 1e-9), Eigen::Vector3d(0.0, 0.0, 0.0),
        Eigen::Vector3d(90.0, 1.0, 1.0 - 1e-9), Eigen::Vector3d(90.0, 60.0, 1e-6),
        Eigen::Vector3d(90.0, 1.0, 0.5), Eigen::Vector3d(90.0, 3.0, 0.01),
        Eigen::Vector3d(2.0, 2.0, 2.0), Eigen::Vector3d(90.0, 90.0, 1e-3)}) {
    for (const Eigen::Index count : {64, 65, 500, 3000}) {
      for (const bool tilted : {false, true}) {
        Box box{Eigen::Matrix3d::Identity(), spreads, centre};
        if (tilted) box.axes = random_rotation(random);
        PointMatrix3 points = box_cloud(random, count, box);
        expect_literal_rows(points, kEverywhere);
        points = points.array().round();
        expect_literal_rows(points, kEverywhere);
        for (Eigen::Index i = 0; i < count; ++i) points.row(i) = points.row(i % 7).eval();
        expect_literal_rows(points, kEverywhere);
        ASSERT_FALSE(HasFailure()) << spreads.transpose() << ", " << count << " rows";
      }
    }
  }
}

TEST(FitInBand, KeepsTheRowsOfItsLiteralFormAmongNumbersThatAreNotFinite) {
  Random random(7);
  for (int run = 0; run < 120; ++run) {
    PointMatrix3 points = sheet_cloud(random, 64 + random.index(1000), {});
    const double odd[] = {kNaN, kInf, -kInf, 1e200, -1e308, 1e120, 1e30};
    for (int k = 0; k <= random.index(3); ++k) {
      points(random.index(static_cast<int>(points.rows())), random.index(3)) = odd[random.index(7)];
    }
    expect_literal_rows(points, run % 2 == 0 ? kBand : kEverywhere);
    ASSERT_FALSE(HasFailure()) << run;
  }
}

// Rows far out, which the first rejection takes, and clouds in which it takes most rows.
TEST(FitInBand, KeepsTheRowsOfItsLiteralFormAmongRowsThatStandFarOut) {
  Random random(8);
  for (int run = 0; run < 150; ++run) {
    PointMatrix3 points = sheet_cloud(random, 64 + random.index(2000), {.outliers = 0.5});
    const double far = std::pow(10.0, random.uniform(2.0, 9.0));
    for (int k = 0; k < random.index(4); ++k) {
      points(random.index(static_cast<int>(points.rows())), random.index(2)) += far;
    }
    expect_literal_rows(points, kBand);
    ASSERT_FALSE(HasFailure()) << run << ", " << far;
  }
}

// Every row and its mirror image: the origin lies in the plane and the sides tie.
TEST(FitInBand, KeepsTheRowsOfItsLiteralFormForPlanesThroughTheOrigin) {
  Random random(9);
  for (int run = 0; run < 100; ++run) {
    const Eigen::Index half = 40 + random.index(800);
    const Box box{random_rotation(random), {80.0, 60.0, 1.0}, {0.0, 0.0, 0.0}};
    const PointMatrix3 front = box_cloud(random, half, box);
    PointMatrix3 points(2 * half, 3);
    points << front, -front;
    if (run % 2 == 1) points.rowwise() += 1e-12 * Eigen::RowVector3d(1.0, 2.0, 3.0);
    expect_literal_rows(points, kEverywhere);
    ASSERT_FALSE(HasFailure()) << run;
  }
}

// Sorted rows, and rows all on one side first: partial sums walk far from 0.
TEST(FitInBand, KeepsTheRowsOfItsLiteralFormWhateverTheirOrder) {
  Random random(10);
  for (int run = 0; run < 60; ++run) {
    PointMatrix3 points = sheet_cloud(random, 2000 + random.index(4000), {.noise = 0.3});
    std::vector<Eigen::Index> order(static_cast<std::size_t>(points.rows()));
    for (std::size_t i = 0; i < order.size(); ++i) order[i] = static_cast<Eigen::Index>(i);
    const auto height = [&](Eigen::Index i) {
      return points(i, 0) - 0.02 * points(i, 1) - 0.15 * points(i, 2);
    };
    std::sort(order.begin(), order.end(), [&](Eigen::Index a, Eigen::Index b) {
      return run % 2 == 0 ? height(a) < height(b) : points(a, 2) < points(b, 2);
    });
    const PointMatrix3 sorted = points(order, Eigen::all);
    expect_literal_fit(sorted, kBand);
    ASSERT_FALSE(HasFailure()) << run;
  }
}

// What a device gives: no row near enough to a bound to ask the decomposition.
TEST(FitInBand, DecidesSheetsOfADeviceWithoutADecomposition) {
  Random random(11);
  for (const double noise : {0.02, 0.05, 0.2}) {
    const PointMatrix3 points = sheet_cloud(random, 100000, {.noise = noise});
    EXPECT_EQ(expect_literal_fit(points, kBand).decompositions, 0) << noise;
  }
}

TEST(FitInBand, ReducesNarrowCloudsByReflections) {
  Random random(12);
  int streamed = 0;
  for (int run = 0; run < 60; ++run) {
    const double narrow = random.uniform(2.0, 9.0);
    const Box box{random_rotation(random), {100.0, narrow, 0.3}, {90.0, -30.0, 400.0}};
    const PointMatrix3 points = box_cloud(random, 100 + random.index(3000), box);
    if (expect_literal_fit(points, kEverywhere).decompositions == 0) ++streamed;
    ASSERT_FALSE(HasFailure()) << run;
  }
  EXPECT_GE(streamed, 55);
}

// A row is moved onto a bound of one rejection and the other: that one is decomposed, no other.
TEST(FitInBand, ConfinesTheDecompositionToTheRejectionThatNeedsIt) {
  Random random(13);
  const Box box{Eigen::Matrix3d::Identity(), {0.5, 80.0, 60.0}, {50.0, 20.0, 500.0}};
  PointMatrix3 points = box_cloud(random, 2000, box);
  ASSERT_EQ(expect_literal_fit(points, kEverywhere).decompositions, 0);
  for (int turn = 0; turn < 60; ++turn) {  // the row moves the plane with it, ever less
    PlaneAbcd plane;
    PlaneFitStats stats;
    ASSERT_TRUE(literal::fit_plane_svd(points, plane, stats));
    const double height = plane.head<3>().dot(points.row(7).transpose()) + plane[3];
    points.row(7) += ((2.5 - height) * plane.head<3>()).transpose();
  }
  EXPECT_EQ(expect_literal_fit(points, kEverywhere).decompositions, 1);

  points = box_cloud(random, 2000, box);
  for (int turn = 0; turn < 60; ++turn) {
    PlaneAbcd plane;
    PlaneFitStats stats;
    ASSERT_TRUE(literal::fit_plane_svd(points, plane, stats));
    std::vector<double> distances;
    literal::plane_signed_distances(points, plane, distances);
    double squares = 0.0;
    for (const double d : distances) squares += d * d;
    const double bound = 2.0 * std::sqrt(squares / static_cast<double>(distances.size()));
    const double height = plane.head<3>().dot(points.row(7).transpose()) + plane[3];
    points.row(7) += ((bound - height) * plane.head<3>()).transpose();
  }
  EXPECT_EQ(expect_literal_fit(points, kEverywhere).decompositions, 1);
}

// Rows on few places, whose coordinates round the same way again and again as they are added up:
// the centroid of the literal form is off by more than the tolerance, and so must be ours.
TEST(StreamedPlaneFit, GoesThroughTheCentroidOfItsLiteralForm) {
  PointMatrix3 points(60000, 3);
  for (Eigen::Index i = 0; i < points.rows(); ++i) {
    const auto side = static_cast<double>(i % 2);
    const auto y = static_cast<double>(i / 2 % 2);
    points.row(i) << 500.1 + side, 10.1 + 200.0 * y, 300.1 + 150.0 * static_cast<double>(i / 4 % 2);
  }
  const auto fit = kestrane::streamed_plane_fit(points);
  ASSERT_TRUE(fit);
  Result expected;
  ASSERT_TRUE(literal::fit_plane_svd(points, expected.plane, expected.stats));
  const auto mean = static_cast<double>(points.col(0).cast<long double>().mean());
  EXPECT_GT(std::abs(std::abs(expected.plane[3]) - mean), 4e-10);
  EXPECT_TRUE(same_to_rounding({fit->plane, fit->stats, expected.inliers}, expected));
}

// The same with thin clouds, whose width the moments tell with few digits.
TEST(FitInBand, KeepsTheRowsOfItsLiteralFormWhereRoundingDecidesInThinClouds) {
  Random random(16);
  for (int run = 0; run < 60; ++run) {
    const double height = std::pow(10.0, random.uniform(-7.0, -2.0));
    expect_literal_rows(rows_on_both_bounds(random, 4 * (5 + random.index(25)), height),
                        kEverywhere);
    ASSERT_FALSE(HasFailure()) << run;
  }
}

// The sum of all distances, about which the band lies, is what rounding has left the centroid off
// by, once for every row: here far more than the bounds. It moves the rows on one bound into the
// band and those on the other one out of it.
TEST(FitInBand, KeepsTheRowsOfItsLiteralFormAboutASumOfDistancesThatIsNotSmall) {
  PointMatrix3 points(19200, 3);
  for (Eigen::Index i = 0; i < points.rows(); ++i) {
    const double off = i % 8 == 0 ? 0.5 : i % 8 == 4 ? -0.5 : 0.0;
    points.row(i) << 500.1 + off, 10.1 + 200.0 * static_cast<double>(i / 8 % 2),
        300.1 + 150.0 * static_cast<double>(i / 16 % 2);
  }
  const RobustFit robust = expect_literal_rows(points, kEverywhere);
  EXPECT_EQ(robust.inliers.rows(), points.rows() / 8 * 7);
  EXPECT_EQ(robust.decompositions, 0);
}

// Quads of rows at (x, +-y, +-z), of which none turns the others' plane.
PointMatrix3 quads_at(const std::vector<double>& x) {
  PointMatrix3 points(4 * static_cast<Eigen::Index>(x.size()), 3);
  for (std::size_t i = 0; i < x.size(); ++i) {
    points.middleRows<4>(4 * static_cast<Eigen::Index>(i)) << x[i], 300, 200, x[i], -300, 200, x[i],
        300, -200, x[i], -300, -200;
  }
  return points;
}

// Rows far from the plane on either side, and two whose distance is the limit but for rounding.
TEST(FitInBand, FailsWhereRoundingDecidesAndTooFewRowsAreLeft) {
  std::vector<double> x;
  for (int i = 0; i < 20; ++i) x.push_back(i % 2 == 0 ? 150.0 : -50.0);
  PointMatrix3 points(82, 3);
  points << quads_at(x), 52.5, 0.0, 0.0, 47.5, 0.0, 0.0;
  const RobustFit robust = expect_literal_fit(points, kEverywhere);
  EXPECT_FALSE(robust.complete);
  EXPECT_GE(robust.decompositions, 1);
}

// The decomposed plane's constant term is the guard's opposite: every distance is a division by 0,
// and not a number keeps its row.
TEST(FitInBand, KeepsTheRowsOfItsLiteralFormWhereTheGuardVanishes) {
  for (const double off : {0x1p-46, -0x1p-46}) {
    for (const double far : {3.0, 2.25}) {  // beyond the first limit, and beyond the sigma band
      std::vector<double> x = {far, -far};
      for (int i = 0; i < 14; ++i) x.push_back((far > 2.5 ? far : 0.125) * (i % 2 == 0 ? 1 : -1));
      PointMatrix3 points = quads_at(x);
      points.row(0) << far + off, 0.0, 0.0;
      points.row(4) << -far, 0.0, 0.0;
      expect_literal_rows(points, kEverywhere);
      EXPECT_FALSE(HasFailure()) << off << ' ' << far;
    }
  }
}

// Nothing is left of the plane before, which stood elsewhere.
TEST(FitInBand, DecomposesASinglePointAfterAPlane) {
  Random random(17);
  const Box box{random_rotation(random), {100.0, 80.0, 0.5}, {0.0, 0.0, 1000.0}};
  const PointMatrix3 plane = box_cloud(random, 100, box);
  const PointMatrix3 point = PointMatrix3::Constant(100, 3, 8.0);
  for (int run = 0; run < 3; ++run) {
    EXPECT_EQ(fit_in_band(plane, kEverywhere, kestrane::Wanted::kAll).decompositions, 0);
    const RobustFit robust = fit_in_band(point, kEverywhere, kestrane::Wanted::kAll);
    EXPECT_EQ(robust.decompositions, 3);
    EXPECT_EQ(robust.inliers, point);
  }
}

// Rows out of the band, however far out or many they are among those from which the first centre is
// taken, leave no trace.
TEST(FitInBand, TakesTheFirstCentreFromRowsInTheBand) {
  Random random(18);
  const PointMatrix3 sheet = sheet_cloud(random, 6400, {});
  ASSERT_EQ(expect_literal_fit(sheet, kBand).decompositions, 0);
  for (const double z : {1e200, -1e200}) {
    PointMatrix3 points = sheet;
    points(0, 2) = z;
    EXPECT_EQ(expect_literal_fit(points, kBand).decompositions, 0) << z;
    for (Eigen::Index i = 0; i < points.rows(); i += 100) points(i, 2) = z;
    EXPECT_EQ(expect_literal_fit(points, kBand).decompositions, 0) << "all at " << z;
  }
}

// Rows of which the second rejection leaves sixty, and a hundred of which the first leaves forty.
TEST(FitInBand, DecomposesOnlyTheFitsOfAShortCloud) {
  std::vector<double> x = {52.0, 48.0};
  for (int i = 0; i < 15; ++i) x.push_back(50.0 + 0.01 * (i % 3 - 1));
  RobustFit robust = expect_literal_fit(quads_at(x), kEverywhere);
  EXPECT_EQ(robust.inliers.rows(), 60);
  EXPECT_EQ(robust.decompositions, 1);

  x.clear();
  for (int i = 0; i < 10; ++i) x.push_back(50.0 + (i % 2 == 0 ? 0.5 : -0.5));
  for (int i = 0; i < 14; ++i) x.push_back(50.0 + (i % 2 == 0 ? 20.0 : -20.0));
  robust = expect_literal_fit(quads_at(x), kEverywhere);
  EXPECT_EQ(robust.inliers.rows(), 40);
  EXPECT_EQ(robust.decompositions, 2);
}

TEST(StreamedPlaneFit, IsNoneWhereSquaresAreOutOfRange) {
  Random random(19);
  const PointMatrix3 points =
      box_cloud(random, 700, {random_rotation(random), {9, 6, 0.4}, {5, 50, 20}});
  EXPECT_TRUE(kestrane::streamed_plane_fit(1e60 * points));
  EXPECT_FALSE(kestrane::streamed_plane_fit(1e71 * points));
}

// A few more rows lie behind the origin, all but as far from the plane as it is from the origin.
TEST(StreamedPlaneFit, TurnsTowardsMostOfItsRows) {
  constexpr Eigen::Index kRows = 20001;
  constexpr double kFront = 10.0, kBack = kFront * 10000.0 / 10001.0;
  PointMatrix3 points(kRows, 3);
  for (Eigen::Index i = 0; i < kRows; ++i) {
    const double y = static_cast<double>(i * 37 % 401) - 200.0;
    const double z = static_cast<double>(i * 53 % 397) - 198.0;
    points.row(i) << 0.9995 * kFront + (i % 2 == 1 ? kFront : -kBack), y, z;
  }
  const auto fit = kestrane::streamed_plane_fit(points);
  ASSERT_TRUE(fit);
  PlaneAbcd expected;
  PlaneFitStats stats;
  ASSERT_TRUE(literal::fit_plane_svd(points, expected, stats));
  EXPECT_GT(fit->plane.head<3>().dot(expected.head<3>()), 0.99);
  EXPECT_LT(fit->plane[0], 0.0);
}

// Far along a thin sheet, rounding reaches further than its back stands off the origin, where a few
// more than half of the rows lie: the side is undecided.
TEST(StreamedPlaneFit, IsNoneWhereRoundingReachesToMostOfItsRows) {
  constexpr double kFront = 0.02, kBack = kFront * 2500.0 / 2501.0;
  for (const double off : {1.002, 2.0}) {  // of the plane, in distances of the front from it
    std::vector<double> x;
    for (int i = 0; i < 5001; ++i) x.push_back(off * kFront + (i % 2 == 1 ? kFront : -kBack));
    PointMatrix3 points = quads_at(x);
    points.col(1).array() += 1e7;
    EXPECT_EQ(kestrane::streamed_plane_fit(points).has_value(), off == 2.0) << off;
  }
}

TEST(FitInBand, FailsWithoutAFitForFewerThanThreeRows) {
  Random random(14);
  for (const Eigen::Index count : {0, 1, 2, 100}) {
    const PointMatrix3 points = sheet_cloud(random, count, {});
    const RobustFit robust = fit_in_band(points, {5000, 6000}, kestrane::Wanted::kAll);
    EXPECT_FALSE(robust.complete);
    EXPECT_FALSE(robust.fit);
    EXPECT_EQ(robust.inliers.rows(), 0);
  }
}

TEST(FitInBandByDecomposition, EqualsItsLiteralFormToTheLastBit) {
  Random random(15);
  for (int run = 0; run < 200; ++run) {
    const PointMatrix3 points = sheet_cloud(random, 3 + random.index(2000), any_sheet(random));
    const Literal expected(points, kBand);
    const RobustFit robust = fit_in_band_by_decomposition(points, kBand);
    ASSERT_EQ(robust.complete, expected.complete);
    if (!robust.complete) continue;
    ASSERT_EQ(robust.decompositions, 3);
    ASSERT_TRUE(same(result_of(robust), expected.result)) << run;
  }
}

}  // namespace
