#include "factory/cell_indicators.h"

#include <gtest/gtest.h>

#include <cmath>

#include "simulation/random.h"

namespace {

using kestrane::PlaneAbcd;
using kestrane::PointMatrix3;
using simulation::Random;

TEST(CellIndicator, IsZeroWithoutPoints) {
  const auto triple = kestrane::cell_indicator(PointMatrix3(0, 3), PlaneAbcd(1, 0, 0, -5));
  for (const double value : triple.v) EXPECT_EQ(value, 0.0);
}

TEST(CellIndicator, GivesLargestMeanAndDeviationOfSignedDistances) {
  // x = 8 written with d = -8: distances come out as x - 8 with the sign turned, since d and a
  // differ in sign and the first component of the rescaled normal is made non-negative.
  PointMatrix3 points(4, 3);
  points << 9.0, 0, 0, 10.0, 5, 5, 11.0, 1, 2, 14.0, 3, 3;
  const auto triple = kestrane::cell_indicator(points, PlaneAbcd(1, 0, 0, -8));
  constexpr double kRounding = 1e-13;
  EXPECT_NEAR(triple.v[0], 6.0, kRounding);
  EXPECT_NEAR(triple.v[1], 3.0, kRounding);
  EXPECT_NEAR(triple.v[2], std::sqrt((4.0 + 1.0 + 0.0 + 9.0) / 4.0), kRounding);
}

TEST(CellIndicator, KeepsTheSignOfTheLargestDistance) {
  PointMatrix3 points(2, 3);
  points << 5.0, 0, 0, 7.0, 0, 0;
  const auto triple = kestrane::cell_indicator(points, PlaneAbcd(1, 0, 0, -8));
  EXPECT_NEAR(triple.v[0], -1.0, 1e-13);
}

TEST(CellIndicator, DividesByTheNumberOfPoints) {
  PointMatrix3 points(1, 3);
  points << 5.0, 0, 0;
  const auto triple = kestrane::cell_indicator(points, PlaneAbcd(1, 0, 0, -8));
  EXPECT_EQ(triple.v[2], 0.0);
}

TEST(CellIndicator, FollowsTheWrittenOrderOfOperations) {
  Random random(31);
  for (int round = 0; round < 300; ++round) {
    const int count = 1 + random.index(50);
    PointMatrix3 points(count, 3);
    for (int i = 0; i < count; ++i) {
      points.row(i) << random.uniform(-300, 300), random.uniform(-300, 300), random.uniform(0, 900);
    }
    const PlaneAbcd plane(random.uniform(-1, 1), random.uniform(-1, 1), random.uniform(-1, 1),
                          random.uniform(-200, 200));
    const double s = plane[3] + 2.220446049250313e-16;
    double p = plane[0] / s;
    double q = plane[1] / s;
    double t = plane[2] / s;
    double k = 1.0;
    if (0.0 > p) {
      p = -p;
      q = -q;
      t = -t;
      k = -1.0;
    }
    const double w = 1.0 / std::sqrt(t * t + (p * p + q * q));
    std::vector<double> distances;
    double sum = 0.0;
    for (int i = 0; i < count; ++i) {
      distances.push_back((t * points(i, 2) + (p * points(i, 0) + q * points(i, 1)) + k) * w);
      sum += distances.back();
    }
    const double mean = sum / count;
    double largest = distances[0];
    double squares = 0.0;
    for (const double distance : distances) {
      if (distance > largest) largest = distance;
      squares += (distance - mean) * (distance - mean);
    }
    const auto triple = kestrane::cell_indicator(points, plane);
    EXPECT_EQ(triple.v[0], largest);
    EXPECT_EQ(triple.v[1], mean);
    EXPECT_EQ(triple.v[2], std::sqrt(squares / count));
  }
}

TEST(CellIndicators, TakeEveryCellWithItsOwnPlane) {
  kestrane::CellPoints cells(15, std::vector<PointMatrix3>(50, PointMatrix3(0, 3)));
  kestrane::CellPlanes planes(15, std::vector<PlaneAbcd>(50, PlaneAbcd(1, 0, 0, -8)));
  cells[3][7] = PointMatrix3::Constant(1, 3, 10.0);
  planes[3][7] = PlaneAbcd(1, 0, 0, -9);
  const auto indicators = kestrane::compute_cell_indicators(cells, planes);
  ASSERT_EQ(indicators.size(), 15u);
  for (std::size_t i = 0; i < 15; ++i) {
    ASSERT_EQ(indicators[i].size(), 50u);
    for (std::size_t j = 0; j < 50; ++j) {
      EXPECT_NEAR(indicators[i][j].v[1], i == 3 && j == 7 ? 1.0 : 0.0, 1e-13);
    }
  }
}

TEST(CellIndicators, LeaveOutRowsWithoutPlanes) {
  const kestrane::CellPoints cells(15, std::vector<PointMatrix3>(50, PointMatrix3::Ones(1, 3)));
  EXPECT_TRUE(kestrane::compute_cell_indicators(cells, {}).empty());
}

}  // namespace
