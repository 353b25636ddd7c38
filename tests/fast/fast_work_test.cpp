// Work that is done once where once is enough, counted at the linker, whose option --wrap leads the
// library's calls to the functions below. A program of its own.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <vector>

#include "fast/frame_filter.h"
#include "fast/motion_cost.h"
#include "fast/plane_cell.h"
#include "fast/residual_measurement.h"
#include "fast/row_folding.h"
#include "tests/fast/fast_support.h"

namespace {

constexpr std::size_t kLargeBlock = 800;  // larger than what is kept for a cell or a frame

struct Work {
  int moved_planes = 0;
  int unit_planes = 0;
  int folds = 0;
  int logarithms = 0;
  std::array<std::size_t, 64> large_blocks{};
  std::size_t large_block_count = 0;
};

bool counting = false;
Work work;

}  // namespace

// The linker's names for what the library calls.
extern "C" {

void __real__ZN8kestrane15transform_planeEPKdPdRK20_MRV_EXTRINSIC_PARAMRd(
    const double* coeffs, double* moved_coeffs, const _MRV_EXTRINSIC_PARAM& extrinsic, double& d);
void __wrap__ZN8kestrane15transform_planeEPKdPdRK20_MRV_EXTRINSIC_PARAMRd(
    const double* coeffs, double* moved_coeffs, const _MRV_EXTRINSIC_PARAM& extrinsic, double& d) {
  ++work.moved_planes;
  __real__ZN8kestrane15transform_planeEPKdPdRK20_MRV_EXTRINSIC_PARAMRd(coeffs, moved_coeffs,
                                                                       extrinsic, d);
}

void __real__ZN8kestrane10unit_planeEPKdPdS2_(const double* coeffs, double* unit_normal,
                                              double* plane_point);
void __wrap__ZN8kestrane10unit_planeEPKdPdS2_(const double* coeffs, double* unit_normal,
                                              double* plane_point) {
  ++work.unit_planes;
  __real__ZN8kestrane10unit_planeEPKdPdS2_(coeffs, unit_normal, plane_point);
}

void __real__ZN8kestrane9fold_rowsERNS_8RowChunkEiRNS_11RowTriangleE(
    kestrane::RowChunk& chunk, int rows, kestrane::RowTriangle& triangle);
void __wrap__ZN8kestrane9fold_rowsERNS_8RowChunkEiRNS_11RowTriangleE(
    kestrane::RowChunk& chunk, int rows, kestrane::RowTriangle& triangle) {
  ++work.folds;
  __real__ZN8kestrane9fold_rowsERNS_8RowChunkEiRNS_11RowTriangleE(chunk, rows, triangle);
}

double __real_log(double x);
double __wrap_log(double x) {
  ++work.logarithms;
  return __real_log(x);
}

void* __real__Znwm(std::size_t size);
void* __wrap__Znwm(std::size_t size) {
  if (counting && size >= kLargeBlock) work.large_blocks.at(work.large_block_count++) = size;
  return __real__Znwm(size);
}

}  // extern "C"

namespace {

using namespace fast_support;
using kestrane::MotionCost;

// What is done between its construction and a look at it.
class Count {
 public:
  Count() {
    work = {};
    counting = true;
  }
  ~Count() { counting = false; }
  Count(const Count&) = delete;
  Count& operator=(const Count&) = delete;

  const Work& operator*() const { return work; }
  const Work* operator->() const { return &work; }
  std::vector<std::size_t> large_blocks() const {
    return {work.large_blocks.begin(), work.large_blocks.begin() + work.large_block_count};
  }
};

// Points in turn in two cells of line 7.
PlanePoints in_two_cells(int count) {
  PlanePoints points(3, count);
  for (int j = 0; j < count; ++j) points.col(j) << 128.0 + j % 3, 0.0, j % 4 < 2 ? 300.0 : 700.0;
  return points;
}

List list_of(const PlanePoints& points) {
  List list;
  for (Eigen::Index j = 0; j < points.cols(); ++j) {
    list.push_back({points(0, j), points(1, j), points(2, j), static_cast<std::int32_t>(j / 10)});
  }
  return list;
}

TEST(ResidualWork, MovesEachCellOnceForAllOfItsPoints) {
  const fast_scene::Standard standard = flat_standard(2);
  const PointSets points(2, in_two_cells(100));
  const _MRV_EXTRINSIC_PARAM still = {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 0, 0}};
  ResidualSets residuals(2);
  const Count count;
  kestrane::measure_residuals(points, standard.table(), 0, still, residuals);
  EXPECT_EQ(count->moved_planes, 4) << "two cells of either plane";
}

