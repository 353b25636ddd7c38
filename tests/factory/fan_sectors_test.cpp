#include "factory/fan_sectors.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "factory/nominal_grid.h"
#include "fit/streamed_fit.h"
#include "simulation/random.h"
#include "tests/support/bits.h"

namespace {

using kestrane::PlaneAbcd;
using kestrane::PointMatrix3;
using kestrane::SectorClouds;
using kestrane::SectorPlanes;
using simulation::Random;

using kestrane_test::kInf;
using kestrane_test::kNaN;
const PlaneAbcd kSheet(1.0, 0.0, 0.0, -100.0);  // x = 100

kestrane::FanDividers dividers() {
  kestrane::FanDividers normals;
  kestrane::build_fan_dividers(normals);
  return normals;
}

double slope(double degrees) { return std::tan(degrees * 3.14159265358979323846 / 180.0); }

PointMatrix3 cloud_of(const std::vector<Eigen::Vector3d>& points) {
  PointMatrix3 cloud(static_cast<Eigen::Index>(points.size()), 3);
  for (std::size_t i = 0; i < points.size(); ++i) {
    cloud.row(static_cast<Eigen::Index>(i)) = points[i].transpose();
  }
  return cloud;
}

// The sector of each point of a run, found by the mark in its x. Marks must differ.
std::vector<int> sectors_of(const std::vector<Eigen::Vector3d>& points,
                            const PlaneAbcd& plane = kSheet) {
  SectorClouds clouds;
  Eigen::Vector3d apex;
  kestrane::split_points_by_fan_sector(plane, dividers(), cloud_of(points), clouds, apex);
  std::vector<int> sectors;
  for (const Eigen::Vector3d& point : points) {
    int sector = -1;
    for (std::size_t s = 0; s < clouds.size(); ++s) {
      for (Eigen::Index i = 0; i < clouds[s].rows(); ++i) {
        if (clouds[s](i, 0) == point.x()) sector = static_cast<int>(s);
      }
    }
    sectors.push_back(sector);
  }
  return sectors;
}

// `count` points of a sheet x = offset in the middle of sector s, inside the standard depth band.
std::vector<Eigen::Vector3d> sector_sheet(int s, int count, double offset, std::uint64_t seed) {
  Random random(seed);
  std::vector<Eigen::Vector3d> points;
  for (int i = 0; i < count; ++i) {
    const double z = random.uniform(200.0, 900.0);
    points.emplace_back(offset, slope(4.0 * s - 28.0 + random.uniform(-1.9, 1.9)) * z, z);
  }
  return points;
}

TEST(FanApex, LiesWhereMinusXMeetsThePlanesDistance) {
  const PlaneAbcd plane(-2.0, 1.0, 2.0, -30.0);
  SectorClouds clouds;
  Eigen::Vector3d apex;
  kestrane::split_points_by_fan_sector(plane, dividers(), PointMatrix3(0, 3), clouds, apex);
  EXPECT_EQ(apex.x(), -5.0);  // t = 30 / 3 / 2
  EXPECT_EQ(apex.y(), 0.0);
  EXPECT_EQ(apex.z(), 0.0);
}

TEST(FanApex, HasNoYAndZWithoutAnA) {
  SectorClouds clouds;
  Eigen::Vector3d apex;
  kestrane::split_points_by_fan_sector(PlaneAbcd(0.0, 1.0, 0.0, -30.0), dividers(),
                                       PointMatrix3(0, 3), clouds, apex);
  EXPECT_TRUE(std::isinf(apex.x()));
  EXPECT_TRUE(std::isnan(apex.y()));
  EXPECT_TRUE(std::isnan(apex.z()));
}

TEST(FanSplit, PutsTheMiddleOfEachSectorIntoIt) {
  std::vector<Eigen::Vector3d> points;
  for (int s = 0; s < 15; ++s) points.emplace_back(s, slope(4.0 * s - 28.0) * 400.0, 400.0);
  const auto sectors = sectors_of(points);
  for (int s = 0; s < 15; ++s) EXPECT_EQ(sectors[static_cast<std::size_t>(s)], s);
}

TEST(FanSplit, PutsAPointBelowTheLowerEdgeIntoSectorZero) {
  EXPECT_EQ(sectors_of({{1.0, slope(-31.0) * 400.0, 400.0}}), std::vector<int>{0});
}

TEST(FanSplit, CountsAPointOnADividerAsAboveIt) {
  // y is the very product that the divider's normal takes off: the dot product is exactly zero.
  for (int k = 0; k < 15; ++k) {
    const double z = 512.0;
    const double y = -(dividers()[static_cast<std::size_t>(k)].z() * z);
    EXPECT_EQ(sectors_of({{1.0, y, z}}), std::vector<int>{k}) << k;
    EXPECT_EQ(sectors_of({{1.0, std::nextafter(y, -1e9), z}}),
              std::vector<int>{k == 0 ? 0 : k - 1});
  }
}

TEST(FanSplit, PutsAFirstPointOnOrPastTheUpperEdgeIntoTheLastSector) {
  EXPECT_EQ(sectors_of({{1.0, slope(35.0) * 400.0, 400.0}}), std::vector<int>{14});
  const double on_edge = -(dividers()[15].z() * 512.0);
  EXPECT_EQ(sectors_of({{1.0, on_edge, 512.0}}), std::vector<int>{14});
}

TEST(FanSplit, SendsALaterPointPastTheEdgeWhereTheOneBeforeWent) {
  const Eigen::Vector3d past(3.0, slope(35.0) * 400.0, 400.0);
  const Eigen::Vector3d below(1.0, slope(-40.0) * 400.0, 400.0);
  const Eigen::Vector3d sixth(2.0, slope(-4.0) * 400.0, 400.0);
  EXPECT_EQ(sectors_of({below, past}), (std::vector<int>{0, 0}));
  EXPECT_EQ(sectors_of({below, sixth, past}), (std::vector<int>{0, 6, 6}));
  EXPECT_EQ(sectors_of({past, below, sixth}), (std::vector<int>{14, 0, 6}));
}

TEST(FanSplit, LetsAZeroedPointFollowTheOneBefore) {
  EXPECT_EQ(sectors_of({{1.0, 0.0, 400.0}, {0.0, 0.0, 0.0}}), (std::vector<int>{7, 7}));
  EXPECT_EQ(sectors_of({{0.0, 0.0, 0.0}}), std::vector<int>{14});
}

TEST(FanSplit, LetsPointsThatAreNotFiniteFollowTheOneBefore) {
  SectorClouds clouds;
  Eigen::Vector3d apex;
  const PointMatrix3 cloud = cloud_of({{1.0, slope(-29.0) * 300.0, 300.0},
                                       {kInf, slope(20.0) * 300.0, 300.0},
                                       {2.0, kNaN, 300.0},
                                       {2.0, 1.0, kNaN}});
  kestrane::split_points_by_fan_sector(kSheet, dividers(), cloud, clouds, apex);
  EXPECT_EQ(clouds[0].rows(), 4);
}

TEST(FanSplit, SendsEverythingToTheLastSectorWhenThePlaneHasNoA) {
  const PlaneAbcd plane(0.0, 1.0, 0.0, -30.0);
  EXPECT_EQ(sectors_of({{1.0, slope(-29.0) * 400.0, 400.0}, {2.0, 0.0, 400.0}}, plane),
            (std::vector<int>{14, 14}));
}

TEST(FanSplit, SortsAPointBehindTheScannerByTheFirstBorderAlone) {
  // At negative depth the borders turn round: only the first one can lie above a point.
  EXPECT_EQ(sectors_of({{1.0, -300.0, -400.0}}), std::vector<int>{0});
  EXPECT_EQ(sectors_of({{1.0, 0.0, 400.0}, {2.0, 300.0, -400.0}}), (std::vector<int>{7, 7}));
  // Below the first border (-30 degrees) and above the second one (-26) and all others.
  EXPECT_EQ(sectors_of({{1.0, 0.0, 400.0}, {2.0, slope(28.0) * 400.0, -400.0}}),
            (std::vector<int>{7, 0}));
}

TEST(FanSplit, KeepsEveryPointOnceInInputOrder) {
  Random random(5);
  std::vector<Eigen::Vector3d> points;
  for (int i = 0; i < 3000; ++i) {
    points.emplace_back(i, random.uniform(-900.0, 900.0), random.uniform(-50.0, 1200.0));
  }
  SectorClouds clouds(2, PointMatrix3(1, 3));
  Eigen::Vector3d apex;
  kestrane::split_points_by_fan_sector(kSheet, dividers(), cloud_of(points), clouds, apex);
  ASSERT_EQ(clouds.size(), 15u);

  // The plain walk over all borders, point by point.
  const auto normals = dividers();
  std::vector<std::vector<Eigen::Vector3d>> expected(15);
  std::size_t running = 14;
  for (const Eigen::Vector3d& p : points) {
    const Eigen::Vector3d q = p - apex;
    for (std::size_t k = 0; k < 16; ++k) {
      if (q.y() + q.z() * normals[k].z() < 0.0) {
        running = k == 0 ? 0 : k - 1;
        break;
      }
    }
    expected[running].push_back(p);
  }
  for (std::size_t s = 0; s < 15; ++s) {
    ASSERT_EQ(clouds[s].rows(), static_cast<Eigen::Index>(expected[s].size()));
    EXPECT_TRUE(clouds[s] == cloud_of(expected[s]));
  }
}

TEST(SectorFit, NeedsTwoHundredPoints) {
  SectorClouds clouds(15, PointMatrix3(0, 3));
  clouds[3] = cloud_of(sector_sheet(3, 200, 100.0, 1));
  clouds[9] = cloud_of(sector_sheet(9, 199, 50.0, 2));
  SectorPlanes planes;
  SectorClouds kept;
  kestrane::fit_sector_planes(kestrane::LASER_TYPE_STANDARD, clouds, planes, kept);
  ASSERT_EQ(planes.size(), 15u);
  ASSERT_EQ(kept.size(), 15u);
  EXPECT_GT(kept[3].rows(), 100);
  EXPECT_EQ(kept[9].rows(), 0);
  for (const PlaneAbcd& plane : planes) EXPECT_TRUE(plane == planes[3]);
}

TEST(SectorFit, GivesWhatTheRobustFitGives) {
  SectorClouds clouds(15, PointMatrix3(0, 3));
  for (int s = 0; s < 15; ++s) {
    auto points = sector_sheet(s, 300, 100.0 + s, static_cast<std::uint64_t>(s) + 20);
    Random noise(static_cast<std::uint64_t>(s) + 50);
    for (auto& point : points) point.x() += 0.1 * noise.gaussian();
    clouds[static_cast<std::size_t>(s)] = cloud_of(points);
  }
  SectorPlanes planes;
  SectorClouds kept;
  kestrane::fit_sector_planes(kestrane::LASER_TYPE_STANDARD, clouds, planes, kept);
  for (std::size_t s = 0; s < 15; ++s) {
    const kestrane::RobustFit robust =
        kestrane::fit_in_band(clouds[s], {100, 1000}, kestrane::Wanted::kAll);
    ASSERT_TRUE(robust.complete);
    EXPECT_TRUE(planes[s] == robust.fit->plane);
    EXPECT_TRUE(kept[s] == robust.inliers);
  }
}

TEST(SectorFit, CountsPointsOutsideTheDepthBandTowardsTheTwoHundred) {
  auto points = sector_sheet(7, 10, 100.0, 3);
  for (int i = 0; i < 190; ++i) points.emplace_back(0.0, 0.0, 0.0);  // dropped points
  SectorClouds clouds(15, PointMatrix3(0, 3));
  clouds[7] = cloud_of(points);
  SectorPlanes planes;
  SectorClouds kept;
  kestrane::fit_sector_planes(kestrane::LASER_TYPE_STANDARD, clouds, planes, kept);
  EXPECT_EQ(kept[7].rows(), 10);
}

TEST(SectorFit, TakesTheFarBandForTheFarTypeAlone) {
  auto points = sector_sheet(7, 200, 100.0, 4);
  for (auto& point : points) {
    point *= 219.9 / point.z();
    point.x() = 100.0;
  }
  points[5] = {100.0, 1.0, 220.0};
  points[6] = {100.0, 3.0, 230.0};
  points[7] = {100.0, -8.0, 240.0};
  SectorClouds clouds(15, PointMatrix3(0, 3));
  clouds[7] = cloud_of(points);
  SectorPlanes planes;
  SectorClouds kept;
  kestrane::fit_sector_planes(kestrane::LASER_TYPE_FAR, clouds, planes, kept);
  EXPECT_EQ(kept[7].rows(), 3);
  for (const int other : {0, 2, 7, -1}) {
    kestrane::fit_sector_planes(static_cast<kestrane::_LASER_TYPE>(other), clouds, planes, kept);
    EXPECT_GT(kept[7].rows(), 150) << other;
  }
}

TEST(SectorFit, LendsAPlaneToASectorWhoseFitFails) {
  SectorClouds clouds(15, PointMatrix3(0, 3));
  clouds[4] = cloud_of(sector_sheet(4, 250, 100.0, 6));
  clouds[5] = PointMatrix3::Zero(300, 3);  // enough points, none inside the band
  SectorPlanes planes;
  SectorClouds kept;
  kestrane::fit_sector_planes(kestrane::LASER_TYPE_STANDARD, clouds, planes, kept);
  EXPECT_EQ(kept[5].rows(), 0);
  EXPECT_TRUE(planes[5] == planes[4]);
}

TEST(SectorFit, LendsAPlaneToASectorWhoseFitFailsAfterItsFirstPlane) {
  // Two sheets ten apart: every point lies five from their common plane, and none is kept.
  auto apart = sector_sheet(5, 300, 95.0, 8);
  for (const Eigen::Vector3d& point : sector_sheet(5, 300, 105.0, 8)) apart.push_back(point);
  SectorClouds clouds(15, PointMatrix3(0, 3));
  clouds[4] = cloud_of(sector_sheet(4, 250, 50.0, 7));
  clouds[5] = cloud_of(apart);
  SectorPlanes planes;
  SectorClouds kept;
  kestrane::fit_sector_planes(kestrane::LASER_TYPE_STANDARD, clouds, planes, kept);
  EXPECT_EQ(kept[5].rows(), 0);
  EXPECT_TRUE(planes[5] == planes[4]);
}

TEST(SectorFit, LeavesAllPlanesEmptyWithoutAnyFit) {
  SectorPlanes planes(3, PlaneAbcd::Ones());
  SectorClouds kept;
  kestrane::fit_sector_planes(kestrane::LASER_TYPE_STANDARD, SectorClouds(15, PointMatrix3(0, 3)),
                              planes, kept);
  ASSERT_EQ(planes.size(), 15u);
  for (const PlaneAbcd& plane : planes) EXPECT_TRUE(plane == PlaneAbcd::Zero());
}

// Planes 1 + index where fitted, zeros elsewhere.
SectorPlanes planes_with(const std::vector<int>& fitted) {
  SectorPlanes planes(15, PlaneAbcd::Zero());
  for (const int s : fitted) planes[static_cast<std::size_t>(s)] = PlaneAbcd::Constant(1.0 + s);
  return planes;
}

// The index of the plane that each sector ended with, -1 for an empty one.
std::vector<int> sources(SectorPlanes planes) {
  kestrane::fill_empty_sector_planes(planes);
  std::vector<int> result;
  for (const PlaneAbcd& plane : planes) result.push_back(static_cast<int>(plane[3]) - 1);
  return result;
}

TEST(BorrowedPlanes, ComeFromTheNearestFittedSector) {
  EXPECT_EQ(sources(planes_with({0, 3})),
            (std::vector<int>{0, 0, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3}));
}

TEST(BorrowedPlanes, ComeFromTheLaterSectorOnATie) {
  EXPECT_EQ(sources(planes_with({0, 2}))[1], 2);
  EXPECT_EQ(sources(planes_with({4, 10}))[7], 10);
}

TEST(BorrowedPlanes, ReachBothEndsOfTheFan) {
  EXPECT_EQ(sources(planes_with({6})), std::vector<int>(15, 6));
  EXPECT_EQ(sources(planes_with({13}))[14], 13);
  EXPECT_EQ(sources(planes_with({1}))[0], 1);
}

TEST(BorrowedPlanes, AreNeverLentOn) {
  // If sector 1 lent on what it borrowed from 0, sector 2 would take it as its neighbour's.
  EXPECT_EQ(sources(planes_with({0, 4}))[2], 4);
}

TEST(BorrowedPlanes, AreNotNeededOrNotToBeHad) {
  EXPECT_EQ(sources(planes_with({})), std::vector<int>(15, -1));
  const auto full = planes_with({0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14});
  for (int s = 0; s < 15; ++s) EXPECT_EQ(sources(full)[static_cast<std::size_t>(s)], s);
}

TEST(BorrowedPlanes, ReplaceAPlaneOfTinyComponents) {
  auto planes = planes_with({3});
  planes[5] = PlaneAbcd(1e-12, -1e-12, 0.0, 1e-12);
  planes[6] = PlaneAbcd(0.0, 0.0, 0.0, 1.1e-12);
  planes[7] = PlaneAbcd(kNaN, 0.0, 0.0, 0.0);
  kestrane::fill_empty_sector_planes(planes);
  EXPECT_EQ(planes[5][3], 1.1e-12);  // the tiny plane at 6 counts as fitted, the one at 5 does not
  EXPECT_EQ(planes[6][3], 1.1e-12);
  EXPECT_TRUE(std::isnan(planes[7][0]));
}

TEST(FittedNeighbours, StoreTheIndexOrTheEndOfTheirWalk) {
  const auto planes = planes_with({2, 9});
  std::ptrdiff_t found = 77;
  EXPECT_FALSE(kestrane::find_previous_fitted_plane(planes, 0, found));
  EXPECT_EQ(found, -1);
  EXPECT_FALSE(kestrane::find_previous_fitted_plane(planes, 2, found));
  EXPECT_EQ(found, -1);
  EXPECT_TRUE(kestrane::find_previous_fitted_plane(planes, 9, found));
  EXPECT_EQ(found, 2);
  EXPECT_TRUE(kestrane::find_next_fitted_plane(planes, 2, found));
  EXPECT_EQ(found, 9);
  EXPECT_FALSE(kestrane::find_next_fitted_plane(planes, 9, found));
  EXPECT_EQ(found, 15);
  EXPECT_FALSE(kestrane::find_next_fitted_plane(planes, 14, found));
  EXPECT_EQ(found, 15);
}

}  // namespace
