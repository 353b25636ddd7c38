// Clouds and comparisons that the tests of the plane fit share.
#pragma once

#include <gtest/gtest.h>

#include <Eigen/Geometry>
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <limits>

#include "fit/points.h"
#include "simulation/random.h"
#include "tests/support/bits.h"

namespace plane_clouds {

using kestrane::DepthBand;
using kestrane::PlaneAbcd;
using kestrane::PlaneFitStats;
using kestrane::PointMatrix3;
using simulation::Random;

using kestrane_test::kInf;
using kestrane_test::kNaN;
using kestrane_test::same_bits;

struct Point {
  double x, y, z;
};

inline PointMatrix3 cloud(std::initializer_list<Point> points) {
  PointMatrix3 rows(points.size(), 3);
  Eigen::Index i = 0;
  for (const Point& p : points) rows.row(i++) << p.x, p.y, p.z;
  return rows;
}

// Rows with coordinates in [-1, 1).
inline PointMatrix3 scattered(Random& random, Eigen::Index count) {
  PointMatrix3 rows(count, 3);
  for (Eigen::Index i = 0; i < rows.size(); ++i) rows.data()[i] = random.uniform(-1.0, 1.0);
  return rows;
}

inline Eigen::Matrix3d random_rotation(Random& random) {
  return Eigen::Quaterniond(random.gaussian(), random.gaussian(), random.gaussian(),
                            random.gaussian())
      .normalized()
      .toRotationMatrix();
}

// Even spreads along three axes of a frame about `centre`.
struct Box {
  Eigen::Matrix3d axes = Eigen::Matrix3d::Identity();
  Eigen::Vector3d spreads;
  Eigen::Vector3d centre = Eigen::Vector3d::Zero();
};

inline PointMatrix3 box_cloud(Random& random, Eigen::Index count, const Box& box) {
  PointMatrix3 rows(count, 3);
  for (Eigen::Index i = 0; i < count; ++i) {
    const Eigen::Vector3d local(random.uniform(-1.0, 1.0), random.uniform(-1.0, 1.0),
                                random.uniform(-1.0, 1.0));
    rows.row(i) = (box.axes * box.spreads.cwiseProduct(local) + box.centre).transpose();
  }
  return rows;
}

// A laser sheet of nearly constant x in the fan, with noise along x and some points far off.
struct Sheet {
  double offset = 60.0;
  double along_y = 0.02;
  double along_z = 0.15;
  double noise = 0.05;
  double outliers = 0.02;  // share of the points
};

inline PointMatrix3 sheet_cloud(Random& random, Eigen::Index count, const Sheet& sheet) {
  PointMatrix3 rows(count, 3);
  for (Eigen::Index i = 0; i < count; ++i) {
    const double z = random.uniform(80.0, 1020.0);
    const double y = random.uniform(-0.577, 0.577) * z;
    double x = sheet.offset + sheet.along_y * y + sheet.along_z * z;
    x += sheet.noise * random.gaussian();
    if (random.uniform() < sheet.outliers) x += random.uniform(-30.0, 30.0);
    rows.row(i) << x, y, z;
  }
  return rows;
}

// Equal bits in every number; a NaN equals a NaN.
inline testing::AssertionResult same(const PlaneAbcd& a, const PlaneAbcd& b) {
  if (auto outcome = same_bits({a.data(), 4}, {b.data(), 4}); !outcome) {
    return outcome << " of a plane";
  }
  return testing::AssertionSuccess();
}

inline testing::AssertionResult same(const PlaneFitStats& a, const PlaneFitStats& b) {
  if (auto outcome = same_bits(a.max_distance, b.max_distance); !outcome) {
    return outcome << ", the largest distance";
  }
  if (auto outcome = same_bits(a.mean_distance, b.mean_distance); !outcome) {
    return outcome << ", the mean distance";
  }
  if (auto outcome = same_bits(a.std_distance, b.std_distance); !outcome) {
    return outcome << ", the standard deviation";
  }
  return testing::AssertionSuccess();
}

inline testing::AssertionResult same(const PointMatrix3& a, const PointMatrix3& b) {
  if (a.rows() != b.rows()) {
    return testing::AssertionFailure() << a.rows() << " rows and " << b.rows() << " rows";
  }
  for (Eigen::Index i = 0; i < a.rows(); ++i) {
    for (int k = 0; k < 3; ++k) {
      if (auto outcome = same_bits(a(i, k), b(i, k)); !outcome) return outcome << ", row " << i;
    }
  }
  return testing::AssertionSuccess();
}

// What a call may leave untouched.
struct Result {
  PlaneAbcd plane{11.0, 12.0, 13.0, 14.0};
  PlaneFitStats stats{21.0, 22.0, 23.0};
  PointMatrix3 inliers = cloud({{31.0, 32.0, 33.0}});
};

inline testing::AssertionResult same(const Result& a, const Result& b) {
  if (auto outcome = same(a.plane, b.plane); !outcome) return outcome;
  if (auto outcome = same(a.stats, b.stats); !outcome) return outcome;
  return same(a.inliers, b.inliers);
}

// What a fit of 64 rows and more is held to: the normal to 1e-13, d to 1e-13 of the distances that
// enter it (`far`), statistics to 1e-10. Further than the ordinary thousand from the origin the
// coordinates themselves have fewer digits after the point, and so has all that follows from them.
inline testing::AssertionResult same_to_rounding(const Result& a, const Result& b,
                                                 double far = 1e3) {
  constexpr double kPlane = 1e-13;
  constexpr double kStats = 1e-10;
  const double worse = std::max(1.0, far / 1e3);
  if (b.plane.array().isNaN().any()) return same(a.plane, b.plane);
  const double normal = (a.plane - b.plane).head<3>().norm();
  const double d = std::abs(a.plane[3] - b.plane[3]) / std::max(1e3, std::abs(b.plane[3]));
  if (!(normal <= kPlane * worse && d <= kPlane * worse)) {
    return testing::AssertionFailure()
           << "planes differ by " << normal << " and " << d << ": " << a.plane.transpose();
  }
  const auto apart = [](double x, double y) { return x == y ? 0.0 : std::abs(x - y) / y; };
  const double worst = std::max({apart(a.stats.max_distance, b.stats.max_distance),
                                 apart(a.stats.mean_distance, b.stats.mean_distance),
                                 apart(a.stats.std_distance, b.stats.std_distance)});
  if (worst <= kStats * worse) return testing::AssertionSuccess();
  return testing::AssertionFailure() << "statistics differ by " << worst;
}

}  // namespace plane_clouds
