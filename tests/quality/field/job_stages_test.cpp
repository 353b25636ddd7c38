#include "quality/field/job_stages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "quality/field/used_points.h"
#include "tests/quality/field/field_scene.h"

namespace {

using kestrane::quality::JobStages;
using kestrane::quality::PlaneTable;
using kestrane::quality::PointList;
using kestrane::quality::recognise;
using kestrane::quality::run_job_stages;
using Matrix = Eigen::Matrix<double, 3, Eigen::Dynamic>;

std::vector<std::int32_t> ids(const PointList& list) {
  std::vector<std::int32_t> found;
  for (const auto& point : list) found.push_back(point.id);
  return found;
}

TEST(Recognise, FindsEachColumnsPointInTheOrderOfTheColumns) {
  const PointList list = {{1, 2, 3, 10}, {4, 5, 6, 11}, {7, 8, 9, 12}, {1, 2, 4, 13}};
  Matrix columns(3, 3);
  columns << 7, 1, 1,  //
      8, 2, 2,         //
      9, 3, 4;
  EXPECT_EQ(ids(recognise(list, columns)), (std::vector<std::int32_t>{12, 10, 13}));
}

TEST(Recognise, TellsPointsApartByEachOfTheirNumbers) {
  const PointList list = {{1, 2, 3, 10}, {4, 2, 3, 11}, {4, 5, 3, 12}, {4, 5, 6, 13}};
  Matrix columns(3, 4);
  columns << 4, 4, 4, 1,  //
      5, 5, 2, 2,         //
      6, 3, 3, 3;
  EXPECT_EQ(ids(recognise(list, columns)), (std::vector<std::int32_t>{13, 12, 11, 10}));
}

TEST(Recognise, FindsEachOfSeveralPointsAtOnePlaceOnce) {
  const PointList list = {{1, 2, 3, 10}, {0, 0, 0, 5}, {1, 2, 3, 11}, {1, 2, 3, 12}};
  Matrix columns(3, 3);
  columns << 1, 1, 1, 2, 2, 2, 3, 3, 3;
  EXPECT_EQ(ids(recognise(list, columns)), (std::vector<std::int32_t>{10, 11, 12}));
}

// Columns of one zone end beyond where those of the next begin, and one place is taken twice.
TEST(Recognise, FindsPointsAtOnePlaceOnceThoughZonesComeOneAfterTheOther) {
  const PointList list = {{1, 0, 0, 1}, {9, 9, 9, 2}, {2, 0, 0, 3}, {8, 8, 8, 4}, {9, 9, 9, 5}};
  Matrix columns(3, 5);
  columns << 1, 2, 9, 8, 9,  //
      0, 0, 9, 8, 9,         //
      0, 0, 9, 8, 9;
  std::vector<std::int32_t> found = ids(recognise(list, columns));
  std::sort(found.begin(), found.end());
  EXPECT_EQ(found, (std::vector<std::int32_t>{1, 2, 3, 4, 5}));
}

TEST(Recognise, FindsNothingInNoColumns) {
  EXPECT_TRUE(recognise({{1, 2, 3, 10}}, Matrix(3, 0)).empty());
}

// --- the stages ---------------------------------------------------------------------------------

// One sheet x = 128 and frames of 20 points at these distances from it, numbered from -n + 1 on.
std::vector<PointList> frames_at(const std::vector<double>& distances) {
  PointList list;
  for (std::size_t f = 0; f < distances.size(); ++f) {
    for (int i = 0; i < 20; ++i) {
      const double y = -100.0 + 10.0 * i + 0.1 * static_cast<double>(f);
      const double z = 240.0 + 4.0 * i + 0.5 * static_cast<double>(f);
      list.push_back(
          {128.0 + distances[f], y, z,
           static_cast<std::int32_t>(f) - static_cast<std::int32_t>(distances.size()) + 1});
    }
  }
  return {list};
}

PlaneTable flat_table() {
  PlaneTable table(1);
  for (std::int32_t j = 0; j < 15; ++j) {
    for (std::int32_t k = 0; k < 50; ++k) table.cell(0, {j, k}) = {{-0.0078125, 0, 0}};
  }
  return table;
}

TEST(JobStages, LeaveFramesOutWhoseMeanIsNotBelowOneAndAHalfOfTheMean) {
  // The mean of 0.1, 0.1, 0.1, 0.5 is 0.2, the limit 0.3.
  const JobStages stages = run_job_stages(frames_at({0.1, 0.1, 0.5, 0.1}), flat_table(), 0, {});
  EXPECT_EQ(stages.filtered[0].size(), 60u);
  for (const auto& point : stages.filtered[0]) EXPECT_NE(point.id, -1);
  EXPECT_EQ(stages.interior[0].size(), 60u);
  EXPECT_EQ(stages.used[0].size(), 60u);
}

TEST(JobStages, LeavePointsOutThatLieMoreThanTwoFromTheRestOfTheirZone) {
  std::vector<PointList> lists = frames_at({0.5, 0.5, 0.5, 0.5});
  lists[0][30].x += 2.5;
  const JobStages stages = run_job_stages(lists, flat_table(), 0, {});
  EXPECT_EQ(stages.filtered[0].size(), 80u);
  EXPECT_EQ(stages.interior[0].size(), 79u);
}

TEST(JobStages, UsePointsUpToOneAndAHalfFromTheTable) {
  std::vector<PointList> lists = frames_at({0.8, 0.8, 0.8, 0.8});
  lists[0][30].x = 129.5;  // exactly
  lists[0][31].x = std::nextafter(129.5, 200.0);
  const JobStages stages = run_job_stages(lists, flat_table(), 0, {});
  EXPECT_EQ(stages.interior[0].size(), 80u);
  ASSERT_EQ(stages.used[0].size(), 79u);
  for (const auto& point : stages.used[0]) EXPECT_LE(point.x, 129.5);
}

TEST(JobStages, MeasureUsedPointsFromTheTableAfterTheMotion) {
  std::vector<PointList> lists = frames_at({0.8, 0.8, 0.8, 0.8});
  lists[0][30].x = 130.49;
  lists[0][31].x = 130.51;
  kestrane::quality::RigidMotion motion;
  motion.t.x() = 1.0;
  EXPECT_EQ(run_job_stages(lists, flat_table(), 0, motion).used[0].size(), 79u);
}

// Of two planes, 0.5 above the table and 1 below it, the motion by 1 leaves the points of the first
// alone near it: the other plane is no cluster, and its frames are none.
TEST(UsedPoints, ArePutIntoClustersOfWhatHasUsedPoints) {
  PlaneTable table(2);
  for (std::int32_t p = 0; p < 2; ++p) {
    for (std::int32_t j = 0; j < 15; ++j) {
      for (std::int32_t k = 0; k < 50; ++k) table.cell(p, {j, k}) = {{-0.0078125, 0, 0}};
    }
  }
  const std::vector<PointList> lists = {frames_at({-1.0, -1.0, -1.0, -1.0})[0],
                                        frames_at({0.5, 0.5, 0.5})[0]};
  const kestrane::quality::ScreenedFrames screened = screen_frames(lists, table);
  ASSERT_EQ(screened.refused, "");
  kestrane::quality::FieldUse use;
  kestrane::quality::count_screening(screened, 0, use);
  kestrane::quality::RigidMotion motion;
  motion.t.x() = 1.0;
  const kestrane::quality::UsedPoints used =
      kestrane::quality::collect_used_points(screened, table, motion, use);
  EXPECT_EQ(used.points.size(), 60u);
  EXPECT_EQ(used.planes, 1);
  EXPECT_EQ(used.frames, 3);
  for (const auto& point : used.points) EXPECT_EQ(point.plane, 0);
  EXPECT_EQ(use.after(kestrane::quality::FieldStage::kUsed).planes, 1);
  EXPECT_EQ(use.after(kestrane::quality::FieldStage::kInteriorPlanes).planes, 2);
}

TEST(JobStages, KeepTheNumberOfEachPointsFrame) {
  field_scene::Settings settings;
  settings.planes = 2;
  const field_scene::Scene scene = field_scene::make(settings);
  std::vector<PointList> lists = scene.frames;
  for (PointList& list : lists) {
    // The number is written into the depth as well, far below what any stage looks at.
    for (auto& point : list) {
      point.z = std::round(point.z * 1024.0) / 1024.0 + point.id * 0x1p-30;
      point.id -= 19;
    }
  }
  const JobStages stages = run_job_stages(lists, scene.table, 0, {});
  std::size_t checked = 0;
  for (const PointList& list : stages.interior) {
    for (const auto& point : list) {
      const double rest = point.z - std::round(point.z * 1024.0) / 1024.0;
      ASSERT_EQ(std::round(rest * 0x1p30) - 19.0, point.id);
      ++checked;
    }
  }
  EXPECT_GT(checked, 3000u);
}

}  // namespace
