#include "fit/plane_decomposition.h"

#include <gtest/gtest.h>

#include <Eigen/SVD>
#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "fit/triangle_reduction.h"
#include "tests/fit/plane_clouds.h"
#include "tests/literal/plane_fit.h"

namespace {

using namespace plane_clouds;
using kestrane::Centroid;
using kestrane::reduce_centred;
using kestrane::rows_of;
using kestrane::thin_direction;
using kestrane::thin_direction_of;
using kestrane::Triangle;

constexpr Centroid kNoShift{0.0, 0.0, 0.0};

Centroid mean_of(const PointMatrix3& points) {
  const Eigen::RowVector3d m = points.colwise().mean();
  return {m[0], m[1], m[2]};
}

Eigen::MatrixXd centred(const PointMatrix3& points, const Centroid& m) {
  return points.rowwise() - Eigen::RowVector3d(m.x, m.y, m.z);
}

bool same_as_the_dynamic_decomposition(const PointMatrix3& points) {
  const Centroid m = mean_of(points);
  const Eigen::Vector3d expected = literal::third_right_vector(centred(points, m));
  const Eigen::Vector3d actual = thin_direction(rows_of(points), m);
  return same_bits(actual[0], expected[0]) && same_bits(actual[1], expected[1]) &&
         same_bits(actual[2], expected[2]);
}

// Spreads over eight decades, some of them zero, in all positions, at ordinary and extreme scales,
// now and then rounded so that rows repeat and lengths tie.
PointMatrix3 any_cloud(Random& random, Eigen::Index count) {
  Box box;
  if (random.index(3) != 0) box.axes = random_rotation(random);
  for (int k = 0; k < 3; ++k) {
    box.spreads[k] = random.index(8) == 0 ? 0.0 : std::pow(10.0, random.uniform(-4.0, 4.0));
    box.centre[k] = random.index(2) == 0 ? 0.0 : random.uniform(-1e3, 1e3);
  }
  PointMatrix3 points = box_cloud(random, count, box);
  if (random.index(6) == 0) points = points.array().round();
  if (random.index(6) == 0) points *= std::pow(10.0, random.uniform(-150.0, 150.0));
  return points;
}

TEST(ThinDirection, EqualsTheDynamicDecompositionForEveryShortCloud) {
  Random random(1);
  for (Eigen::Index count = 3; count < 70; ++count) {
    for (int run = 0; run < 300; ++run) {
      ASSERT_TRUE(same_as_the_dynamic_decomposition(any_cloud(random, count)))
          << count << " rows, run " << run;
    }
  }
}

TEST(ThinDirection, EqualsTheDynamicDecompositionForFourRowsOfAnyShape) {
  Random random(2);
  for (int run = 0; run < 20000; ++run) {
    ASSERT_TRUE(same_as_the_dynamic_decomposition(any_cloud(random, 4))) << run;
  }
}

TEST(ThinDirection, EqualsTheDynamicDecompositionForLongClouds) {
  Random random(3);
  for (int run = 0; run < 300; ++run) {
    ASSERT_TRUE(same_as_the_dynamic_decomposition(any_cloud(random, 70 + random.index(3000))))
        << run;
  }
}

// Columns that are nearly the same, two of them mirrored: what is left of them after the first one
// ties, so that the next exchange depends on how their lengths were brought up to date.
PointMatrix3 mirrored_cloud(Random& random, Eigen::Index count) {
  const double off = std::pow(10.0, random.uniform(-6.0, -1.0));
  const double uneven = random.index(2) == 0 ? 0.0 : std::pow(10.0, random.uniform(-13.0, -7.0));
  PointMatrix3 points = scattered(random, count);
  points.col(0) += points.col(0).reverse().eval();
  const Eigen::VectorXd part = off * points.col(1);
  points.col(1) = points.col(0) + part;
  points.col(2) = points.col(0) + (1.0 + uneven) * part.reverse();
  return points;
}

TEST(ThinDirection, EqualsTheDynamicDecompositionWhereColumnsNearlyCoincide) {
  Random random(11);
  for (int run = 0; run < 6000; ++run) {
    ASSERT_TRUE(same_as_the_dynamic_decomposition(mirrored_cloud(random, 4 + random.index(40))))
        << run;
  }
}

TEST(ThinDirection, EqualsTheDynamicDecompositionForPointsThatAreAllTheSame) {
  for (const Eigen::Index count : {3, 4, 9, 100}) {
    EXPECT_TRUE(same_as_the_dynamic_decomposition(PointMatrix3::Constant(count, 3, 0.1))) << count;
    EXPECT_TRUE(same_as_the_dynamic_decomposition(PointMatrix3::Zero(count, 3))) << count;
  }
}

TEST(ThinDirection, IsNaNInAllComponentsForPointsThatAreNotFinite) {
  Random random(7);
  for (const Eigen::Index count : {3, 8, 9, 100}) {
    for (const double odd : {kNaN, kInf, -kInf}) {
      PointMatrix3 points = scattered(random, count);
      points(1, 2) = odd;
      EXPECT_TRUE(thin_direction(rows_of(points), kNoShift).array().isNaN().all());
    }
  }
}

// R shares A's singular values, whatever orthogonal factor stands between them.
TEST(ReduceCentred, KeepsTheSingularValuesOfClouds) {
  constexpr double kRounding = 1e-13;  // of the largest one
  Random random(4);
  for (const Eigen::Index count : {1, 2, 3, 4, 5, 255, 256, 257, 511, 512, 1000, 5000}) {
    const PointMatrix3 points =
        box_cloud(random, count, {random_rotation(random), {90.0, 20.0, 0.5}, {3.0, 2.0, 1.0}});
    const Centroid m{2.5, 2.0, 1.5};
    const Triangle t = reduce_centred(rows_of(points), m);
    Eigen::MatrixXd padded = Eigen::MatrixXd::Zero(std::max<Eigen::Index>(3, count), 3);
    padded.topRows(count) = centred(points, m);
    Eigen::Matrix3d r;
    r << t.r00, t.r01, t.r02, 0.0, t.r11, t.r12, 0.0, 0.0, t.r22;
    const Eigen::Vector3d expected = Eigen::JacobiSVD<Eigen::MatrixXd>(padded).singularValues();
    const Eigen::Vector3d actual = Eigen::JacobiSVD<Eigen::MatrixXd>(r).singularValues();
    EXPECT_LE((actual - expected).cwiseAbs().maxCoeff(), kRounding * expected[0]) << count;
    const Eigen::Matrix3d gram = padded.transpose() * padded;
    EXPECT_LE((r.transpose() * r - gram).norm(), kRounding * gram.norm()) << count;
  }
}

// The plain form: blocks of 256 rows, each reduced by itself; the triangles of equally many blocks
// joined, the later one taking the earlier one in; those that are left, from the fewest blocks on.
namespace plain {

using Column = std::vector<double>;

double dot(const Column& a, const Column& b) {
  double lanes[4] = {};
  for (std::size_t i = 0; i < a.size(); ++i) lanes[i % 4] += a[i] * b[i];
  return (lanes[0] + lanes[2]) + (lanes[1] + lanes[3]);
}

// Reflects a head and the column below it onto the head, and two other columns with them.
void reflect(const Column& below, double& head, Column& y, double& y_head, Column& z,
             double& z_head) {
  const double squares = dot(below, below);
  if (squares == 0.0) return;
  const double norm = std::sqrt(head * head + squares);
  const double beta = head > 0.0 ? -norm : norm;
  const double pivot = head - beta;
  const double tau = (beta - head) / beta;
  const auto take_off = [&](Column& column, double& column_head) {
    const double w = tau * (column_head + dot(column, below) / pivot);
    column_head -= w;
    for (std::size_t i = 0; i < column.size(); ++i) column[i] -= w / pivot * below[i];
  };
  take_off(y, y_head);
  take_off(z, z_head);
  head = beta;
}

Triangle folded(Triangle t, Column x, Column y, Column z) {
  Column none;
  double no_head = 0.0;
  reflect(x, t.r00, y, t.r01, z, t.r02);
  reflect(y, t.r11, z, t.r12, none, no_head);
  reflect(z, t.r22, none, no_head, none, no_head);
  return t;
}

Triangle joined(const Triangle& t, const Triangle& o) {
  return folded(t, {o.r00, 0.0, 0.0}, {o.r01, o.r11, 0.0}, {o.r02, o.r12, o.r22});
}

Triangle reduced(const PointMatrix3& points, const Centroid& m) {
  struct Part {
    int blocks;
    Triangle triangle;
  };
  std::vector<Part> parts;
  for (Eigen::Index start = 0; start < points.rows(); start += 256) {
    Column x, y, z;
    for (Eigen::Index i = start; i < std::min(start + 256, points.rows()); ++i) {
      x.push_back(points(i, 0) - m.x);
      y.push_back(points(i, 1) - m.y);
      z.push_back(points(i, 2) - m.z);
    }
    Part part{1, folded({}, x, y, z)};
    while (!parts.empty() && parts.back().blocks == part.blocks) {
      part = {2 * part.blocks, joined(part.triangle, parts.back().triangle)};
      parts.pop_back();
    }
    parts.push_back(part);
  }
  Triangle all;
  for (; !parts.empty(); parts.pop_back()) all = joined(all, parts.back().triangle);
  return all;
}

}  // namespace plain

std::array<double, 6> entries_of(const Triangle& t) {
  return {t.r00, t.r01, t.r02, t.r11, t.r12, t.r22};
}

TEST(ReduceCentred, JoinsBlocksInOneOrder) {
  Random random(12);
  for (const Eigen::Index count : {1, 2, 3, 100, 255, 256, 257, 512, 768, 1000, 1024, 1800}) {
    const PointMatrix3 points = 100.0 * scattered(random, count);
    const Centroid m{2.5, 2.0, 1.5};
    const auto actual = entries_of(reduce_centred(rows_of(points), m));
    EXPECT_TRUE(same_bits(actual, entries_of(plain::reduced(points, m)))) << count;
  }
}

// A first block that hardly adds to the column of the second: the reflection that joins it must not
// subtract nearly equal numbers.
TEST(ReduceCentred, JoinsPartsOfVeryDifferentSize) {
  constexpr double kRounding = 1e-13;  // of the largest singular value
  Random random(10);
  PointMatrix3 points = 100.0 * scattered(random, 512);
  points.topRows(256).col(0) *= 1e-8;
  const Triangle t = reduce_centred(rows_of(points), kNoShift);
  Eigen::Matrix3d r;
  r << t.r00, t.r01, t.r02, 0.0, t.r11, t.r12, 0.0, 0.0, t.r22;
  const Eigen::Matrix3d gram = points.transpose() * points;
  EXPECT_LE((r.transpose() * r - gram).norm(), kRounding * gram.norm());
}

// One row is its own triangle up to sign: a reflection carries (3, 4, 12) to (-3, -4, -12).
TEST(ReduceCentred, TurnsOneRowIntoTheFirstRowOfTheTriangle) {
  const Triangle t = reduce_centred(rows_of(cloud({{3.0, 4.0, 12.0}})), kNoShift);
  EXPECT_EQ(std::abs(t.r00), 3.0);
  EXPECT_DOUBLE_EQ(t.r01 / t.r00, 4.0 / 3.0);
  EXPECT_DOUBLE_EQ(t.r02 / t.r00, 4.0);
  EXPECT_EQ(t.r11, 0.0);
  EXPECT_EQ(t.r12, 0.0);
  EXPECT_EQ(t.r22, 0.0);
}

TEST(ReduceCentred, LeavesAZeroColumnZero) {
  Random random(8);
  PointMatrix3 points = scattered(random, 300);
  points.col(0).setConstant(7.0);
  const Triangle t = reduce_centred(rows_of(points), {7.0, 0.0, 0.0});
  EXPECT_EQ(t.r00, 0.0);
  EXPECT_EQ(t.r01, 0.0);
  EXPECT_NEAR(std::abs(t.r11), points.col(1).norm(), 1e-13 * points.col(1).norm());
}

TEST(ThinDirectionOf, AgreesWithTheDecompositionOfTheWholeCloud) {
  constexpr double kRounding = 1e-12;
  Random random(5);
  for (int run = 0; run < 200; ++run) {
    const Box box{random_rotation(random), {200.0, random.uniform(2.0, 200.0), 0.05}, {1, 2, 3}};
    const PointMatrix3 points = box_cloud(random, 64 + random.index(4000), box);
    const Centroid m = mean_of(points);
    const kestrane::ThinDirection thin = thin_direction_of(reduce_centred(rows_of(points), m));
    const Eigen::Vector3d expected = thin_direction(rows_of(points), m);
    const double sign = thin.normal.dot(expected) < 0.0 ? -1.0 : 1.0;
    EXPECT_LE((sign * thin.normal - expected).norm(), kRounding) << run;
    const Eigen::Vector3d s =
        Eigen::JacobiSVD<Eigen::MatrixXd>(centred(points, m)).singularValues();
    EXPECT_LE((thin.spreads - s).norm(), 1e-13 * s[0]) << run;
  }
}

TEST(ThinDirectionOf, IsNaNForACloudThatIsNotFinite) {
  Random random(9);
  for (int column = 0; column < 3; ++column) {
    for (const double odd : {kNaN, kInf, -kInf}) {
      PointMatrix3 points = scattered(random, 1000);
      points(777, column) = odd;
      EXPECT_TRUE(thin_direction_of(reduce_centred(rows_of(points), kNoShift))
                      .normal.array()
                      .isNaN()
                      .all());
    }
  }
}

}  // namespace
