#include "compensation/cell_kernel.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <vector>

#include "simulation/random.h"
#include "tests/literal/compensation.h"
#include "tests/support/bits.h"

namespace {

using kestrane::PlaneMotion;
using kestrane::VectorSet;
using kestrane_test::bits_of;
using kestrane_test::same_bits;
using literal::Vec3;
using simulation::Random;

using kestrane_test::kInf;
using kestrane_test::kNaN;
constexpr double kDenormal = std::numeric_limits<double>::denorm_min();
constexpr double kLargest = std::numeric_limits<double>::max();

const double kAwkward[] = {0.0,
                           -0.0,
                           1.0,
                           -1.0,
                           kInf,
                           -kInf,
                           kNaN,
                           kDenormal,
                           -kDenormal,
                           std::numeric_limits<double>::min(),
                           kLargest,
                           -kLargest,
                           1e-30,
                           -1e-30,
                           std::nextafter(1e-30, 0.0),
                           std::nextafter(1e-30, 1.0),
                           -std::nextafter(1e-30, 1.0),
                           5e-31,
                           1e-31,
                           -1e-31,
                           1e30,
                           1e150,
                           1e-150,
                           -0.01,
                           100.0};

std::vector<VectorSet> usable_sets() {
  std::vector<VectorSet> sets;
  for (const VectorSet set : {VectorSet::kBaseline, VectorSet::kAvx2, VectorSet::kAvx512}) {
    if (set <= kestrane::best_vector_set()) sets.push_back(set);
  }
  return sets;
}

double awkward(Random& random) {
  return kAwkward[random.index(static_cast<int>(std::size(kAwkward)))];
}

// Any sign, mantissa and exponent, non-finite ones included.
double any_bits(Random& random) { return std::bit_cast<double>(random.bits()); }

// Mostly what a scanner holds, sometimes what it should not.
double mixed(Random& random, double low, double high) {
  switch (random.index(12)) {
    case 0:
      return awkward(random);
    case 1:
      return any_bits(random);
    default:
      return random.uniform(low, high);
  }
}

Vec3 sane_cell(Random& random) {
  return {random.uniform(-0.02, -0.005), random.uniform(-1e-4, 1e-4), random.uniform(-2e-3, 2e-3)};
}

Vec3 mixed_cell(Random& random) {
  return {mixed(random, -0.02, 0.02), mixed(random, -1e-4, 1e-4), mixed(random, -2e-3, 2e-3)};
}

PlaneMotion turn_about(const Vec3& pivot, double angle, double scale, const Vec3& translation) {
  const double s = std::sin(angle);
  const double c = std::cos(angle);
  return {{translation[0], translation[1], translation[2]},
          scale,
          {c, 0.0, -s, 0.0, 1.0, 0.0, s, 0.0, c},
          {pivot[0], pivot[1], pivot[2]}};
}

PlaneMotion sane_motion(Random& random) {
  return turn_about({random.uniform(50, 150), random.uniform(-20, 20), random.uniform(-50, 50)},
                    random.uniform(-0.05, 0.05), random.uniform(0.98, 1.02),
                    {random.uniform(50, 150), random.uniform(-20, 20), random.uniform(-50, 50)});
}

PlaneMotion mixed_motion(Random& random) {
  return turn_about({mixed(random, 50, 150), mixed(random, -20, 20), mixed(random, -50, 50)},
                    mixed(random, -3.0, 3.0), mixed(random, 0.5, 1.5),
                    {mixed(random, 50, 150), mixed(random, -20, 20), mixed(random, -50, 50)});
}

Vec3 by_literal(const PlaneMotion& m, Vec3 cell) {
  const Vec3 T = {m.translation[0], m.translation[1], m.translation[2]};
  literal::PlaneTurn turn;
  for (std::size_t i = 0; i < 3; ++i) {
    turn.pivot[i] = m.pivot[i];
    for (std::size_t j = 0; j < 3; ++j) turn.R[i][j] = m.rotation[3 * i + j];
  }
  literal::compensate_cell(T, m.scale, turn, cell);
  return cell;
}

std::vector<Vec3> by_line_form(const PlaneMotion& m, std::vector<Vec3> cells, VectorSet set) {
  static_assert(sizeof(Vec3) == 3 * sizeof(double));
  kestrane::compensate_line(m, reinterpret_cast<double*>(cells.data()),
                            static_cast<std::int32_t>(cells.size()), set);
  return cells;
}

// A line of one cell.
Vec3 by_kernel(const PlaneMotion& m, const Vec3& cell) {
  return by_line_form(m, {cell}, kestrane::best_vector_set())[0];
}

testing::AssertionResult same_cell(const Vec3& got, const Vec3& expected) {
  for (std::size_t i = 0; i < 3; ++i) {
    if (same_bits(got[i], expected[i])) continue;
    return testing::AssertionFailure() << std::hexfloat << "component " << i << " is " << got[i]
                                       << " instead of " << expected[i];
  }
  return testing::AssertionSuccess();
}

// All vector sets against the literal form.
void expect_all_forms_agree(const PlaneMotion& motion, const std::vector<Vec3>& cells) {
  std::vector<Vec3> expected;
  for (const Vec3& cell : cells) {
    expected.push_back(by_literal(motion, cell));
  }
  for (const VectorSet set : usable_sets()) {
    const std::vector<Vec3> moved = by_line_form(motion, cells, set);
    for (std::size_t i = 0; i < cells.size(); ++i) {
      ASSERT_TRUE(same_cell(moved[i], expected[i]))
          << "cell " << i << " of " << cells.size() << ", vector set " << static_cast<int>(set);
    }
  }
}

TEST(CompensateCell, ScalesAPlaneAcrossTheTranslation) {
  const PlaneMotion motion = turn_about({101.0, 0.0, 0.0}, 0.0, 1.01, {100.0, 0.0, 0.0});
  const Vec3 cell = by_kernel(motion, {-0.01, 0.0, 0.0});
  EXPECT_DOUBLE_EQ(cell[0], -1.0 / 101.0);
  EXPECT_EQ(cell[1], 0.0);
  EXPECT_EQ(cell[2], 0.0);
}

TEST(CompensateCell, TurnsAPlaneAboutThePivot) {
  const PlaneMotion motion = turn_about({101.0, 0.0, 0.0}, 0.01, 1.01, {100.0, 0.0, 0.0});
  const Vec3 cell = by_kernel(motion, {-0.01, 0.0, 0.0});
  EXPECT_DOUBLE_EQ(cell[0], -1.0 / 101.0);
  EXPECT_EQ(cell[1], 0.0);
  // The reference point carries rounding of 1e-16 times its size into a value of 1e-4.
  constexpr double kRounding = 1e-16;
  EXPECT_NEAR(cell[2], -std::tan(0.01) / 101.0, kRounding);
}

TEST(CompensateCell, KeepsThePivotOnAPlaneThatHeldIt) {
  Random random(11);
  constexpr double kRounding = 1e-12;  // of sums of size 1 with terms of size 10
  for (int i = 0; i < 1000; ++i) {
    const Vec3 plane = sane_cell(random);
    PlaneMotion motion = sane_motion(random);
    Vec3 scaled = plane;
    kestrane::correct_plane(motion.translation, motion.scale, scaled.data());
    kestrane::point_along(motion.translation, scaled.data(), motion.pivot);
    const Vec3 moved = by_kernel(motion, plane);
    const double residual =
        moved[0] * motion.pivot[0] + moved[1] * motion.pivot[1] + moved[2] * motion.pivot[2] + 1.0;
    EXPECT_NEAR(residual, 0.0, kRounding);
  }
}

TEST(CompensateCell, LeavesAnEmptyCellAsItIsBitForBit) {
  Random random(12);
  const PlaneMotion motion = sane_motion(random);
  const double payload = std::bit_cast<double>(0xfff4000000001234u);  // a signalling NaN
  for (const double a : {0.0, -0.0}) {
    const std::vector<Vec3> cells(13, Vec3{a, payload, -kInf});
    for (const VectorSet set : usable_sets()) {
      for (const Vec3& cell : by_line_form(motion, cells, set)) {
        EXPECT_EQ(bits_of(cell[0]), bits_of(a));
        EXPECT_EQ(bits_of(cell[1]), bits_of(payload));
        EXPECT_EQ(bits_of(cell[2]), bits_of(-kInf));
      }
    }
  }
}

TEST(CompensateCell, WorksOnACellWhoseFirstComponentIsNotANumber) {
  Random random(13);
  const PlaneMotion motion = sane_motion(random);
  const std::vector<Vec3> cells(9, Vec3{kNaN, 1e-5, 1e-3});
  for (const VectorSet set : usable_sets()) {
    for (const Vec3& cell : by_line_form(motion, cells, set)) {
      for (const double component : cell) EXPECT_TRUE(std::isnan(component));
    }
  }
}

// With a = 1e-31 the reference point is (0, 0, 100), and with the plane's c of -0.01 it lies on
// the plane: a turn about the origin keeps the plane's distance.
TEST(CompensateCell, TakesTheAxisPointAsReferenceOfACellNearlyWithoutA) {
  const PlaneMotion motion = turn_about({0.0, 0.0, 0.0}, 0.25, 1.0, {0.0, 0.0, 10.0});
  const std::vector<Vec3> cells(9, Vec3{1e-31, 0.0, -0.01});
  for (const VectorSet set : usable_sets()) {
    for (const Vec3& cell : by_line_form(motion, cells, set)) {
      EXPECT_DOUBLE_EQ(cell[0], 0.01 * std::sin(0.25));
      EXPECT_EQ(cell[1], 0.0);
      EXPECT_DOUBLE_EQ(cell[2], -0.01 * std::cos(0.25));
    }
  }
}

TEST(CompensateCell, UsesTheReferencePointOnThePlaneJustAboveTheGuard) {
  const PlaneMotion motion = turn_about({0.0, 0.0, 0.0}, 0.0, 0.0, {1.0, 0.0, 0.0});
  // A scale of 0 leaves the cell alone, so its a reaches the guard as it is.
  for (const double a : {1e-30, std::nextafter(1e-30, 0.0), -1e-30}) {
    EXPECT_EQ(by_kernel(motion, {a, 0.0, 0.5})[2], 0.5 * (1.0 / -50.0)) << a;
  }
  // Here x is -51 / a, the plane's own point, and the form is as it was.
  for (const double a : {std::nextafter(1e-30, 1.0), -std::nextafter(1e-30, 1.0)}) {
    EXPECT_DOUBLE_EQ(by_kernel(motion, {a, 0.0, 0.5})[2], 0.5) << a;
  }
}

TEST(CompensateCell, DividesByAPositiveGuardWhereTheTurnedPlaneHoldsTheOrigin) {
  const PlaneMotion motion = turn_about({0.0, 0.0, 0.0}, 0.0, 0.0, {1.0, 0.0, 0.0});
  // Offsets of 0, -1e-31 and 1e-31 at the reference point (0, 0, 100).
  for (const double c : {0.0, 1e-33, -1e-33}) {
    const std::vector<Vec3> cells(9, Vec3{1e-31, 0.0, c});
    for (const VectorSet set : usable_sets()) {
      for (const Vec3& cell : by_line_form(motion, cells, set)) {
        EXPECT_EQ(cell[0], 1e-31 * (1.0 / 1e-30));
        EXPECT_EQ(cell[2], c * (1.0 / 1e-30));
      }
    }
  }
}

TEST(CorrectPlane, LeavesAPlaneWhoseScaledOffsetIsBelowTheGuard) {
  const double T[3] = {100.0, 0.0, 0.0};
  for (const double scale : {0.0, -0.0, 1e-31, -1e-31}) {
    Vec3 plane = {-0.01, 1e-5, 1e-3};
    kestrane::correct_plane(T, scale, plane.data());
    EXPECT_EQ(plane, (Vec3{-0.01, 1e-5, 1e-3})) << scale;
  }
  Vec3 plane = {-0.01, 0.0, 0.0};
  kestrane::correct_plane(T, 1e-29, plane.data());
  EXPECT_NEAR(plane[0], -1e27, 1e15);  // relative rounding of 1e-12, the offset being 1e-29
}

TEST(CorrectPlane, GivesWhatIsNotANumberWithoutATranslation) {
  const double T[3] = {0.0, 0.0, 0.0};
  Vec3 plane = {-0.01, 1e-5, 1e-3};
  kestrane::correct_plane(T, 1.0, plane.data());
  for (const double component : plane) EXPECT_TRUE(std::isnan(component));
}

TEST(CorrectPlane, EqualsTheTranscriptionInEveryBit) {
  Random random(14);
  for (int i = 0; i < 20000; ++i) {
    const PlaneMotion m = i % 2 == 0 ? sane_motion(random) : mixed_motion(random);
    const Vec3 T = {m.translation[0], m.translation[1], m.translation[2]};
    Vec3 plane = i % 2 == 0 ? sane_cell(random) : mixed_cell(random);
    Vec3 expected = plane;
    literal::correct_plane(T, m.scale, expected);
    kestrane::correct_plane(m.translation, m.scale, plane.data());
    ASSERT_TRUE(same_cell(plane, expected));
    Vec3 point;
    kestrane::point_along(m.translation, plane.data(), point.data());
    ASSERT_TRUE(same_cell(point, literal::point_on_plane(T, plane)));
  }
}

TEST(CompensateLine, EqualsTheTranscriptionInEveryBitOnCellsOfAScanner) {
  Random random(15);
  for (int i = 0; i < 400; ++i) {
    std::vector<Vec3> cells(50);
    for (Vec3& cell : cells) cell = sane_cell(random);
    expect_all_forms_agree(sane_motion(random), cells);
  }
}

TEST(CompensateLine, EqualsTheTranscriptionInEveryBitOnAwkwardCells) {
  Random random(16);
  for (int i = 0; i < 2000; ++i) {
    std::vector<Vec3> cells(50);
    for (Vec3& cell : cells) cell = mixed_cell(random);
    expect_all_forms_agree(i % 2 == 0 ? sane_motion(random) : mixed_motion(random), cells);
  }
}

TEST(CompensateLine, EqualsTheTranscriptionInEveryBitOnArbitraryBits) {
  Random random(17);
  for (int i = 0; i < 500; ++i) {
    std::vector<Vec3> cells(50);
    for (Vec3& cell : cells) cell = {any_bits(random), any_bits(random), any_bits(random)};
    expect_all_forms_agree(i % 2 == 0 ? sane_motion(random) : mixed_motion(random), cells);
  }
}

// A turn about y has zeros that hide the order of most sums; here no entry is zero.
TEST(CompensateLine, EqualsTheTranscriptionInEveryBitForAnyMatrix) {
  Random random(21);
  for (int i = 0; i < 400; ++i) {
    PlaneMotion motion = sane_motion(random);
    for (double& entry : motion.rotation) entry = random.uniform(-1.0, 1.0);
    std::vector<Vec3> cells(50);
    for (Vec3& cell : cells) cell = sane_cell(random);
    expect_all_forms_agree(motion, cells);
  }
}

// What is left of a line after its full vectors is worked on by other instructions.
TEST(CompensateLine, EqualsTheTranscriptionInEveryBitForEveryCountAndAnyMatrix) {
  Random random(22);
  for (std::size_t count = 1; count <= 140; ++count) {
    for (int i = 0; i < 12; ++i) {
      PlaneMotion motion = i % 3 == 2 ? mixed_motion(random) : sane_motion(random);
      if (i % 3 != 2) {
        for (double& entry : motion.rotation) entry = random.uniform(-1.0, 1.0);
      }
      std::vector<Vec3> cells(count);
      for (Vec3& cell : cells) cell = i % 3 == 0 ? sane_cell(random) : mixed_cell(random);
      expect_all_forms_agree(motion, cells);
    }
  }
}

TEST(CompensateLine, EqualsTheTranscriptionForEachPairOfAwkwardComponents) {
  Random random(18);
  const PlaneMotion motions[] = {sane_motion(random),
                                 turn_about({0.0, 0.0, 0.0}, 0.0, 0.0, {1.0, 0.0, 0.0}),
                                 turn_about({0.0, 0.0, 0.0}, 0.0, 1.0, {1.0, -0.0, 0.0})};
  for (const PlaneMotion& motion : motions) {
    std::vector<Vec3> cells;
    for (const double a : kAwkward) {
      for (const double c : kAwkward) {
        cells.push_back({a, 0.0, c});
        cells.push_back({a, c, 1e-3});
      }
    }
    expect_all_forms_agree(motion, cells);
  }
}

TEST(CompensateLine, WorksOnEveryCountAndLeavesTheCellsAfterItAlone) {
  Random random(19);
  const PlaneMotion motion = sane_motion(random);
  for (std::int32_t count = -2; count <= 200; ++count) {
    std::vector<Vec3> cells(210);
    for (Vec3& cell : cells) cell = sane_cell(random);
    for (const VectorSet set : usable_sets()) {
      std::vector<Vec3> moved = cells;
      kestrane::compensate_line(motion, reinterpret_cast<double*>(moved.data()), count, set);
      for (std::int32_t i = 0; i < 210; ++i) {
        const auto at = static_cast<std::size_t>(i);
        const Vec3 expected = i < count ? by_literal(motion, cells[at]) : cells[at];
        ASSERT_TRUE(same_cell(moved[at], expected)) << "cell " << i << " of " << count;
      }
    }
  }
}

TEST(CompensateLine, ServesALineThatHasNoMemory) {
  Random random(20);
  kestrane::compensate_line(sane_motion(random), nullptr, 0);
}

TEST(CompensateLine, ChoosesTheBestSetOfTheProcessor) {
#if defined(__GNUC__) && defined(__x86_64__)
  const VectorSet expected = __builtin_cpu_supports("avx512f") ? VectorSet::kAvx512
                             : __builtin_cpu_supports("avx2")  ? VectorSet::kAvx2
                                                               : VectorSet::kBaseline;
  EXPECT_EQ(kestrane::best_vector_set(), expected);
#else
  EXPECT_EQ(kestrane::best_vector_set(), VectorSet::kBaseline);
#endif
}

// All bodies give the same bits, so only their addresses tell that a processor gets its own.
TEST(CompensateLine, HasABodyOfItsOwnForEachSet) {
#if defined(__GNUC__) && defined(__x86_64__)
  EXPECT_NE(kestrane::line_form(VectorSet::kBaseline), kestrane::line_form(VectorSet::kAvx2));
  EXPECT_NE(kestrane::line_form(VectorSet::kBaseline), kestrane::line_form(VectorSet::kAvx512));
  EXPECT_NE(kestrane::line_form(VectorSet::kAvx2), kestrane::line_form(VectorSet::kAvx512));
#else
  EXPECT_EQ(kestrane::line_form(VectorSet::kBaseline), kestrane::line_form(VectorSet::kAvx2));
#endif
}

}  // namespace
