// The short form of field_study: few seeds, so the bounds are those of forty widened by what few
// draws scatter.
#include <gtest/gtest.h>

#include <cmath>

#include "tests/quality/field/field_study.h"
#include "tests/support/sanitized.h"

namespace {

constexpr int kSeeds = 12;

// 12 seeds of some 6 to 12 independent numbers each leave a root mean square uncertain by a tenth.
constexpr double kLeastRatio = 0.7;
constexpr double kMostRatio = 1.8;

class FieldSigma : public testing::TestWithParam<std::tuple<int, double, bool>> {};

TEST_P(FieldSigma, AgreesWithTheErrorsOfKnownMotions) {
  KESTRANE_SKIP_STUDY_UNDER_SANITIZERS();
  field_scene::Settings settings;
  std::tie(settings.planes, settings.bow, settings.factory_table) = GetParam();
  settings.points = 800;
  settings.factory_points = 5000;
  const field_study::Study study = field_study::run(settings, kSeeds);
  EXPECT_EQ(study.refused, 0);
  EXPECT_GE(study.ratio(), kLeastRatio);
  EXPECT_LE(study.ratio(), kMostRatio);
  EXPECT_GE(study.share_within_three(), 0.95);
  EXPECT_LE(study.farthest, 6.0);
  EXPECT_LE(study.not_fixed, 1e-9);
}

INSTANTIATE_TEST_SUITE_P(Devices, FieldSigma,
                         testing::Values(std::tuple{8, 0.4, false}, std::tuple{8, 0.0, false},
                                         std::tuple{8, 0.4, true}, std::tuple{8, 0.0, true},
                                         std::tuple{24, 0.4, true}));

}  // namespace
