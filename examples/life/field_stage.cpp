// The device takes a knock: a small rotation and translation, known here. Points are measured again
// in the depth of 220 to 350, frame by frame, some frames bad, and the stored table tells the
// knock: once through the fast calibration, once through the variant that writes into the
// coefficients.
#include <Eigen/Core>
#include <cstdio>

#include "examples/field_yardstick.h"
#include "examples/life/life.h"
#include "kestrane/fast_calib.h"

namespace device_life {
namespace {

using examples::FrameLists;

constexpr simulation::Vec3 kKnockRotation = {150e-6, 250e-6, -200e-6};  // rad
constexpr simulation::Vec3 kKnockTranslation = {0.12, 0.05, -0.15};     // mm
constexpr int kMostFieldPoints = 4000;                                  // per plane
constexpr int kFrames = 20;
constexpr int kBadFrames = 2;

// What was measured, and what was done to it on purpose.
struct FieldData {
  simulation::Placement knock;
  FrameLists frames;  // one list per plane
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

// --- Recovered against true
// -----------------------------------------------------------------------

Eigen::Vector3d carried(const double* rotation, const double* translation,
                        const Eigen::Vector3d& p) {
  Eigen::Vector3d moved;
  for (int i = 0; i < 3; ++i) {
    moved[i] = rotation[3 * i] * p[0] + rotation[3 * i + 1] * p[1] + rotation[3 * i + 2] * p[2] +
               translation[i];
  }
  return moved;
}

// How far a recovered motion puts points of the sheets off the truly moved sheets, across the
// sheets: the only part of a motion that a sheet shows.
Spread motion_error(const Life& life, const FieldData& data, const _MRV_EXTRINSIC_PARAM& motion) {
  const double truly[3] = {data.knock.t.x, data.knock.t.y, data.knock.t.z};
  Spread error;
  for (const Sheet& sheet : life.sheets) {
    for (int depth = 225; depth < 350; depth += 20) {
      for (int tenths = -5; tenths <= 5; ++tenths) {
        const double z = depth;
        const double y = 0.1 * tenths * z;
        const kestrane::_LASER_TRIPLE plane = simulation::local_plane(sheet, y, z);
        const Eigen::Vector3d normal =
            Eigen::Vector3d(plane.v[0], plane.v[1], plane.v[2]).normalized();
        const Eigen::Vector3d p(simulation::sheet_x(sheet, y, z), y, z);
        error.add(normal.dot(carried(motion.R, motion.T, p) - carried(data.knock.R, truly, p)));
      }
    }
  }
  return error;
}

// How far the stored table itself is off the sheets, in the middles of the cells that the field
// sees. A motion that fits the points to the table takes part of that over.
Spread table_error(const Life& life) {
  Spread error;
  for (int p = 0; p < life.options.planes; ++p) {
    const Sheet& sheet = life.sheets[static_cast<std::size_t>(p)];
    for (int j = 0; j < HostTable::kLines; ++j) {
      for (int k = 2; k <= 7; ++k) {
        const simulation::CellMiddle at = simulation::cell_middle(life.table.grids(), j, k);
        error.add(simulation::plane_x(life.table.cell(p, j, k), at.y, at.z) -
                  simulation::sheet_x(sheet, at.y, at.z));
      }
    }
  }
  return error;
}

void report_motion(Life& life, const FieldData& data, const _MRV_EXTRINSIC_PARAM& motion) {
  const Eigen::Vector3d rotation = examples::rotation_of(motion);
  const double true_rotation[3] = {kKnockRotation.x, kKnockRotation.y, kKnockRotation.z};
  const double true_translation[3] = {kKnockTranslation.x, kKnockTranslation.y,
                                      kKnockTranslation.z};
  const char* const notes[3] = {"", "  (along the laser lines: not observable)", ""};
  std::printf("  %4s | %21s | %21s\n", "", "rotation, microrad", "translation, mm");
  std::printf("  %4s | %10s %10s | %10s %10s\n", "axis", "true", "recovered", "true", "recovered");
  for (int i = 0; i < 3; ++i) {
    std::printf("  %4c | %10.1f %10.1f | %10.4f %10.4f%s\n", "xyz"[i], 1e6 * true_rotation[i],
                1e6 * rotation[i], true_translation[i], motion.T[i], notes[i]);
  }
  // Noise averages out over thousands of points; the table's own error does so only in part.
  const Spread error = motion_error(life, data, motion);
  const double bound = table_error(life).rms() + kNoise / 5.0;
  std::printf("  moved sheets off the truth by rms %.4f mm, bound %.4f, largest %.4f%s\n",
              error.rms(), bound, error.largest, judged(life, error.rms() <= bound));
}

bool recalibrate(Life& life, const FieldData& data) {
  const int last = life.options.planes - 1;
  kestrane::KESTRANE_LASER_FAST_CALIB calib;
  _MRV_TRANSFORM transform{};
  double mean = 0.0, max = 0.0, deviation = 0.0;
  if (!succeeded(life, "fast init", calib.init()) ||
      !succeeded(life, "set_laser_plane_standard",
                 calib.set_laser_plane_standard(life.table.infos())) ||
      !succeeded(life, "fast_calib", calib.fast_calib(data.frames, 0, last)) ||
      !succeeded(life, "get_transform_param", calib.get_transform_param(transform)) ||
      !succeeded(life, "get_calib_indicator", calib.get_calib_indicator(mean, max, deviation))) {
    return false;
  }
  kestrane::KestraneLaserFastCalibrator yardstick;
  if (!succeeded(life, "engine init", yardstick.init()) ||
      !succeeded(life, "set_laser_plane_standard",
                 yardstick.set_laser_plane_standard(life.table.infos()))) {
    return false;
  }
  const _MRV_EXTRINSIC_PARAM motion = examples::extrinsic_of(transform);
  const examples::Kept kept = examples::frames_kept(yardstick, data.frames);
  std::printf("  frames in %d, of them bad %d, kept by their mean residual %d\n",
              kFrames * life.options.planes, data.bad_frames, kept.frames);
  std::printf("  points in %d, in kept frames %d, of those within 1.5 mm at the end %d\n",
              data.points, examples::points_of(kept.points),
              examples::points_near(yardstick, kept.points, motion));
  std::printf("  indicators: mean %.4f, largest %.4f, half the mean deviation %.4f mm\n", mean, max,
              deviation);
  report_motion(life, data, motion);
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
                 engine.set_laser_plane_standard(life.table.infos())) ||
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
