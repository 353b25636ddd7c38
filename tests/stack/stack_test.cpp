// All jobs in a thread of 128 KiB, and how much of it each one needs. A job's object and its data
// belong to the host and lie elsewhere here; what counts is what the library's operations take.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

#include "kestrane/buffers.h"
#include "kestrane/compensator.h"
#include "kestrane/factory_calib.h"
#include "kestrane/fast_calib.h"
#include "kestrane/files.h"
#include "simulation/host_table.h"
#include "simulation/scanner.h"
#include "tests/files/temporary_folder.h"
#include "tests/stack/painted_stack.h"
#include "tests/support/fast_scene.h"

namespace {

using namespace kestrane;
using painted_stack::used_by;

constexpr std::size_t kKiB = 1024;
constexpr std::size_t kThread = 128 * kKiB;

// Sanitizers widen every frame.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t kWidening = 16;
#else
constexpr std::size_t kWidening = 1;
#endif

// Runs the operation in a small thread; `limit` is what the documents say that it needs.
void expect_stack(const char* operation, std::size_t limit, const std::function<void()>& run) {
  run();  // whatever happens only once per process, such as the binding of symbols
  const std::size_t used = used_by(kThread * kWidening, run);
  std::printf("%-28s %6zu bytes of stack\n", operation, used);
  testing::Test::RecordProperty(operation, static_cast<int>(used));
  EXPECT_LE(used, limit * kWidening) << operation;
}

// --- The measure itself -------------------------------------------------------------------------

void touch(std::size_t bytes) {
  volatile char* const room = static_cast<char*>(__builtin_alloca(bytes));
  for (std::size_t i = 0; i < bytes; i += 64) room[i] = 1;
}

TEST(PaintedStack, SeesWhatAJobTouches) {
  constexpr std::size_t kFrames = kKiB;  // of the calls around it
  for (const std::size_t bytes : {std::size_t{8000}, std::size_t{40000}}) {
    const std::size_t used = used_by(kThread * kWidening, [&] { touch(bytes); });
    EXPECT_GE(used, bytes - 64);
    EXPECT_LE(used, (bytes + kFrames) * kWidening);
  }
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(PaintedStackDeathTest, EndsTheProcessBeyondTheStack) {
  EXPECT_EXIT(used_by(kThread, [] { touch(kThread); }), testing::KilledBySignal(SIGSEGV), "");
}
#endif

// --- Factory ------------------------------------------------------------------------------------

simulation::Cloud factory_cloud() {
  simulation::CloudSettings settings;
  settings.points = 20000;
  settings.outlier_share = 0.01;
  return simulation::measure(simulation::make_device({.planes = 1})[0], settings);
}

class FactoryStack : public testing::TestWithParam<_KESTRANE_OPTIM_FLAG> {};

TEST_P(FactoryStack, IsSmall) {
  simulation::Cloud cloud = factory_cloud();
  KESTRANE_LASER_FAC_CALIB calibrator;
  LASER_PLANE_INDICATOR_MANAGER indicators;
  LASER_PLANE_GRID_CORNERS_MANAGER corners;
  ASSERT_EQ(indicators.init(1), KESTRANE_OK);
  ASSERT_EQ(corners.init(1), KESTRANE_OK);
  simulation::HostTable table(1);
  ASSERT_EQ(calibrator.set_optimize_flag(GetParam()), KESTRANE_OK);
  expect_stack("init", 8 * kKiB, [&] { EXPECT_EQ(calibrator.init(), KESTRANE_OK); });
  expect_stack(
      GetParam() == KESTRANE_OPTIM_ON ? "factory_calib, optimised" : "factory_calib", 32 * kKiB,
      [&] { EXPECT_EQ(calibrator.factory_calib(0, simulation::record_of(cloud)), KESTRANE_OK); });
  expect_stack("get_indicators", 8 * kKiB,
               [&] { EXPECT_EQ(calibrator.get_indicators(0, indicators, corners), KESTRANE_OK); });
  expect_stack("get_laser_plane_infos", 8 * kKiB,
               [&] { EXPECT_EQ(calibrator.get_laser_plane_infos(table.infos()), KESTRANE_OK); });
}

INSTANTIATE_TEST_SUITE_P(BothRuns, FactoryStack,
                         testing::Values(KESTRANE_OPTIM_OFF, KESTRANE_OPTIM_ON),
                         [](const auto& run) {
                           return run.param == KESTRANE_OPTIM_ON ? "Optimised" : "Plain";
                         });

// --- Field --------------------------------------------------------------------------------------

constexpr int kPlanes = 8;

struct Field {
  Field()
      : sheets(simulation::make_device({.planes = kPlanes})),
        standard(sheets),
        lists(fast_scene::measure_all(
            sheets, simulation::rigid_motion({1e-3, 2e-3, -1e-3}, {0.4, 0.2, -0.3}), settings())) {}

  static simulation::CloudSettings settings() {
    simulation::CloudSettings settings = simulation::field_cloud_settings();
    settings.points = 1000;
    return settings;
  }

  std::vector<simulation::Sheet> sheets;
  fast_scene::Standard standard;
  std::vector<std::vector<_KESTRANE_ID_POINT3D>> lists;
};

// Keeps the lines that a calibration prints off the test's own output.
class Silence {
 public:
  Silence() : before_(std::cout.rdbuf(nullptr)) {}
  ~Silence() { std::cout.rdbuf(before_); }
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;

 private:
  std::streambuf* before_;
};

TEST(FieldStack, IsSmall) {
  Field field;
  KESTRANE_LASER_FAST_CALIB calibrator;
  expect_stack("init", 8 * kKiB, [&] { EXPECT_EQ(calibrator.init(), KESTRANE_OK); });
  expect_stack("set_laser_plane_standard", 8 * kKiB, [&] {
    EXPECT_EQ(calibrator.set_laser_plane_standard(field.standard.host()), KESTRANE_OK);
  });
  expect_stack("fast_calib", 64 * kKiB, [&] {
    const Silence silence;
    EXPECT_EQ(calibrator.fast_calib(field.lists, 0, kPlanes - 1), KESTRANE_OK);
  });
  expect_stack("get_transform_param", 8 * kKiB, [&] {
    _MRV_TRANSFORM transform = {};
    EXPECT_EQ(calibrator.get_transform_param(transform), KESTRANE_OK);
  });
}

TEST(FieldStack, IsSmallWithCoefficients) {
  Field field;
  LASER_COMPENSATOR_COEFFS_MANAGER coefficients;
  _COMPENSATOR_COEFFS* record = nullptr;
  ASSERT_EQ(coefficients.init(kPlanes), KESTRANE_OK);
  ASSERT_EQ(coefficients.get_compensator_coeffs(kPlanes, record), KESTRANE_OK);
  record->range_count = 1;
  record->range_first[0] = 0;
  record->range_last[0] = kPlanes - 1;
  KestraneLaserFastCalibrator engine;
  ASSERT_EQ(engine.init(), KESTRANE_OK);
  ASSERT_EQ(engine.set_laser_plane_standard(field.standard.host()), KESTRANE_OK);
  expect_stack("calib_Rt with coefficients", 64 * kKiB, [&] {
    const Silence silence;
    EXPECT_EQ(engine.calib_Rt(field.lists, 0, kPlanes - 1, 0.0, *record, *record), KESTRANE_OK);
  });
}

// --- Coefficients -------------------------------------------------------------------------------

TEST(CoefficientStack, IsSmall) {
  LASER_PLANE_INDICATOR_MANAGER indicators;
  LASER_PLANE_GRID_CORNERS_MANAGER corners;
  LASER_COMPENSATOR_COEFFS_MANAGER source;
  LASER_COMPENSATOR_COEFFS_MANAGER result;
  ASSERT_EQ(indicators.init(kPlanes), KESTRANE_OK);
  ASSERT_EQ(corners.init(kPlanes), KESTRANE_OK);
  _COMPENSATOR_COEFFS* record = nullptr;
  for (LASER_COMPENSATOR_COEFFS_MANAGER* manager : {&source, &result}) {
    ASSERT_EQ(manager->init(kPlanes), KESTRANE_OK);
    ASSERT_EQ(manager->get_compensator_coeffs(kPlanes, record), KESTRANE_OK);
  }
  for (std::int32_t p = 0; p < kPlanes; ++p) {
    for (int j = 0; j < 16; ++j) {
      for (int k = 0; k < 51; ++k) {
        source.opt_coeffs->planes[p].lines[j].cells[k] = {{1e-3, 1.0, -120.0 - j}};
        corners.planes[p].lines[j].cells[k].v[0] = 120.0 + k;
        if (j < 15 && k < 50) indicators.planes[p].lines[j].cells[k].v[1] = 0.02;
      }
    }
  }
  KestraneLaserFastCalibrator engine;
  expect_stack("calib", 8 * kKiB, [&] {
    EXPECT_EQ(engine.calib(indicators, corners, 26.0, source, result), KESTRANE_OK);
  });
}

// --- Compensation -------------------------------------------------------------------------------

TEST(CompensationStack, IsSmall) {
  simulation::HostTable table(kPlanes);
  table.fill(-0.01, 1e-5, 1e-3);
  simulation::HostTable result(kPlanes);
  KESTRANE_LASER_COMPENSATOR compensator;
  expect_stack("init", 8 * kKiB, [&] { EXPECT_EQ(compensator.init(), KESTRANE_OK); });
  expect_stack("set_laser_plane_param", 8 * kKiB,
               [&] { EXPECT_EQ(compensator.set_laser_plane_param(table.infos()), KESTRANE_OK); });
  const _MRV_EXTRINSIC_PARAM extrinsic = {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {110.0, 3.0, -7.0}};
  ASSERT_EQ(compensator.set_extrinsic_matrix(extrinsic), KESTRANE_OK);
  const _KESTRANE_COMPENSATE_PARAM param{35.5, 21.25, 0.75, 0.5, 1.5, 1e-6, 2e-5, 1e-4};
  ASSERT_EQ(compensator.set_compensate_param(param, 0, kPlanes), KESTRANE_OK);
  expect_stack("compensate", 8 * kKiB,
               [&] { EXPECT_EQ(compensator.compensate(0, kPlanes), KESTRANE_OK); });
  expect_stack("get_compensate_result", 8 * kKiB,
               [&] { EXPECT_EQ(compensator.get_compensate_result(result.infos()), KESTRANE_OK); });
}

// --- Files --------------------------------------------------------------------------------------

TEST(FileStack, IsSmall) {
  constexpr std::size_t kMost = 16 * kKiB;
  const TemporaryFolder folder;
  const std::string coefficients = folder.path("coefficients");
  const std::string planes = folder.path("planes");
  LASER_COMPENSATOR_COEFFS_MANAGER record;
  _COMPENSATOR_COEFFS* coeffs = nullptr;
  ASSERT_EQ(record.init(kPlanes), KESTRANE_OK);
  ASSERT_EQ(record.get_compensator_coeffs(kPlanes, coeffs), KESTRANE_OK);
  LASER_PLANE_BLOCK_INFOS_GROUP group;
  ASSERT_EQ(group.init(kPlanes), KESTRANE_OK);
  expect_stack("save_compensator_coeffs", kMost,
               [&] { EXPECT_EQ(save_compensator_coeffs(*coeffs, coefficients), KESTRANE_OK); });
  expect_stack("read_compensator_coeffs", kMost,
               [&] { EXPECT_EQ(read_compensator_coeffs(coefficients, *coeffs), KESTRANE_OK); });
  expect_stack("save_plane_block_infos", kMost,
               [&] { EXPECT_EQ(save_plane_block_infos(group, planes), KESTRANE_OK); });
  expect_stack("read_plane_block_infos", kMost,
               [&] { EXPECT_EQ(read_plane_block_infos(planes, group), KESTRANE_OK); });
}

// Numbers of every length take the long way through the text.
TEST(FileStack, IsSmallForTheLongestNumbers) {
  const TemporaryFolder folder;
  const std::string digits(2000, '7');
  std::string text;
  for (int i = 0; i < 155; ++i) text += "0." + digits + "e-3 ";
  text += "1 1 1 " + digits + "e-2000 1." + digits + "e-200 0 1 2 3";
  const std::string path = folder.file("planes", text);
  LASER_PLANE_BLOCK_INFOS_GROUP group;
  ASSERT_EQ(group.init(1), KESTRANE_OK);
  expect_stack("read of long numbers", 16 * kKiB,
               [&] { EXPECT_EQ(read_plane_block_infos(path, group), KESTRANE_OK); });
  EXPECT_EQ(group.planes[0].laser_plane_R[2], 3.0);
}

}  // namespace
