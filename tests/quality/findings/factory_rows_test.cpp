// Each row with a device that just triggers it and one that just does not.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "kestrane/quality/factory.h"
#include "kestrane/quality/findings.h"

namespace {

using kestrane::quality::FactoryResult;
using kestrane::quality::Finding;
using kestrane::quality::judge;
using kestrane::quality::Judgement;
using kestrane::quality::kNotDetermined;
using kestrane::quality::Level;
using kestrane::quality::Limits;
using kestrane::quality::Origin;
using kestrane::quality::PlaneFigures;
using kestrane::quality::PoseFigures;

double just_above(double value) {
  return std::nextafter(value, std::numeric_limits<double>::infinity());
}
double just_below(double value) { return std::nextafter(value, 0.0); }

// A plane that no row has anything to say against.
PlaneFigures good_plane() {
  PlaneFigures plane;
  plane.status = KESTRANE_OK;
  plane.screening.points = plane.screening.kept = 1000;
  plane.residuals = {1000, 0.05, 0.0, 0.1, 0.13, 0.2};
  plane.median = 0.0;
  plane.sigma = 0.05;
  plane.valid = 1000;
  plane.coverage = 1.0;
  plane.seam = 0.01;
  plane.median_seam = 0.005;
  plane.repeatability = 0.01;
  plane.within_poses = 0.05;
  plane.between_poses = 0.01;
  for (int f = 0; f < 8; ++f) plane.poses.push_back({f, 125, 0.001 * f, false});
  plane.blocks.resize(750);
  for (auto& block : plane.blocks) block.origin = Origin::kMeasured;
  plane.optimisation.corner_moves.assign(816, 0.1);
  plane.optimisation.largest_move = 0.1;
  plane.optimisation.rms_without = 0.08;
  plane.optimisation.median_seam_without = 0.004;
  return plane;
}

FactoryResult device(std::size_t planes = 4) {
  FactoryResult result;
  result.planes.assign(planes, good_plane());
  result.device = result.planes[0].residuals;
  return result;
}

FactoryResult optimised(std::size_t planes = 4) {
  FactoryResult result = device(planes);
  result.settings.optimise = true;
  return result;
}

Limits wide_limits() {
  Limits limits;
  limits.rms = 1.0;
  limits.p99 = 1.0;
  limits.coverage = 0.1;
  limits.seam = 1.0;
  limits.repeatability = 1.0;
  limits.outliers = 0.5;
  return limits;
}

Finding row(const FactoryResult& result, const std::string& id, const Limits& limits = {}) {
  const Judgement judgement = judge(result, limits);
  const Finding* found = judgement.find(id);
  return found == nullptr ? Finding{Level::kOk, "none", "", {}} : *found;
}

Level level(const FactoryResult& result, const std::string& id, const Limits& limits = {}) {
  const Finding found = row(result, id, limits);
  EXPECT_EQ(found.id, id);
  EXPECT_FALSE(found.text.empty());
  EXPECT_FALSE(found.figures.empty());
  return found.level;
}

TEST(JudgeFactory, FindsAGoodDeviceFit) {
  const Judgement judgement = judge(optimised(), wide_limits());
  EXPECT_EQ(judgement.verdict, "fit for use within the limits given");
  EXPECT_EQ(judgement.worst(), Level::kOk);
  std::string ids;
  for (const Finding& finding : judgement.findings) ids += finding.id + " ";
  EXPECT_EQ(ids,
            "planes screened residuals coverage borrowed poses_off pose_noise frames seams trade "
            "optimise_idle bound outliers repeatability ");
}

TEST(JudgeFactory, SpeaksOfTheOptimisationOnlyWhereItIsOn) {
  for (const char* id : {"trade", "optimise_idle", "bound"}) {
    EXPECT_EQ(judge(device()).find(id), nullptr) << id;
    EXPECT_NE(judge(optimised()).find(id), nullptr) << id;
  }
}

TEST(JudgeFactory, HasNoVerdictWithoutLimits) {
  FactoryResult result = device();
  result.planes[0].reason = "no points";
  EXPECT_EQ(judge(result).verdict, "no limits given");
  EXPECT_EQ(judge(result).worst(), Level::kBad);
}

TEST(JudgeFactory, TellsOnlyTheReasonOfARefusal) {
  FactoryResult result = device(2);
  result.refused = "no plane could be calibrated: no points";
  for (PlaneFigures& plane : result.planes) plane = PlaneFigures();
  const Judgement judgement = judge(result, wide_limits());
  EXPECT_EQ(judgement.findings.front().id, "planes");
  EXPECT_EQ(judgement.findings.front().level, Level::kBad);
  EXPECT_NE(judgement.findings.front().text.find("no points"), std::string::npos);
  EXPECT_EQ(judgement.verdict, "not fit for use as it stands");
}

TEST(PlanesRow, IsBadForAFailedPlaneAndForAGap) {
  FactoryResult result = device();
  EXPECT_EQ(level(result, "planes"), Level::kOk);
  result.planes[2].blocks[33].origin = Origin::kEmpty;
  EXPECT_EQ(level(result, "planes"), Level::kBad);
  EXPECT_EQ(row(result, "planes").figure("with_gaps"), 1.0);
  result = device();
  result.planes[2].reason = "no sector has 200 points";
  EXPECT_EQ(level(result, "planes"), Level::kBad);
  EXPECT_EQ(row(result, "planes").figure("failed"), 1.0);
  EXPECT_NE(row(result, "planes").text.find("plane 2"), std::string::npos);
  EXPECT_NE(row(result, "planes").text.find("no sector has 200 points"), std::string::npos);
}

TEST(PlanesRow, NamesSixPlanesAtMost) {
  FactoryResult result = device(12);
  for (std::size_t p = 0; p < 10; ++p) result.planes[p].reason = "no points";
  const std::string text = row(result, "planes").text;
  EXPECT_NE(text.find("0, 1, 2, 3, 4, 5 and 4 more"), std::string::npos) << text;
  EXPECT_EQ(text.find("plane 6"), std::string::npos) << text;
}

TEST(ScreenedRow, WarnsOfAnyPointAndIsBadAboveATwentieth) {
  FactoryResult result = device();
  result.planes[1].screening.dropped.depth = 400;  // no sign of a bad measurement
  EXPECT_EQ(level(result, "screened"), Level::kOk);
  result.planes[1].screening.dropped.gross = 1;
  EXPECT_EQ(level(result, "screened"), Level::kWarn);
  result.planes[1].screening.dropped.gross = 49;
  result.planes[1].screening.dropped.not_finite = 1;
  EXPECT_EQ(level(result, "screened"), Level::kWarn);  // 50 of 1000 are exactly 5 %
  result.planes[1].screening.dropped.not_finite = 2;
  EXPECT_EQ(level(result, "screened"), Level::kBad);
  EXPECT_EQ(row(result, "screened").figure("plane"), 1.0);
  EXPECT_EQ(row(result, "screened").figure("points"), 51.0);
}

TEST(ScreenedRow, CountsPlanesThatFailed) {
  FactoryResult result = device();
  result.planes[3].screening.dropped.gross = 900;
  result.planes[3].reason = "no sector has 200 points";
  EXPECT_EQ(level(result, "screened"), Level::kBad);
}

TEST(ResidualsRow, HoldsRmsAndHighestQuantileAgainstTheirLimits) {
  FactoryResult result = device();
  Limits limits;
  limits.rms = 0.1;
  limits.p99 = 0.3;
  result.planes[1].residuals.rms = 0.1;
  EXPECT_EQ(level(result, "residuals", limits), Level::kWarn);
  result.planes[1].residuals.rms = just_above(0.1);
  EXPECT_EQ(level(result, "residuals", limits), Level::kBad);
  EXPECT_EQ(row(result, "residuals", limits).figure("plane"), 1.0);
  result.planes[1].residuals.rms = 0.8 * 0.1;
  EXPECT_EQ(level(result, "residuals", limits), Level::kOk);
  result.planes[1].residuals.rms = just_above(0.8 * 0.1);
  EXPECT_EQ(level(result, "residuals", limits), Level::kWarn);
  result.planes[1].residuals.rms = 0.05;
  result.planes[2].residuals.q99 = 0.3;
  EXPECT_EQ(level(result, "residuals", limits), Level::kOk);
  result.planes[2].residuals.q99 = just_above(0.3);
  EXPECT_EQ(level(result, "residuals", limits), Level::kBad);
  EXPECT_EQ(row(result, "residuals", limits).figure("q99_plane"), 2.0);
  limits.p99.reset();
  EXPECT_EQ(level(result, "residuals", limits), Level::kOk);
}

TEST(CoverageRow, WarnsBelowTheLimitAndIsBadBelowHalfOfIt) {
  FactoryResult result = device();
  Limits limits;
  limits.coverage = 0.8;
  result.planes[2].coverage = 0.8;
  EXPECT_EQ(level(result, "coverage", limits), Level::kOk);
  result.planes[2].coverage = just_below(0.8);
  EXPECT_EQ(level(result, "coverage", limits), Level::kWarn);
  result.planes[2].coverage = 0.4;
  EXPECT_EQ(level(result, "coverage", limits), Level::kWarn);
  result.planes[2].coverage = just_below(0.4);
  EXPECT_EQ(level(result, "coverage", limits), Level::kBad);
  EXPECT_EQ(row(result, "coverage", limits).figure("plane"), 2.0);
}

TEST(BorrowedRow, WarnsWhereABorrowedBlockLiesInTheVolume) {
  FactoryResult result = device();
  EXPECT_EQ(level(result, "borrowed"), Level::kOk);
  result.planes[0].borrowed_in_volume = true;
  EXPECT_EQ(level(result, "borrowed"), Level::kWarn);
}

TEST(PosesOffRow, WarnsOfAnyFrameAndIsBadAboveAQuarter) {
  FactoryResult result = device();
  EXPECT_EQ(level(result, "poses_off"), Level::kOk);
  result.planes[1].poses[3].off = true;
  EXPECT_EQ(level(result, "poses_off"), Level::kWarn);
  EXPECT_NE(row(result, "poses_off").text.find("plane 1 frame 3"), std::string::npos);
  result.planes[1].poses[5].off = true;  // 2 of 8
  EXPECT_EQ(level(result, "poses_off"), Level::kWarn);
  result.planes[1].poses[6].off = true;
  EXPECT_EQ(level(result, "poses_off"), Level::kBad);
  EXPECT_NE(row(result, "poses_off").text.find("plane 1 frames 3, 5, 6"), std::string::npos);
}

TEST(PoseNoiseRow, WarnsOnMoreThanHalfOfThePlanes) {
  FactoryResult result = device(4);
  for (std::size_t p = 0; p < 4; ++p) result.planes[p].between_poses = 0.05;  // equal
  EXPECT_EQ(level(result, "pose_noise"), Level::kOk);
  for (std::size_t p = 0; p < 2; ++p) result.planes[p].between_poses = just_above(0.05);
  EXPECT_EQ(level(result, "pose_noise"), Level::kOk);
  result.planes[3].between_poses = just_above(0.05);
  EXPECT_EQ(level(result, "pose_noise"), Level::kWarn);
}

TEST(PoseNoiseRow, NamesTheTwoFarthestPosesOfEachPlane) {
  FactoryResult result = device(1);
  PlaneFigures& plane = result.planes[0];
  plane.between_poses = 0.1;
  plane.median = 0.5;
  for (auto& pose : plane.poses) pose.median = 0.5;
  plane.poses[6].median = 0.7;
  plane.poses[2].median = 0.2;
  plane.poses[4].median = kNotDetermined;
  EXPECT_NE(row(result, "pose_noise").text.find("plane 0 frames 2, 6"), std::string::npos)
      << row(result, "pose_noise").text;
}

TEST(FramesRow, WarnsBelowEightOnAnyPlane) {
  FactoryResult result = device();
  EXPECT_EQ(level(result, "frames"), Level::kOk);
  result.planes[2].poses.pop_back();
  EXPECT_EQ(level(result, "frames"), Level::kWarn);
  EXPECT_EQ(row(result, "frames").figure("fewest"), 7.0);
}

TEST(FramesRow, SaysThatNoneIsNumbered) {
  FactoryResult result = device();
  for (PlaneFigures& plane : result.planes) plane.poses.resize(1);
  EXPECT_EQ(level(result, "frames"), Level::kWarn);
  EXPECT_NE(row(result, "frames").text.find("no frame numbers"), std::string::npos);
}

TEST(SeamsRow, WarnsAboveTheLimit) {
  FactoryResult result = device();
  Limits limits;
  limits.seam = 0.15;
  result.planes[3].seam = 0.15;
  EXPECT_EQ(level(result, "seams", limits), Level::kOk);
  result.planes[3].seam = just_above(0.15);
  EXPECT_EQ(level(result, "seams", limits), Level::kWarn);
  result.planes[3].seam = kNotDetermined;
  EXPECT_EQ(level(result, "seams", limits), Level::kOk);
}

TEST(TradeRow, WarnsWhereSeamsRoseAboveHalfOfTheRmsWithout) {
  FactoryResult result = optimised();
  result.planes[1].median_seam = 0.04;
  EXPECT_EQ(level(result, "trade"), Level::kOk);
  result.planes[1].median_seam = just_above(0.04);
  EXPECT_EQ(level(result, "trade"), Level::kWarn);
  // As high before: not the optimisation's doing.
  result.planes[1].optimisation.median_seam_without = just_above(0.04);
  EXPECT_EQ(level(result, "trade"), Level::kOk);
}

TEST(OptimiseIdleRow, WarnsWhereNoCornerMoved) {
  FactoryResult result = optimised();
  result.planes[1].optimisation.largest_move = 1e-300;
  EXPECT_EQ(level(result, "optimise_idle"), Level::kOk);
  result.planes[1].optimisation.largest_move = 0.0;
  EXPECT_EQ(level(result, "optimise_idle"), Level::kWarn);
}

TEST(BoundRow, WarnsOfAnyCorner) {
  FactoryResult result = optimised();
  EXPECT_EQ(level(result, "bound"), Level::kOk);
  result.planes[1].optimisation.at_bound = 1;
  EXPECT_EQ(level(result, "bound"), Level::kWarn);
}

TEST(OutliersRow, WarnsAboveTheLimitAndIsBadAboveThreeTimesIt) {
  FactoryResult result = device();
  Limits limits;
  limits.outliers = 0.0625;
  result.planes[0].valid = 1024;
  result.planes[0].outliers = 64;
  EXPECT_EQ(level(result, "outliers", limits), Level::kOk);
  result.planes[0].outliers = 65;
  EXPECT_EQ(level(result, "outliers", limits), Level::kWarn);
  result.planes[0].outliers = 192;
  EXPECT_EQ(level(result, "outliers", limits), Level::kWarn);
  result.planes[0].outliers = 193;
  EXPECT_EQ(level(result, "outliers", limits), Level::kBad);
}

TEST(RepeatabilityRow, WarnsAboveItsLimitAndIsBadAboveTheRmsLimit) {
  FactoryResult result = device();
  Limits limits;
  limits.repeatability = 0.05;
  result.planes[2].repeatability = 0.05;
  EXPECT_EQ(level(result, "repeatability", limits), Level::kOk);
  result.planes[2].repeatability = just_above(0.05);
  EXPECT_EQ(level(result, "repeatability", limits), Level::kWarn);
  result.planes[2].repeatability = 10.0;
  EXPECT_EQ(level(result, "repeatability", limits), Level::kWarn);
  limits.rms = 0.1;
  result.planes[2].repeatability = 0.1;
  EXPECT_EQ(level(result, "repeatability", limits), Level::kWarn);
  result.planes[2].repeatability = just_above(0.1);
  EXPECT_EQ(level(result, "repeatability", limits), Level::kBad);
}

TEST(RepeatabilityRow, TakesAThirdOfTheRmsLimitWithoutOneOfItsOwn) {
  FactoryResult result = device();
  Limits limits;
  limits.rms = 0.3;
  result.planes[2].repeatability = 0.3 / 3.0;
  EXPECT_EQ(level(result, "repeatability", limits), Level::kOk);
  result.planes[2].repeatability = just_above(0.3 / 3.0);
  EXPECT_EQ(level(result, "repeatability", limits), Level::kWarn);
}

TEST(RepeatabilityRow, SaysThatItIsNotDetermined) {
  FactoryResult result = device();
  for (PlaneFigures& plane : result.planes) plane.repeatability = kNotDetermined;
  EXPECT_EQ(level(result, "repeatability", wide_limits()), Level::kOk);
  EXPECT_NE(row(result, "repeatability").text.find("not determined"), std::string::npos);
  result.settings.repeatability = false;
  EXPECT_NE(row(result, "repeatability").text.find("not asked for"), std::string::npos);
}

TEST(RowsThatNameALimit, AreFactsWithoutIt) {
  FactoryResult result = device();
  for (PlaneFigures& plane : result.planes) {
    plane.residuals.rms = plane.residuals.q99 = 1e6;
    plane.coverage = 0.0;
    plane.seam = plane.repeatability = 1e6;
    plane.outliers = 999;
  }
  for (const char* id : {"residuals", "coverage", "seams", "outliers", "repeatability"}) {
    EXPECT_EQ(level(result, id), Level::kOk) << id;
  }
}

TEST(Rows, SpeakOfPlanesWithATableAlone) {
  FactoryResult result = device();
  result.planes[0] = PlaneFigures();
  result.planes[0].reason = "no points";
  const Judgement judgement = judge(result, wide_limits());
  for (const Finding& finding : judgement.findings) {
    EXPECT_EQ(finding.level, finding.id == "planes" ? Level::kBad : Level::kOk) << finding.id;
  }
}

// --- refine ------------------------------------------------------------------------------------

FactoryResult refined_device(double refined, double plain) {
  FactoryResult result = device();
  result.settings.refine = kestrane::quality::Refine::kEstimate;
  for (auto& plane : result.planes) {
    plane.refinement = kestrane::quality::RefinementFigures{"", false, refined, plain};
  }
  return result;
}

TEST(RefineRow, IsToldOnlyWhereARefinementWasAskedFor) {
  EXPECT_EQ(judge(device()).find("refine"), nullptr);
}

TEST(RefineRow, WarnsBelowFourFifthsOfThePlainError) {
  const Judgement warns = judge(refined_device(just_below(0.8), 1.0));
  EXPECT_EQ(warns.find("refine")->level, Level::kWarn);
  EXPECT_NE(warns.find("refine")->text.find("take the refined table"), std::string::npos);
  EXPECT_EQ(judge(refined_device(0.8, 1.0)).find("refine")->level, Level::kOk);
}

TEST(RefineRow, PoolsTheSquaresOfThePlanesThatAreKnown) {
  FactoryResult result = refined_device(3.0, 30.0);
  result.planes[0].refinement->refined_rms = 4.0;
  result.planes[0].refinement->plain_rms = 40.0;
  result.planes[2].refinement->plain_rms = kNotDetermined;
  result.planes[3].refinement.reset();
  const Judgement judgement = judge(result);
  const Finding* row = judgement.find("refine");
  EXPECT_EQ(row->figure("planes"), 2.0);
  EXPECT_DOUBLE_EQ(row->figure("refined_rms"), std::sqrt(12.5));
  EXPECT_DOUBLE_EQ(row->figure("plain_rms"), std::sqrt(1250.0));
}

TEST(RefineRow, SaysWhereNothingIsDetermined) {
  const Judgement judgement = judge(refined_device(kNotDetermined, 1.0));
  EXPECT_EQ(judgement.find("refine")->level, Level::kOk);
  EXPECT_NE(judgement.find("refine")->text.find("not determined"), std::string::npos);
}

}  // namespace
