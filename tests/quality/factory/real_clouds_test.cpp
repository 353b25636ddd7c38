// Two sheets of a real device, 18 and 17 frames of a line each: whose error is that of the frame,
// and which measure a small part of the fan.
#include "tests/quality/real_clouds.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "kestrane/quality/factory.h"
#include "kestrane/quality/findings.h"

namespace {

using kestrane::quality::calibrate_factory;
using kestrane::quality::clouds_of;
using kestrane::quality::FactoryResult;
using kestrane::quality::FactorySettings;
using kestrane::quality::Finding;
using kestrane::quality::judge;
using kestrane::quality::Level;
using kestrane::quality::PointList;

constexpr double kPrinted = 0.0006;  // figures of three decimals

class RealFactory : public testing::Test {
 protected:
  void SetUp() override {
    if (!std::filesystem::exists(REAL_CLOUDS)) GTEST_SKIP() << "no " << REAL_CLOUDS;
    clouds_ = quality_tests::read_clouds(REAL_CLOUDS);
  }
  std::vector<PointList> clouds_;
};

// An earlier evaluation of these clouds by other means gave these.
TEST_F(RealFactory, HasTheResidualsThatWereFoundBefore) {
  const FactoryResult result = calibrate_factory(clouds_of(clouds_));
  EXPECT_NEAR(result.planes[0].residuals.rms, 0.071, kPrinted);
  EXPECT_NEAR(result.planes[0].residuals.q95, 0.148, kPrinted);
  EXPECT_NEAR(result.planes[0].residuals.q99, 0.185, kPrinted);
  EXPECT_NEAR(result.planes[0].residuals.max, 0.198, kPrinted);
  EXPECT_NEAR(result.planes[1].residuals.rms, 0.081, kPrinted);
  EXPECT_NEAR(result.planes[1].residuals.q95, 0.145, kPrinted);
  EXPECT_NEAR(result.planes[1].residuals.max, 0.337, kPrinted);
}

TEST_F(RealFactory, ErrsPerPoseAndNamesTheFarthest) {
  const Finding noise = *judge(calibrate_factory(clouds_of(clouds_))).find("pose_noise");
  EXPECT_EQ(noise.level, Level::kWarn);
  EXPECT_NEAR(noise.figure("between"), 0.063, kPrinted);
  EXPECT_NEAR(noise.figure("within"), 0.042, kPrinted);
  EXPECT_NE(noise.text.find("plane 0 frames 0, 7; plane 1 frames 0, 17"), std::string::npos)
      << noise.text;
}

TEST_F(RealFactory, BorrowsMostOfItsFan) {
  EXPECT_EQ(judge(calibrate_factory(clouds_of(clouds_))).find("borrowed")->level, Level::kWarn);
}

// The solver cannot evaluate a cell of these, and leaves all corners where they were.
TEST_F(RealFactory, IsLeftAsItWasByTheOptimisation) {
  FactorySettings settings;
  settings.optimise = true;
  settings.repeatability = false;
  EXPECT_EQ(judge(calibrate_factory(clouds_of(clouds_), settings)).find("optimise_idle")->level,
            Level::kWarn);
}

}  // namespace
