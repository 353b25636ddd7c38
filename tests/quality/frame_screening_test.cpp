#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>
#include <string>

#include "kestrane/quality/screening.h"
#include "tests/support/bits.h"

namespace {

using kestrane::quality::FrameSettings;
using kestrane::quality::PlaneTable;
using kestrane::quality::PointList;
using kestrane::quality::screen_frames;
using kestrane::quality::ScreenedFrames;
using kestrane_test::kInf;
using kestrane_test::kNaN;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

// All cells x = 120.
PlaneTable full_table(std::int32_t planes) {
  PlaneTable table(planes);
  for (std::size_t i = 0; i < table.size(); i += 3) table.data()[i] = -1.0 / 120.0;
  return table;
}

// Three points of each frame, at different places of the fan.
PointList list_of(const std::vector<std::int32_t>& frames) {
  PointList list;
  for (const std::int32_t frame : frames) {
    for (const double y : {-50.0, 0.0, 50.0}) list.push_back({120.0, y, 300.0, frame});
  }
  return list;
}

std::vector<std::int32_t> ids_of(const PointList& list) {
  std::vector<std::int32_t> ids;
  for (const auto& point : list) {
    if (ids.empty() || ids.back() != point.id) ids.push_back(point.id);
  }
  return ids;
}

// --- refusals --------------------------------------------------------------------------------

TEST(ScreenFrames, RefusesAHostsMistakes) {
  const PlaneTable table = full_table(2);
  const std::vector<PointList> lists(2, list_of({0}));
  EXPECT_THROW(screen_frames({}, table), std::invalid_argument);
  for (const std::int32_t first : {-1, 1}) {
    FrameSettings settings;
    settings.first_plane = first;
    try {
      screen_frames(lists, table, settings);
      ADD_FAILURE() << first;
    } catch (const std::invalid_argument& refused) {
      EXPECT_EQ(std::string(refused.what()), "the table has 2 planes, the lists want planes " +
                                                 std::to_string(first) + " to " +
                                                 std::to_string(first + 1));
    }
  }
  FrameSettings farthest;
  farthest.first_plane = std::numeric_limits<std::int32_t>::max();
  EXPECT_THROW(screen_frames(lists, table, farthest), std::invalid_argument);
}

TEST(ScreenFrames, RefusesAPlaneWithoutPoints) {
  const PlaneTable table = full_table(3);
  for (std::size_t empty = 0; empty < 3; ++empty) {
    std::vector<PointList> lists(3, list_of({0}));
    lists[empty].clear();
    const ScreenedFrames screened = screen_frames(lists, table);
    EXPECT_EQ(screened.refused, "plane " + std::to_string(empty) + " has no points");
    EXPECT_TRUE(screened.lists.empty());
    EXPECT_EQ(screened.accounts.size(), 3U);
    EXPECT_TRUE(screened.left_out.empty());
  }
}

TEST(ScreenFrames, NamesAllThatIsInTheWay) {
  std::vector<PointList> lists(4, list_of({0}));
  lists[1].clear();
  lists[3].clear();
  EXPECT_EQ(screen_frames(lists, full_table(4)).refused,
            "plane 1 has no points; plane 3 has no points");
}

TEST(ScreenFrames, RefusesAPlaneWhosePointsAllGo) {
  std::vector<PointList> lists(2, list_of({0}));
  lists[1] = {{kNaN, 0, 300, 0}, {120, 0, 3000, 0}, {120, 900, 300, 0}};
  EXPECT_EQ(screen_frames(lists, full_table(2)).refused,
            "plane 1 has no points left: 1 are not finite, 2 lie outside the table's blocks");
}

TEST(ScreenFrames, RefusesAPlaneWithAnEmptyRow) {
  for (const double a : {0.0, kNaN}) {
    PlaneTable table = full_table(2);
    for (std::size_t i = 0; i < 2250; i += 3) table.data()[i] = a;
    const ScreenedFrames screened =
        screen_frames(std::vector<PointList>(2, list_of({0, 1})), table);
    EXPECT_EQ(screened.refused, "plane 0 has an empty row in the table");
    EXPECT_EQ(screened.accounts[0].dropped.no_cell, 6);
  }
}

TEST(ScreenFrames, LeavesPlanesOutAtTheEndsWhereItMay) {
  const PlaneTable table = full_table(6);
  std::vector<PointList> lists(5, list_of({0, 1}));
  lists[0].clear();
  lists[4].clear();
  FrameSettings settings;
  settings.first_plane = 1;
  settings.leave_out_ends = true;
  const ScreenedFrames screened = screen_frames(lists, table, settings);
  EXPECT_EQ(screened.refused, "");
  EXPECT_EQ(screened.first_plane, 2);
  EXPECT_EQ(screened.last_plane, 4);
  EXPECT_EQ(screened.lists.size(), 3U);
  EXPECT_THAT(screened.left_out, ElementsAre(1, 5));
  EXPECT_EQ(screened.accounts.size(), 5U);
  lists[2].clear();
  EXPECT_EQ(screen_frames(lists, table, settings).refused, "plane 3 has no points");
}

TEST(ScreenFrames, RefusesARangeOfWhichNothingIsLeft) {
  FrameSettings settings;
  settings.leave_out_ends = true;
  EXPECT_EQ(screen_frames(std::vector<PointList>(2), full_table(2), settings).refused,
            "no plane of the range is left: plane 0 has no points");
}

// --- points ----------------------------------------------------------------------------------

TEST(ScreenFrames, DropsWhatTheJobCouldNotMeasure) {
  PlaneTable table = full_table(1);
  table.cell(0, *table.lookup(50.0, 300.0)) = {{0.0, 0.0, 0.0}};
  table.cell(0, *table.lookup(-50.0, 300.0)) = {{kNaN, 0.0, 0.0}};
  PointList list = list_of({4});  // only y = 0 has a cell
  list.push_back({kInf, 0.0, 300.0, 4});
  list.push_back({120.0, kNaN, 300.0, 4});
  list.push_back({120.0, 0.0, 100.0, 4});
  const ScreenedFrames screened = screen_frames({list}, table);
  ASSERT_EQ(screened.lists.size(), 1U);
  ASSERT_EQ(screened.lists[0].size(), 1U);
  EXPECT_EQ(screened.lists[0][0].y, 0.0);
  EXPECT_EQ(screened.accounts[0].dropped.not_finite, 2);
  EXPECT_EQ(screened.accounts[0].dropped.no_cell, 3);
  EXPECT_EQ(screened.accounts[0].dropped.depth, 0);
  EXPECT_EQ(screened.accounts[0].kept, 1);
  ASSERT_EQ(screened.accounts[0].frames.size(), 1U);
  EXPECT_EQ(screened.accounts[0].frames[0].frame, 4);
}

// --- numbers ---------------------------------------------------------------------------------

TEST(ScreenFrames, NumbersTheFramesOfEachListAnew) {
  const ScreenedFrames screened = screen_frames(
      {list_of({30, 10}), list_of({7, 100, 2000000000, -5}), list_of({0})}, full_table(3));
  EXPECT_EQ(screened.first_number, -3);
  EXPECT_THAT(ids_of(screened.lists[0]), ElementsAre(-2, -3));
  EXPECT_THAT(ids_of(screened.lists[1]), ElementsAre(-2, -1, 0, -3));
  EXPECT_THAT(ids_of(screened.lists[2]), ElementsAre(-3));
  EXPECT_THAT(screened.original[0], ElementsAre(10, 30));
  EXPECT_THAT(screened.original[1], ElementsAre(-5, 7, 100, 2000000000));
  EXPECT_THAT(screened.original[2], ElementsAre(0));
}

TEST(ScreenFrames, LetsAFrameVanishWithItsPoints) {
  std::vector<PointList> lists(2, list_of({1, 2, 3}));
  for (std::size_t i = 3; i < 6; ++i) lists[0][i].x = kNaN;
  const ScreenedFrames screened = screen_frames(lists, full_table(2));
  EXPECT_THAT(screened.original[0], ElementsAre(1, 3));
  EXPECT_THAT(ids_of(screened.lists[0]), ElementsAre(-2, -1));
  EXPECT_THAT(ids_of(screened.lists[1]), ElementsAre(-2, -1, 0));
  ASSERT_EQ(screened.accounts[0].frames.size(), 3U);
  EXPECT_EQ(screened.accounts[0].frames[1].kept, 0);
}

TEST(ScreenFrames, GivesASingleFrameTheNumber0) {
  const ScreenedFrames screened =
      screen_frames({list_of({17}), list_of({-2147483647 - 1})}, full_table(2));
  EXPECT_EQ(screened.first_number, 0);
  EXPECT_THAT(ids_of(screened.lists[0]), ElementsAre(0));
  EXPECT_THAT(ids_of(screened.lists[1]), ElementsAre(0));
}

TEST(ScreenFrames, KeepsThePointsOtherwiseAsTheyAre) {
  PointList list = list_of({3, 1});
  list[4].x = 117.25;
  const ScreenedFrames screened = screen_frames({list}, full_table(1));
  ASSERT_EQ(screened.lists[0].size(), 6U);
  for (std::size_t i = 0; i < 6; ++i) {
    EXPECT_EQ(screened.lists[0][i].x, list[i].x);
    EXPECT_EQ(screened.lists[0][i].y, list[i].y);
    EXPECT_EQ(screened.lists[0][i].z, list[i].z);
  }
}

TEST(ScreenFrames, SaysThatPointsSeemToBeInAnotherUnit) {
  for (const double unit : {1000.0, 25.4}) {
    std::vector<PointList> lists(2, list_of({0, 1}));
    for (PointList& list : lists) {
      for (auto& point : list) point.z /= unit;
    }
    const ScreenedFrames screened = screen_frames(lists, full_table(2));
    EXPECT_THAT(screened.unit_hint, HasSubstr(unit == 1000.0 ? "metres" : "inches"));
    EXPECT_THAT(screened.refused, HasSubstr("; " + screened.unit_hint));
  }
}

}  // namespace
