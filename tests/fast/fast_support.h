// Small builders of the fast calibration's tests.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "fast/point_sets.h"
#include "fit/laser_geometry_fitter.h"
#include "kestrane/fast_calib.h"
#include "tests/support/bits.h"
#include "tests/support/fast_scene.h"

namespace fast_support {

using kestrane::FrameLists;
using kestrane::PlanePoints;
using kestrane::PointSets;
using kestrane::ResidualSets;
using kestrane_test::kInf;
using kestrane_test::kNaN;
using kestrane_test::same_bits;
using List = std::vector<_KESTRANE_ID_POINT3D>;

// The sheet x = 128: its distances are exact in binary.
inline constexpr kestrane::_LASER_TRIPLE kSheetAt128 = {{-0.0078125, 0.0, 0.0}};

inline void expect_same(double a, double b) { EXPECT_TRUE(same_bits(a, b)); }

inline void expect_same(const List& a, const List& b) {
  ASSERT_EQ(a.size(), b.size());
  for (std::size_t i = 0; i < a.size(); ++i) {
    expect_same(a[i].x, b[i].x);
    expect_same(a[i].y, b[i].y);
    expect_same(a[i].z, b[i].z);
    EXPECT_EQ(a[i].id, b[i].id);
  }
}

inline void expect_same(const PlanePoints& a, const PlanePoints& b) {
  ASSERT_EQ(a.cols(), b.cols());
  for (Eigen::Index i = 0; i < a.size(); ++i) expect_same(a.data()[i], b.data()[i]);
}

// A standard whose planes are all the sheet x = 128.
inline fast_scene::Standard flat_standard(int planes) {
  fast_scene::Standard standard(planes);
  for (int p = 0; p < planes; ++p) standard.fill(p, kSheetAt128);
  return standard;
}

// `count` points of one frame at a distance from the sheet x = 128, inside line 7, cell 5.
inline void add_frame(List& list, std::int32_t id, double distance, int count = 1) {
  for (int i = 0; i < count; ++i) list.push_back({128.0 + distance, 0.0, 300.0, id});
}

// The frame numbers of a list, in order.
inline std::vector<std::int32_t> ids(const List& list) {
  std::vector<std::int32_t> numbers;
  for (const auto& point : list) numbers.push_back(point.id);
  return numbers;
}

inline PlanePoints columns(const std::vector<Eigen::Vector3d>& points) {
  PlanePoints matrix(3, static_cast<Eigen::Index>(points.size()));
  for (std::size_t i = 0; i < points.size(); ++i) {
    matrix.col(static_cast<Eigen::Index>(i)) = points[i];
  }
  return matrix;
}

inline PlanePoints matrix_of(const List& list) {
  PlanePoints matrix(3, static_cast<Eigen::Index>(list.size()));
  for (std::size_t i = 0; i < list.size(); ++i) {
    matrix.col(static_cast<Eigen::Index>(i)) << list[i].x, list[i].y, list[i].z;
  }
  return matrix;
}

// The fit of one zone by the library itself, for the literal forms that take a fit as an argument.
// A fit that fails before its first plane leaves `plane` alone.
inline void fit_by_library(const kestrane::PointMatrix3& cloud, double* plane) {
  kestrane::LaserGeometryFitter fitter;
  fitter.set_params(false, 0, 0.0, 0.0);
  kestrane::PlaneAbcd abcd(plane[0], plane[1], plane[2], plane[3]);
  kestrane::PlaneFitStats stats{};
  kestrane::PointMatrix3 inliers;
  fitter.fit_plane_robust(cloud, abcd, stats, inliers, {220, 350}, 0);
  for (int i = 0; i < 4; ++i) plane[i] = abcd[i];
}

// Positions of the fan's cells: the lower edge of line j at the depth of corner k.
inline double depth_of(double k) { return 150.0 + 27.0 * k; }

}  // namespace fast_support
