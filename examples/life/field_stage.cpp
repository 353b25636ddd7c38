// The device takes a knock: a small rotation and translation, known here. Points are measured again
// in the depth of 220 to 350, frame by frame, some frames bad, and the stored table tells the
// knock: once through the fast calibration, once through the variant that writes into the
// coefficients.
#include <Eigen/Core>
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "examples/life/life.h"
#include "kestrane/fast_calib.h"
#include "kestrane/quality/field.h"

namespace device_life {
namespace {

using kestrane::quality::FieldResult;
using kestrane::quality::FieldStage;
using kestrane::quality::PointList;

constexpr simulation::Vec3 kKnockRotation = {150e-6, 250e-6, -200e-6};  // rad
constexpr simulation::Vec3 kKnockTranslation = {0.12, 0.05, -0.15};     // mm
constexpr int kMostFieldPoints = 4000;                                  // per plane
constexpr int kFrames = 20;
constexpr int kBadFrames = 2;

// What was measured, and what was done to it on purpose.
struct FieldData {
  simulation::Placement knock;
  std::vector<PointList> frames;  // one list per plane
  int points = 0;
  int bad_frames = 0;
};

FieldData measure_field(const Life& life) {
  FieldData data;
  data.knock = simulation::rigid_motion(kKnockRotation, kKnockTranslation);
  for (int p = 0; p < life.options.planes; ++p) {
    simulation::CloudSettings settings = simulation::field_cloud_settings();
    settings.points = std::min(life.options.points, kMostFieldPoints);
    settings.seed = std::uint64_t{life.options.seed} * 1000 + 500 + static_cast<std::uint64_t>(p);
    settings.noise = kNoise;
    settings.frames = kFrames;
    settings.bad_frames = kBadFrames;
    const simulation::Cloud cloud =
        simulation::measure(life.sheets[static_cast<std::size_t>(p)], data.knock, settings);
    data.points += static_cast<int>(cloud.points.size());
    data.bad_frames += static_cast<int>(cloud.bad_frames.size());
    data.frames.push_back(cloud.points);
  }
  return data;
}

// --- Recovered against true ---------------------------------------------------------------------

// A place on a sheet, and the direction across the sheet there.
struct SheetPoint {
  Eigen::Vector3d p;
  Eigen::Vector3d normal;
};

// Evenly over the sheets, in the depth of the field's points.
std::vector<SheetPoint> field_points(const Life& life) {
  std::vector<SheetPoint> points;
  for (const Sheet& sheet : life.sheets) {
    for (int depth = 225; depth < 350; depth += 20) {
      for (int tenths = -5; tenths <= 5; ++tenths) {
        const double z = depth;
        const double y = 0.1 * tenths * z;
        const kestrane::_LASER_TRIPLE plane = simulation::local_plane(sheet, y, z);
        points.push_back({{simulation::sheet_x(sheet, y, z), y, z},
                          Eigen::Vector3d(plane.v[0], plane.v[1], plane.v[2]).normalized()});
      }
    }
  }
  return points;
}

_MRV_EXTRINSIC_PARAM true_motion(const FieldData& data) {
  _MRV_EXTRINSIC_PARAM motion{};
  std::copy_n(data.knock.R, 9, motion.R);
  motion.T[0] = data.knock.t.x;
  motion.T[1] = data.knock.t.y;
  motion.T[2] = data.knock.t.z;
  return motion;
}

Eigen::Vector3d carried(const _MRV_EXTRINSIC_PARAM& motion, const Eigen::Vector3d& p) {
  Eigen::Vector3d moved;
  for (int i = 0; i < 3; ++i) {
    moved[i] = motion.R[3 * i] * p[0] + motion.R[3 * i + 1] * p[1] + motion.R[3 * i + 2] * p[2] +
               motion.T[i];
  }
  return moved;
}

// How far two motions carry the sheets apart, across the sheets: the only part of a motion that a
// sheet shows.
Spread apart(const std::vector<SheetPoint>& points, const _MRV_EXTRINSIC_PARAM& a,
             const _MRV_EXTRINSIC_PARAM& b) {
  Spread spread;
  for (const SheetPoint& at : points) {
    spread.add(at.normal.dot(carried(a, at.p) - carried(b, at.p)));
  }
  return spread;
}

// How far the stored table itself is off the sheets, in the middles of the cells that the field
// sees. A motion that fits the points to the table takes part of that over.
Spread table_error(const Life& life) {
  Spread error;
  for (int p = 0; p < life.options.planes; ++p) {
    const Sheet& sheet = life.sheets[static_cast<std::size_t>(p)];
    for (int j = 0; j < PlaneTable::kLines; ++j) {
      for (int k = 2; k <= 7; ++k) {
        const simulation::CellMiddle at = simulation::cell_middle(life.table.grids(), j, k);
        error.add(simulation::plane_x(life.table.cell(p, {j, k}), at.y, at.z) -
                  simulation::sheet_x(sheet, at.y, at.z));
      }
    }
  }
  return error;
}

void report_motion(Life& life, const FieldData& data, const _MRV_EXTRINSIC_PARAM& motion) {
  const std::vector<SheetPoint> points = field_points(life);
  const _MRV_EXTRINSIC_PARAM truly = true_motion(data);
  // Noise averages out over thousands of points; the table's own error does so only in part.
  const double table = table_error(life).rms();
  const double bound = table + kNoise / 5.0;
  const Spread moved = apart(points, truly, {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 0, 0}});
  const Spread error = apart(points, motion, truly);
  std::printf(
      "  The knock moved the sheets by rms %.4f mm; the recovered motion puts them off by\n"
      "  rms %.4f, bound %.4f, largest %.4f%s\n"
      "  The stored table is itself off by rms %.4f, and a motion takes part of that over.\n",
      moved.rms(), error.rms(), bound, error.largest, judged(life, error.rms() <= bound), table);
  life.seen.knock = moved.rms();
  life.seen.knock_error = error.rms();
}

void report_use(const FieldResult& field) {
  const auto& given = field.used.after(FieldStage::kGiven);
  const auto& filtered = field.used.after(FieldStage::kFrameFilter);
  const auto& used = field.used.after(FieldStage::kUsed);
  std::printf("  frames in %d, kept by their mean residual %d, used %d\n", given.frames,
              filtered.frames, used.frames);
  std::printf("  points in %jd, in kept frames %jd, of those within 1.5 mm at the end %jd\n",
              std::intmax_t{given.points}, std::intmax_t{filtered.points},
              std::intmax_t{used.points});
}

// What the points fix of a motion, and how surely.
void report_directions(const FieldResult& field) {
  std::printf("  %-44s %10s\n", "direction of motion", "sigma, mm");
  for (const kestrane::quality::MotionDirection& direction : field.directions) {
    if (direction.fixed) {
      std::printf("  %-44s %10.4f\n", direction.name.c_str(), direction.sigma);
    } else {
      std::printf("  %-44s %10s\n", direction.name.c_str(), "not fixed");
    }
  }
}

bool recalibrate(Life& life, const FieldData& data) {
  const FieldResult field = kestrane::quality::calibrate_field(life.table, data.frames);
  const kestrane::quality::Judgement judgement = kestrane::quality::judge(field, limits());
  keep_findings(life, judgement);
  if (!field.refused.empty()) {
    std::printf("  refused: %s\n", field.refused.c_str());
    ++life.troubles;
    return false;
  }
  std::printf("  (above, from the library itself: the report of its solver, one line per solve)\n");
  std::printf("  displaced on purpose %d frames\n", data.bad_frames);
  report_use(field);
  report_directions(field);
  std::printf("  found: the sheets moved by rms %.4f, sigma %.4f, largest %.4f mm\n",
              field.displacement.rms, field.displacement.sigma, field.displacement.max);
  report_motion(life, data, field.smallest_motion);
  return true;
}

bool write_into_coefficients(Life& life, const FieldData& data) {
  const int last = life.options.planes - 1;
  if (last == 0) {
    std::printf("\nTransforms in the coefficients: a range of one plane has none\n");
    return true;
  }
  std::printf("\nTransforms in the coefficients, from whole frames that cross their plane\n");
  kestrane::KestraneLaserFastCalibrator engine;
  if (!succeeded(life, "engine init", engine.init()) ||
      !succeeded(life, "set_laser_plane_standard",
                 engine.set_laser_plane_standard(life.table.record())) ||
      !succeeded(life, "calib_Rt",
                 engine.calib_Rt(data.frames, 0, last, 0.0, life.coeffs, life.coeffs))) {
    return false;
  }
  _MRV_EXTRINSIC_PARAM motion{};
  const double* slot = life.coeffs.Mbs_factory_to_user;
  std::copy_n(slot, 9, motion.R);
  std::copy_n(slot + 9, 3, motion.T);
  const bool alike = std::equal(slot, slot + 12, slot + 12 * last);
  std::printf("  planes 0 to %d hold one transform: %s%s\n", last, alike ? "yes" : "no",
              judged(life, alike));
  report_motion(life, data, motion);
  return true;
}

}  // namespace

bool field_stage(Life& life) {
  const FieldData data = measure_field(life);
  std::printf("\nFast calibration after a knock: %d planes, %d points, depth 220 to 350\n",
              life.options.planes, data.points);
  return recalibrate(life, data) && write_into_coefficients(life, data);
}

}  // namespace device_life
