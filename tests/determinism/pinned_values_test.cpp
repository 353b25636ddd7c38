// Results pinned to the last bit: a changed compiler flag, a changed library underneath or a
// changed order of operations shows here at once, before anybody wonders about a device.
//
// Where the expected numbers come from: derive_pins.py in this folder works all of them out from
// the formulas alone, operation by operation in double precision, without running the library. The
// one exception says so at its place.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "compensation/cell_kernel.h"
#include "fast/residual_measurement.h"
#include "fit/coefficients/coefficient_calibration.h"
#include "fit/plane_fit.h"
#include "kestrane/buffers.h"
#include "kestrane/compensator.h"
#include "tests/support/bits.h"

namespace {

using namespace kestrane;
using kestrane_test::same_bits;

template <std::size_t kCount>
void expect_pinned(const double* values, const std::array<double, kCount>& pins) {
  for (std::size_t i = 0; i < kCount; ++i) {
    EXPECT_TRUE(same_bits(values[i], pins[i])) << "number " << i;
  }
}

// --- Compensation -------------------------------------------------------------------------------

struct PinnedCell {
  int k;  // the last one of a line comes after the widest vectors
  _LASER_TRIPLE cell;
  std::array<double, 3> compensated;
};

// Plane 2 of the fan 0 to 5, warmed up and turned; sine and cosine correctly rounded.
constexpr PinnedCell kPinnedCells[] = {
    {0,
     {{-0.0081, 0.00013, 0.00087}},
     {-0x1.096a4b96f9158p-7, 0x1.10a3001f21ed9p-13, 0x1.c9fad246d56c1p-11}},
    {7,
     {{-0.0079, -0.00021, 0.0011}},
     {-0x1.02dc44b2d6cfcp-7, -0x1.b86abe59f3746p-13, 0x1.2143ac79b2d43p-10}},
    {49,
     {{-0.00845, 0.00037, -0.00052}},
     {-0x1.14e290574eb68p-7, 0x1.83f4d6b9fbc97p-12, -0x1.0eb37bbe047c4p-11}}};

TEST(PinnedCompensation, GivesTheCells) {
  LASER_PLANE_BLOCK_INFOS_GROUP table;
  ASSERT_EQ(table.init(3), KESTRANE_OK);
  std::vector<_MRV_LASER_PLANE_BLOCK_INFO> rows;
  for (int p = 0; p < 3; ++p) rows.push_back({table.planes[p].block, {-0.0083, 0.00011, 0.0009}});
  _MRV_LASER_PLANE_BLOCK_INFOS host = {rows.data(), table.grids, 3};
  _LASER_TRIPLE* cells = table.planes[2].block.lines[4].cells;
  for (const PinnedCell& pin : kPinnedCells) cells[pin.k] = pin.cell;
  KESTRANE_LASER_COMPENSATOR compensator;
  ASSERT_EQ(compensator.init(), KESTRANE_OK);
  compensator.set_laser_plane_param(host);
  compensator.set_extrinsic_matrix({{1, 0, 0, 0, 1, 0, 0, 0, 1}, {118.25, -3.5, 41.75}});
  compensator.set_compensate_param({31.7, 22.4, 0.83, 0.61, 1.3, 2.5e-5, 7e-4, 1.9e-5}, 0, 6);
  compensator.compensate(2, 3);
  compensator.get_compensate_result(host);
  for (const PinnedCell& pin : kPinnedCells) expect_pinned(cells[pin.k].v, pin.compensated);
}

// --- Planes -------------------------------------------------------------------------------------

PointMatrix3 cloud_of(const std::vector<std::array<double, 3>>& points) {
  PointMatrix3 cloud(static_cast<Eigen::Index>(points.size()), 3);
  Eigen::Index row = 0;
  for (const auto& point : points) cloud.row(row++) << point[0], point[1], point[2];
  return cloud;
}

const std::vector<std::array<double, 3>> kThree = {
    {131.25, -20.5, 300.0}, {128.5, 35.75, 412.5}, {126.125, 10.25, 505.75}};

const std::vector<std::array<double, 3>> kTwelve = {
    {131.25, -20.5, 300.0},   {128.5, 35.75, 412.5},    {126.125, 10.25, 505.75},
    {129.375, -41.5, 377.25}, {127.0, 52.25, 466.5},    {130.625, 3.5, 322.75},
    {125.25, -60.75, 541.0},  {128.875, 21.0, 398.25},  {126.75, -8.25, 482.5},
    {130.125, 44.5, 344.0},   {127.625, -33.0, 441.75}, {129.0, 15.5, 390.5}};

// Three points go straight into the rotations of the decomposition, which add no more than two
// products at a time: no width of vectors can change them.
TEST(PinnedDecomposition, GivesThePlaneOfThreePoints) {
  PlaneAbcd plane;
  PlaneFitStats stats;
  ASSERT_TRUE(fit_plane_svd(cloud_of(kThree), plane, stats));
  expect_pinned(plane.data(), std::array<double, 4>{0x1.ffd697f8df2ffp-1, -0x1.5b31c9de5f0bap-10,
                                                    0x1.9b38991872e73p-6, -0x1.1587dec3f2c9dp+7});
}

// Twelve points are reduced by reflections first, whose sums the matrix library orders after its
// vectors. These bits are what it gives with 128 bits of vector and no fused multiply-add; the test
// below holds them against the exact solution.
constexpr std::array<double, 7> kTwelvePinned = {
    0x1.ffd746f86984dp-1, 0x1.c26b7d5daa04ep-13, 0x1.985d8139ae4c0p-6, -0x1.155ea982a21e5p+7,
    0x1.89e7869684210p-4, 0x1.61ebe2eb97ca3p-5,  0x1.0c2b7d0329385p-5};

// a, b, c, d, then largest, mean and standard deviation of the distances: worked out to 60 digits
// and rounded once.
constexpr std::array<double, 7> kTwelveExact = {
    0x1.ffd746f86984cp-1, 0x1.c26b7d5daa0ecp-13, 0x1.985d8139ae4c0p-6, -0x1.155ea982a21e4p+7,
    0x1.89e78696841f4p-4, 0x1.61ebe2eb97ca2p-5,  0x1.0c2b7d032937dp-5};

// Last places of the numbers that each comes from: a unit vector, an offset of some 138, and
// distances that are sums of numbers up to 100.
constexpr std::array<double, 7> kTwelveRounding = {0x1p-52, 0x1p-52, 0x1p-52, 0x1p-45,
                                                   0x1p-46, 0x1p-46, 0x1p-46};

TEST(PinnedDecomposition, GivesThePlaneOfTwelvePoints) {
  PlaneAbcd plane;
  PlaneFitStats stats;
  ASSERT_TRUE(fit_plane_svd(cloud_of(kTwelve), plane, stats));
  const std::array<double, 7> fitted = {plane[0],          plane[1],           plane[2],
                                        plane[3],          stats.max_distance, stats.mean_distance,
                                        stats.std_distance};
  expect_pinned(fitted.data(), kTwelvePinned);
}

TEST(PinnedDecomposition, IsTheExactPlaneToRounding) {
  for (std::size_t i = 0; i < kTwelveExact.size(); ++i) {
    EXPECT_NEAR(kTwelvePinned[i], kTwelveExact[i], kTwelveRounding[i]) << "number " << i;
  }
}

TEST(PinnedDistances, AreSigned) {
  std::vector<double> distances;
  plane_signed_distances(cloud_of(kThree), {0.9617, 0.0214, 0.2731, -210.75}, distances);
  ASSERT_EQ(distances.size(), 3U);
  expect_pinned(distances.data(), std::array<double, 3>{-0x1.8492464eebf4cp+1, 0x1.a3f9a831fc01ep+4,
                                                        0x1.8717319a47a02p+5});
}

// --- Lines of coefficients ----------------------------------------------------------------------

_LASER_TRIPLE refit(double reading, double condition) {
  _LASER_TRIPLE cell = {{-0.0137, 1.71, -211.3}};
  PointMatrix2 samples(11, 2);
  refit_coefficient_cell(reading, condition, samples, cell);
  return cell;
}

TEST(PinnedRefit, GivesTheLineWithAReadingWithinReach) {
  expect_pinned(
      refit(123.77, 27.5).v,
      std::array<double, 3>{-0x1.09932d0f6ddeap-7, 0x1.fffbb1f33e58ap-1, -0x1.ee3cd9334778cp+6});
}

TEST(PinnedRefit, GivesTheLineWithAReadingThatIsHeldBack) {
  expect_pinned(
      refit(125.0, 43.25).v,
      std::array<double, 3>{-0x1.0e57839c39c0ap-7, 0x1.fffb8a0828583p-1, -0x1.ee39a3838522fp+6});
}

// --- The grid and the distance to a moved cell
// ----------------------------------------------------

struct PinnedCorner {
  int k;
  std::array<double, 3> bounds;  // depth, lateral start, width of a block
};

// The tangent of 30 degrees correctly rounded.
TEST(PinnedGrid, HasItsBounds) {
  LASER_PLANE_BLOCK_INFOS_GROUP table;
  ASSERT_EQ(table.init(1), KESTRANE_OK);
  const PinnedCorner corners[] = {
      {0, {0x1.2c00000000000p+7, -0x1.5a6900584fbe5p+6, 0x1.7181116f43fe3p+3}},
      {17, {0x1.3080000000000p+9, -0x1.5f9b3763e04cbp+8, 0x1.770bf6d0ef40cp+5}},
      {49, {0x1.7040000000000p+10, -0x1.a937eddd0ad85p+9, 0x1.c590fdb89419fp+6}}};
  for (const PinnedCorner& corner : corners) {
    const std::array<double, 3> bounds = {table.grids->grid_z[corner.k],
                                          table.grids->grid_y_start[corner.k],
                                          table.grids->grid_y_step[corner.k]};
    expect_pinned(bounds.data(), corner.bounds);
  }
}

TEST(PinnedResidual, GivesTheDistanceToAMovedCell) {
  LASER_PLANE_BLOCK_INFOS_GROUP table;
  ASSERT_EQ(table.init(1), KESTRANE_OK);
  for (int j = 0; j < 15; ++j) {
    for (int k = 0; k < 50; ++k) {
      table.planes[0].block.lines[j].cells[k] = {{-0.0081, 0.00013, 0.00087}};
    }
  }
  const PointSets points = {Eigen::Vector3d(171.0, 12.5, 433.0)};
  ResidualSets residuals(1);
  const ResidualIndicators figures = measure_residuals(
      points, table, 0,
      {{0.9998, -0.0121, 0.0157, 0.0119, 0.9999, 0.0083, -0.0158, -0.0081, 0.9998},
       {0.31, -0.17, 0.23}},
      residuals);
  const std::array<double, 1> distance = {0x1.9584af0353614p+2};
  expect_pinned(residuals[0].data(), distance);
  expect_pinned(&figures.mean, distance);
  expect_pinned(&figures.max, distance);
}

}  // namespace
