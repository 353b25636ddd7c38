#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <set>
#include <stdexcept>
#include <tuple>
#include <vector>

#include "fit/laser_geometry_fitter.h"
#include "kestrane/fast_calib.h"
#include "kestrane/quality/field.h"
#include "tests/literal/fast_calibration.h"
#include "tests/literal/field_figures.h"
#include "tests/quality/field/field_scene.h"
#include "tests/support/bits.h"
#include "tests/support/sanitized.h"

namespace {

using kestrane::quality::calibrate_field;
using kestrane::quality::DroppedFrame;
using kestrane::quality::FieldResult;
using kestrane::quality::FieldSettings;
using kestrane::quality::FieldStage;
using kestrane::quality::MotionDirection;
using kestrane::quality::PlaneTable;
using kestrane::quality::PointList;
using kestrane_test::kNaN;

constexpr double kNoPart = 1e-9;
constexpr double kInsideFan = 26.0;  // degrees; all points fall on blocks

// --- a host's mistakes --------------------------------------------------------------------------

TEST(CalibrateField, RefusesPlanesThatTheTableDoesNotHave) {
  const PlaneTable table(3);
  const std::vector<PointList> lists(2);
  EXPECT_THROW(calibrate_field(table, {}), std::invalid_argument);
  FieldSettings settings;
  for (const std::int32_t first : {-1, 2, 2147483647}) {
    settings.first_plane = first;
    EXPECT_THROW(calibrate_field(table, lists, settings), std::invalid_argument);
  }
}

TEST(CalibrateField, RefusesAnEngineWithoutItsInit) {
  kestrane::KESTRANE_LASER_FAST_CALIB engine;
  const field_scene::Scene scene = field_scene::make({});
  EXPECT_THROW(calibrate_field(engine, scene.table, scene.frames), std::invalid_argument);
  ASSERT_EQ(engine.init(), KESTRANE_OK);
  EXPECT_TRUE(calibrate_field(engine, scene.table, scene.frames).refused.empty());
}

// --- the job inside -----------------------------------------------------------------------------

TEST(CalibrateField, HandsOutTheJobsOwnMotionAndIndicators) {
  field_scene::Settings settings;
  settings.half_fan = kInsideFan;  // nothing is screened out, so the job alone sees the same
  const field_scene::Scene scene = field_scene::make(settings);
  const FieldResult result = calibrate_field(scene.table, scene.frames);
  ASSERT_TRUE(result.refused.empty()) << result.refused;

  kestrane::KESTRANE_LASER_FAST_CALIB job;
  ASSERT_EQ(job.init(), KESTRANE_OK);
  job.set_laser_plane_standard(scene.table.record());
  ASSERT_EQ(job.fast_calib(scene.frames, 0, 7), KESTRANE_OK);
  _MRV_TRANSFORM transform = {};
  double mean, max, deviation;
  job.get_transform_param(transform);
  job.get_calib_indicator(mean, max, deviation);
  EXPECT_EQ(std::memcmp(&transform, &result.transform, sizeof transform), 0);
  EXPECT_EQ(mean, result.indicators.mean);
  EXPECT_EQ(max, result.indicators.max);
  EXPECT_EQ(deviation, result.indicators.deviation);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(result.motion.T[i], transform.translation[i]);
}

TEST(CalibrateField, GivesTheSameWithAnEngineThatHasSeenAnotherDevice) {
  const field_scene::Scene scene = field_scene::make({});
  field_scene::Settings other;
  other.seed = 2;
  other.planes = 12;
  const field_scene::Scene before = field_scene::make(other);
  kestrane::KESTRANE_LASER_FAST_CALIB engine;
  ASSERT_EQ(engine.init(), KESTRANE_OK);
  calibrate_field(engine, before.table, before.frames);
  const FieldResult again = calibrate_field(engine, scene.table, scene.frames);
  const FieldResult fresh = calibrate_field(scene.table, scene.frames);
  EXPECT_EQ(std::memcmp(&again.motion, &fresh.motion, sizeof fresh.motion), 0);
  EXPECT_EQ(
      std::memcmp(&again.smallest_motion, &fresh.smallest_motion, sizeof fresh.smallest_motion), 0);
  EXPECT_EQ(again.displacement.rms, fresh.displacement.rms);
  EXPECT_EQ(again.displacement.sigma, fresh.displacement.sigma);
}

// --- against the formulas, number by number -----------------------------------------------------

struct LiteralPoints {
  std::vector<literal::FieldPoint> points;
  std::size_t filtered = 0;
  std::size_t interior = 0;
};

// The frame filter, the interior planes and the residuals once more, on finite points that all
// have a cell.
LiteralPoints literal_points(const PlaneTable& table, const std::vector<PointList>& lists,
                             const _MRV_EXTRINSIC_PARAM& motion) {
  const _MRV_LASER_PLANE_BLOCK_INFOS record = table.record();
  std::vector<kestrane::_LASER_PLANE_BLOCK_INFO> rows(lists.size());
  for (std::size_t p = 0; p < rows.size(); ++p) rows[p].block = record.planes[p].block;
  const kestrane::_LASER_PLANE_BLOCK_INFOS standard = {rows.data(), record.grids,
                                                       record.plane_count, record.plane_count};
  literal::FrameLists filtered;
  literal::Indicators indicators;
  literal::filter_point_by_frame(lists, standard, 0, filtered, indicators);
  literal::PointSets sets;
  literal::divide_interior_planes(
      filtered, *record.grids,
      [](const kestrane::PointMatrix3& cloud, double* plane) {
        kestrane::LaserGeometryFitter fitter;
        fitter.set_params(false, 0, 0.0, 0.0);
        kestrane::PlaneAbcd found = kestrane::PlaneAbcd::Zero();
        kestrane::PlaneFitStats stats{};
        kestrane::PointMatrix3 inliers;
        fitter.fit_plane_robust(cloud, found, stats, inliers, {220, 350}, 0);
        for (int i = 0; i < 4; ++i) plane[i] = found[i];
      },
      sets);

  LiteralPoints found;
  for (std::size_t f = 0; f < sets.size(); ++f) {
    found.filtered += filtered[f].size();
    found.interior += static_cast<std::size_t>(sets[f].cols());
    for (Eigen::Index i = 0; i < sets[f].cols(); ++i) {
      const double* p = sets[f].col(i).data();
      double distance = kNaN;
      literal::distance_to_cell(p, standard, static_cast<int>(f), motion, &distance);
      if (!(distance <= 1.5)) continue;
      double abc[3] = {}, unit[3] = {}, axis_point[3] = {};
      literal::lookup_plane_cell(p, standard, static_cast<int>(f), abc, unit, axis_point);
      literal::FieldPoint point = {};
      const double length = std::sqrt(literal::dot(abc, abc)) * (abc[0] < 0.0 ? -1.0 : 1.0);
      for (int k = 0; k < 3; ++k) {
        point.p[k] = p[k];
        point.n[k] = abc[k] / length;
      }
      point.d = 1.0 / length;
      point.plane = static_cast<int>(f);
      for (const auto& original : lists[f]) {
        if (original.x != p[0] || original.y != p[1] || original.z != p[2]) continue;
        point.frame = 1000 * point.plane + original.id;
      }
      found.points.push_back(point);
    }
  }
  return found;
}

void expect_like_the_formulas(const field_scene::Scene& scene, const FieldResult& result) {
  const int planes = static_cast<int>(scene.frames.size());
  const LiteralPoints used = literal_points(scene.table, scene.frames, result.motion);
  EXPECT_EQ(result.used.after(FieldStage::kFrameFilter).points,
            static_cast<std::int64_t>(used.filtered));
  EXPECT_EQ(result.used.after(FieldStage::kInteriorPlanes).points,
            static_cast<std::int64_t>(used.interior));
  ASSERT_EQ(result.used.after(FieldStage::kUsed).points, std::ssize(used.points));

  const double* R = result.motion.R;
  const literal::FieldFigures f = literal::field_figures(used.points, R, result.motion.T, R);
  const double centre[3] = {result.centre.x, result.centre.y, result.centre.z};
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(centre[i], f.centre[i], 1e-9);
  EXPECT_NEAR(result.length, f.length, 1e-9);
  EXPECT_NEAR(result.residual, f.residual, 1e-9);
  for (int i = 0; i < 6; ++i) {
    const MotionDirection& direction = result.directions[static_cast<std::size_t>(i)];
    EXPECT_EQ(direction.fixed, f.fixed[i]);
    EXPECT_NEAR(direction.strength, std::max(0.0, f.values[i]) / f.values[5], 1e-9);
    if (std::isinf(f.sigma[i])) {
      EXPECT_EQ(direction.sigma, f.sigma[i]);
      continue;
    }
    EXPECT_NEAR(direction.sigma, f.sigma[i], 1e-6 * f.sigma[i]);
    double along = 0.0;
    for (int k = 0; k < 6; ++k) along += direction.vector[k] * f.vectors[i][k];
    EXPECT_NEAR(std::abs(along), 1.0, 1e-9);
  }
  for (int i = 0; i < 9; ++i) EXPECT_NEAR(result.smallest_motion.R[i], f.R[i], 1e-10);
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(result.smallest_motion.T[i], f.t[i], 1e-8);

  double squares = 0.0;
  double variance = 0.0;
  double largest = 0.0;
  const auto places = field_scene::places(scene.table, 0, planes - 1);
  for (const field_scene::Place& place : places) {
    const double along = field_scene::displacement(place, result.motion);
    squares += along * along;
    largest = std::max(largest, std::abs(along));
    double moved[3];
    literal::rotate(R, place.n, moved);
    double row[6];
    literal::field_row(place.p, moved, f.centre, f.length, row);
    double projected[6] = {};
    for (int i = 0; i < 6; ++i) {
      for (int k = 0; k < 6; ++k) projected[i] += f.observed[i][k] * row[k];
    }
    variance += literal::quadratic(projected, planes >= 8 ? f.by_plane : f.by_frame);
  }
  const auto count = static_cast<double>(places.size());
  EXPECT_NEAR(result.displacement.rms, std::sqrt(squares / count), 1e-9);
  EXPECT_NEAR(result.displacement.max, largest, 1e-9);
  EXPECT_NEAR(result.displacement.sigma, std::sqrt(variance / count),
              1e-6 * result.displacement.sigma);
}

TEST(CalibrateField, FollowsTheFormulasNumberByNumber) {
  for (const auto& [planes, bow] : {std::tuple{8, 0.4}, {8, 0.0}, {3, 0.4}, {12, 0.4}}) {
    field_scene::Settings settings;
    settings.planes = planes;
    settings.bow = bow;
    settings.points = 600;
    settings.half_fan = kInsideFan;
    settings.seed = static_cast<std::uint64_t>(planes);
    const field_scene::Scene scene = field_scene::make(settings);
    const FieldResult result = calibrate_field(scene.table, scene.frames);
    ASSERT_TRUE(result.refused.empty()) << result.refused;
    EXPECT_EQ(result.sigma_holds_table, planes >= 8);
    expect_like_the_formulas(scene, result);
  }
}

// --- closed forms -------------------------------------------------------------------------------

field_scene::Settings almost_no_noise() {
  field_scene::Settings settings;
  settings.noise = 0.001;
  settings.frame_noise = 0.0005;
  return settings;
}

// Sheets that lean in all directions, turned about y and shifted along x: the displacement of a
// block is n_x (shift + angle z) - n_z angle x to first order.
TEST(CalibrateField, FindsAKnownMotionOfFlatSheetsInClosedForm) {
  std::vector<simulation::Sheet> sheets;
  for (int i = 0; i < 8; ++i) {
    const double slope_y = (i % 2 == 0) ? 0.2 : -0.2;
    sheets.push_back({90.0 + 10.0 * i, slope_y, -0.2 + i / 17.5, 0.0, 0.0});
  }
  const double angle = 5e-4;
  const double shift = 0.1;
  field_scene::Scene scene;
  scene.table = field_scene::true_table(sheets);
  scene.frames = field_scene::measure(
      sheets, simulation::rigid_motion({0, angle, 0}, {shift, 0, 0}), almost_no_noise());
  const FieldResult result = calibrate_field(scene.table, scene.frames);
  ASSERT_TRUE(result.refused.empty()) << result.refused;
  for (const MotionDirection& direction : result.directions) EXPECT_TRUE(direction.fixed);

  double squares = 0.0;
  double largest = 0.0;
  for (const simulation::Sheet& sheet : sheets) {
    const double n_x =
        1.0 / std::sqrt(1.0 + sheet.slope_y * sheet.slope_y + sheet.slope_z * sheet.slope_z);
    for (const double z : {244.5, 271.5, 298.5, 325.5}) {
      for (int j = 0; j < 15; ++j) {
        const double edge = std::tan(0.5235987755982988) * (z - 13.5);
        const double y = -edge + (j + 0.5) * 2.0 * edge / 15.0;
        const double x = sheet.offset + sheet.slope_y * y + sheet.slope_z * z;
        const double along = n_x * (shift + angle * z + sheet.slope_z * angle * x);
        squares += along * along;
        largest = std::max(largest, std::abs(along));
      }
    }
  }
  EXPECT_NEAR(result.displacement.rms, std::sqrt(squares / 480.0), 1e-3);
  EXPECT_NEAR(result.displacement.max, largest, 2e-3);
  EXPECT_EQ(result.displacement.block.cell, 6);
  // All directions are fixed, and the smallest motion is the whole.
  for (int i = 0; i < 9; ++i) {
    EXPECT_NEAR(result.smallest_motion.R[i], result.motion.R[i], 1e-12);
  }
  const std::vector<double> w = field_scene::lengths(result.smallest_motion, result);
  EXPECT_NEAR(w[0], 0.0, 2e-3);
  EXPECT_NEAR(w[1], result.length * angle, 2e-3);
  EXPECT_NEAR(w[2], 0.0, 2e-3);
  EXPECT_NEAR(w[3], shift + angle * result.centre.z, 2e-3);
  EXPECT_NEAR(w[4], 0.0, 2e-3);
  EXPECT_NEAR(w[5], -angle * result.centre.x, 2e-3);
}

// Parallel sheets fix the turns about y and z and the shift along x, and nothing else. What the job
// found along the other three is arbitrary; the smallest motion holds none of it, to first order.
TEST(CalibrateField, ParallelSheetsLeaveExactlyThreeDirectionsFree) {
  std::vector<simulation::Sheet> sheets;
  for (int i = 0; i < 8; ++i) sheets.push_back({90.0 + 10.0 * i, 0.0, 0.0, 0.0, 0.0});
  const double angle = 5e-4;
  const double shift = 0.1;
  const double kSecondOrder = 1e-3;  // angle times the arbitrary shifts of some millimetres
  field_scene::Scene scene;
  scene.table = field_scene::true_table(sheets);
  scene.frames = field_scene::measure(
      sheets, simulation::rigid_motion({0, angle, 0}, {shift, 0, 0}), almost_no_noise());
  const FieldResult result = calibrate_field(scene.table, scene.frames);
  ASSERT_TRUE(result.refused.empty()) << result.refused;
  std::vector<std::string> free;
  for (const MotionDirection& direction : result.directions) {
    if (!direction.fixed) free.push_back(direction.name);
  }
  EXPECT_EQ(free, (std::vector<std::string>{"turn about x", "shift along y", "shift along z"}));
  const std::vector<double> w = field_scene::lengths(result.smallest_motion, result);
  EXPECT_NEAR(w[0], 0.0, kSecondOrder);
  EXPECT_NEAR(w[1], result.length * angle, kSecondOrder);
  EXPECT_NEAR(w[2], 0.0, kSecondOrder);
  EXPECT_NEAR(w[3], shift + angle * result.centre.z, kSecondOrder);
  EXPECT_NEAR(w[4], 0.0, kSecondOrder);
  EXPECT_NEAR(w[5], 0.0, kSecondOrder);
}

TEST(CalibrateField, SheetsWithOneCommonDirectionLeaveExactlyThatOneFree) {
  std::vector<simulation::Sheet> sheets;
  for (int i = 0; i < 8; ++i) sheets.push_back({120.0, 0.0, -0.25 + i / 14.0, 0.0, 0.0});
  field_scene::Scene scene;
  scene.table = field_scene::true_table(sheets);
  scene.frames = field_scene::measure(sheets, field_scene::knock(5), {});
  const FieldResult result = calibrate_field(scene.table, scene.frames);
  ASSERT_TRUE(result.refused.empty()) << result.refused;
  EXPECT_EQ(result.directions[0].name, "shift along y");
  EXPECT_FALSE(result.directions[0].fixed);
  for (std::size_t i = 1; i < 6; ++i) EXPECT_TRUE(result.directions[i].fixed);
}

TEST(CalibrateField, TheSmallestMotionHasNoPartAlongWhatIsNotFixed) {
  for (const int planes : {2, 8}) {
    for (const double bow : {0.0, 0.4}) {
      for (std::uint64_t seed = 1; seed <= kestrane_test::seeds_to_draw(5); ++seed) {
        field_scene::Settings settings;
        settings.planes = planes;
        settings.bow = bow;
        settings.points = 800;
        settings.seed = seed;
        const field_scene::Scene scene = field_scene::make(settings);
        const FieldResult result = calibrate_field(scene.table, scene.frames);
        const std::vector<double> w = field_scene::lengths(result.smallest_motion, result);
        for (const MotionDirection& direction : result.directions) {
          if (direction.fixed) continue;
          double part = 0.0;
          for (std::size_t i = 0; i < 6; ++i) part += direction.vector[i] * w[i];
          EXPECT_NEAR(part, 0.0, kNoPart) << direction.name;
        }
        // And moves the sheets as the job's motion does, but for what hides in the noise.
        if (planes < 8) continue;
        const auto places = field_scene::places(scene.table, 0, planes - 1);
        EXPECT_LE(field_scene::apart(places, result.motion, result.smallest_motion), 0.02);
      }
    }
  }
}

// --- what was used ------------------------------------------------------------------------------

TEST(CalibrateField, CountsWhatEachStageLeaves) {
  field_scene::Settings settings;
  settings.planes = 3;
  settings.points = 800;
  settings.frame_noise = 0.0;
  settings.half_fan = kInsideFan;
  field_scene::Scene scene = field_scene::make(settings);
  scene.motion = simulation::rigid_motion({0, 0, 0}, {0.2, 0, 0});
  scene.frames = field_scene::measure(scene.sheets, scene.motion, settings);
  for (PointList& list : scene.frames) {
    for (auto& point : list) point.id = 500 - 3 * point.id;
  }
  for (auto& point : scene.frames[1]) {
    if (point.id == 500) point.x = kNaN;  // vanishes in the screening
    if (point.id == 497) point.x += 1.2;  // vanishes in the frame filter
  }
  scene.frames[2][0].z = 5000.0;  // one point outside the blocks
  const FieldResult result = calibrate_field(scene.table, scene.frames);
  ASSERT_TRUE(result.refused.empty()) << result.refused;

  const auto& use = result.used;
  EXPECT_EQ(use.after(FieldStage::kGiven).points, 2400);
  EXPECT_EQ(use.after(FieldStage::kGiven).frames, 60);
  EXPECT_EQ(use.after(FieldStage::kGiven).planes, 3);
  EXPECT_EQ(use.after(FieldStage::kScreened).points, 2400 - 40 - 1);
  EXPECT_EQ(use.after(FieldStage::kScreened).frames, 59);
  EXPECT_EQ(use.after(FieldStage::kFrameFilter).points, 2400 - 40 - 1 - 40);
  EXPECT_EQ(use.after(FieldStage::kFrameFilter).frames, 58);
  EXPECT_EQ(use.after(FieldStage::kUsed).points, 2400 - 40 - 1 - 40);
  EXPECT_EQ(result.frame_clusters, 58);
  EXPECT_EQ(result.plane_clusters, 3);
  EXPECT_EQ(use.planes[1].frames[2], 18);
  EXPECT_EQ(use.planes[2].points[1], 799);
  ASSERT_EQ(use.dropped.size(), 2u);
  EXPECT_EQ(use.dropped[0].plane, 1);
  EXPECT_EQ(use.dropped[0].frame, 497);
  EXPECT_EQ(use.dropped[0].stage, FieldStage::kFrameFilter);
  EXPECT_EQ(use.dropped[1].frame, 500);
  EXPECT_EQ(use.dropped[1].stage, FieldStage::kScreened);
}

TEST(CalibrateField, LeavesAnEndOfTheRangeOutWhereItMay) {
  const field_scene::Scene scene = field_scene::make({});
  std::vector<PointList> lists = scene.frames;
  lists.front().clear();
  FieldSettings settings;
  EXPECT_NE(calibrate_field(scene.table, lists, settings).refused, "");
  settings.leave_out_ends = true;
  const FieldResult result = calibrate_field(scene.table, lists, settings);
  ASSERT_TRUE(result.refused.empty()) << result.refused;
  EXPECT_EQ(result.first_plane, 1);
  EXPECT_EQ(result.last_plane, 7);
  EXPECT_EQ(result.used.left_out, (std::vector<std::int32_t>{0}));
  EXPECT_EQ(result.used.planes.size(), 8u);
  EXPECT_EQ(result.used.planes[7].plane, 7);
  EXPECT_GT(result.used.planes[7].points[4], 0);
  EXPECT_FALSE(result.sigma_holds_table);  // seven planes are left
}

TEST(CalibrateField, WorksOnARangeThatDoesNotBeginAtTheFirstPlane) {
  const field_scene::Scene scene = field_scene::make({});
  FieldSettings settings;
  settings.first_plane = 3;
  const std::vector<PointList> lists(scene.frames.begin() + 3, scene.frames.end());
  const FieldResult result = calibrate_field(scene.table, lists, settings);
  ASSERT_TRUE(result.refused.empty()) << result.refused;
  EXPECT_EQ(result.used.planes.front().plane, 3);
  const auto places = field_scene::places(scene.table, 3, 7);
  EXPECT_LE(field_scene::apart(places, result.motion, scene.motion), 0.05);
}

PlaneTable table_across_the_axis() {
  PlaneTable table(1);
  for (std::int32_t j = 0; j < 15; ++j) {
    for (std::int32_t k = 0; k < 50; ++k) table.cell(0, {j, k}) = {{-0.0078125, 0, 0}};
  }
  return table;
}

// Four frames of 60 points each, off x = 128 by steps of `error`.
PointList points_across_the_axis(double offset, double error) {
  PointList list;
  for (std::int32_t f = 0; f < 4; ++f) {
    for (int i = 0; i < 60; ++i) {
      const double y = -100.0 + 200.0 * (i * 37 % 60) / 60 + 0.1 * f;
      const double z = 240.0 + 80.0 * (i * 53 % 60) / 60 + 0.5 * f;
      list.push_back({128.0 + offset + error * (i % 3 - 1), y, z, f});
    }
  }
  return list;
}

// One flat sheet leaves three directions free: of many measurements of it there is one along whose
// valley the job's solver gets lost.
TEST(CalibrateField, RefusesAMotionThatTheJobsSolverDoesNotFind) {
  const PlaneTable table = table_across_the_axis();
  kestrane::KESTRANE_LASER_FAST_CALIB engine;
  ASSERT_EQ(engine.init(), KESTRANE_OK);
  for (int n = 0; n < 200; ++n) {
    const PointList list = points_across_the_axis(0.02 * (n % 3), 0.01 * (n + 10));
    const FieldResult result = calibrate_field(engine, table, {list});
    if (result.refused.empty()) continue;
    EXPECT_EQ(result.refused, "the job's solver found no motion (status " +
                                  std::to_string(KESTRANE_ERR_SOLVE_FAILED) + ")");
    EXPECT_TRUE(result.directions.empty());
    EXPECT_EQ(result.frame_clusters, 0);
    EXPECT_EQ(result.used.after(FieldStage::kScreened).points, 240);
    EXPECT_EQ(result.used.after(FieldStage::kFrameFilter).points, 0);
    return;
  }
  ADD_FAILURE() << "the solver found all motions";
}

TEST(CalibrateField, RefusesPointsThatNoMotionBringsNearTheTable) {
  const FieldResult result =
      calibrate_field(table_across_the_axis(), {points_across_the_axis(1e50, 1e48)});
  EXPECT_EQ(result.refused,
            "no point lies within 1.5 of the table after the motion that the job found");
  EXPECT_EQ(result.used.after(FieldStage::kFrameFilter).points, 240);
  EXPECT_EQ(result.used.after(FieldStage::kUsed).points, 0);
  EXPECT_TRUE(result.directions.empty());
}

TEST(CalibrateField, RefusesPointsThatLieExactlyOnTheTable) {
  // The job drops every frame whose mean distance is not below one and a half times the mean: all
  // of them where the mean is 0.
  const PlaneTable table = table_across_the_axis();
  PointList list;
  for (int i = 0; i < 400; ++i) list.push_back({128.0, i % 20 - 10.0, 240.0 + i / 20, i / 40});
  const FieldResult result = calibrate_field(table, {list});
  EXPECT_NE(result.refused.find("frame"), std::string::npos) << result.refused;
  EXPECT_TRUE(result.directions.empty());
}

}  // namespace
