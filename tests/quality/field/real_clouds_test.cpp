// Two sheets of a real device: 35 frames on a line each, errors common to a frame, and one
// direction, nearly y, that both sheets hold.
#include "tests/quality/real_clouds.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "kestrane/quality/factory.h"
#include "kestrane/quality/field.h"

namespace {

using kestrane::quality::calibrate_factory;
using kestrane::quality::calibrate_field;
using kestrane::quality::clouds_of;
using kestrane::quality::FieldResult;
using kestrane::quality::FieldStage;
using kestrane::quality::MotionDirection;
using kestrane::quality::PlaneTable;
using kestrane::quality::PointList;

class RealClouds : public testing::Test {
 protected:
  void SetUp() override {
    if (!std::filesystem::exists(REAL_CLOUDS)) GTEST_SKIP() << "no " << REAL_CLOUDS;
    clouds = quality_tests::read_clouds(REAL_CLOUDS);
    table = calibrate_factory(clouds_of(clouds)).table;
    ASSERT_EQ(table.planes(), 2);
  }

  std::vector<PointList> clouds;
  PlaneTable table;
};

const MotionDirection* named(const FieldResult& result, const std::string& name) {
  for (const MotionDirection& direction : result.directions) {
    if (direction.name.rfind(name, 0) == 0) return &direction;
  }
  return nullptr;
}

TEST_F(RealClouds, DoNotFixTheShiftAlongY) {
  const FieldResult result = calibrate_field(table, clouds);
  ASSERT_TRUE(result.refused.empty()) << result.refused;
  const MotionDirection* shift = named(result, "shift along y");
  ASSERT_NE(shift, nullptr);
  EXPECT_FALSE(shift->fixed);
  EXPECT_EQ(&result.directions.front(), shift);  // and it is the weakest
}

// The clouds that made the table have not moved against it.
TEST_F(RealClouds, HaveNotMovedAgainstTheirOwnTable) {
  const FieldResult result = calibrate_field(table, clouds);
  ASSERT_TRUE(result.refused.empty()) << result.refused;
  EXPECT_LE(result.displacement.rms, 3.0 * result.displacement.sigma);
  EXPECT_FALSE(result.sigma_holds_table);
}

TEST_F(RealClouds, CountTheirFramesWithTheirOwnNumbers) {
  const FieldResult result = calibrate_field(table, clouds);
  EXPECT_EQ(result.used.after(FieldStage::kGiven).points, 11536);
  EXPECT_EQ(result.used.after(FieldStage::kGiven).frames, 35);
  EXPECT_EQ(result.used.after(FieldStage::kUsed).frames, result.frame_clusters);
  EXPECT_EQ(result.frame_clusters + static_cast<int>(result.used.dropped.size()), 35);
  for (const auto& frame : result.used.dropped) {
    EXPECT_GE(frame.frame, 0);
    EXPECT_LE(frame.frame, 17);
  }
}

// Shifted by 0.4 across the sheets, which is along x for both.
TEST_F(RealClouds, ShowAKnownShift) {
  std::vector<PointList> moved = clouds;
  for (PointList& list : moved) {
    for (auto& point : list) point.x += 0.4;
  }
  const FieldResult before = calibrate_field(table, clouds);
  const FieldResult after = calibrate_field(table, moved);
  ASSERT_TRUE(after.refused.empty()) << after.refused;
  // n_x is 0.86 for both sheets.
  EXPECT_NEAR(after.displacement.rms, 0.4 * 0.86, 3.0 * after.displacement.sigma);
  EXPECT_GT(after.displacement.max, 3.0 * after.displacement.sigma);
  EXPECT_LT(before.displacement.rms, 0.1);
}

}  // namespace
