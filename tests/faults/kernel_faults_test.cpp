// The fit kernels without one of their allocations, and the operations that make none.
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "fit/coefficients/coefficient_calibration.h"
#include "fit/laser_geometry_fitter.h"
#include "fit/plane_fit.h"
#include "kestrane/compensator.h"
#include "kestrane/fast_calib.h"
#include "kestrane/files.h"
#include "tests/faults/every_cut.h"
#include "tests/files/records_under_test.h"
#include "tests/fit/plane_clouds.h"
#include "tests/support/fast_scene.h"

namespace {

using namespace kestrane;
using faults::expect_every_cut_leaves_nothing_behind;
using faults::Outcome;

constexpr DepthBand kBand{100, 1000};

PointMatrix3 cloud(Eigen::Index count) {
  simulation::Random random(5);
  return plane_clouds::sheet_cloud(random, count, {.noise = 0.05, .outliers = 0.02});
}

void append(Outcome& outcome, const PointMatrix3& points) {
  faults::append(outcome, points.data(), static_cast<std::size_t>(points.size()));
}

// --- Planes -------------------------------------------------------------------------------------

template <Eigen::Index kRows>
struct PlaneFit {
  static constexpr long kStays = 0;
  const PointMatrix3 points = cloud(kRows);
  PlaneAbcd plane = PlaneAbcd::Zero();
  PlaneFitStats stats{};

  void operate() { fit_plane_svd(points, plane, stats); }
  Outcome outcome() const {
    Outcome numbers = {stats.max_distance, stats.mean_distance, stats.std_distance};
    faults::append(numbers, plane.data(), 4);
    return numbers;
  }
};

template <Eigen::Index kRows, std::int32_t kMode>
struct RobustFit {
  static constexpr long kStays = 0;
  const PointMatrix3 points = cloud(kRows);
  PointMatrix3 inliers = PointMatrix3::Constant(2, 3, 7.0);
  PlaneAbcd plane = PlaneAbcd::Zero();
  PlaneFitStats stats{};

  void operate() {
    const LaserGeometryFitter fitter;
    fitter.fit_plane_robust(points, plane, stats, inliers, kBand, kMode);
  }
  Outcome outcome() const {
    Outcome numbers = {stats.max_distance, stats.mean_distance, stats.std_distance};
    faults::append(numbers, plane.data(), 4);
    append(numbers, inliers);
    return numbers;
  }
};

struct SignedDistances {
  static constexpr long kStays = 0;
  const PointMatrix3 points = cloud(50);
  std::vector<double> distances;

  void operate() { plane_signed_distances(points, {1.0, 0.0, 0.0, -120.0}, distances); }
  Outcome outcome() const { return distances; }
};

struct Rejections {
  static constexpr long kStays = 0;
  const PointMatrix3 points = cloud(50);
  const std::vector<double> distances = std::vector<double>(50, 0.25);
  PointMatrix3 near;
  PointMatrix3 within;

  void operate() {
    filter_by_distance(points, distances, 0.5, near);
    filter_by_sigma(points, distances, 2.0, within);
  }
  Outcome outcome() const {
    Outcome numbers;
    append(numbers, near);
    append(numbers, within);
    return numbers;
  }
};

TEST(PlaneFaults, LeaveNothingBehind) {
  EXPECT_EQ((expect_every_cut_leaves_nothing_behind<PlaneFit<8>>()), 0);
  EXPECT_GT((expect_every_cut_leaves_nothing_behind<PlaneFit<200>>()), 0);
  EXPECT_GT((expect_every_cut_leaves_nothing_behind<RobustFit<40, 0>>()), 0);
  EXPECT_GT((expect_every_cut_leaves_nothing_behind<RobustFit<400, 0>>()), 0);
  EXPECT_GT((expect_every_cut_leaves_nothing_behind<RobustFit<400, 1>>()), 0);
  EXPECT_GT((expect_every_cut_leaves_nothing_behind<RobustFit<400, 2>>()), 0);
}

TEST(DistanceFaults, LeaveNothingBehind) {
  EXPECT_EQ((expect_every_cut_leaves_nothing_behind<SignedDistances>()), 1);
  EXPECT_EQ((expect_every_cut_leaves_nothing_behind<Rejections>()), 2);
}

// --- Lines --------------------------------------------------------------------------------------

template <bool kConsensus, Eigen::Index kRows = 40>
struct LineFit {
  static constexpr long kStays = 0;
  PointMatrix2 points = PointMatrix2(kRows, 2);
  LineAbc line = LineAbc::Zero();
  double mean_distance = -1.0;

  LineFit() {
    for (Eigen::Index i = 0; i < kRows; ++i) {
      const double x = static_cast<double>(i);
      points.row(i) << x, (i % 9 == 0 ? 40.0 : 0.5 * x);
    }
  }

