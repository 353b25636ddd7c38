#include "fast/frame_filter.h"

#include <algorithm>

#include "simulation/random.h"
#include "tests/fast/fast_support.h"
#include "tests/literal/fast_calibration.h"

namespace {

using namespace fast_support;
using kestrane::filter_frames;
using kestrane::frame_range;
using kestrane::reject_frames;
using simulation::Random;
using Ids = std::vector<std::int32_t>;

constexpr std::int32_t kLowest = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kHighest = std::numeric_limits<std::int32_t>::max();

// What the filter keeps of lists against planes that all are the sheet x = 128.
FrameLists filtered(const FrameLists& frames) {
  static const fast_scene::Standard standard = flat_standard(10);
  FrameLists kept;
  filter_frames(frames, standard.table(), 0, kept);
  return kept;
}

List frames_of(const std::vector<std::pair<std::int32_t, double>>& frames) {
  List list;
  for (const auto& [id, distance] : frames) add_frame(list, id, distance);
  return list;
}

TEST(FrameRange, ReachesFromTheSmallestIdToTheLargest) {
  const auto range = frame_range(frames_of({{7, 0}, {3, 0}, {5, 0}}));
  EXPECT_EQ(range.first, 3);
  EXPECT_EQ(range.count, 5);
}

TEST(FrameRange, ReachesUpToZeroForNegativeIds) {
  const auto range = frame_range(frames_of({{-4, 0}, {-9, 0}}));
  EXPECT_EQ(range.first, -9);
  EXPECT_EQ(range.count, 10);
}

TEST(FrameRange, StartsNoHigherThanItsStartingValue) {
  const auto range = frame_range(frames_of({{kHighest, 0}}));
  EXPECT_EQ(range.first, 1410065408);
  EXPECT_EQ(range.count, std::int64_t{kHighest} - 1410065408 + 1);
}

TEST(FrameRange, HoldsNothingForAnEmptyList) {
  const auto range = frame_range({});
  EXPECT_EQ(range.count, 0);
  EXPECT_FALSE(range.holds(0));
  EXPECT_FALSE(range.holds(1410065408));
}

TEST(FrameRange, SpansAllOfTheIdsWithoutOverflow) {
  const auto range = frame_range(frames_of({{kLowest, 0}, {kHighest, 0}}));
  EXPECT_EQ(range.count, std::int64_t{1} << 32);
  EXPECT_TRUE(range.holds(kLowest));
  EXPECT_TRUE(range.holds(kHighest));
}

TEST(RejectFrames, KeepsAMeanBelowTheLimitOnly) {
  EXPECT_EQ(reject_frames({1, 2, 3}, {0, 1, 2}, 2.0), (std::vector<bool>{false, true, true}));
}

TEST(RejectFrames, TakesANaNOnEitherSideForBad) {
  EXPECT_EQ(reject_frames({kNaN, 1}, {0, 1}, 2.0), (std::vector<bool>{true, false}));
  EXPECT_EQ(reject_frames({0, 1}, {0, 1}, kNaN), (std::vector<bool>{true, true}));
}

TEST(RejectFrames, SparesAPositionThatEqualsARejectedBucketNumber) {
  // Bucket 1 is empty: bucket 2 stands at position 1, bucket 3 at position 2.
  EXPECT_EQ(reject_frames({0, 9, 9, 9}, {0, 2, 3, 4}, 5.0),
            (std::vector<bool>{false, true, false, true}))
      << "bucket 2 is in the set when position 2 is tested, bucket 3 is not";
  EXPECT_EQ(reject_frames({9, 9, 9}, {1, 2, 3}, 5.0), (std::vector<bool>{true, false, true}));
}

TEST(RejectFrames, RejectsAllBadOnesWhereNoBucketIsEmpty) {
  EXPECT_EQ(reject_frames({9, 9, 9}, {0, 1, 2}, 5.0), (std::vector<bool>{true, true, true}));
}

TEST(FilterFrames, KeepsASingleFrame) {
  EXPECT_EQ(ids(filtered({frames_of({{4, 0.5}, {4, 1.5}, {4, 7.0}})})[0]), (Ids{4, 4, 4}));
}

TEST(FilterFrames, DropsPerfectDataOfTheFirstList) {
  EXPECT_TRUE(filtered({frames_of({{0, 0}, {1, 0}, {2, 0}})})[0].empty());
}

TEST(FilterFrames, RejectsAMeanThatEqualsTheLimit) {
  EXPECT_EQ(ids(filtered({frames_of({{0, 1}, {1, 3}})})[0]), (Ids{0}))
      << "average 2, limit 3, and 3 is not below 3";
  EXPECT_EQ(ids(filtered({frames_of({{0, 1}, {1, 2.875}})})[0]), (Ids{0, 1}));
}

TEST(FilterFrames, LosesNothingWhereAllFramesAreEquallyFarOff) {
  EXPECT_EQ(filtered({frames_of({{0, 50}, {1, 50}, {2, 50}})})[0].size(), 3u);
}

TEST(FilterFrames, CarriesTheAverageFromListToList) {
  const List second = frames_of({{0, 1}, {1, 3.5}});
  EXPECT_EQ(ids(filtered({second})[0]), (Ids{0})) << "alone: limit 1.5 * 2.25";
  const FrameLists kept = filtered({frames_of({{0, 2}, {1, 2}}), second});
  EXPECT_EQ(ids(kept[1]), (Ids{0, 1})) << "limit 1.5 * (2 + 1 + 3.5) / 2";
}

TEST(FilterFrames, AddsTheMeansToTheCarriedAverageOneByOne) {
  // 2^-44 from the first list, then 256 + 2^-43 and 768: one by one the sum is 1024 + 2^-42 and the
  // limit just above 768; with the two means added first both roundings go down and it is 768.
  const double tiny = std::ldexp(1.0, -44);
  const List first = frames_of({{0, tiny}, {1, tiny}});
  const List second = frames_of({{0, 256 + 2 * tiny}, {1, 768}});
  EXPECT_EQ(ids(filtered({first, second})[1]), (Ids{0, 1}));
}

TEST(FilterFrames, TestsThePositionAndInsertsTheBucketNumber) {
  // Ids 0, 2, 3, 4 and so on: bucket 1 is empty.
  List list = frames_of({{0, 1}, {2, 9}, {3, 9}});
  for (std::int32_t id = 4; id < 12; ++id) add_frame(list, id, 1);
  const Ids kept = ids(filtered({list})[0]);
  EXPECT_EQ(std::count(kept.begin(), kept.end(), 2), 0);
  EXPECT_EQ(std::count(kept.begin(), kept.end(), 3), 1) << "bad, but spared";
  EXPECT_EQ(kept.size(), 10u);
}

TEST(FilterFrames, KeepsTheInputOrderOfInterleavedFrames) {
  List list;
  for (int i = 0; i < 6; ++i) list.push_back({129.0 + i / 64.0, 0, 300, i % 3});
  add_frame(list, 3, 40, 1);
  const List kept = filtered({list})[0];
  list.pop_back();
  expect_same(kept, list);
}

TEST(FilterFrames, KeepsAndDropsPointsWithoutACellWithTheirFrame) {
  List list = frames_of({{0, 1}, {1, 9}, {2, 1}, {3, 1}});
  list.push_back({500, 0, 2000, 0});
  list.push_back({128, 0, 2000, 1});
  const List kept = filtered({list})[0];
  EXPECT_EQ(ids(kept), (Ids{0, 2, 3, 0}));
}

TEST(FilterFrames, LetsAFrameWithoutCellsEmptyItsListAndAllLaterOnes) {
  List bad = frames_of({{0, 1}, {1, 1}});
  bad.push_back({128, 0, 2000, 2});
  const List good = frames_of({{0, 1}, {1, 1}, {2, 1}});
  const FrameLists kept = filtered({good, bad, good});
  EXPECT_EQ(kept[0].size(), 3u);
  EXPECT_TRUE(kept[1].empty());
  EXPECT_TRUE(kept[2].empty());
}

TEST(FilterFrames, SparesFramesByPositionAlsoWhenTheLimitIsNan) {
  List bad;
  bad.push_back({128, 0, 2000, 0});
  const FrameLists kept = filtered({bad, frames_of({{0, 1}}), List{}});
  EXPECT_TRUE(kept[1].empty());
  List first = frames_of({{0, kNaN}, {2, 1}, {3, 1}});
  EXPECT_EQ(ids(filtered({first})[0]), (Ids{3})) << "position 2, bucket number 2 rejected before";
}

TEST(FilterFrames, TurnsTheLimitInfiniteAfterAListWithoutFrames) {
  const FrameLists kept =
      filtered({frames_of({{0, 1}, {1, 1}}), List{}, frames_of({{0, 1}, {1, 900}})});
  EXPECT_TRUE(kept[1].empty());
  EXPECT_EQ(ids(kept[2]), (Ids{0, 1}));
}

TEST(FilterFrames, TurnsTheLimitToNanAfterAListWithoutFramesAtZero) {
  const FrameLists kept =
      filtered({frames_of({{0, 0}, {1, 0}}), List{}, frames_of({{0, 1}, {1, 1}})});
  EXPECT_TRUE(kept[2].empty()) << "0/0";
}

TEST(FilterFrames, LeavesNothingAfterAnEmptyFirstList) {
  const FrameLists kept =
      filtered({List{}, frames_of({{0, 1}, {1410065408, 1}}), frames_of({{5, 1}})});
  ASSERT_EQ(kept.size(), 3u);
  for (const List& list : kept) EXPECT_TRUE(list.empty());
}

TEST(FilterFrames, TakesNoListsAtAll) { EXPECT_TRUE(filtered({}).empty()); }

TEST(FilterFrames, DropsIdsOutsideTheFirstListsRange) {
  const FrameLists kept =
      filtered({frames_of({{2, 1}, {4, 1}}),
                frames_of({{1, 1}, {2, 1}, {3, 1}, {5, 500}, {kLowest, 500}, {kHighest, 500}})});
  EXPECT_EQ(ids(kept[1]), (Ids{2, 3})) << "dropped ones count in no mean";
}

TEST(FilterFrames, BridgesFrameNumbersThatLieFarApart) {
  const List list = frames_of({{0, 1}, {1000000000, 1}, {kHighest, 9}, {kLowest, 1}});
  EXPECT_EQ(ids(filtered({list})[0]), (Ids{0, 1000000000, kLowest}));
}

TEST(FilterFrames, TellsFrameNumbersApartByAllOfTheirBits) {
  for (int bit = 0; bit < 31; ++bit) {
    const std::int32_t other = std::int32_t{1} << bit;
    List list;
    for (const double distance : {1.0, 5.0, 1.0}) {
      add_frame(list, 0, distance);
      add_frame(list, other, distance);
    }
    // Both means are 7/3; taken apart point by point, 5 would lie beyond the limit.
    EXPECT_EQ(filtered({list})[0].size(), 6u) << bit;
    add_frame(list, other, 40.0);
    EXPECT_EQ(ids(filtered({list})[0]), (Ids{0, 0, 0})) << bit;
  }
}

TEST(FilterFrames, MeasuresListsAgainstTheirOwnPlanes) {
  fast_scene::Standard standard = flat_standard(3);
  standard.fill(2, {{-0.00390625, 0, 0}});  // x = 256
  FrameLists kept;
  const List list = {{129, 0, 300, 0}, {130, 0, 300, 1}, {384, 0, 300, 2}};
  filter_frames({list, list}, standard.table(), 1, kept);
  EXPECT_EQ(ids(kept[0]), (Ids{0, 1})) << "1, 2 and 256 from x = 128";
  EXPECT_EQ(ids(kept[1]), (Ids{0, 1, 2})) << "127, 126 and 128 from x = 256";
}

TEST(FilterFrames, HandsOutTheFiguresOfTheLastFrame) {
  const fast_scene::Standard standard = flat_standard(3);
  FrameLists kept;
  const auto last =
      filter_frames({frames_of({{0, 1}, {1, 5}}), frames_of({{1, 2}, {0, 7}, {1, 4}}), List{}},
                    standard.table(), 0, kept);
  ASSERT_TRUE(last.has_value());
  EXPECT_EQ(last->mean, 3.0);
  EXPECT_EQ(last->max, 4.0);
  EXPECT_EQ(last->deviation, 0.5);
  EXPECT_FALSE(filter_frames({List{}}, standard.table(), 0, kept).has_value());
}

TEST(FilterFrames, EqualsTheLiteralFormOnRandomInput) {
  std::size_t kept_points = 0, all_points = 0;
  for (std::uint64_t seed = 0; seed < 400; ++seed) {
    Random random(seed);
    fast_scene::Standard standard(4);
    for (int p = 0; p < 4; ++p) {
      standard.fill(p, {{-1.0 / random.uniform(100, 140), 0, 0}});
      for (int n = 0; n < 60; ++n) standard.cell(p, random.index(15), random.index(50)) = {};
    }
    const int first_id = random.index(40) - 20;
    const int span = 1 + random.index(seed % 3 == 0 ? 700 : 20);
    FrameLists frames(1 + static_cast<std::size_t>(random.index(4)));
    for (List& list : frames) {
      const int count = random.index(8) == 0 ? 0 : random.index(150);
      for (int i = 0; i < count; ++i) {
        const double z =
            random.index(12) == 0 ? random.uniform(90, 1560) : random.uniform(180, 400);
        const int id = first_id + random.index(span);
        const double off = id % 7 == 0 ? 30 : 0;
        list.push_back({off + random.uniform(110, 130), random.uniform(-0.65, 0.65) * z, z, id});
        if (random.index(2000) == 0) list.back().x = kNaN;
      }
    }
    FrameLists kept;
    FrameLists expected;
    literal::Indicators indicators;
    const auto last = filter_frames(frames, standard.table(), 0, kept);
    literal::filter_point_by_frame(frames, standard.table(), 0, expected, indicators);
    ASSERT_EQ(kept.size(), expected.size());
    for (std::size_t f = 0; f < kept.size(); ++f) {
      expect_same(kept[f], expected[f]);
      kept_points += kept[f].size();
      all_points += frames[f].size();
    }
    if (!last) continue;
    expect_same(last->mean, indicators.mean);
    expect_same(last->max, indicators.max);
    expect_same(last->deviation, indicators.deviation);
  }
  EXPECT_GT(kept_points, all_points / 5) << "the comparison sees both kinds";
  EXPECT_LT(kept_points, all_points * 4 / 5);
}

}  // namespace
