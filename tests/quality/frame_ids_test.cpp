#include "quality/frame_ids.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace {

using kestrane::quality::distinct_ids;
using kestrane::quality::ids_of_runs;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<_KESTRANE_ID_POINT3D> points_of(const std::vector<std::int32_t>& numbers) {
  std::vector<_KESTRANE_ID_POINT3D> points;
  for (const std::int32_t number : numbers) points.push_back({1.0, 2.0, 3.0, number});
  return points;
}

TEST(FrameIds, AreOnePerRunAsTheyCome) {
  EXPECT_THAT(ids_of_runs(points_of({4, 4, -2, 4, 4, 4, 0, 9, 9})), ElementsAre(4, -2, 4, 0, 9));
  EXPECT_THAT(ids_of_runs(points_of({0})), ElementsAre(0));
  EXPECT_THAT(ids_of_runs({}), IsEmpty());
}

TEST(FrameIds, AreDifferentAndAscending) {
  EXPECT_THAT(distinct_ids(points_of({4, 4, -2, 4, 9, 0, 9})), ElementsAre(-2, 0, 4, 9));
  EXPECT_THAT(distinct_ids(points_of({INT32_MAX, INT32_MIN})), ElementsAre(INT32_MIN, INT32_MAX));
  EXPECT_THAT(distinct_ids({}), IsEmpty());
}

}  // namespace
