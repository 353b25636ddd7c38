// Each row on a field calibration or on two tables with a case that just triggers it and one that
// just does not.
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <string>

#include "kestrane/quality/difference.h"
#include "kestrane/quality/field.h"
#include "kestrane/quality/findings.h"
#include "tests/quality/findings/expected_figures.h"
#include "tests/support/bits.h"

namespace {

using kestrane::quality::Difference;
using kestrane::quality::FieldResult;
using kestrane::quality::FieldStage;
using kestrane::quality::Finding;
using kestrane::quality::judge;
using kestrane::quality::Judgement;
using kestrane::quality::Level;
using kestrane::quality::Limits;
using kestrane::quality::MotionDirection;
using kestrane::quality::StageCount;
using kestrane_test::kInf;
using kestrane_test::kNaN;
using quality_tests::expect_figures;

double just_above(double value) { return std::nextafter(value, kInf); }
double just_below(double value) { return std::nextafter(value, 0.0); }

StageCount& stage(FieldResult& result, FieldStage which) {
  return result.used.stages[static_cast<int>(which)];
}

FieldResult moved() {
  FieldResult result;
  result.displacement.max = 0.3;
  result.displacement.rms = 0.1;
  result.displacement.sigma = 0.01;
  result.displacement.plane = 2;
  result.sigma_holds_table = true;
  result.frame_clusters = 40;
  for (const char* name : {"turn about x", "turn about y", "turn about z", "shift along x",
                           "shift along y", "shift along z"}) {
    MotionDirection direction{};
    direction.name = name;
    direction.sigma = 0.01;
    direction.fixed = true;
    result.directions.push_back(direction);
  }
  stage(result, FieldStage::kGiven) = {1000, 40, 8};
  stage(result, FieldStage::kUsed) = {900, 40, 8};
  return result;
}

Limits limits() {
  Limits some;
  some.rms = 0.3;
  some.field_motion = 1.0;
  return some;
}

Finding row(const Judgement& judgement, const std::string& id) {
  const Finding* found = judgement.find(id);
  return found == nullptr ? Finding{Level::kOk, "none", "", {}} : *found;
}

Level level(const FieldResult& result, const std::string& id, const Limits& some = limits()) {
  const Finding found = row(judge(result, some), id);
  EXPECT_EQ(found.id, id);
  EXPECT_FALSE(found.text.empty());
  return found.level;
}

TEST(JudgeField, FindsAGoodCalibrationFit) {
  EXPECT_EQ(judge(moved(), limits()).verdict, "fit for use within the limits given");
  EXPECT_EQ(judge(moved()).verdict, "no limits given");
}

TEST(JudgeField, TellsOnlyTheReasonOfARefusal) {
  FieldResult result = moved();
  result.refused = "plane 3 has no points";
  const Judgement judgement = judge(result, limits());
  ASSERT_EQ(judgement.findings.size(), 1U);
  EXPECT_EQ(judgement.findings[0].id, "used");
  EXPECT_EQ(judgement.findings[0].level, Level::kBad);
  EXPECT_EQ(judgement.findings[0].text, "plane 3 has no points: no motion was found");
}

TEST(JudgeField, TellsItsRowsInOrder) {
  std::string ids;
  for (const Finding& finding : judge(moved()).findings) ids += finding.id + " ";
  EXPECT_EQ(ids, "field_motion direction used ");
}

TEST(FieldMotionRow, SaysHowFarTheSheetsMoved) {
  FieldResult result = moved();
  const std::string figures = "the sheets moved by 0.300 on plane 2, RMS 0.100, sigma 0.010";
  EXPECT_EQ(row(judge(result), "field_motion").text, figures);
  EXPECT_EQ(row(judge(result, limits()), "field_motion").text, figures);
  result.sigma_holds_table = false;
  EXPECT_EQ(row(judge(result), "field_motion").text,
            figures + " (errors of the stored table come on top)");
}

TEST(FieldMotionRow, SaysWhatToDo) {
  FieldResult result = moved();
  result.displacement.max = 1.25;
  EXPECT_EQ(row(judge(result, limits()), "field_motion").text,
            "the sheets moved by 1.250 on plane 2, RMS 0.100, sigma 0.010, more than 1.000: "
            "calibrate at the factory anew");
  result.displacement.max = 0.02;
  EXPECT_EQ(row(judge(result, limits()), "field_motion").text,
            "the sheets moved by 0.020 on plane 2, RMS 0.100, sigma 0.010: no motion beyond noise, "
            "keep the table");
}

TEST(FieldMotionRow, GivesTheNumbersOfItsText) {
  expect_figures(row(judge(moved()), "field_motion"),
                 {{"max", 0.3}, {"rms", 0.1}, {"sigma", 0.01}, {"plane", 2.0}});
}

TEST(FieldMotionRow, IsBadAboveTheLimit) {
  FieldResult result = moved();
  result.displacement.max = 1.0;
  EXPECT_EQ(level(result, "field_motion"), Level::kOk);
  result.displacement.max = just_above(1.0);
  EXPECT_EQ(level(result, "field_motion"), Level::kBad);
}

TEST(FieldMotionRow, WarnsOfMotionWithinNoise) {
  FieldResult result = moved();
  result.displacement.sigma = 0.1;
  result.displacement.max = 3.0 * 0.1;
  EXPECT_EQ(level(result, "field_motion"), Level::kOk);
  result.displacement.max = just_below(3.0 * 0.1);
  EXPECT_EQ(level(result, "field_motion"), Level::kWarn);
  result.displacement.sigma = kNaN;
  EXPECT_EQ(level(result, "field_motion"), Level::kOk);
}

TEST(FieldMotionRow, SaysWhereTheTablesErrorsComeOnTop) {
  FieldResult result = moved();
  EXPECT_EQ(row(judge(result), "field_motion").text.find("stored table"), std::string::npos);
  result.sigma_holds_table = false;
  EXPECT_NE(row(judge(result), "field_motion").text.find("stored table"), std::string::npos);
}

TEST(FieldMotionRow, IsAFactWithoutItsLimit) {
  FieldResult result = moved();
  result.displacement.max = 50.0;
  EXPECT_EQ(level(result, "field_motion", {}), Level::kOk);
  result.displacement.max = 0.0;
  EXPECT_EQ(level(result, "field_motion", {}), Level::kOk);
}

TEST(DirectionRow, WarnsOfADirectionThatIsNotFixed) {
  FieldResult result = moved();
  EXPECT_EQ(level(result, "direction"), Level::kOk);
  result.directions[4].fixed = false;
  result.directions[4].sigma = kInf;
  EXPECT_EQ(level(result, "direction"), Level::kWarn);
  EXPECT_NE(row(judge(result), "direction").text.find("shift along y (moves no sheet)"),
            std::string::npos);
}

TEST(DirectionRow, WarnsOfAWeakDirection) {
  FieldResult result = moved();
  result.directions[1].sigma = 0.3 / 3.0;
  EXPECT_EQ(level(result, "direction"), Level::kOk);
  result.directions[1].sigma = just_above(0.3 / 3.0);
  EXPECT_EQ(level(result, "direction"), Level::kWarn);
  EXPECT_EQ(level(result, "direction", {}), Level::kOk);
}

TEST(DirectionRow, NamesEachDirectionWithItsSigma) {
  FieldResult result = moved();
  EXPECT_EQ(row(judge(result), "direction").text, "all directions are fixed");
  result.directions[1].sigma = 0.25;
  result.directions[3].sigma = 0.5;
  EXPECT_EQ(row(judge(result, limits()), "direction").text,
            "weak: turn about y (sigma 0.250); shift along x (sigma 0.500): take more poses");
  result.directions[4].fixed = false;
  result.directions[4].sigma = kInf;
  result.directions[5].fixed = false;
  result.directions[5].sigma = kNaN;
  EXPECT_EQ(row(judge(result, limits()), "direction").text,
            "not fixed: shift along y (moves no sheet); shift along z (sigma not determined): "
            "trust no figure along it");
}

TEST(DirectionRow, CountsWhatIsNotFixedAndWhatIsWeak) {
  FieldResult result = moved();
  result.directions[0].sigma = result.directions[1].sigma = 0.25;
  result.directions[2].sigma = 0.25;
  result.directions[4].fixed = result.directions[5].fixed = false;
  result.directions[5].sigma = 0.25;  // what is not fixed is not weak as well
  expect_figures(row(judge(result, limits()), "direction"),
                 {{"not_fixed", 2.0}, {"weak", 3.0}, {"frames", 40.0}});
}

TEST(DirectionRow, FindsNothingWeakWithoutALimit) {
  FieldResult result = moved();
  for (MotionDirection& direction : result.directions) direction.sigma = 1e3;
  Limits none;
  none.rms = 1e-3;
  none.rms.reset();
  EXPECT_EQ(row(judge(result, none), "direction").figure("weak"), 0.0);
  EXPECT_EQ(row(judge(result, none), "direction").text, "all directions are fixed");
}

TEST(DirectionRow, SaysThatThereAreTooFewFramesToTell) {
  FieldResult result = moved();
  result.frame_clusters = 7;
  for (MotionDirection& direction : result.directions) {
    direction.fixed = false;
    direction.sigma = kNaN;
  }
  EXPECT_EQ(level(result, "direction"), Level::kWarn);
  EXPECT_EQ(row(judge(result), "direction").text,
            "too few frames to tell what is fixed: 7 used, 8 are needed");
  result.frame_clusters = 8;
  EXPECT_EQ(row(judge(result), "direction").text.find("too few frames"), std::string::npos);
}

TEST(UsedRow, IsBadBelowHalfOfThePlanesOrFrames) {
  FieldResult result = moved();
  stage(result, FieldStage::kUsed) = {500, 20, 4};
  EXPECT_EQ(level(result, "used"), Level::kOk);
  stage(result, FieldStage::kUsed) = {500, 19, 4};
  EXPECT_EQ(level(result, "used"), Level::kBad);
  stage(result, FieldStage::kUsed) = {500, 20, 3};
  EXPECT_EQ(level(result, "used"), Level::kBad);
}

TEST(UsedRow, SaysWhatTookPart) {
  FieldResult result = moved();
  stage(result, FieldStage::kUsed) = {900, 38, 7};
  const Finding found = row(judge(result), "used");
  EXPECT_EQ(found.text, "7 of 8 planes and 38 of 40 frames took part");
  expect_figures(found, {{"planes", 7.0},
                         {"planes_given", 8.0},
                         {"frames", 38.0},
                         {"frames_given", 40.0},
                         {"points", 900.0},
                         {"points_given", 1000.0}});
  stage(result, FieldStage::kUsed) = {900, 19, 7};
  EXPECT_EQ(row(judge(result), "used").text,
            "7 of 8 planes and 19 of 40 frames took part, fewer than half: check that table, plane "
            "numbers and points belong together");
}

TEST(UsedRow, WarnsOfAnyFrameLeftOut) {
  FieldResult result = moved();
  EXPECT_EQ(level(result, "used"), Level::kOk);
  result.used.dropped.push_back({5, -3, FieldStage::kFrameFilter});
  EXPECT_EQ(level(result, "used"), Level::kWarn);
  EXPECT_NE(row(judge(result), "used").text.find("plane 5 frame -3"), std::string::npos);
  result.used.dropped.push_back({5, 4, FieldStage::kScreened});
  result.used.dropped.push_back({7, 4, FieldStage::kScreened});
  EXPECT_EQ(row(judge(result), "used").text,
            "8 of 8 planes and 40 of 40 frames took part; left out: plane 5 frames -3, 4; plane 7 "
            "frame 4: look at these poses");
}

Difference difference(double rest, double explained) {
  Difference found;
  found.rms = 0.5;
  found.max = 1.0;
  found.plane = 3;
  found.rest = rest;
  found.explained = explained;
  return found;
}

TEST(DriftRow, WarnsWhereMoreThanAThirdOfTheRmsLimitIsLeft) {
  EXPECT_EQ(judge(difference(0.3 / 3.0, 0.9), limits()).worst(), Level::kOk);
  EXPECT_EQ(judge(difference(just_above(0.3 / 3.0), 0.9), limits()).worst(), Level::kWarn);
  EXPECT_EQ(judge(difference(10.0, 0.9)).worst(), Level::kOk);
}

TEST(DriftRow, SaysWhatToDo) {
  const Judgement rigid = judge(difference(0.2, just_above(0.8)), limits());
  EXPECT_NE(rigid.findings[0].text.find("calibrate in the field first"), std::string::npos);
  const Judgement shape = judge(difference(0.2, 0.8), limits());
  EXPECT_NE(shape.findings[0].text.find("the shape has changed: calibrate anew"),
            std::string::npos);
}

TEST(DriftRow, SaysHowTheTablesDiffer) {
  const Finding found = row(judge(difference(0.2, 0.75), limits()), "drift");
  EXPECT_EQ(found.text,
            "the tables differ by 0.500 RMS, most by 1.000 on plane 3; a rigid motion explains "
            "75 % and leaves 0.200: the shape has changed: calibrate anew");
  expect_figures(found,
                 {{"rms", 0.5}, {"max", 1.0}, {"plane", 3.0}, {"rest", 0.2}, {"explained", 0.75}});
}

TEST(DriftRow, IsOkWithoutAnyDifference) {
  const Judgement judgement = judge(difference(0.0, kNaN), limits());
  EXPECT_EQ(judgement.worst(), Level::kOk);
  EXPECT_EQ(judgement.findings[0].text, "the tables are the same");
}

TEST(DriftRow, WarnsWhereNothingCouldBeCompared) {
  Difference found = difference(0.0, kNaN);
  found.refused = "no block in common";
  EXPECT_EQ(judge(found, limits()).worst(), Level::kWarn);
  EXPECT_EQ(row(judge(found), "drift").text, "no block in common: the tables cannot be compared");
}

}  // namespace
