#include "fast/crossing_frames.h"

#include <algorithm>

#include "simulation/random.h"
#include "tests/fast/fast_support.h"

namespace {

using namespace fast_support;
using kestrane::collect_plane_points;
using kestrane::compact_frame_ids;
using kestrane::PlaneAbcd;
using kestrane::PointMatrix3;
using kestrane::select_crossing_frames;
using kestrane::select_plane_frames;
using simulation::Random;
using Ordinals = std::vector<int>;

// The plane x = 128 as a fit gives it; signed distances are x - 128, exact but for the guard.
const PlaneAbcd kPlaneAt128(1.0, 0.0, 0.0, -128.0);

PointMatrix3 group_at(const std::vector<double>& distances) {
  PointMatrix3 group(static_cast<Eigen::Index>(distances.size()), 3);
  for (std::size_t i = 0; i < distances.size(); ++i) {
    group.row(static_cast<Eigen::Index>(i)) << 128.0 + distances[i], 0.0, 300.0;
  }
  return group;
}

// How many columns the crossing test leaves of one group.
Eigen::Index kept_of(const std::vector<double>& distances) {
  PlanePoints kept(3, 0);
  select_crossing_frames(kPlaneAt128, {group_at(distances)}, kept);
  return kept.cols();
}

// `above` and `below` points close to the plane on either side, `far` above and far.
std::vector<double> mixed(int above, int below, int far) {
  std::vector<double> distances(static_cast<std::size_t>(above), 1.0);
  distances.insert(distances.end(), static_cast<std::size_t>(below), -1.0);
  distances.insert(distances.end(), static_cast<std::size_t>(far), 50.0);
  return distances;
}

TEST(CompactFrameIds, NumbersIdsInOrderOfFirstAppearance) {
  Ordinals ordinals = {9, 9};
  compact_frame_ids({7, -3, 7, 2000000000, -3, 0}, ordinals);
  EXPECT_EQ(ordinals, (Ordinals{0, 1, 0, 2, 1, 3}));
  compact_frame_ids({}, ordinals);
  EXPECT_TRUE(ordinals.empty());
}

TEST(SelectCrossingFrames, TakesAFrameOnBothSidesOfThePlane) {
  EXPECT_EQ(kept_of(mixed(6, 4, 0)), 10);
}

TEST(SelectCrossingFrames, DropsAFrameThatLiesOnOneSide) {
  EXPECT_EQ(kept_of(mixed(10, 0, 0)), 0);
  EXPECT_EQ(kept_of(mixed(0, 10, 0)), 0);
}

TEST(SelectCrossingFrames, WantsMoreThanFivePercentOnEitherSide) {
  EXPECT_EQ(kept_of(mixed(19, 1, 0)), 0);
  EXPECT_EQ(kept_of(mixed(1, 19, 0)), 0);
  EXPECT_EQ(kept_of(mixed(18, 1, 0)), 19);
  EXPECT_EQ(kept_of(mixed(1, 18, 0)), 19);
  EXPECT_EQ(kept_of(mixed(95, 5, 0)), 0);
  EXPECT_EQ(kept_of(mixed(94, 6, 0)), 100);
}

TEST(SelectCrossingFrames, WantsMoreThanHalfOfTheFrameNear) {
  EXPECT_EQ(kept_of(mixed(2, 3, 5)), 0);
  EXPECT_EQ(kept_of(mixed(3, 3, 5)), 11) << "far points come along";
}

TEST(SelectCrossingFrames, CountsAPointOnThePlaneAsAboveAndNear) {
  EXPECT_EQ(kept_of({0.0, -1.0, -1.0}), 3);
  EXPECT_EQ(kept_of({0.0, 0.0}), 0) << "none below";
}

TEST(SelectCrossingFrames, TakesThreeForFar) {
  // The guard added to d is far below the spacing of doubles at 128: distances stay exact.
  EXPECT_EQ(kept_of({3.0, -1.0}), 0);
  EXPECT_EQ(kept_of({-3.0, 1.0}), 0);
  EXPECT_EQ(kept_of({2.9375, -1.0}), 2);
  EXPECT_EQ(kept_of({-2.9375, 1.0}), 2);
}

TEST(SelectCrossingFrames, CountsADistanceThatIsNotANumberAsAboveAndFar) {
  EXPECT_EQ(kept_of({kNaN, -1.0, -1.0}), 3) << "the only one above";
  EXPECT_EQ(kept_of({kNaN, -1.0}), 0) << "half near is not enough";
}

TEST(SelectCrossingFrames, AppendsAcceptedGroupsInOrderAndSkipsEmptyOnes) {
  PlanePoints kept = columns({{7, 7, 7}});
  select_crossing_frames(
      kPlaneAt128,
      {group_at({1, -1, 0.5}), PointMatrix3(0, 3), group_at({1, 1}), group_at({-0.25, 0.25})},
      kept);
  expect_same(kept, columns({{7, 7, 7},
                             {129, 0, 300},
                             {127, 0, 300},
                             {128.5, 0, 300},
                             {127.75, 0, 300},
                             {128.25, 0, 300}}));
}

// Points on both sides of x = 128 in the depth band, spread so that the fit finds that plane.
void add_crossing_frame(List& list, std::int32_t id, double off = 0.0) {
  for (int i = 0; i < 8; ++i) {
    const double side = i % 2 == 0 ? 0.25 : -0.25;
    list.push_back({128.0 + off + side, (i / 4) * 40.0 - 20.0, 230.0 + 100.0 * ((i / 2) % 2), id});
  }
}

PointSets collected(const FrameLists& frames, bool expected = true) {
  PointSets points;
  EXPECT_EQ(collect_plane_points(frames, points), expected);
  return points;
}

TEST(CollectPlanePoints, KeepsFramesThatCrossThePlane) {
  List list;
  add_crossing_frame(list, 5);
  add_crossing_frame(list, 900000000);
  const PointSets points = collected({list});
  ASSERT_EQ(points.size(), 1u);
  expect_same(points[0], matrix_of(list));
}

TEST(CollectPlanePoints, DropsAFrameThatLiesBesideThePlane) {
  List list;
  for (int id = 0; id < 10; ++id) add_crossing_frame(list, id);
  List all = list;
  add_crossing_frame(all, 10, 1.0);
  expect_same(collected({all})[0], matrix_of(list));
}

TEST(CollectPlanePoints, OrdersPointsByFrameAndInsideByInput) {
  List list;
  add_crossing_frame(list, 3);
  add_crossing_frame(list, 1);
  List interleaved;
  for (std::size_t i = 0; i < 8; ++i) {
    interleaved.push_back(list[i]);
    interleaved.push_back(list[8 + i]);
  }
  expect_same(collected({interleaved})[0], matrix_of(list));
}

TEST(CollectPlanePoints, CountsShallowPointsInTheirFrameOnly) {
  List list;
  for (int id = 0; id < 4; ++id) add_crossing_frame(list, id);
  // Far off at a depth of 200 and less: out of the fit, but they spoil their frame's near share.
  List spoilt = list;
  for (int i = 0; i < 8; ++i) spoilt.push_back({300.0, 0, i % 2 == 0 ? 200.0 : 160.0, 3});
  List expected(list.begin(), list.begin() + 24);
  expect_same(collected({spoilt})[0], matrix_of(expected));
  // One fewer, and they come along with it.
  List carried = list;
  for (int i = 0; i < 7; ++i) carried.push_back({300.0, 0, 200.0, 3});
  EXPECT_EQ(collected({carried})[0].cols(), 32 + 7);
}

TEST(CollectPlanePoints, KeepsADepthThatIsNotANumberOutOfTheFit) {
  List list;
  for (int id = 0; id < 4; ++id) add_crossing_frame(list, id);
  list.push_back({128.0, 0.0, kNaN, 2});
  EXPECT_EQ(collected({list})[0].cols(), 33) << "it comes along with its frame";
}

TEST(CollectPlanePoints, FitsTheBandFrom220To350) {
  List list;
  for (int id = 0; id < 4; ++id) add_crossing_frame(list, id);
  const auto count = static_cast<Eigen::Index>(list.size());
  for (int i = 0; i < 500; ++i) list.push_back({160.0, i * 0.1, i % 2 == 0 ? 219.5 : 350.5, 77});
  EXPECT_EQ(collected({list})[0].cols(), count) << "another plane outside the band has no say";
}

TEST(CollectPlanePoints, TakesBothEndsOfTheBandIntoTheFit) {
  // Two rows in the middle of the band: it takes the other two to make a plane.
  const auto with_depth = [](double z) {
    return List{
        {128.25, -20, 300, 1}, {127.75, 20, 300, 1}, {127.75, -20, z, 1}, {128.25, 20, z, 1}};
  };
  for (const double end : {220.0, 350.0}) EXPECT_EQ(collected({with_depth(end)})[0].cols(), 4);
  for (const double off : {219.9375, 350.0625}) collected({with_depth(off)}, false);
}

TEST(CollectPlanePoints, FailsOnAnEmptyList) {
  List list;
  add_crossing_frame(list, 1);
  EXPECT_EQ(collected({list, List{}, list}, false).size(), 1u);
}

TEST(CollectPlanePoints, FailsWithTooFewPointsInTheBand) {
  List list;
  add_crossing_frame(list, 1);
  for (std::size_t i = 0; i < 6; ++i) list[i].z = 360.0;
  collected({list}, false);
}

TEST(CollectPlanePoints, FailsWhereTheFitRejectsItsPointsThoughAFrameWouldCross) {
  // In the band four corners of a saddle, all of them far from the plane between them. Beyond it
  // many points close to that plane on both sides.
  List list = {{148, -200, 230, 1}, {108, 200, 230, 1}, {108, -200, 340, 1}, {148, 200, 340, 1}};
  for (int i = 0; i < 40; ++i) list.push_back({i % 2 == 0 ? 129.0 : 127.0, 2.0 * i, 400.0, 1});
  collected({list}, false);
}

TEST(CollectPlanePoints, FailsWhereNoFrameIsAccepted) {
  // Two sheets apart: every frame lies on one side of the plane between them.
  List list;
  for (int i = 0; i < 60; ++i) {
    const double side = i % 2 == 0 ? 1.0 : -1.0;
    list.push_back({128.0 + side, 30.0 * (i % 3), 230.0 + 2.0 * i, i % 2});
  }
  collected({list}, false);
}

TEST(CollectPlanePoints, TakesNoListsAtAll) { EXPECT_TRUE(collected({}).empty()); }

TEST(SelectPlaneFrames, HandsOutTheFittedPlane) {
  List list;
  add_crossing_frame(list, 1);
  PlanePoints kept(3, 0);
  PlaneAbcd plane = PlaneAbcd::Zero();
  EXPECT_TRUE(select_plane_frames(matrix_of(list), Ordinals(list.size(), 0), kept, plane));
  constexpr double kRounding = 1e-12;
  EXPECT_NEAR(plane[0], 1.0, kRounding);
  EXPECT_NEAR(plane[3], -128.0, kRounding * 128);
}

TEST(CollectPlanePoints, EqualsAPlainSelectionOnRandomInput) {
  Eigen::Index kept_total = 0;
  std::size_t all = 0;
  for (std::uint64_t seed = 0; seed < 40; ++seed) {
    Random random(seed);
    List list;
    const int frames = 3 + random.index(30);
    std::vector<double> shift;
    for (int f = 0; f < frames; ++f)
      shift.push_back(random.index(4) == 0 ? 2.0 * random.gaussian() : 0.0);
    for (int i = 0; i < 900; ++i) {
      const int f = random.index(frames);
      const double z = random.uniform(170, 380);
      list.push_back({128.0 + shift[static_cast<std::size_t>(f)] + random.gaussian(),
                      random.uniform(-0.5, 0.5) * z, z, f * 1000003});
    }
    PlanePoints kept(3, 0);
    PlaneAbcd plane = PlaneAbcd::Zero();
    std::vector<std::int32_t> list_ids = ids(list);
    Ordinals ordinals;
    compact_frame_ids(list_ids, ordinals);
    const bool selected = select_plane_frames(matrix_of(list), ordinals, kept, plane);

    // Frame by frame in order of first appearance, with the plane that was found.
    std::vector<Eigen::Vector3d> expected;
    std::vector<std::int32_t> seen;
    for (const std::int32_t id : list_ids) {
      if (std::find(seen.begin(), seen.end(), id) != seen.end()) continue;
      seen.push_back(id);
      double above = 0, below = 0, near = 0, n = 0;
      std::vector<Eigen::Vector3d> members;
      for (const auto& point : list) {
        if (point.id != id) continue;
        members.push_back({point.x, point.y, point.z});
        const double s = plane[3] + 2.220446049250313e-16;
        double p = plane[0] / s, q = plane[1] / s, t = plane[2] / s, k = 1.0;
        if (0.0 > p) {
          p = -p;
          q = -q;
          t = -t;
          k = -1.0;
        }
        const double w = 1.0 / std::sqrt(t * t + (p * p + q * q));
        const double distance = (t * point.z + (p * point.x + q * point.y) + k) * w;
        n += 1;
        (distance < 0.0 ? below : above) += 1;
        if (-3.0 < distance && distance < 3.0) near += 1;
      }
      if (above / n > 0.05 && below / n > 0.05 && near / n > 0.5) {
        expected.insert(expected.end(), members.begin(), members.end());
      }
    }
    EXPECT_EQ(selected, !expected.empty());
    expect_same(kept, columns(expected));
    kept_total += kept.cols();
    all += list.size();
  }
  EXPECT_LT(kept_total, static_cast<Eigen::Index>(all));
  EXPECT_GT(kept_total, static_cast<Eigen::Index>(all / 2));
}

}  // namespace
