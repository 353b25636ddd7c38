#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

#include "kestrane/quality/findings.h"
#include "quality/findings/wording.h"
#include "tests/quality/findings/expected_figures.h"
#include "tests/support/bits.h"

namespace {

using kestrane::quality::conclude;
using kestrane::quality::count_text;
using kestrane::quality::Finding;
using kestrane::quality::frames_text;
using kestrane::quality::Judgement;
using kestrane::quality::length_text;
using kestrane::quality::Level;
using kestrane::quality::Limits;
using kestrane::quality::phrases_text;
using kestrane::quality::planes_text;
using kestrane::quality::share_text;
using kestrane_test::kNaN;

Finding finding(Level level, const char* id) { return {level, id, "", {}}; }

Limits some_limit() {
  Limits limits;
  limits.seam = 0.1;
  return limits;
}

TEST(Conclude, RefusesLimitsThatAreNoSizes) {
  Limits limits;
  limits.rms = -0.1;
  EXPECT_THROW(conclude({}, limits), std::invalid_argument);
  limits.rms = kNaN;
  EXPECT_THROW(conclude({}, limits), std::invalid_argument);
  limits.rms = 0.0;
  EXPECT_NO_THROW(conclude({}, limits));
}

TEST(Conclude, LooksAtNoLimitThatWasTakenBack) {
  Limits limits;
  for (const auto limit : {&Limits::rms, &Limits::field_motion}) {
    quality_tests::take_back(limits.*limit, -0.1);
    EXPECT_NO_THROW(conclude({}, limits));
  }
}

TEST(Conclude, PutsTheWorstFirstAndKeepsTheOrderOfALevel) {
  const Judgement judgement =
      conclude({finding(Level::kOk, "a"), finding(Level::kWarn, "b"), finding(Level::kBad, "c"),
                finding(Level::kWarn, "d"), finding(Level::kOk, "e")},
               {});
  std::string order;
  for (const Finding& found : judgement.findings) order += found.id;
  EXPECT_EQ(order, "cbdae");
}

TEST(Conclude, SaysWhatTheFindingsComeTo) {
  EXPECT_EQ(conclude({finding(Level::kWarn, "a"), finding(Level::kBad, "b")}, some_limit()).verdict,
            "not fit for use as it stands");
  EXPECT_EQ(conclude({finding(Level::kWarn, "a"), finding(Level::kOk, "b")}, some_limit()).verdict,
            "usable with limits");
  EXPECT_EQ(conclude({finding(Level::kOk, "a")}, some_limit()).verdict,
            "fit for use within the limits given");
  EXPECT_EQ(conclude({finding(Level::kBad, "a")}, {}).verdict, "no limits given");
}

TEST(Conclude, CountsEachOfTheLimits) {
  for (const auto limit : {&Limits::rms, &Limits::p99, &Limits::coverage, &Limits::seam,
                           &Limits::repeatability, &Limits::outliers, &Limits::field_motion}) {
    Limits limits;
    EXPECT_FALSE(limits.any());
    limits.*limit = 0.0;
    EXPECT_TRUE(limits.any());
  }
}

TEST(AJudgement, KnowsItsWorstLevelAndItsFindings) {
  EXPECT_EQ(Judgement().worst(), Level::kOk);
  const Judgement judgement = conclude({finding(Level::kOk, "a"), finding(Level::kWarn, "b")}, {});
  EXPECT_EQ(judgement.worst(), Level::kWarn);
  ASSERT_NE(judgement.find("a"), nullptr);
  EXPECT_EQ(judgement.find("a")->level, Level::kOk);
  EXPECT_EQ(judgement.find("c"), nullptr);
}

TEST(AFinding, GivesItsFiguresByName) {
  const Finding found{Level::kOk, "a", "", {{"first", 1.0}, {"second", 2.0}}};
  EXPECT_EQ(found.figure("second"), 2.0);
  EXPECT_TRUE(std::isnan(found.figure("third")));
}

TEST(NameOf, IsTheWordOfTheLevel) {
  EXPECT_STREQ(kestrane::quality::name_of(Level::kOk), "ok");
  EXPECT_STREQ(kestrane::quality::name_of(Level::kWarn), "warn");
  EXPECT_STREQ(kestrane::quality::name_of(Level::kBad), "bad");
}

TEST(LengthText, KeepsThreeDecimalsWhereTheyTellSomething) {
  EXPECT_EQ(length_text(0.0813), "0.081");
  EXPECT_EQ(length_text(-12.5), "-12.500");
  EXPECT_EQ(length_text(0.0), "0.000");
  EXPECT_EQ(length_text(0.01), "0.010");
  EXPECT_EQ(length_text(0.00996), "0.01");
  EXPECT_EQ(length_text(-0.00042), "-0.00042");
  EXPECT_EQ(length_text(999999.5), "999999.500");
  EXPECT_EQ(length_text(1e6), "1e+06");
  EXPECT_EQ(length_text(0.00042), "0.00042");
  EXPECT_EQ(length_text(3e-9), "3e-09");
  EXPECT_EQ(length_text(1.5e8), "1.5e+08");
  EXPECT_EQ(length_text(kNaN), "not determined");
}

TEST(ShareText, IsPercent) {
  EXPECT_EQ(share_text(0.33), "33 %");
  EXPECT_EQ(share_text(0.051), "5.1 %");
  EXPECT_EQ(share_text(0.0), "0 %");
  EXPECT_EQ(share_text(0.0004), "0.04 %");
  EXPECT_EQ(share_text(0.00096), "0.096 %");
  EXPECT_EQ(share_text(0.0012), "0.1 %");
  EXPECT_EQ(share_text(0.0994), "9.9 %");
  EXPECT_EQ(share_text(0.1), "10 %");
  EXPECT_EQ(share_text(-0.02), "-2.0 %");  // a rigid part that explains less than nothing
  EXPECT_EQ(share_text(1.0), "100 %");
  EXPECT_EQ(share_text(kNaN), "not determined");
}

TEST(CountText, KnowsOneFromMany) {
  EXPECT_EQ(count_text(1, "frame"), "1 frame");
  EXPECT_EQ(count_text(0, "frame"), "0 frames");
}

TEST(PlanesText, NamesSixAtMost) {
  EXPECT_EQ(planes_text({3}), "plane 3");
  EXPECT_EQ(planes_text({0, 1, 2, 3, 4, 9}), "planes 0, 1, 2, 3, 4, 9");
  EXPECT_EQ(planes_text({0, 1, 2, 3, 4, 5, 6, 7}), "planes 0, 1, 2, 3, 4, 5 and 2 more");
}

TEST(FramesText, KnowsOneFromMany) {
  EXPECT_EQ(frames_text(3, {-7}), "plane 3 frame -7");
  EXPECT_EQ(frames_text(0, {0, 7}), "plane 0 frames 0, 7");
}

TEST(PhrasesText, NamesSixAtMost) {
  EXPECT_EQ(phrases_text({"a"}), "a");
  EXPECT_EQ(phrases_text({"a", "b", "c", "d", "e", "f", "g"}), "a; b; c; d; e; f and 1 more");
}

}  // namespace
