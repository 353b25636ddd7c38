// The device takes a knock: a small rotation and translation, known here. Points are measured again
// in the depth of 220 to 350, frame by frame, some frames bad, and the stored table tells the
// knock: once through the fast calibration, once through the variant that writes into the
// coefficients.
#include <Eigen/Eigenvalues>
#include <array>
#include <cstdio>
#include <vector>

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

// --- Recovered against true ---------------------------------------------------------------------

using Vector6 = Eigen::Matrix<double, 6, 1>;
using Matrix6 = Eigen::Matrix<double, 6, 6>;

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

// Which motions of the device the sheets show. A motion is six lengths here: the turn, as the path
// of a point at `reach` from the middle of the points, then the shift of that middle. A turn about
// the scanner's origin, far from the points, would mostly look like a shift of them.
struct Shown {
  Eigen::Vector3d middle = Eigen::Vector3d::Zero();
  double reach = 0.0;          // root mean square distance of the points from their middle
  Matrix6 directions;          // one per column
  std::array<bool, 6> hidden;  // of each: it moves the sheets by less than a hundredth of itself
};

Shown what_sheets_show(const std::vector<SheetPoint>& points) {
  constexpr double kHidden = 0.01;
  const auto count = static_cast<double>(points.size());
  Shown shown;
  for (const SheetPoint& at : points) shown.middle += at.p / count;
  for (const SheetPoint& at : points) shown.reach += (at.p - shown.middle).squaredNorm() / count;
  shown.reach = std::sqrt(shown.reach);
  Matrix6 squares = Matrix6::Zero();  // of what one unit of each motion does to the sheets
  for (const SheetPoint& at : points) {
    Vector6 row;
    row << (at.p - shown.middle).cross(at.normal) / shown.reach, at.normal;
    squares += row * row.transpose() / count;
  }
  const Eigen::SelfAdjointEigenSolver<Matrix6> solver(squares);
  shown.directions = solver.eigenvectors();
  for (int i = 0; i < 6; ++i) {
    shown.hidden[static_cast<std::size_t>(i)] = solver.eigenvalues()[i] < kHidden * kHidden;
  }
  return shown;
}

Vector6 lengths_of(const Shown& shown, const _MRV_EXTRINSIC_PARAM& motion) {
  Vector6 lengths;
  lengths << shown.reach * examples::rotation_of(motion),
      carried(motion, shown.middle) - shown.middle;
  return lengths;
}

void report_hidden(const Shown& shown, const Vector6& truly, const Vector6& recovered) {
  for (int i = 0; i < 6; ++i) {
    if (!shown.hidden[static_cast<std::size_t>(i)]) continue;
    Vector6 direction = shown.directions.col(i);
    int most = 0;
    direction.cwiseAbs().maxCoeff(&most);
    if (direction[most] < 0.0) direction = -direction;
    std::printf(
        "  Not shown by the sheets, and so in neither column: a %s %c, true %.2f, found %.2f\n",
        most < 3 ? "turn about" : "shift along", "xyz"[most % 3], direction.dot(truly),
        direction.dot(recovered));
  }
}

// Without what no sheet shows, true and recovered figures can be compared.
void report_figures(const Shown& shown, Vector6 truly, Vector6 recovered) {
  const Vector6 all_true = truly;
  const Vector6 all_recovered = recovered;
  for (int i = 0; i < 6; ++i) {
    if (!shown.hidden[static_cast<std::size_t>(i)]) continue;
    const Vector6 direction = shown.directions.col(i);
    truly -= direction * direction.dot(all_true);
    recovered -= direction * direction.dot(all_recovered);
  }
  std::printf("  motion at the middle of the points, (%.0f, %.0f, %.0f), in mm\n", shown.middle[0],
              0.0 + std::round(shown.middle[1]), shown.middle[2]);
  std::printf("  %4s | turn, as path at %3.0f mm | %23s\n", "", shown.reach, "shift");
  std::printf("  %4s | %11s %11s | %11s %11s\n", "axis", "true", "recovered", "true", "recovered");
  for (int i = 0; i < 3; ++i) {
    std::printf("  %4c | %11.4f %11.4f | %11.4f %11.4f\n", "xyz"[i], truly[i], recovered[i],
                truly[i + 3], recovered[i + 3]);
  }
  report_hidden(shown, all_true, all_recovered);
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
  const std::vector<SheetPoint> points = field_points(life);
  const _MRV_EXTRINSIC_PARAM truly = true_motion(data);
  const Shown shown = what_sheets_show(points);
  report_figures(shown, lengths_of(shown, truly), lengths_of(shown, motion));
  // Noise averages out over thousands of points; the table's own error does so only in part.
  const double table = table_error(life).rms();
  const double bound = table + kNoise / 5.0;
  const Spread moved = apart(points, truly, {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 0, 0}});
  const Spread error = apart(points, motion, truly);
  std::printf(
      "  The knock moved the sheets by rms %.4f mm; the recovered motion puts them off by\n"
      "  rms %.4f, bound %.4f, largest %.4f%s\n"
      "  Single figures differ by more where the sheets show them weakly: the stored table is\n"
      "  itself off by rms %.4f, and a motion takes part of that over.\n",
      moved.rms(), error.rms(), bound, error.largest, judged(life, error.rms() <= bound), table);
  life.seen.knock = moved.rms();
  life.seen.knock_error = error.rms();
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
  std::printf("  (above, in the library's own words: the report of its solver, once per solve)\n");
  const _MRV_EXTRINSIC_PARAM motion = examples::extrinsic_of(transform);
  const examples::Kept kept = examples::frames_kept(yardstick, data.frames);
  std::printf("  frames in %d, displaced on purpose %d, kept by their mean residual %d\n",
              kFrames * life.options.planes, data.bad_frames, kept.frames);
  std::printf("  points in %d, in kept frames %d, of those within 1.5 mm at the end %d\n",
              data.points, examples::points_of(kept.points),
              examples::points_near(yardstick, kept.points, motion));
  std::printf(
      "  residuals of the points as the library tells them: mean %.4f, largest %.4f,\n"
      "  half the mean deviation %.4f mm\n",
      mean, max, deviation);
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
