#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <type_traits>

#include "kestrane/buffers.h"
#include "tests/records/owner_checks.h"
#include "tests/records/owner_privates.h"

namespace {

using namespace kestrane;

// One description per owner class: its shape, its slab, and its hand-out operation.
struct Indicators {
  using Owner = LASER_PLANE_INDICATOR_MANAGER;
  using Record = _LASER_PLANE_INDICATORS_INFOS;
  static constexpr std::int32_t kLines = 15;
  static constexpr std::int32_t kCells = 50;
  static constexpr std::int32_t kSlab = 19456;
  static constexpr std::int32_t kLastThatFits = 110285;
  static _KESTRANE_STATUS use(Owner& owner, std::int32_t count, Record*& out) {
    return owner.get_laser_plane_indicator(count, out);
  }
};

struct Corners {
  using Owner = LASER_PLANE_GRID_CORNERS_MANAGER;
  using Record = _LASER_PLANE_GRID_CORNERS_INFOS;
  static constexpr std::int32_t kLines = 16;
  static constexpr std::int32_t kCells = 51;
  static constexpr std::int32_t kSlab = 20736;
  static constexpr std::int32_t kLastThatFits = 103483;
  static _KESTRANE_STATUS use(Owner& owner, std::int32_t count, Record*& out) {
    return owner.get_laser_plane_grid_corners(count, out);
  }
};

struct Coefficients {
  using Owner = LASER_PLANE_GRID_OPT_COEFFS_MANAGER;
  using Record = _LASER_PLANE_GRID_OPT_COEFFS_INFOS;
  static constexpr std::int32_t kLines = 16;
  static constexpr std::int32_t kCells = 51;
  static constexpr std::int32_t kSlab = 20736;
  static constexpr std::int32_t kLastThatFits = 103483;
  static _KESTRANE_STATUS use(Owner& owner, std::int32_t count, Record*& out) {
    return owner.get_laser_plane_grid_opt_coeffs(count, out);
  }
};

template <class Kind>
std::int64_t expected_size(std::int64_t planes) {
  return (planes * 16 + 127) / 128 * 128 + planes * Kind::kSlab;
}

template <class Kind>
class PlaneManager : public testing::Test {};

using Kinds = testing::Types<Indicators, Corners, Coefficients>;

class KindNames {
 public:
  template <class Kind>
  static std::string GetName(int) {
    if (std::is_same_v<Kind, Indicators>) return "Indicators";
    return std::is_same_v<Kind, Corners> ? "Corners" : "Coefficients";
  }
};

TYPED_TEST_SUITE(PlaneManager, Kinds, KindNames);

// Refusals.

TYPED_TEST(PlaneManager, RefusesACountAboveItsCapacityAndStaysAsItWas) {
  typename TypeParam::Owner owner;
  ASSERT_EQ(owner.init(4), KESTRANE_OK);
  const auto before = bytes_of(owner);
  typename TypeParam::Record* out = nullptr;
  EXPECT_EQ(TypeParam::use(owner, 5, out), KESTRANE_ERR_INVALID_PARAM);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(bytes_of(owner), before);
}

TYPED_TEST(PlaneManager, ReportsASizeBeyond32BitsAsFailedAllocationAndChangesNothing) {
  constexpr std::int32_t kLast = TypeParam::kLastThatFits;
  ASSERT_LE(expected_size<TypeParam>(kLast), std::numeric_limits<std::int32_t>::max());
  ASSERT_GT(expected_size<TypeParam>(kLast + 1), std::numeric_limits<std::int32_t>::max());
  typename TypeParam::Owner owner;
  owner.plane_count = 41;
  owner.plane_capacity = 42;
  const auto before = bytes_of(owner);
  // Twice that many and a few wrap around to a small positive size in 32 bits.
  for (const std::int32_t count :
       {kLast + 1, 2 * kLast + 10, std::numeric_limits<std::int32_t>::max()}) {
    EXPECT_EQ(owner.init(count), KESTRANE_ERR_NO_MEMORY) << count;
    EXPECT_EQ(bytes_of(owner), before) << count;
  }
}

TYPED_TEST(PlaneManager, ReportsACarvingBelowNothingAsFailedAllocation) {
  typename TypeParam::Owner owner;
  const auto before = bytes_of(owner);
  for (const std::int32_t count : {-8, -9, -1000, std::numeric_limits<std::int32_t>::min()}) {
    EXPECT_EQ(owner.init(count), KESTRANE_ERR_NO_MEMORY) << count;
    EXPECT_EQ(bytes_of(owner), before) << count;
  }
}

template <class Kind>
void starved_init() {
  typename Kind::Owner owner;
  const auto before = bytes_of(owner);
  starve_heap();
  const bool refused = owner.init(100000) == KESTRANE_ERR_NO_MEMORY;
  std::_Exit(refused && block_of(owner) == nullptr && bytes_of(owner) == before ? 0 : 1);
}

TYPED_TEST(PlaneManager, ReportsAHeapThatHasRunOutAndChangesNothing) {
  if (!kHeapCanRunOut) GTEST_SKIP() << "the sanitizer owns the heap";
  EXPECT_EXIT(starved_init<TypeParam>(), testing::ExitedWithCode(0), "");
}

// Layout.

TYPED_TEST(PlaneManager, BeginsWithItsRecordAndEndsWithItsBlock) {
  typename TypeParam::Owner owner;
  EXPECT_EQ(distance(&owner, &owner.planes), 0);
  EXPECT_EQ(distance(&owner, &owner.plane_count), 8);
  EXPECT_EQ(distance(&owner, &owner.plane_capacity), 12);
  EXPECT_EQ(distance(&owner, &block_of(owner)), 16);
  EXPECT_EQ(sizeof(owner), 24u);
  EXPECT_EQ(block_of(owner), nullptr);
}

TYPED_TEST(PlaneManager, MeasuresWhatItCarves) {
  for (const std::int32_t planes : {0, 1, 8, 9, 100}) {
    typename TypeParam::Owner owner;
    const std::int32_t measured = carve(owner, nullptr, planes, false);
    EXPECT_EQ(measured, expected_size<TypeParam>(planes));
    EXPECT_EQ(owner.planes, nullptr);
    ASSERT_EQ(owner.init(planes), KESTRANE_OK);
    EXPECT_EQ(carve(owner, block_of(owner), planes, true), measured);
  }
}

TYPED_TEST(PlaneManager, CarvesEverySectionInItsPlace) {
  constexpr std::int32_t kPlanes = 9;  // nine rows of 16 bytes take 256
  typename TypeParam::Owner owner;
  ASSERT_EQ(owner.init(kPlanes), KESTRANE_OK);
  EXPECT_EQ(static_cast<void*>(owner.planes), block_of(owner));
  EXPECT_EQ(owner.plane_count, kPlanes);
  EXPECT_EQ(owner.plane_capacity, kPlanes);
  for (std::int32_t p = 0; p < kPlanes; ++p) {
    const std::ptrdiff_t slab = 256 + std::ptrdiff_t{TypeParam::kSlab} * p;
    const _LASER_LINES_INFOS& table = owner.planes[p];
    EXPECT_EQ(distance(block_of(owner), table.lines), slab);
    ASSERT_EQ(table.count, TypeParam::kLines);
    for (std::int32_t j = 0; j < TypeParam::kLines; ++j) {
      EXPECT_EQ(distance(block_of(owner), table.lines[j].cells), slab + 256 + 1280 * j);
      EXPECT_EQ(table.lines[j].count, TypeParam::kCells);
    }
  }
}

TYPED_TEST(PlaneManager, StartsWithZeroCells) {
  typename TypeParam::Owner owner;
  ASSERT_EQ(owner.init(2), KESTRANE_OK);
  for (std::int32_t p = 0; p < 2; ++p) {
    for (std::int32_t j = 0; j < TypeParam::kLines; ++j) {
      for (std::int32_t k = 0; k < TypeParam::kCells; ++k) {
        expect_triple(owner.planes[p].lines[j].cells[k], 0.0, 0.0, 0.0);
      }
    }
  }
}

// Only the indicators are cleared by carving itself.
TYPED_TEST(PlaneManager, ClearsCellsWhenCarvingAgainOnlyWhereTheyAreIndicators) {
  typename TypeParam::Owner owner;
  ASSERT_EQ(owner.init(2), KESTRANE_OK);
  const auto first = [&]() -> _LASER_TRIPLE& { return owner.planes[0].lines[0].cells[0]; };
  const auto last = [&]() -> _LASER_TRIPLE& {
    return owner.planes[1].lines[TypeParam::kLines - 1].cells[TypeParam::kCells - 1];
  };
  first() = {{1.0, 2.0, 3.0}};
  last() = {{1.0, 2.0, 3.0}};
  carve(owner, block_of(owner), 2, true);
  const double kept = std::is_same_v<TypeParam, Indicators> ? 0.0 : 1.0;
  expect_triple(first(), 1.0 * kept, 2.0 * kept, 3.0 * kept);
  expect_triple(last(), 1.0 * kept, 2.0 * kept, 3.0 * kept);
}

TYPED_TEST(PlaneManager, ClearsNothingWhereThereAreNoPlanesToCarve) {
  _LASER_TRIPLE cell = {{1.0, 2.0, 3.0}};
  _LASER_LINE_INFOS line = {&cell, 1};
  _LASER_LINES_INFOS foreign = {&line, 1};  // looks like a row of a block, but is none
  typename TypeParam::Owner owner;
  EXPECT_EQ(carve(owner, &foreign, 0, true), 0);
  expect_triple(cell, 1.0, 2.0, 3.0);
}

// Counts.

TYPED_TEST(PlaneManager, HandsItselfOutForACountUpToItsCapacity) {
  typename TypeParam::Owner owner;
  ASSERT_EQ(owner.init(4), KESTRANE_OK);
  for (const std::int32_t count : {4, 1, 0, -2}) {
    typename TypeParam::Record* out = nullptr;
    EXPECT_EQ(TypeParam::use(owner, count, out), KESTRANE_OK);
    EXPECT_EQ(out, &owner);
    EXPECT_EQ(owner.plane_count, count);
    EXPECT_EQ(owner.plane_capacity, 4);
  }
}

TYPED_TEST(PlaneManager, TakesCapacity0) {
  typename TypeParam::Owner owner;
  ASSERT_EQ(owner.init(0), KESTRANE_OK);
  EXPECT_NE(block_of(owner), nullptr);
  EXPECT_EQ(static_cast<void*>(owner.planes), block_of(owner));
  EXPECT_EQ(owner.plane_count, 0);
  EXPECT_EQ(owner.plane_capacity, 0);
  typename TypeParam::Record* out = nullptr;
  EXPECT_EQ(TypeParam::use(owner, 0, out), KESTRANE_OK);
  EXPECT_EQ(TypeParam::use(owner, 1, out), KESTRANE_ERR_INVALID_PARAM);
}

// Seven missing rows of 16 bytes are less than the rounding of the rows' section.
TYPED_TEST(PlaneManager, TakesASmallNegativeCapacityAsItTakes0) {
  for (const std::int32_t count : {-1, -7}) {
    typename TypeParam::Owner owner;
    EXPECT_EQ(carve(owner, nullptr, count, false), 0);
    ASSERT_EQ(owner.init(count), KESTRANE_OK);
    EXPECT_EQ(owner.plane_count, count);
    EXPECT_EQ(owner.plane_capacity, count);
  }
}

// Assignment.

TYPED_TEST(PlaneManager, AssignsItsFieldsFlat) {
  typename TypeParam::Owner owner;
  ASSERT_EQ(owner.init(2), KESTRANE_OK);
  Undestroyed<typename TypeParam::Owner> other;
  auto& result = (*other = owner);
  EXPECT_EQ(&result, &*other);
  EXPECT_EQ(bytes_of(*other), bytes_of(owner));
  EXPECT_EQ(other->planes[1].lines[0].cells, owner.planes[1].lines[0].cells);
}

}  // namespace
