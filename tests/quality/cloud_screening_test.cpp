#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "kestrane/factory_calib.h"
#include "kestrane/quality/screening.h"
#include "tests/quality/point_clouds.h"
#include "tests/support/bits.h"

namespace {

using kestrane::quality::CloudSettings;
using kestrane::quality::PointList;
using kestrane::quality::screen_cloud;
using kestrane::quality::ScreenedCloud;
using kestrane_test::kInf;
using kestrane_test::kNaN;
using quality_tests::bowed_x;
using quality_tests::fan_grid;
using quality_tests::flat_x;
using ::testing::HasSubstr;

// Rounding of a residual at coordinates up to 1000, far below any limit.
constexpr double kRounding = 1e-9;

PointList bowed_cloud() { return fan_grid(60, 60, 150.0, 950.0, bowed_x); }

// --- refusals --------------------------------------------------------------------------------

TEST(ScreenCloud, RefusesAHostsMistakes) {
  EXPECT_THROW(screen_cloud({nullptr, 3}), std::invalid_argument);
  EXPECT_THROW(screen_cloud({nullptr, -1}), std::invalid_argument);
  for (const double gross : {0.0, -1.0, kNaN, kInf}) {
    CloudSettings settings;
    settings.gross = gross;
    EXPECT_THROW(screen_cloud(bowed_cloud(), settings), std::invalid_argument);
  }
}

TEST(ScreenCloud, RefusesACloudWithoutPoints) {
  const ScreenedCloud screened = screen_cloud({nullptr, 0});
  EXPECT_EQ(screened.refused, "there are no points");
  EXPECT_EQ(screened.account.points, 0);
  EXPECT_TRUE(screened.account.frames.empty());
}

TEST(ScreenCloud, SaysWhyNothingIsLeft) {
  PointList points(300, {kNaN, 0.0, 300.0, 0});
  EXPECT_EQ(screen_cloud(points).refused, "no point is finite");
  points.assign(300, {1.0, 0.0, 2000.0, 0});
  EXPECT_EQ(screen_cloud(points).refused, "no point lies in the depth band 100 to 1000");
}

// One sector is full or none is: the job agrees.
TEST(ScreenCloud, RefusesACloudThatTheJobCannotFit) {
  for (const int points : {199, 200}) {
    PointList cloud;
    for (int i = 0; i < points; ++i) {
      const double z = 200.0 + 3.0 * i;
      const double y = z * 0.02 * (i % 7) / 7.0;  // sector 7
      cloud.push_back({flat_x(y, z), y, z, i});
    }
    kestrane::KESTRANE_LASER_FAC_CALIB job;
    ASSERT_EQ(job.init(), KESTRANE_OK);
    const bool done = job.factory_calib(0, {cloud.data(), points}) == KESTRANE_OK;
    EXPECT_EQ(screen_cloud(cloud).refused.empty(), done);
    EXPECT_EQ(done, points == 200);
  }
}

TEST(ScreenCloud, CountsSectorsAsTheJobDividesThem) {
  PointList cloud;
  for (int sector = 0; sector < 15; ++sector) {
    for (int i = 0; i < 199; ++i) {
      const double z = 200.0 + 3.0 * i;
      const double y = z * std::tan((4.0 * sector - 28.0) * 0.017453292519943295);
      cloud.push_back({flat_x(y, z), y, z, i});
    }
  }
  EXPECT_EQ(screen_cloud(cloud).refused, "no sector has 200 points (2985 of 2985 points are left)");
  cloud.push_back({flat_x(0.0, 400.0), 0.0, 400.0, 0});
  EXPECT_EQ(screen_cloud(cloud).refused, "");
}

// --- by reason -------------------------------------------------------------------------------

TEST(ScreenCloud, LeavesACleanCloudAsItIs) {
  const PointList points = bowed_cloud();
  const ScreenedCloud screened = screen_cloud(points);
  ASSERT_EQ(screened.points.size(), points.size());
  EXPECT_EQ(std::memcmp(screened.points.data(), points.data(), points.size() * sizeof points[0]),
            0);
  EXPECT_EQ(screened.account.points, 3600);
  EXPECT_EQ(screened.account.kept, 3600);
  EXPECT_EQ(screened.account.dropped.all(), 0);
  EXPECT_TRUE(screened.account.worst.empty());
  EXPECT_EQ(screened.refused, "");
  EXPECT_EQ(screened.unit_hint, "");
}

TEST(ScreenCloud, DropsWhatIsNotFiniteInAnyCoordinate) {
  PointList points = bowed_cloud();
  points[10].x = kNaN;
  points[20].y = kInf;
  points[30].z = -kInf;
  points[40].y = kNaN;
  const ScreenedCloud screened = screen_cloud(points);
  EXPECT_EQ(screened.account.dropped.not_finite, 4);
  EXPECT_EQ(screened.account.dropped.all(), 4);
  EXPECT_EQ(screened.account.dropped.screened(), 4);
  EXPECT_EQ(screened.points.size(), points.size() - 4);
}

TEST(ScreenCloud, CountsPointsOutsideTheDepthBandButNotAsScreened) {
  PointList points = bowed_cloud();
  for (const double z : {99.999, 100.0, 1000.0, 1000.001})
    points.push_back({bowed_x(0, z), 0, z, 0});
  const ScreenedCloud screened = screen_cloud(points);
  EXPECT_EQ(screened.account.dropped.depth, 2);
  EXPECT_EQ(screened.account.dropped.screened(), 0);
  EXPECT_EQ(screened.account.kept, 3602);
}

TEST(ScreenCloud, TakesTheDepthBandOfTheLaserType) {
  PointList points = fan_grid(60, 60, 220.0, 950.0, bowed_x);
  points.push_back({bowed_x(0, 219.9), 0, 219.9, 0});
  EXPECT_EQ(screen_cloud(points).account.dropped.depth, 0);
  CloudSettings far;
  far.laser_type = kestrane::LASER_TYPE_FAR;
  EXPECT_EQ(screen_cloud(points, far).account.dropped.depth, 1);
}

TEST(ScreenCloud, DropsWhatLiesFartherOffTheSheetThanTheLimit) {
  PointList points = bowed_cloud();
  points[100].x += 2.999;
  points[200].x -= 2.999;
  points[300].x += 3.001;
  points[400].x -= 3.001;
  const ScreenedCloud screened = screen_cloud(points);
  EXPECT_EQ(screened.account.dropped.gross, 2);
  EXPECT_EQ(screened.account.dropped.all(), 2);
  ASSERT_EQ(screened.account.worst.size(), 2U);
  EXPECT_EQ(screened.account.worst[0].index + screened.account.worst[1].index, 700);
  EXPECT_EQ(screened.sheet.limit, 3.0);
  EXPECT_EQ(screened.sheet.scale, 1e-9);
}

TEST(ScreenCloud, TakesTheLimitFromTheHost) {
  PointList points = bowed_cloud();
  points[100].x += 1.5;
  CloudSettings settings;
  settings.gross = 1.0;
  EXPECT_EQ(screen_cloud(points).account.dropped.gross, 0);
  EXPECT_EQ(screen_cloud(points, settings).account.dropped.gross, 1);
}

// Residuals evenly between -2 and 2: their median size is 1, and the limit 14.826 lies above
// `gross`.
TEST(ScreenCloud, LetsTheLimitRiseWithTheScatter) {
  PointList points = bowed_cloud();
  for (std::size_t i = 0; i < points.size(); ++i)
    points[i].x += static_cast<double>(i * 7919 % 2001) / 500.0 - 2.0;
  points[1815].x = bowed_x(points[1815].y, points[1815].z) + 14.2;
  points[1225].x = bowed_x(points[1225].y, points[1225].z) + 15.5;
  const ScreenedCloud screened = screen_cloud(points);
  EXPECT_NEAR(screened.sheet.scale, 1.4826, 0.05);  // the sheet takes up a little of the scatter
  EXPECT_EQ(screened.sheet.limit, 10.0 * screened.sheet.scale);
  ASSERT_EQ(screened.account.dropped.gross, 1);
  EXPECT_EQ(screened.account.worst[0].index, 1225);
}

TEST(ScreenCloud, NamesTheSixWorst) {
  PointList points = bowed_cloud();
  for (int n = 0; n < 8; ++n) {
    points[static_cast<std::size_t>(100 * n + 50)].x += (n % 2 == 0 ? 10.0 : -10.0) * (n + 1);
  }
  const ScreenedCloud screened = screen_cloud(points);
  EXPECT_EQ(screened.account.dropped.gross, 8);
  ASSERT_EQ(screened.account.worst.size(), 6U);
  for (int w = 0; w < 6; ++w) {
    const int n = 7 - w;
    const auto& worst = screened.account.worst[static_cast<std::size_t>(w)];
    EXPECT_EQ(worst.index, 100 * n + 50);
    EXPECT_EQ(worst.frame, points[static_cast<std::size_t>(100 * n + 50)].id);
    EXPECT_EQ(worst.point.x, points[static_cast<std::size_t>(100 * n + 50)].x);
    EXPECT_NEAR(worst.residual, (n % 2 == 0 ? 10.0 : -10.0) * (n + 1), kRounding);
  }
}

TEST(ScreenCloud, NamesTheSixWorstInWhateverOrderTheyCome) {
  PointList points = bowed_cloud();
  for (int n = 0; n < 8; ++n) {
    points[static_cast<std::size_t>(100 * n + 50)].x += 10.0 * ((5 * n) % 8 + 1);
  }
  const ScreenedCloud screened = screen_cloud(points);
  ASSERT_EQ(screened.account.worst.size(), 6U);
  for (int w = 0; w < 6; ++w) {
    EXPECT_NEAR(screened.account.worst[static_cast<std::size_t>(w)].residual, 10.0 * (8 - w),
                kRounding);
  }
}

// A strip of half a unit, as its scale has it, puts y beyond all numbers, and the sheet of first
// degree makes no number of that. Nothing is worse.
TEST(ScreenCloud, NamesAPointFirstWhoseResidualIsNoNumber) {
  PointList points;
  for (int i = 0; i < 400; ++i) {
    const double y = -0.25 + 0.00125 * i;
    const double z = 400.0 + 0.1 * y + 1e-7 * ((i * 7919) % 13 - 6) / 6.0;
    points.push_back({flat_x(y, z), y, z, 5});
  }
  points[100].x += 40.0;
  points[200].y = 1.7e308;
  points[300].x += 50.0;
  const ScreenedCloud screened = screen_cloud(points);
  ASSERT_EQ(screened.sheet.degree, 1);
  ASSERT_EQ(screened.account.worst.size(), 3U);
  EXPECT_TRUE(std::isnan(screened.account.worst[0].residual));
  EXPECT_EQ(screened.account.worst[0].index, 200);
  EXPECT_EQ(screened.account.worst[1].index, 300);
  EXPECT_EQ(screened.account.worst[2].index, 100);
}

TEST(ScreenCloud, IsNotLedAstrayByPointsFarBesideTheFan) {
  PointList points = bowed_cloud();
  for (int n = 0; n < 300; ++n) points.push_back({500.0, 1e6 * n, 500.0, 0});
  points.push_back({0.0, 1e300, 500.0, 0});
  const ScreenedCloud screened = screen_cloud(points);
  EXPECT_EQ(screened.account.dropped.gross, 301);
  EXPECT_EQ(screened.account.kept, 3600);
}

// --- the sheet -------------------------------------------------------------------------------

TEST(ScreenCloud, HandsOutTheSheet) {
  const ScreenedCloud screened = screen_cloud(bowed_cloud());
  ASSERT_EQ(screened.sheet.degree, 2);
  for (const double z : {200.0, 500.0, 900.0}) {
    for (const double y : {-100.0, 0.0, 70.0}) {
      const double u = (y - screened.sheet.y0) / screened.sheet.ys;
      const double v = (z - screened.sheet.z0) / screened.sheet.zs;
      const auto& c = screened.sheet.c;
      EXPECT_NEAR(c[0] + c[1] * u + c[2] * v + c[3] * u * u + c[4] * u * v + c[5] * v * v,
                  bowed_x(y, z), kRounding);
    }
  }
}

// A real frame is a line to a thousandth: it has no second degree, but a slope.
TEST(ScreenCloud, FitsAFrameThatIsALineWithTheFirstDegree) {
  PointList points;
  for (int i = 0; i < 400; ++i) {
    const double y = -100.0 + 0.5 * i;
    const double z = 400.0 + 0.1 * y + 1e-3 * ((i * 7919) % 13 - 6) / 6.0;
    points.push_back({flat_x(y, z), y, z, 5});
  }
  points[123].x += 4.0;
  const ScreenedCloud screened = screen_cloud(points);
  EXPECT_EQ(screened.sheet.degree, 1);
  for (int i = 3; i < 6; ++i) EXPECT_EQ(screened.sheet.c[static_cast<std::size_t>(i)], 0.0);
  ASSERT_EQ(screened.account.dropped.gross, 1);
  EXPECT_EQ(screened.account.worst[0].index, 123);
}

TEST(ScreenCloud, JudgesNothingWhereThePointsFixNoSheet) {
  PointList points(400, {100.0, 5.0, 300.0, 0});
  points[7].x = 900.0;
  const ScreenedCloud screened = screen_cloud(points);
  EXPECT_EQ(screened.sheet.degree, -1);
  EXPECT_EQ(screened.account.dropped.all(), 0);
  EXPECT_EQ(screened.refused, "");
}

// --- accounts, units, sameness ---------------------------------------------------------------

TEST(ScreenCloud, CountsPerFrame) {
  PointList points = bowed_cloud();  // 60 frames of 60 points
  points[60].x = kNaN;               // frame 1
  points[61].x += 50.0;
  points[62].z = 50.0;
  for (std::size_t i = 0; i < 60; ++i) points[i].id = -7;
  const ScreenedCloud screened = screen_cloud(points);
  ASSERT_EQ(screened.account.frames.size(), 60U);
  const auto& first = screened.account.frames[0];
  EXPECT_EQ(first.frame, -7);
  EXPECT_EQ(first.points, 60);
  EXPECT_EQ(first.kept, 60);
  const auto& second = screened.account.frames[1];
  EXPECT_EQ(second.frame, 1);
  EXPECT_EQ(second.points, 60);
  EXPECT_EQ(second.kept, 57);
  EXPECT_EQ(second.dropped.not_finite, 1);
  EXPECT_EQ(second.dropped.gross, 1);
  EXPECT_EQ(second.dropped.depth, 1);
  EXPECT_EQ(second.dropped.no_cell, 0);
}

TEST(ScreenCloud, SaysThatPointsSeemToBeInAnotherUnit) {
  for (const double unit : {1000.0, 25.4}) {
    PointList points = bowed_cloud();
    for (auto& point : points) point = {point.x / unit, point.y / unit, point.z / unit, point.id};
    const ScreenedCloud screened = screen_cloud(points);
    const char* name = unit == 1000.0 ? "metres" : "inches";
    EXPECT_THAT(screened.unit_hint, HasSubstr(name));
    EXPECT_THAT(screened.refused, HasSubstr("no point lies in the depth band 100 to 1000; "));
    EXPECT_THAT(screened.refused, HasSubstr(name));
  }
}

TEST(ScreenCloud, NeitherReadsNorMovesTheSharedGenerator) {
  PointList points = fan_grid(100, 100, 150.0, 950.0, bowed_x);
  for (std::size_t i = 0; i < points.size(); i += 5) points[i].x += 0.01 * static_cast<double>(i);
  std::srand(1);
  const int expected = std::rand();
  std::srand(1);
  const ScreenedCloud first = screen_cloud(points);
  EXPECT_EQ(std::rand(), expected);
  const ScreenedCloud second = screen_cloud(points);
  EXPECT_EQ(first.sheet.c, second.sheet.c);
  EXPECT_EQ(first.sheet.scale, second.sheet.scale);
  EXPECT_EQ(first.points.size(), second.points.size());
}

}  // namespace