TEST(ResidualWork, TakesRoomForAllDistancesAtOnce) {
  const fast_scene::Standard standard = flat_standard(3);
  const PointSets points = {in_two_cells(101), in_two_cells(202), in_two_cells(303)};
  const _MRV_EXTRINSIC_PARAM still = {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 0, 0}};
  ResidualSets residuals(3, std::vector<double>(303));
  const Count count;
  kestrane::measure_residuals(points, standard.table(), 0, still, residuals);
  EXPECT_EQ(count.large_blocks(), (std::vector<std::size_t>{606 * sizeof(double)}));
}

TEST(FilterWork, MovesEachCellOnceForAllOfItsPoints) {
  const fast_scene::Standard standard = flat_standard(2);
  const FrameLists frames(2, list_of(in_two_cells(100)));
  FrameLists filtered;
  const Count count;
  kestrane::filter_frames(frames, standard.table(), 0, filtered);
  EXPECT_EQ(count->moved_planes, 4) << "two cells of either plane";
}

TEST(FilterWork, SortsNoFramesThatComeInOrder) {
  const fast_scene::Standard standard = flat_standard(1);
  FrameLists frames(1, list_of(in_two_cells(1000)));
  const std::size_t copy = frames[0].size() * 2 * sizeof(std::uint32_t);
  for (const bool in_order : {true, false}) {
    if (!in_order) std::swap(frames[0].front(), frames[0].back());
    FrameLists filtered;
    const Count count;
    kestrane::filter_frames(frames, standard.table(), 0, filtered);
    const std::vector<std::size_t> blocks = count.large_blocks();
    EXPECT_EQ(std::count(blocks.begin(), blocks.end(), copy), in_order ? 0 : 1);
  }
}

TEST(MotionWork, TakesTheCellsOfItsPointsAlone) {
  const fast_scene::Standard standard = flat_standard(2);
  const Count count;
  const MotionCost cost({in_two_cells(100), in_two_cells(40)}, standard.table(), 0);
  EXPECT_EQ(count->unit_planes, 4) << "two cells of either plane";
}

TEST(MotionWork, TakesRoomForAllPointsAtOnce) {
  const fast_scene::Standard standard = flat_standard(3);
  const PointSets points = {in_two_cells(202), in_two_cells(404), in_two_cells(605)};
  const Count count;
  const MotionCost cost(points, standard.table(), 0);
  EXPECT_EQ(count.large_blocks(), std::vector<std::size_t>(3, 606 * sizeof(double)))
      << "every second point's x, y and z";
}

// The solver asks for the cost at a motion, and for the derivatives there if it takes that step.
TEST(MotionWork, WorksOutNothingTwiceAtOneMotion) {
  const fast_scene::Standard standard = flat_standard(1);
  const MotionCost cost({in_two_cells(100)}, standard.table(), 0);
  const double rotation[3] = {0.01, 0.02, 0.03};
  const double translation[3] = {0.1, 0.2, 0.3};
  const double* at[2] = {rotation, translation};
  double residuals[7], by_rotation[21], by_translation[21];
  double* jacobians[2] = {by_rotation, by_translation};
  const auto work_of = [&](double** derivatives) {
    const Count count;
    EXPECT_TRUE(cost.Evaluate(at, residuals, derivatives));
    return std::array{count->logarithms, count->folds};
  };
  EXPECT_EQ(work_of(nullptr), (std::array{16, 0}));
  EXPECT_EQ(work_of(nullptr), (std::array{0, 0}));
  EXPECT_EQ(work_of(jacobians), (std::array{16, 1}));
  EXPECT_EQ(work_of(jacobians), (std::array{0, 0}));
  EXPECT_EQ(work_of(nullptr), (std::array{0, 0}));
}

}  // namespace
