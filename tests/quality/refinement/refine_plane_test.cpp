// The refinement of one plane: refusals, shapes without noise, determinism, accounts.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "kestrane/quality/refinement.h"
#include "simulation/random.h"
#include "simulation/scanner.h"
#include "tests/support/bits.h"
#include "tests/support/sanitized.h"

namespace {

using namespace kestrane::quality;
using kestrane::_LASER_TRIPLE;
using kestrane_test::kInf;
using kestrane_test::kNaN;
using kestrane_test::same_bits;

PointList cloud_of(const simulation::Sheet& sheet, const simulation::CloudSettings& settings) {
  return simulation::measure(sheet, settings).points;
}

simulation::CloudSettings quiet(int points) {
  simulation::CloudSettings settings;
  settings.points = points;
  settings.noise = 0.0;
  settings.frames = 20;
  return settings;
}

double x_of(const _LASER_TRIPLE& abc, double y, double z) {
  return -(abc.v[1] * y + abc.v[2] * z + 1.0) / abc.v[0];
}

constexpr simulation::Sheet kFlat{118.0, 0.004, -0.2, 0.0, 0.0};
constexpr simulation::Sheet kBowed{118.0, 0.004, -0.2, 0.4, -0.3};

TEST(RefinePlane, GivesAPlaneBackWithoutNoise) {
  const RefinedPlane plane = refine_plane(cloud_of(kFlat, quiet(3000)));
  ASSERT_EQ(plane.refused, "");
  EXPECT_TRUE(plane.plane_only);
  for (const RefinedCorner& corner : plane.corners)
    EXPECT_NEAR(corner.x, simulation::sheet_x(kFlat, corner.y, corner.z), 1e-9);
  const PlaneTable table(1);
  for (int block = 0; block < 750; ++block) {
    const FanPlace at = table.block_middle({block / 50, block % 50});
    EXPECT_NEAR(x_of(plane.cells[static_cast<std::size_t>(block)], at.y, at.z),
                simulation::sheet_x(kFlat, at.y, at.z), 1e-9);
  }
  EXPECT_NEAR(plane.whole_plane[0], -1.0 / 118.0, 1e-15);
  EXPECT_NEAR(plane.whole_plane[1], 0.004 / 118.0, 1e-15);
  EXPECT_NEAR(plane.whole_plane[2], -0.2 / 118.0, 1e-15);
}

// Corners inside the measured depths are on the quadratic. A cell's plane departs from it by the
// curvature alone: RMS sqrt(((x_yy h_y^2)^2 + (x_zz h_z^2)^2) / 720), h_y and h_z its sides.
TEST(RefinePlane, GivesAQuadraticBackWithoutNoise) {
  const RefinedPlane plane = refine_plane(cloud_of(kBowed, quiet(20000)));
  ASSERT_EQ(plane.refused, "");
  EXPECT_EQ(plane.order, 3);
  for (const RefinedCorner& corner : plane.corners) {
    if (corner.z > 980.0) continue;
    EXPECT_NEAR(corner.x, simulation::sheet_x(kBowed, corner.y, corner.z), 1e-9);
  }
  const double x_yy = 2.0 * kBowed.bow_y / (300.0 * 300.0);
  const double x_zz = 2.0 * kBowed.bow_z / (450.0 * 450.0);
  const auto grids = PlaneTable(1).grids();
  double squares = 0.0, expected = 0.0;
  constexpr int kPlaces = 9;
  for (int line = 0; line < 15; ++line) {
    for (int k = 3; k < 30; ++k) {
      const double height = grids.z_step;
      const double width = grids.grid_y_step[k];
      expected += (std::pow(x_yy * width * width, 2) + std::pow(x_zz * height * height, 2)) / 720.0;
      for (int s = 0; s < kPlaces; ++s) {
        for (int t = 0; t < kPlaces; ++t) {
          const double y = grids.grid_y_start[k] + (line + (s + 0.5) / kPlaces) * width;
          const double z = grids.grid_z[k] + (t + 0.5) / kPlaces * height;
          const double error = x_of(plane.cells[static_cast<std::size_t>(50 * line + k)], y, z) -
                               simulation::sheet_x(kBowed, y, z);
          squares += error * error / (kPlaces * kPlaces);
        }
      }
    }
  }
  // The plane weighs 4 x 4 places by their samples, the formula weighs all alike.
  EXPECT_NEAR(std::sqrt(squares / expected), 1.0, 0.05);
}

TEST(RefinePlane, CountsWhatItTakesAndWhatItLeaves) {
  PointList cloud = cloud_of(kBowed, [] {
    simulation::CloudSettings settings;
    settings.points = 5000;
    settings.frames = 20;
    settings.depth_low = 130.0;
    return settings;
  }());
  cloud[10].x = kNaN;
  cloud[11].y = kInf;
  cloud[12].z = 1600.0;
  cloud[13].y = 0.7 * cloud[13].z;
  cloud[14].x += 50.0;
  const RefinedPlane plane = refine_plane(cloud);
  EXPECT_EQ(plane.counts.points, 5000);
  EXPECT_EQ(plane.counts.not_finite, 2);
  EXPECT_EQ(plane.counts.outside, 2);
  EXPECT_GE(plane.counts.outliers, 1);
  EXPECT_EQ(plane.counts.bad_frames, 0);
  EXPECT_EQ(plane.counts.used + plane.counts.outliers + 4, 5000);
  EXPECT_EQ(plane.frames_used, 20);
  EXPECT_NEAR(plane.noise, 0.05, 0.002);
  EXPECT_NEAR(plane.cross_validated_rms, 0.05, 0.002);
  EXPECT_NEAR(plane.degrees_of_freedom, 6.0, 0.5);
}

// Also in blocks of one point or a few, which may all lie at smaller x, and without the outliers.
TEST(RefinePlane, MeasuresItsIndicatorsAgainstItsOwnCells) {
  simulation::CloudSettings settings;
  settings.points = 2000;
  settings.frames = 20;
  PointList cloud = cloud_of(kBowed, settings);
  for (std::size_t n = 0; n < cloud.size(); n += 40) cloud[n].x += n % 80 == 0 ? 30.0 : -30.0;
  const RefinedPlane plane = refine_plane(cloud);
  ASSERT_EQ(plane.refused, "");
  const PlaneTable table(1);
  std::vector<std::vector<double>> distances(750);
  for (const auto& p : cloud) {
    const auto at = table.lookup(p.y, p.z);
    if (!at) continue;
    const auto block = static_cast<std::size_t>(50 * at->line + at->cell);
    const double* abc = plane.cells[block].v;
    ASSERT_LT(abc[0], 0.0);  // so the sign below is + at larger x
    const double distance =
        -(abc[0] * p.x + abc[1] * p.y + abc[2] * p.z + 1.0) / std::hypot(abc[0], abc[1], abc[2]);
    if (std::abs(distance) < 10.0) distances[block].push_back(distance);
  }
  int empty = 0, all_below = 0;
  for (std::size_t block = 0; block < distances.size(); ++block) {
    const std::vector<double>& d = distances[block];
    double most = 0.0, mean = 0.0, squares = 0.0;
    if (!d.empty()) most = *std::max_element(d.begin(), d.end());
    const double count = std::max<double>(1.0, static_cast<double>(d.size()));
    for (const double r : d) mean += r / count;
    for (const double r : d) squares += (r - mean) * (r - mean);
    const double* v = plane.indicators[block].v;
    EXPECT_NEAR(v[0], most, 1e-12) << block;
    EXPECT_NEAR(v[1], mean, 1e-12) << block;
    EXPECT_NEAR(v[2], std::sqrt(squares / count), 1e-12) << block;
    empty += d.empty() ? 1 : 0;
    all_below += most < 0.0 ? 1 : 0;
  }
  EXPECT_GT(empty, 50);
  EXPECT_GT(all_below, 20);
}

void expect_same(const RefinedPlane& a, const RefinedPlane& b) {
  ASSERT_EQ(a.corners.size(), b.corners.size());
  for (std::size_t n = 0; n < a.corners.size(); ++n) {
    EXPECT_TRUE(same_bits(a.corners[n].x, b.corners[n].x)) << n;
    EXPECT_TRUE(same_bits(a.corners[n].sigma, b.corners[n].sigma)) << n;
  }
  for (std::size_t n = 0; n < a.cells.size(); ++n) {
    for (int i = 0; i < 3; ++i) {
      EXPECT_TRUE(same_bits(a.cells[n].v[i], b.cells[n].v[i]));
      EXPECT_TRUE(same_bits(a.indicators[n].v[i], b.indicators[n].v[i]));
    }
  }
  EXPECT_TRUE(same_bits(a.cross_validated_rms, b.cross_validated_rms));
}

PointList hostile_cloud(int points) {
  simulation::CloudSettings settings;
  settings.points = points;
  settings.frames = 20;
  settings.outlier_share = 0.05;
  settings.dropped_share = 0.02;
  settings.bad_frames = 2;
  return cloud_of(kBowed, settings);
}

TEST(RefinePlane, DependsOnNeitherRunNorThreadNorOrder) {
  PointList cloud = hostile_cloud(6000);
  const RefinedPlane first = refine_plane(cloud);
  expect_same(refine_plane(cloud), first);
  RefinedPlane beside;
  std::thread([&] { beside = refine_plane(cloud); }).join();
  expect_same(beside, first);
  simulation::Random random(9);
  for (std::size_t n = cloud.size(); n > 1; --n)
    std::swap(cloud[n - 1], cloud[static_cast<std::size_t>(random.index(static_cast<int>(n)))]);
  expect_same(refine_plane(cloud), first);
}

TEST(RefinePlane, MovesLittleWhenItsInputIsShaken) {
  PointList cloud = hostile_cloud(6000);
  const RefinedPlane first = refine_plane(cloud);
  simulation::Random random(10);
  for (auto& p : cloud) p.x += 1e-15 * random.uniform(-1.0, 1.0) * std::abs(p.x);
  const RefinedPlane shaken = refine_plane(cloud);
  for (std::size_t n = 0; n < first.corners.size(); ++n)
    EXPECT_NEAR(shaken.corners[n].x, first.corners[n].x, 1e-10);
}

TEST(RefinePlane, KeepsThePlaneWhereFramesAreFewerThanFive) {
  simulation::CloudSettings settings;
  settings.points = 8000;
  settings.frames = 4;
  const RefinedPlane plane = refine_plane(cloud_of(kBowed, settings));
  EXPECT_TRUE(plane.plane_only);
  EXPECT_FALSE(std::isnan(plane.cross_validated_rms));
  settings.frames = 1;
  const RefinedPlane single = refine_plane(cloud_of(kBowed, settings));
  EXPECT_TRUE(single.plane_only);
  EXPECT_TRUE(std::isnan(single.cross_validated_rms));
}

TEST(RefinePlane, TakesPointsAsFramesWhereAsked) {
  simulation::CloudSettings settings;
  settings.points = 8000;
  settings.frames = 1;
  RefinementSettings refinement;
  refinement.frames = false;
  const RefinedPlane plane = refine_plane(cloud_of(kBowed, settings), refinement);
  EXPECT_EQ(plane.order, 3);
  EXPECT_FALSE(plane.plane_only);
  EXPECT_EQ(plane.frames_left_out.size(), 0u);
}

TEST(RefinePlane, NamesItsBadFramesAndNoOther) {
  for (std::uint64_t seed = 1; seed <= 8; ++seed) {
    simulation::CloudSettings settings;
    settings.points = 12000;
    settings.frames = 20;
    settings.first_frame = 100;
    settings.frame_stride = 3;
    settings.bad_frames = 3;
    settings.seed = seed;
    const simulation::Cloud cloud = simulation::measure(kBowed, settings);
    EXPECT_EQ(refine_plane(cloud.points).frames_left_out, cloud.bad_frames) << seed;
  }
  simulation::CloudSettings settings;
  settings.points = 12000;
  settings.frames = 20;
  settings.bad_frames = 3;
  RefinementSettings all;
  all.frame_cut = 0.0;
  EXPECT_TRUE(refine_plane(cloud_of(kBowed, settings), all).frames_left_out.empty());
}

// --- Refusals ------------------------------------------------------------------------------------

TEST(RefinePlane, RefusesFewerThanTwentyUsablePoints) {
  PointList cloud = cloud_of(kFlat, quiet(20));
  EXPECT_EQ(refine_plane(cloud).refused, "");
  cloud[3].x = kNaN;
  const RefinedPlane plane = refine_plane(cloud);
  EXPECT_EQ(plane.refused, "fewer than 20 usable points");
  EXPECT_TRUE(plane.corners.empty());
  EXPECT_TRUE(plane.cells.empty());
  EXPECT_NE(refine_plane(PointList{}).refused, "");
}

TEST(RefinePlane, RefusesPointsOnOneLine) {
  PointList line;
  for (int n = 0; n < 500; ++n) {
    const double y = -100.0 + 0.4 * n;
    line.push_back({118.0 + 0.01 * (n % 3), y, 400.0 + 0.2 * y, n % 20});
  }
  EXPECT_NE(refine_plane(line).refused.find("one line"), std::string::npos);
}

PointList cloud_at(double x) {
  PointList cloud;
  simulation::Random random(5);
  for (int n = 0; n < 500; ++n) {
    const double z = random.uniform(200.0, 900.0);
    cloud.push_back({x, random.uniform(-0.5, 0.5) * z, z, n % 20});
  }
  return cloud;
}

TEST(RefinePlane, RefusesAPlaneThroughTheOrigin) {
  for (const double x : {0.0, 1e-16, -1e-16})
    EXPECT_NE(refine_plane(cloud_at(x)).refused.find("origin"), std::string::npos) << x;
  EXPECT_EQ(refine_plane(cloud_at(1e-3)).refused, "");
}

TEST(RefinePlane, RefusesAPlaneTooFarOffForATable) {
  for (const double x : {1e16, -1e16})
    EXPECT_NE(refine_plane(cloud_at(x)).refused.find("too far"), std::string::npos) << x;
  EXPECT_EQ(refine_plane(cloud_at(1e14)).refused, "");
}

TEST(RefinePlane, RefinesOneCellOfPoints) {
  PointList cloud;
  simulation::Random random(6);
  for (int n = 0; n < 400; ++n) {
    const double z = random.uniform(410.0, 425.0);
    const double y = random.uniform(5.0, 20.0);
    cloud.push_back({simulation::sheet_x(kFlat, y, z) + 0.01 * random.gaussian(), y, z, n % 20});
  }
  const RefinedPlane plane = refine_plane(cloud);
  ASSERT_EQ(plane.refused, "");
  for (const RefinedCorner& corner : plane.corners) EXPECT_TRUE(std::isfinite(corner.sigma));
}

TEST(RefinePlane, TellsPointsOfBadFramesFromOutliers) {
  PointList cloud;
  simulation::Random random(8);
  for (int n = 0; n < 400; ++n) {
    const double z = random.uniform(410.0, 425.0);
    const double y = random.uniform(5.0, 20.0);
    const int frame = n % 20;
    const double off = (frame == 7 ? 1.0 : 0.0) + (n == 103 ? 5.0 : 0.0);
    cloud.push_back(
        {simulation::sheet_x(kFlat, y, z) + random.uniform(-0.02, 0.02) + off, y, z, 3 * frame});
  }
  const RefinedPlane plane = refine_plane(cloud);
  ASSERT_EQ(plane.refused, "");
  EXPECT_EQ(plane.counts.points, 400);
  EXPECT_EQ(plane.counts.bad_frames, 20);
  EXPECT_EQ(plane.counts.outliers, 1);
  EXPECT_EQ(plane.counts.used, 379);
  EXPECT_EQ(plane.frames_used, 19);
  EXPECT_EQ(plane.frames_left_out, (std::vector<std::int32_t>{21}));
}

TEST(RefinePlane, ThrowsForWhatIsTheHostsMistake) {
  const PointList cloud = cloud_of(kFlat, quiet(100));
  const auto with = [&](auto change) {
    RefinementSettings settings;
    change(settings);
    return [&cloud, settings] { refine_plane(cloud, settings); };
  };
  const std::function<void()> calls[] = {
      with([](auto& s) { s.folds = 2; }),
      with([](auto& s) { s.folds = 41; }),
      with([](auto& s) { s.significance = 0.0; }),
      with([](auto& s) { s.significance = kNaN; }),
      with([](auto& s) { s.cut = 1.9; }),
      with([](auto& s) { s.cut = kNaN; }),
      with([](auto& s) { s.frame_cut = -1.0; }),
      with([](auto& s) { s.depth_near = 122.0; }),
      with([](auto& s) { s.depth_far = 1501.0; }),
      with([](auto& s) { s.depth_near = 800.0, s.depth_far = 700.0; })};
  for (const auto& call : calls) EXPECT_THROW(call(), std::invalid_argument);
  EXPECT_THROW(refine_plane(_KESTRANE_ID_POINT3DS{nullptr, 3}), std::invalid_argument);
  EXPECT_THROW(refine_plane(_KESTRANE_ID_POINT3DS{nullptr, -1}), std::invalid_argument);
}

// Whatever the numbers are: an answer or a refusal, never a crash.
TEST(RefinePlane, TakesAnyNumbers) {
  const double odd[] = {0.0,    -0.0, kNaN,  kInf,  -kInf, 1e308, -1e308,
                        5e-324, 1e15, 123.0, 150.0, 500.0, 1500.0};
  for (int seed = 1; seed <= kestrane_test::seeds_to_draw(30); ++seed) {
    simulation::Random random(static_cast<std::uint64_t>(seed));
    PointList cloud = cloud_of(kBowed, quiet(40 + 10 * seed));
    for (auto& p : cloud) {
      if (random.index(4) != 0) continue;
      double* const coordinate[] = {&p.x, &p.y, &p.z};
      *coordinate[random.index(3)] = odd[random.index(13)];
      p.id = static_cast<std::int32_t>(random.index(2) == 0 ? -2147483647 : 2147483647);
    }
    const RefinedPlane plane = refine_plane(cloud);
    if (!plane.refused.empty()) continue;
    for (const _LASER_TRIPLE& cell : plane.cells)
      for (const double v : cell.v) EXPECT_TRUE(std::isfinite(v));
  }
}

// --- A device ------------------------------------------------------------------------------------

TEST(Refine, WritesOneRowPerCloudAndLeavesRefusedRowsEmpty) {
  const std::vector<PointList> clouds = {hostile_cloud(3000), PointList{}, hostile_cloud(4000)};
  const RefinedDevice device = refine(clouds);
  ASSERT_EQ(device.table.planes(), 3);
  EXPECT_TRUE(device.table.row_is_empty(1));
  EXPECT_NE(device.planes[1].refused, "");
  for (const int row : {0, 2}) {
    const RefinedPlane& plane = device.planes[static_cast<std::size_t>(row)];
    for (int block = 0; block < 750; ++block)
      for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(same_bits(device.table.cell(row, {block / 50, block % 50}).v[i],
                              plane.cells[static_cast<std::size_t>(block)].v[i]));
    EXPECT_EQ(device.table.whole_plane(row)[0], plane.whole_plane[0]);
  }
}

TEST(Refine, DoesNotDependOnItsThreads) {
  std::vector<PointList> clouds;
  for (int n = 0; n < 5; ++n) clouds.push_back(hostile_cloud(2000 + 500 * n));
  const RefinedDevice one = refine(clouds);
  EXPECT_TRUE(refine(clouds, {}, 3).table == one.table);
  EXPECT_TRUE(refine(clouds, {}, 16).table == one.table);
  EXPECT_THROW(refine(clouds, {}, 0), std::invalid_argument);
  EXPECT_THROW(refine(std::vector<PointList>(101)), std::invalid_argument);
}

}  // namespace
