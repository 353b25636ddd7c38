// What is known of the rows in use, worked out again from the passes and the bounds by themselves.
#include "fit/streamed_rows.h"

#include <gtest/gtest.h>

#include <Eigen/Eigenvalues>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>
#include <vector>

#include "fit/plane_decomposition.h"
#include "records/guard.h"
#include "tests/fit/plane_clouds.h"

namespace {

using namespace plane_clouds;
using kestrane::CloudShape;
using kestrane::Moments;
using kestrane::StreamedPlane;
using kestrane::StreamedRows;
using For = StreamedRows::For;
using Eigen::Vector3d;

const kestrane::RowPasses& passes() { return row_passes(kestrane::best_row_vectors()); }

StreamedRows rows_of_all(const PointMatrix3& points) {
  StreamedRows rows(kestrane::rows_of(points), false, kestrane::best_row_vectors());
  rows.select(-kInf, kInf);
  return rows;
}

Vector3d sum_of(const PointMatrix3& points) {
  Vector3d sum = Vector3d::Zero();
  for (Eigen::Index i = 0; i < points.rows(); ++i) sum += points.row(i).transpose();
  return sum;
}

Moments moments_about(const PointMatrix3& points, const Vector3d& point) {
  std::vector<std::uint64_t> in_use(static_cast<std::size_t>(kestrane::words_for(points.rows())));
  kestrane::RowMoments moments;
  double reach;
  passes().select({points.data(), points.rows()}, {-kInf, kInf, {point[0], point[1], point[2]}},
                  in_use.data(), moments, reach);
  const auto all = static_cast<double>(points.rows());
  return Moments(moments, point, kestrane::summation_depth(all));
}

void expect_equal(double actual, double expected) {
  constexpr double kUnits = 8.0 * kestrane::kUnitRoundoff;
  EXPECT_LE(std::abs(actual - expected), kUnits * expected) << actual << " for " << expected;
}

// Of rows whose moments are known.
void expect_known_as(const StreamedPlane& plane, const Moments& moments, const PointMatrix3& points,
                     bool settled, For purpose) {
  const CloudShape& cloud = plane.cloud;
  const double n = moments.rows_in_use();
  const Eigen::Matrix3d scatter = moments.products - moments.sum * moments.sum.transpose() / n;
  const double trace = scatter.trace();
  const double sum = moments.sum.norm();
  const Vector3d m = settled ? Vector3d(sum_of(points) / n) : moments.mean();
  const double sizes =
      std::abs(m[0]) + std::abs(m[1]) + std::abs(m[2]) + std::sqrt(3.0 * trace / n);
  const double off = kestrane::scatter_change(moments.errors, n, trace, sum, sizes);
  EXPECT_EQ(cloud.count, n);
  EXPECT_EQ(cloud.rows, static_cast<double>(points.rows()));
  EXPECT_EQ(cloud.centroid, m);
  expect_equal(cloud.centroid_error,
               settled ? 0.0 : kestrane::centroid_change(moments.errors, n, sum, sizes));
  expect_equal(cloud.size, std::sqrt(trace + 3.0 * off));
  for (int k = 0; k < 3; ++k) expect_equal(cloud.rms[k], std::sqrt((scatter(k, k) + off) / n));
  const Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> solver(scatter);
  const Vector3d squares = solver.eigenvalues().reverse();
  double own = kestrane::turned_by_moments(off, squares.cwiseSqrt());
  const double change = kestrane::decomposition_change(n, cloud.size);
  double decomposed =
      kestrane::turned_by(change, std::sqrt(squares[1] - off), std::sqrt(squares[2] + off));
  const bool narrow = std::sqrt(squares[1]) < 0.1 * std::sqrt(squares[0]);
  if (purpose == For::kResult ? narrow : own > decomposed) {
    const kestrane::ThinDirection thin =
        thin_direction_of(reduce_centred(kestrane::rows_of(points), {m[0], m[1], m[2]}));
    EXPECT_EQ(cloud.spreads, thin.spreads);
    const double by_reflections = kestrane::reflections_change(n, cloud.size);
    const double second = thin.spreads[1] - by_reflections;
    const double third = thin.spreads[2] + by_reflections;
    own = kestrane::turned_by(by_reflections, second, third);
    decomposed = kestrane::turned_by(change, second, third);
  }
  expect_equal(plane.normal_error, own + decomposed + kestrane::kUnitNormal);
  expect_equal(plane.heights, kestrane::heights_of(cloud, plane.normal(), plane.normal_error));
  expect_equal(std::abs(plane.abcd[3]), std::abs(plane.normal().dot(m)));
}

// Up to 127 rows are all sampled for the first centre.
TEST(StreamedRows, KnowTheirPlaneAsWellAsTheBoundsTell) {
  Random random(1);
  for (const Vector3d& spreads : {Vector3d(100.0, 80.0, 0.5), Vector3d(100.0, 13.0, 0.3),
                                  Vector3d(100.0, 8.0, 0.3), Vector3d(100.0, 1e-3, 1e-4)}) {
    for (const For purpose : {For::kRejection, For::kResult}) {
      for (const bool settled : {false, true}) {
        const Box box{random_rotation(random), spreads, {50.0, -20.0, 400.0}};
        const PointMatrix3 points = box_cloud(random, 100, box);
        StreamedRows rows = rows_of_all(points);
        if (settled) rows.settle_centroid();
        expect_known_as(rows.plane(purpose), moments_about(points, sum_of(points) / 100.0), points,
                        settled, purpose);
        ASSERT_FALSE(HasFailure()) << spreads.transpose() << ' ' << settled;
      }
    }
  }
}

double farthest_row(const StreamedRows& rows, const Vector3d& from) {
  double farthest = 0.0;
  rows.for_each([&](const double* row) {
    farthest = std::max(farthest, (Vector3d(row[0], row[1], row[2]) - from).norm());
  });
  return farthest;
}

// The rows from which the first centre is taken stand far from all others.
TEST(StreamedRows, ReachAsFarAsTheFarthestRow) {
  Random random(2);
  for (int run = 0; run < 20; ++run) {
    PointMatrix3 points =
        box_cloud(random, 6400, {random_rotation(random), {100.0, 80.0, 0.5}, {0, 0, 400}});
    for (Eigen::Index i = 0; i < points.rows(); i += 100) {  // the rows that are sampled
      points.row(i) << 0.0, 0.0, 3000.0;
    }
    StreamedRows rows = rows_of_all(points);
    const auto plane = rows.plane(For::kRejection);
    const double farthest = farthest_row(rows, plane.cloud.centroid);
    EXPECT_GE(plane.cloud.reach, farthest);
    EXPECT_LE(plane.cloud.reach, 1.01 * farthest) << "of rows that stand far out";
  }
}

// The rows from which the first centre is taken stand outside the others: all moments are taken
// again, about the centroid.
TEST(StreamedRows, KnowTheirPlaneAsWellWhereTheFirstCentreIsOutside) {
  Random random(6);
  PointMatrix3 points =
      box_cloud(random, 6400, {random_rotation(random), {100.0, 80.0, 0.5}, {0, 0, 400}});
  for (Eigen::Index i = 0; i < points.rows(); i += 100) points.row(i) << 0.0, 0.0, 3000.0;
  StreamedRows rows = rows_of_all(points);
  const StreamedPlane plane = rows.plane(For::kRejection);
  const Vector3d m = moments_about(points, {0.0, 0.0, 3000.0}).mean();
  const std::vector<std::uint64_t> in_use(100, ~std::uint64_t{0});
  std::vector<std::uint64_t> kept(100);
  kestrane::Rejection all;
  passes().reject({points.data(), 6400}, {{{m[0], m[1], m[2]}, {}}, 0.0, -1.0, {m[0], m[1], m[2]}},
                  in_use.data(), kept.data(), all);
  expect_known_as(plane, Moments(all.dropped, m, kestrane::dropped_depth(6400.0)), points, false,
                  For::kRejection);
}

// Where no row stands far out, the reach is told by the first centre: no pass over the rows.
TEST(StreamedRows, ReachFromTheFirstCentreWhereThatIsUsual) {
  Random random(7);
  const PointMatrix3 points =
      box_cloud(random, 6400, {random_rotation(random), {100.0, 80.0, 0.5}, {50, -20, 400}});
  Vector3d centre = Vector3d::Zero();
  for (Eigen::Index i = 0; i < points.rows(); i += 100) centre += points.row(i).transpose();
  centre /= 64.0;
  std::vector<std::uint64_t> in_use(100);
  kestrane::RowMoments moments;
  double reach;
  passes().select({points.data(), 6400}, {-kInf, kInf, {centre[0], centre[1], centre[2]}},
                  in_use.data(), moments, reach);
  StreamedRows rows = rows_of_all(points);
  const StreamedPlane plane = rows.plane(For::kRejection);
  const double moved = (plane.cloud.centroid - centre).norm();
  expect_equal(plane.cloud.reach, (reach + moved) * (1.0 + 16.0 * kestrane::kUnitRoundoff));
  EXPECT_GT(plane.cloud.reach, 1.001 * farthest_row(rows, plane.cloud.centroid));
}

TEST(StreamedRows, ReachAsFarAsRowsOnALine) {
  PointMatrix3 points(64, 3);
  for (Eigen::Index i = 0; i < 64; ++i) points.row(i) << 0.0, 0.0, 256.0 + static_cast<double>(i);
  points.row(63) << 0.0, 0.0, 255.0;  // the mean is 286.5 but for 64 / 64
  StreamedRows rows = rows_of_all(points);
  const auto plane = rows.plane(For::kRejection);
  const double farthest = farthest_row(rows, plane.cloud.centroid);
  EXPECT_GT(plane.cloud.reach, farthest);
  EXPECT_LE(plane.cloud.reach, farthest * (1.0 + 64.0 * kestrane::kUnitRoundoff));
}

// Once a rejection is done no row lies further from a plane than the limit, but for what the plane
// has moved.
TEST(StreamedRows, KnowHowFarFromAPlaneTheyLie) {
  Random random(3);
  PointMatrix3 points =
      box_cloud(random, 500, {random_rotation(random), {100.0, 80.0, 2.0}, {50.0, 0.0, 400.0}});
  StreamedRows rows = rows_of_all(points);
  auto plane = rows.plane(For::kRejection);
  EXPECT_EQ(rows.farthest_from(plane), plane.cloud.reach);
  ASSERT_EQ(rows.reject_beyond(plane, 1.5), true);
  rows.settle_centroid();
  plane = rows.plane(For::kRejection);
  double farthest = 0.0;
  rows.for_each([&](const double* row) {
    const Vector3d off = Vector3d(row[0], row[1], row[2]) - plane.cloud.centroid;
    farthest = std::max(farthest, std::abs(plane.normal().dot(off)));
  });
  EXPECT_GE(rows.farthest_from(plane), farthest);
  EXPECT_LE(rows.farthest_from(plane), 3.0);
}

// Distances that differ by little, which squares about a poor guess of their mean would blur.
TEST(StreamedRows, MeasureDistancesThatAreNearlyAlike) {
  struct Distance {
    double mean, off;
  };
  for (const Distance& distance : {Distance{0.125, 0x1p-30}, Distance{16.0, 0x1p-22}}) {
    PointMatrix3 points(256, 3);
    for (Eigen::Index i = 0; i < 256; ++i) {
      const double x = distance.mean + (i / 2 % 2 == 0 ? distance.off : -distance.off);
      points.row(i) << 64.0 + (i % 2 == 0 ? x : -x), 64.0 * static_cast<double>(i / 4 % 8),
          64.0 * static_cast<double>(i / 32);
    }
    StreamedRows rows = rows_of_all(points);
    rows.settle_centroid();
    const auto plane = rows.plane(For::kResult);
    const PlaneFitStats stats = rows.measure(kestrane::rows_of(points), plane);
    EXPECT_NEAR(stats.mean_distance, distance.mean, 1e-15 * distance.mean);
    EXPECT_NEAR(stats.max_distance, distance.mean + distance.off, 1e-15 * distance.mean);
    EXPECT_NEAR(stats.std_distance, distance.off, 1e-6 * distance.off);
  }
}

// Where the guess of the mean is good, there is no second pass.
TEST(StreamedRows, MeasureOnceAboutAGoodGuess) {
  for (std::uint64_t seed = 0; seed < 8; ++seed) {
    Random random(seed);
    const Box box{random_rotation(random), {100.0, 80.0, 2.0}, {50.0, 0.0, 400.0}};
    const PointMatrix3 points = box_cloud(random, 500, box);
    StreamedRows rows = rows_of_all(points);
    rows.settle_centroid();
    const StreamedPlane plane = rows.plane(For::kResult);
    const Vector3d& m = plane.cloud.centroid;
    const double guess = 0.8 * plane.cloud.spreads[2] / std::sqrt(500.0);
    kestrane::DistanceFigures figures;
    passes().measure({points.data(), 500},
                     {{m[0], m[1], m[2]}, {plane.abcd[0], plane.abcd[1], plane.abcd[2]}}, guess,
                     figures);
    const double off = figures.sum / 500.0;
    ASSERT_LT(off * off, 0.75 * figures.squares / 500.0);
    const double deviation = std::sqrt(figures.squares / 500.0 - off * off);
    EXPECT_TRUE(same(rows.measure(kestrane::rows_of(points), plane),
                     {figures.largest, guess + off, deviation}));
    EXPECT_EQ(rows.farthest_from(plane), figures.largest);
  }
}

TEST(StreamedRows, KnowNothingOfThePlaneOfAPoint) {
  StreamedRows rows = rows_of_all(PointMatrix3::Constant(100, 3, 8.0));
  EXPECT_EQ(rows.plane(For::kRejection).normal_error, kInf);
}

// Squares of these lengths are numbers still, their products are not.
TEST(StreamedRows, KnowNothingOfThePlaneOfHardlyMoreThanAPoint) {
  Random random(4);
  const Box box{random_rotation(random), {3e-75, 2e-75, 1e-76}};
  StreamedRows rows = rows_of_all(box_cloud(random, 100, box));
  const StreamedPlane plane = rows.plane(For::kRejection);
  EXPECT_EQ(plane.normal_error, kInf);
  EXPECT_FALSE(plane.clear_of_origin());
  EXPECT_EQ(rows.reject_beyond(plane, 2.5), std::nullopt);
  EXPECT_EQ(rows.reject_beyond_sigmas(plane, 2.0), std::nullopt);
}

TEST(StreamedRows, TellWhetherTheirSquaresAreOfAnOrdinarySize) {
  Random random(5);
  const PointMatrix3 cloud = scattered(random, 100);
  PointMatrix3 mirrored(200, 3);
  mirrored << cloud, -cloud;
  EXPECT_TRUE(rows_of_all(1e68 * mirrored).in_range());
  EXPECT_FALSE(rows_of_all(1e71 * mirrored).in_range()) << "about the origin";
  EXPECT_FALSE(rows_of_all(PointMatrix3((1e60 * cloud).array() + 1e71)).in_range());
  mirrored(7, 1) = kNaN;
  EXPECT_FALSE(rows_of_all(mirrored).in_range());
  mirrored(7, 1) = kInf;
  EXPECT_FALSE(rows_of_all(mirrored).in_range());
}

// Two sheets at distances of 1: a band of half a sigma lies between them.
TEST(StreamedRows, StayInUseWhereABandWouldLeaveFewerThanThree) {
  PointMatrix3 points(64, 3);
  for (int i = 0; i < 64; ++i) points.row(i) << 50.0 + (i % 2 == 0 ? 1 : -1), i / 2 % 4, i / 8;
  points.rightCols<2>() *= 100.0;
  StreamedRows rows = rows_of_all(points);
  rows.settle_centroid();
  EXPECT_EQ(rows.reject_beyond_sigmas(rows.plane(For::kRejection), 0.5), false);
  EXPECT_EQ(rows.copy(), points);
  const kestrane::SignedDistance from_between({1.0, 0.0, 0.0, -50.0});
  EXPECT_FALSE(rows.keep_within(from_between, {-0.5, 0.5}));
  EXPECT_EQ(rows.copy(), points);
  EXPECT_TRUE(rows.keep_within(from_between, {-0.5, 1.5}));
  EXPECT_EQ(rows.count(), 32);
  EXPECT_EQ(rows.copy().col(0), Eigen::VectorXd::Constant(32, 51.0));
}

TEST(Moments, TellTheScatterInsideTheCloudOnly) {
  Moments moments;
  moments.count = 4;
  moments.sum = {2.0, 0.0, 0.0};
  moments.products.diagonal() << 1.0, 0.5, 0.5;
  EXPECT_TRUE(moments.good_for_scatter(10.0));
  moments.products(2, 2) = 0.499;
  EXPECT_FALSE(moments.good_for_scatter(10.0));
  moments.products(2, 2) = kNaN;
  EXPECT_FALSE(moments.good_for_scatter(10.0));
}

TEST(Moments, TellTheScatterWhereTheyHaveKeptTheirDigits) {
  Moments moments;
  moments.count = 4;
  moments.products.diagonal() << 1.0, 0.5, 0.5;
  moments.errors.products = 2.0 * kestrane::moment_errors(4.0, 2.0, 10.0).products;
  EXPECT_TRUE(moments.good_for_scatter(10.0));
  moments.errors.products *= 1.001;
  EXPECT_FALSE(moments.good_for_scatter(10.0));
}

TEST(StreamedPlane, IsClearOfTheOriginBeyondItsHeightError) {
  StreamedPlane plane{CloudShape{}, PlaneAbcd::Zero(), 0.0, 0.0};
  plane.cloud.centroid.setZero();
  EXPECT_FALSE(plane.clear_of_origin());
  plane.abcd[3] = kestrane::kGuard;  // an error of the guard alone
  EXPECT_TRUE(plane.clear_of_origin());
  plane.abcd[3] = -kestrane::kGuard;
  EXPECT_FALSE(plane.clear_of_origin());
}

}  // namespace
