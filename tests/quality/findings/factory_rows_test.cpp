// Each row with a device that just triggers it and one that just does not.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "kestrane/quality/factory.h"
#include "kestrane/quality/findings.h"
#include "tests/quality/findings/expected_figures.h"

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
using quality_tests::expect_figures;
using quality_tests::take_back;

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

std::string text(const FactoryResult& result, const std::string& id, const Limits& limits = {}) {
  return row(result, id, limits).text;
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
  ASSERT_EQ(judgement.findings.size(), 2U);
  EXPECT_EQ(judgement.findings[0].id, "planes");
  EXPECT_EQ(judgement.findings[0].level, Level::kBad);
  EXPECT_EQ(judgement.findings[0].text,
            "no plane could be calibrated: no points: nothing was calibrated");
  EXPECT_EQ(judgement.findings[1].id, "screened");
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

TEST(PlanesRow, SaysWhatBecameOfThePlanes) {
  EXPECT_EQ(text(device(1), "planes"), "all of 1 plane calibrated");
  FactoryResult result = device();
  EXPECT_EQ(text(result, "planes"), "all of 4 planes calibrated");
  result.planes[1].blocks[0].origin = result.planes[2].blocks[749].origin = Origin::kEmpty;
  result.planes[2].blocks[7].origin = Origin::kEmpty;
  EXPECT_EQ(text(result, "planes"),
            "planes 1, 2 with blocks that have no plane: measure anew, and let the points be "
            "screened");
  result.planes[0].reason = "no points";
  result.planes[3].reason = "no sector has 200 points";
  EXPECT_EQ(text(result, "planes"),
            "no table for planes 0, 3 (plane 0: no points; plane 3: no sector has 200 points): "
            "measure these planes anew");
  expect_figures(row(result, "planes"), {{"planes", 4.0}, {"failed", 2.0}, {"with_gaps", 2.0}});
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

TEST(ScreenedRow, SaysWhatWasTakenOut) {
  FactoryResult result = device();
  EXPECT_EQ(text(result, "screened"), "no point had to be taken out");
  result.planes[1].screening.dropped.gross = 1;
  EXPECT_EQ(text(result, "screened"),
            "1 point taken out (0 not finite, 1 gross), most on plane 1: 0.1 % of its points: look "
            "for reflections and dropouts");
  result.planes[2].screening.dropped.gross = 10;
  result.planes[2].screening.dropped.not_finite = 60;
  result.planes[3].screening.dropped.not_finite = 20;
  EXPECT_EQ(text(result, "screened"),
            "91 points taken out (80 not finite, 11 gross), most on plane 2: 7.0 % of its points: "
            "find out where they come from and measure it anew");
  expect_figures(row(result, "screened"), {{"points", 91.0},
                                           {"not_finite", 80.0},
                                           {"gross", 11.0},
                                           {"largest_share", 0.07},
                                           {"plane", 2.0}});
}

// No plane of a factory calibration has any, but its record has a place for them.
TEST(ScreenedRow, CountsPointsWithoutACell) {
  FactoryResult result = device();
  result.planes[2].screening.dropped.not_finite = 10;
  result.planes[2].screening.dropped.no_cell = 20;
  EXPECT_EQ(row(result, "screened").figure("largest_share"), 0.03);
}

TEST(ScreenedRow, SaysThatItWasNotAskedFor) {
  FactoryResult result = device();
  result.settings.screen = false;
  EXPECT_EQ(text(result, "screened"), "not asked for: the job got every point as it is");
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

TEST(ResidualsRow, SaysWhereTheyAreWorst) {
  FactoryResult result = device();
  result.planes[1].residuals.rms = 0.07;
  result.planes[2].residuals.q99 = 0.25;
  EXPECT_EQ(text(result, "residuals"), "worst RMS 0.070 on plane 1; 99 % at 0.250 on plane 2");
  Limits limits;
  limits.rms = 0.1;
  limits.p99 = 0.3;
  EXPECT_EQ(text(result, "residuals", limits),
            "worst RMS 0.070 on plane 1, within 0.100; 99 % at 0.250 on plane 2, within 0.300");
  expect_figures(
      row(result, "residuals", limits),
      {{"rms", 0.07}, {"plane", 1.0}, {"q99", 0.25}, {"q99_plane", 2.0}, {"device_rms", 0.05}});
}

TEST(ResidualsRow, SaysWhatToDo) {
  FactoryResult result = device();
  Limits limits;
  limits.rms = 0.1;
  limits.p99 = 0.3;
  result.planes[1].residuals.rms = 0.09;
  EXPECT_EQ(text(result, "residuals", limits),
            "RMS above 80 % of 0.100 on plane 1, worst RMS 0.090 on plane 1: little room is left");
  result.planes[2].residuals.q99 = result.planes[3].residuals.q99 = 0.4;
  EXPECT_EQ(text(result, "residuals", limits),
            "99 % of the residuals above 0.300 on planes 2, 3, worst 0.400 on plane 2: look at "
            "their poses and outliers, and measure them anew");
  result.planes[1].residuals.rms = 0.11;
  result.planes[3].residuals.rms = 0.12;
  EXPECT_EQ(text(result, "residuals", limits),
            "RMS above 0.100 on planes 1, 3, worst RMS 0.120 on plane 3: look at their poses and "
            "seams, and measure them anew");
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

TEST(CoverageRow, SaysHowMuchIsMeasured) {
  FactoryResult result = device();
  result.planes[2].coverage = 0.75;
  result.planes[3].coverage = 0.5;
  EXPECT_EQ(text(result, "coverage"),
            "at least 50 % of the working volume measured, least on plane 3");
  Limits limits;
  limits.coverage = 0.9;
  EXPECT_EQ(text(result, "coverage", limits),
            "measured in less than 90 % of the working volume: planes 2, 3, least 50 % on plane 3: "
            "measure more poses there, or narrow the volume");
  expect_figures(row(result, "coverage", limits), {{"coverage", 0.5}, {"plane", 3.0}});
}

TEST(BorrowedRow, SaysWhere) {
  FactoryResult result = device();
  EXPECT_EQ(text(result, "borrowed"), "no borrowed sector reaches into the working volume");
  EXPECT_EQ(row(result, "borrowed").figure("planes"), 0.0);
  result.planes[1].borrowed_in_volume = result.planes[3].borrowed_in_volume = true;
  EXPECT_EQ(text(result, "borrowed"),
            "sectors without points of their own reach into the working volume on planes 1, 3: "
            "measure the whole fan there, or narrow the volume");
  EXPECT_EQ(row(result, "borrowed").figure("planes"), 2.0);
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

TEST(PosesOffRow, NamesTheFramesOfEachPlane) {
  FactoryResult result = device();
  EXPECT_EQ(text(result, "poses_off"), "no frame is off");
  result.planes[1].poses[3].off = true;
  EXPECT_EQ(text(result, "poses_off"),
            "1 frame off by more than 4 sigma: plane 1 frame 3: repeat or leave out these poses");
  result.planes[2].poses[0].off = result.planes[2].poses[7].off = true;
  EXPECT_EQ(text(result, "poses_off"),
            "3 frames off by more than 4 sigma: plane 1 frame 3; plane 2 frames 0, 7: repeat or "
            "leave out these poses");
  const Finding found = row(result, "poses_off");
  expect_figures(found, {{"frames", 3.0}, {"largest_share", 0.25}, {"plane", 2.0}});
  result.planes[2].poses[1].off = true;
  EXPECT_EQ(text(result, "poses_off"),
            "4 frames off by more than 4 sigma: plane 1 frame 3; plane 2 frames 0, 1, 7: more than "
            "a quarter of the frames of plane 2, measure it anew");
}

TEST(PosesOffRow, FindsNoneOffWhereThereAreNone) {
  FactoryResult result = device(1);
  result.planes[0].poses.clear();
  EXPECT_EQ(text(result, "poses_off"), "no frame is off");
  EXPECT_EQ(row(result, "poses_off").figure("largest_share"), 0.0);
  EXPECT_EQ(row(result, "poses_off").figure("plane"), 0.0);
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

TEST(PoseNoiseRow, NamesTheLowerOfEquallyFarPoses) {
  FactoryResult result = device(1);
  PlaneFigures& plane = result.planes[0];
  plane.between_poses = 0.1;
  plane.median = 0.5;
  for (auto& pose : plane.poses) pose.median = 0.5;
  plane.poses[1].median = 0.75;
  plane.poses[4].median = 0.25;
  plane.poses[6].median = 0.75;
  plane.poses[7].median = 0.5625;
  EXPECT_EQ(text(result, "pose_noise"),
            "the error is per pose, not per point: 0.100 between poses, 0.050 within; farthest: "
            "plane 0 frames 1, 4: more poses help, more points do not");
  plane.poses[5].median = 1.5;
  EXPECT_NE(text(result, "pose_noise").find("plane 0 frames 1, 5:"), std::string::npos);
}

TEST(PoseNoiseRow, NamesNoPoseWithoutAMedian) {
  FactoryResult result = device(1);
  PlaneFigures& plane = result.planes[0];
  plane.between_poses = 0.1;
  for (auto& pose : plane.poses) pose.median = kNotDetermined;
  plane.poses[3].median = 0.0;
  EXPECT_NE(text(result, "pose_noise").find("plane 0 frame 3:"), std::string::npos);
}

TEST(PoseNoiseRow, TakesTheMeanSquareOverThePlanesThatHaveThem) {
  FactoryResult result = device();
  result.planes[0].between_poses = 3.0;
  result.planes[1].between_poses = 4.0;
  result.planes[2].between_poses = result.planes[3].between_poses = kNotDetermined;
  result.planes[0].within_poses = kNotDetermined;
  result.planes[1].within_poses = 6.0;
  result.planes[2].within_poses = result.planes[3].within_poses = 12.0;
  const Finding found = row(result, "pose_noise");
  EXPECT_EQ(found.figures.size(), 3U);
  EXPECT_EQ(found.figure("planes"), 0.0);
  EXPECT_DOUBLE_EQ(found.figure("between"), std::sqrt(12.5));
  EXPECT_DOUBLE_EQ(found.figure("within"), std::sqrt(108.0));
  EXPECT_EQ(found.text, "3.536 between poses, 10.392 within");
}

TEST(PoseNoiseRow, CountsThePlanes) {
  FactoryResult result = device();
  for (std::size_t p = 0; p < 3; ++p) result.planes[p].between_poses = 0.1;
  EXPECT_EQ(row(result, "pose_noise").figure("planes"), 3.0);
}

TEST(FramesRow, SaysHowManyThereAre) {
  FactoryResult result = device();
  EXPECT_EQ(text(result, "frames"), "at least 8 frames on every plane");
  EXPECT_EQ(row(result, "frames").figure("fewest"), 8.0);
  EXPECT_EQ(row(result, "frames").figure("plane"), 0.0);
  result.planes[1].poses.resize(7);
  result.planes[2].poses.resize(1);
  EXPECT_EQ(text(result, "frames"),
            "fewer than 8 frames on planes 1, 2, 1 at the least: take more poses");
  EXPECT_EQ(row(result, "frames").figure("fewest"), 1.0);
  EXPECT_EQ(row(result, "frames").figure("plane"), 2.0);
}

TEST(FramesRow, TakesTwoFramesForNumbered) {
  FactoryResult result = device(2);
  for (PlaneFigures& plane : result.planes) plane.poses.resize(2);
  EXPECT_EQ(text(result, "frames"),
            "fewer than 8 frames on planes 0, 1, 2 at the least: take more poses");
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

TEST(SeamsRow, SaysHowHighTheyAre) {
  FactoryResult result = device();
  result.planes[3].seam = 0.2;
  EXPECT_EQ(text(result, "seams"), "95 % of the steps between blocks at most 0.200 on plane 3");
  Limits limits;
  limits.seam = 0.25;
  EXPECT_EQ(text(result, "seams", limits),
            "95 % of the steps between blocks at most 0.200 on plane 3, within 0.250");
  limits.seam = 0.1;
  EXPECT_EQ(text(result, "seams", limits),
            "95 % of the steps between blocks above 0.100 on plane 3, worst 0.200 on plane 3: take "
            "more points, or leave the optimisation off");
  expect_figures(row(result, "seams", limits), {{"seam", 0.2}, {"plane", 3.0}});
}

TEST(SeamsRow, NamesNoPlaneWhereNoneHasSteps) {
  FactoryResult result = device();
  for (PlaneFigures& plane : result.planes) plane.seam = kNotDetermined;
  EXPECT_EQ(text(result, "seams"), "95 % of the steps between blocks at most not determined");
  EXPECT_TRUE(std::isnan(row(result, "seams").figure("seam")));
  EXPECT_EQ(row(result, "seams").figure("plane"), -1.0);
}

TEST(TradeRow, TellsThePlaneWithTheHighestSteps) {
  FactoryResult result = optimised();
  result.planes[1].median_seam = 0.03;
  EXPECT_EQ(text(result, "trade"),
            "plane 1: RMS from 0.080 to 0.050, median step between blocks from 0.004 to 0.030");
  result.planes[2].median_seam = 0.25;
  EXPECT_EQ(text(result, "trade"),
            "the optimisation bought its residuals with steps between blocks on plane 2; plane 2: "
            "RMS from 0.080 to 0.050, median step between blocks from 0.004 to 0.250: leave it "
            "off, or take more points");
  expect_figures(row(result, "trade"), {{"planes", 1.0},
                                        {"median_seam", 0.25},
                                        {"plane", 2.0},
                                        {"median_seam_without", 0.004},
                                        {"rms", 0.05},
                                        {"rms_without", 0.08}});
}

TEST(TradeRow, HasNothingToTellWithoutSteps) {
  FactoryResult result = optimised();
  for (PlaneFigures& plane : result.planes) plane.median_seam = kNotDetermined;
  EXPECT_EQ(level(result, "trade"), Level::kOk);
  EXPECT_EQ(text(result, "trade"), "no steps between measured blocks");
  EXPECT_EQ(row(result, "trade").figures.size(), 3U);
  EXPECT_EQ(row(result, "trade").figure("plane"), -1.0);
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

TEST(OptimiseIdleRow, SaysWhere) {
  FactoryResult result = optimised();
  EXPECT_EQ(text(result, "optimise_idle"), "the optimisation moved corners on every plane");
  EXPECT_EQ(row(result, "optimise_idle").figure("planes"), 0.0);
  result.planes[0].optimisation.largest_move = result.planes[3].optimisation.largest_move = 0.0;
  EXPECT_EQ(text(result, "optimise_idle"),
            "on, but moved nothing: planes 0, 3: these planes are as without it; look for cells "
            "with points that lie on their plane exactly or are not finite");
  EXPECT_EQ(row(result, "optimise_idle").figure("planes"), 2.0);
}

TEST(BoundRow, CountsCornersAndPlanes) {
  FactoryResult result = optimised();
  EXPECT_EQ(text(result, "bound"), "no corner moved as far as the optimisation may");
  result.planes[1].optimisation.at_bound = 1;
  EXPECT_EQ(text(result, "bound"),
            "1 corner moved as far as the optimisation may, 0.5, on plane 1: look at the outliers "
            "and the bow of these sheets");
  result.planes[3].optimisation.at_bound = 2;
  EXPECT_EQ(text(result, "bound"),
            "3 corners moved as far as the optimisation may, 0.5, on planes 1, 3: look at the "
            "outliers and the bow of these sheets");
  EXPECT_EQ(row(result, "bound").figure("corners"), 3.0);
  EXPECT_EQ(row(result, "bound").figure("planes"), 2.0);
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

TEST(OutliersRow, SaysHowManyThereAre) {
  FactoryResult result = device();
  result.planes[1].outliers = 70;
  result.planes[2].outliers = 60;
  EXPECT_EQ(text(result, "outliers"), "at most 7.0 % of the points beyond 4 sigma on plane 1");
  Limits limits;
  limits.outliers = 0.25;
  EXPECT_EQ(text(result, "outliers", limits),
            "at most 7.0 % of the points beyond 4 sigma on plane 1, within 25 %");
  limits.outliers = 0.05;
  EXPECT_EQ(text(result, "outliers", limits),
            "more than 5.0 % of the points beyond 4 sigma on planes 1, 2, worst 7.0 % on plane 1: "
            "look for reflections and badly taken poses");
  expect_figures(row(result, "outliers", limits), {{"share", 0.07}, {"plane", 1.0}});
}

TEST(RepeatabilityRow, SaysHowFarTheHalvesAreApart) {
  FactoryResult result = device();
  result.planes[1].repeatability = 0.25;
  result.planes[2].repeatability = 0.125;
  EXPECT_EQ(text(result, "repeatability"), "at most 0.250 on plane 1");
  Limits limits;
  limits.repeatability = 0.25;
  EXPECT_EQ(text(result, "repeatability", limits), "at most 0.250 on plane 1, within 0.250");
  limits.repeatability = 0.1;
  EXPECT_EQ(text(result, "repeatability", limits),
            "even and odd frames disagree by more than 0.100 on planes 1, 2, worst 0.250 on plane "
            "1: take more poses");
  limits.rms = 0.2;
  EXPECT_EQ(text(result, "repeatability", limits),
            "even and odd frames disagree by more than 0.200 on plane 1, worst 0.250 on plane 1: "
            "take more poses");
  expect_figures(row(result, "repeatability", limits), {{"repeatability", 0.25}, {"plane", 1.0}});
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

TEST(RepeatabilityRow, PrefersALimitOfItsOwn) {
  FactoryResult result = device();
  Limits limits;
  limits.rms = 0.3;
  limits.repeatability = 0.2;
  result.planes[2].repeatability = 0.15;
  EXPECT_EQ(level(result, "repeatability", limits), Level::kOk);
  limits.repeatability.reset();
  EXPECT_EQ(level(result, "repeatability", limits), Level::kWarn);
}

TEST(RepeatabilityRow, SaysThatItIsNotDetermined) {
  FactoryResult result = device();
  for (PlaneFigures& plane : result.planes) plane.repeatability = kNotDetermined;
  EXPECT_EQ(level(result, "repeatability", wide_limits()), Level::kOk);
  EXPECT_EQ(text(result, "repeatability"),
            "not determined: at least 4 frames are needed that each half can be calibrated from");
  result.settings.repeatability = false;
  EXPECT_EQ(text(result, "repeatability"), "not asked for");
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

TEST(RowsThatNameALimit, AreFactsWhenItIsTakenBack) {
  FactoryResult result = device();
  Limits limits = wide_limits();
  for (const auto limit :
       {&Limits::rms, &Limits::p99, &Limits::seam, &Limits::repeatability, &Limits::outliers}) {
    take_back(limits.*limit, 0.0);
  }
  take_back(limits.coverage, 2.0);
  result.planes[1].outliers = 999;
  for (const char* id : {"residuals", "coverage", "seams", "outliers", "repeatability"}) {
    EXPECT_EQ(level(result, id, limits), Level::kOk) << id;
    EXPECT_EQ(text(result, id, limits), text(result, id)) << id;
    EXPECT_EQ(text(result, id, limits).find("within"), std::string::npos) << id;
  }
}

// A plane that every row would have something to say against.
PlaneFigures failed_plane() {
  PlaneFigures plane = good_plane();
  plane.reason = "no points";
  plane.residuals.rms = plane.residuals.q99 = plane.seam = plane.repeatability = 1e6;
  plane.coverage = 0.0;
  plane.outliers = 999;
  plane.borrowed_in_volume = true;
  plane.poses.resize(1);
  plane.poses[0].off = true;
  plane.median_seam = 1e6;
  plane.optimisation.largest_move = 0.0;
  return plane;
}

TEST(Rows, LookAtNoFigureOfAPlaneThatFailed) {
  const FactoryResult good = optimised();
  FactoryResult result = good;
  result.planes.push_back(failed_plane());
  for (const Finding& expected : judge(good, wide_limits()).findings) {
    if (expected.id == "planes") continue;
    const Finding found = row(result, expected.id, wide_limits());
    EXPECT_EQ(found.level, expected.level) << found.id;
    EXPECT_EQ(found.text, expected.text) << found.id;
    for (const auto& figure : expected.figures) {
      EXPECT_EQ(found.figure(figure.name), figure.value) << found.id << " " << figure.name;
    }
  }
}

TEST(Rows, LookBeyondAPlaneThatFailed) {
  FactoryResult result = optimised();
  result.planes.insert(result.planes.begin(), failed_plane());
  for (const char* id : {"residuals", "coverage", "poses_off", "frames", "seams", "trade",
                         "outliers", "repeatability"}) {
    EXPECT_EQ(row(result, id, wide_limits()).level, Level::kOk) << id;
    EXPECT_EQ(row(result, id, wide_limits()).figure("plane"), 1.0) << id;
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

TEST(RefineRow, SaysWhatWouldBeGained) {
  FactoryResult result = refined_device(0.9, 1.0);
  result.planes[1].refinement.reset();
  EXPECT_EQ(text(result, "refine"),
            "error on frames that were left out: 0.900 refined, 1.000 plain, over planes 0, 2, 3");
  EXPECT_EQ(row(result, "refine").figures.size(), 3U);
  EXPECT_EQ(text(refined_device(0.5, 1.0), "refine"),
            "error on frames that were left out: 0.500 refined, 1.000 plain, over planes 0, 1, 2, "
            "3: take the refined table");
}

TEST(RefineRow, SaysWhereNothingIsDetermined) {
  constexpr double kInfinite = std::numeric_limits<double>::infinity();
  for (const double unknown : {kNotDetermined, kInfinite}) {
    for (const FactoryResult& result :
         {refined_device(unknown, 1.0), refined_device(1.0, unknown)}) {
      EXPECT_EQ(level(result, "refine"), Level::kOk);
      EXPECT_EQ(text(result, "refine"),
                "what the refinement would gain is not determined: it takes at least 2 frames on a "
                "plane, and sectors of 200 points without any of them");
      expect_figures(row(result, "refine"), {{"planes", 0.0}});
    }
  }
}

}  // namespace