  void operate() {
    LaserGeometryFitter fitter;
    fitter.set_params(kConsensus, 50, 0.25, 0.5);
    fitter.fit_line(points, line, mean_distance);
  }
  Outcome outcome() const { return {line[0], line[1], line[2], mean_distance}; }
};

TEST(LineFaults, LeaveNothingBehind) {
  EXPECT_GT((expect_every_cut_leaves_nothing_behind<LineFit<false>>()), 0);
  EXPECT_GT((expect_every_cut_leaves_nothing_behind<LineFit<true>>()),
            (expect_every_cut_leaves_nothing_behind<LineFit<false>>()));
}

// --- Coefficients -------------------------------------------------------------------------------

// Two planes with four measured blocks; the engine's operation and the routine that it calls.
struct CoefficientCalibration {
  static constexpr long kStays = 0;
  LASER_PLANE_INDICATOR_MANAGER indicators;
  LASER_PLANE_GRID_CORNERS_MANAGER corners;
  Coefficients source{2, 2, 1};
  Coefficients result{2, 2, 2};
  KestraneLaserFastCalibrator engine;

  CoefficientCalibration() {
    EXPECT_EQ(indicators.init(2), KESTRANE_OK);
    EXPECT_EQ(corners.init(2), KESTRANE_OK);
    for (int p = 0; p < 2; ++p) {
      for (const int j : {3, 8}) {
        indicators.planes[p].lines[j].cells[5].v[1] = 0.25;
        corners.planes[p].lines[j].cells[5].v[0] = 5.0;
        source->opt_coeffs->planes[p].lines[j].cells[5] = {{-0.02, 2.0, -10.0}};
      }
    }
  }

  void operate() { EXPECT_EQ(engine.calib(indicators, corners, 24.0, *source, *result), 0); }
  Outcome outcome() const {
    const std::string bytes = result.all_bytes();
    return Outcome(bytes.begin(), bytes.end());
  }
};

TEST(CoefficientFaults, LeaveNothingBehind) {
  EXPECT_GT(expect_every_cut_leaves_nothing_behind<CoefficientCalibration>(), 2);
}

// --- Operations that allocate nothing -----------------------------------------------------------

// The host's form over a table's rows.
fast_scene::Standard small_standard() {
  fast_scene::Standard standard(2);
  for (int p = 0; p < 2; ++p) standard.fill(p, {{-0.008, 1e-5, 2e-5}});
  return standard;
}

struct Compensation {
  fast_scene::Standard table = small_standard();
  _MRV_LASER_PLANE_BLOCK_INFOS host = table.host();
  KESTRANE_LASER_COMPENSATOR compensator;

  Compensation() { EXPECT_EQ(compensator.init(), KESTRANE_OK); }

  void operate() {
    compensator.set_laser_plane_param(host);
    compensator.set_extrinsic_matrix({{1, 0, 0, 0, 1, 0, 0, 0, 1}, {120, 0, 0}});
    compensator.set_compensate_param({30, 20, 0.1, 0, 1, 1e-4, 1e-4, 1e-5}, 0, 2);
    compensator.compensate(0, 2);
    compensator.get_compensate_result(host);
  }
};

struct StoringAStandard {
  fast_scene::Standard table = small_standard();
  KESTRANE_LASER_FAST_CALIB calib;

  StoringAStandard() { EXPECT_EQ(calib.init(), KESTRANE_OK); }

  void operate() {
    calib.set_laser_plane_standard(table.host());
    _MRV_TRANSFORM transform{};
    double figures[3];
    calib.get_transform_param(transform);
    calib.get_calib_indicator(figures[0], figures[1], figures[2]);
  }
};

// Files work through windows inside the call's own frame.
struct Files {
  Coefficients coefficients{2, 2, 1};
  LASER_PLANE_BLOCK_INFOS_GROUP blocks;
  const std::string folder = testing::TempDir();
  const std::string coefficient_path = folder + "kestrane_faults_coefficients.bin";
  const std::string block_path = folder + "kestrane_faults_blocks.txt";

  Files() { EXPECT_EQ(blocks.init(2), KESTRANE_OK); }
  ~Files() {
    std::filesystem::remove(coefficient_path);
    std::filesystem::remove(block_path);
  }

  void operate() {
    EXPECT_EQ(save_compensator_coeffs(*coefficients, coefficient_path), KESTRANE_OK);
    EXPECT_EQ(read_compensator_coeffs(coefficient_path, *coefficients), KESTRANE_OK);
    EXPECT_EQ(save_plane_block_infos(blocks, block_path), KESTRANE_OK);
    EXPECT_EQ(read_plane_block_infos(block_path, blocks), KESTRANE_OK);
  }
};

TEST(NoAllocation, IsMadeByACompensationAfterInit) { faults::expect_no_allocation<Compensation>(); }

TEST(NoAllocation, IsMadeByTheCopyOfAStandardAndTheGetters) {
  faults::expect_no_allocation<StoringAStandard>();
}

TEST(NoAllocation, IsMadeByTheFileFunctions) { faults::expect_no_allocation<Files>(); }

}  // namespace
