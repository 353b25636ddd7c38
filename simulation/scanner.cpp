#include "simulation/scanner.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "simulation/random.h"

namespace simulation {
namespace {

constexpr double kBowWidth = 300.0;   // y at which a sheet has all of its bow_y
constexpr double kBowMiddle = 550.0;  // depth without bow_z
constexpr double kBowDepth = 450.0;   // from there to the depth that has all of it
constexpr double kRippleAcross = 250.0;
constexpr double kRippleAlong = 400.0;
constexpr double kTurn = 6.283185307179586;
constexpr double kEdge = 0.5773502691896257;  // tan 30 degrees
constexpr double kMostSlant = 0.1;            // of a line frame, depth over y
constexpr double kRadiansPerDegree = 0.017453292519943295;

double spread(Random& random, double size) { return random.uniform(-size, size); }

double either_sign(Random& random, double size) {
  const double magnitude = random.uniform(0.5 * size, size);
  return random.index(2) == 0 ? magnitude : -magnitude;
}

// What a sheet has beside plane and bow, with its slopes.
struct Shape {
  double x = 0.0;
  double slope_y = 0.0;
  double slope_z = 0.0;
};

void add_ripple(const Sheet& sheet, double y, double z, Shape& shape) {
  const double v = kTurn * y / kRippleAcross;
  const double w = kTurn * z / kRippleAlong;
  shape.x += sheet.ripple * std::sin(v) * std::cos(w);
  shape.slope_y += sheet.ripple * std::cos(v) * std::cos(w) * kTurn / kRippleAcross;
  shape.slope_z -= sheet.ripple * std::sin(v) * std::sin(w) * kTurn / kRippleAlong;
}

void add_edge(const Sheet& sheet, double y, double z, Shape& shape) {
  const double share = y / (z * kEdge);  // -1 and 1 at the fan's edges
  const double seventh = std::pow(share, 7);
  shape.x += sheet.edge * seventh * share;
  shape.slope_y += 8.0 * sheet.edge * seventh / (z * kEdge);
  shape.slope_z -= 8.0 * sheet.edge * seventh * share / z;
}

Shape shape_at(const Sheet& sheet, double y, double z) {
  Shape shape;
  if (sheet.ripple != 0.0) add_ripple(sheet, y, z, shape);
  if (sheet.edge != 0.0) add_edge(sheet, y, z, shape);
  if (sheet.kink != 0.0) {
    shape.x += sheet.kink * std::abs(y) / kBowWidth;
    shape.slope_y += std::copysign(sheet.kink / kBowWidth, y);
  }
  return shape;
}

// Slopes of the sheet in y and z at (y, z).
struct Slopes {
  double y;
  double z;
};

Slopes slopes_at(const Sheet& sheet, double y, double z) {
  const Shape shape = shape_at(sheet, y, z);
  return {sheet.slope_y + 2.0 * sheet.bow_y * y / (kBowWidth * kBowWidth) + shape.slope_y,
          sheet.slope_z + 2.0 * sheet.bow_z * (z - kBowMiddle) / (kBowDepth * kBowDepth) +
              shape.slope_z};
}

// The plane through `point` with normal (nx, ny, nz), in the form with constant term 1.
kestrane::_LASER_TRIPLE table_form(Vec3 normal, Vec3 point) {
  const double d = -(normal.x * point.x + normal.y * point.y + normal.z * point.z);
  return {{normal.x / d, normal.y / d, normal.z / d}};
}

Vec3 rotate(const double (&R)[9], Vec3 p) {
  return {R[0] * p.x + R[1] * p.y + R[2] * p.z, R[3] * p.x + R[4] * p.y + R[5] * p.z,
          R[6] * p.x + R[7] * p.y + R[8] * p.z};
}

Vec3 rotate_back(const double (&R)[9], Vec3 p) {
  return {R[0] * p.x + R[3] * p.y + R[6] * p.z, R[1] * p.x + R[4] * p.y + R[7] * p.z,
          R[2] * p.x + R[5] * p.y + R[8] * p.z};
}

// A capture frame that is one laser line: where it lies, and what all of its points share.
struct Line {
  double depth;
  double slant;
  double tilt;
  double bend;

  // Error at a place, `share` of the way from the middle of the fan to its edge.
  double error(double share) const { return tilt * share + bend * share * share; }
};

// Displacements of the capture frames, their lines, and the numbers of the bad ones.
struct Frames {
  std::vector<double> shifts;
  std::vector<Line> lines;
  std::vector<std::int32_t> bad;
};

Frames draw_frames(const CloudSettings& settings, Random& random) {
  Frames frames;
  const int count = std::max(settings.frames, 1);
  for (int f = 0; f < count; ++f) frames.shifts.push_back(settings.frame_noise * random.gaussian());
  for (int f = 0; settings.line_frames && f < count; ++f) {
    frames.lines.push_back({random.uniform(settings.depth_low, settings.depth_high),
                            spread(random, kMostSlant), settings.frame_tilt * random.gaussian(),
                            settings.frame_bend * random.gaussian()});
  }
  int bad_left = std::min(settings.bad_frames, count - 1);
  for (int f = 1; f < count; ++f) {
    // Of the frames that are left, as many as are still wanted: every choice is equally likely.
    if (random.index(count - f) >= bad_left) continue;
    --bad_left;
    frames.shifts[static_cast<std::size_t>(f)] += settings.bad_frame_shift;
    frames.bad.push_back(settings.first_frame + f * settings.frame_stride);
  }
  return frames;
}

PointKind draw_kind(const CloudSettings& settings, Random& random) {
  const double draw = random.uniform();
  double share = settings.outlier_share;
  if (draw < share) return PointKind::kOutlier;
  share += settings.dropped_share;
  if (draw < share) return PointKind::kDropped;
  share += settings.outside_share;
  return draw < share ? PointKind::kOutside : PointKind::kGood;
}

double draw_depth(const CloudSettings& settings, PointKind kind, Random& random) {
  if (kind != PointKind::kOutside) return random.uniform(settings.depth_low, settings.depth_high);
  const double margin = random.uniform(1e-6, 1.0) * settings.outside_margin;
  return random.index(2) == 0 ? settings.depth_low - margin : settings.depth_high + margin;
}

double draw_error(const CloudSettings& settings, PointKind kind, Random& random) {
  if (kind == PointKind::kDropped) return std::numeric_limits<double>::quiet_NaN();
  if (kind == PointKind::kOutlier) return spread(random, settings.outlier_reach);
  return settings.noise * random.gaussian();
}

}  // namespace

std::vector<Sheet> make_device(const DeviceSettings& settings) {
  Random random(settings.seed);
  std::vector<Sheet> sheets;
  for (int i = 0; i < settings.planes; ++i) {
    const double place = settings.planes > 1 ? 2.0 * i / (settings.planes - 1) - 1.0 : 0.0;
    Sheet sheet;
    sheet.offset = settings.baseline + spread(random, settings.offset_spread);
    sheet.slope_y = spread(random, settings.slope_spread);
    sheet.slope_z = settings.fan_slope * place;
    sheet.bow_y = either_sign(random, settings.bow);
    sheet.bow_z = either_sign(random, settings.bow);
    sheets.push_back(sheet);
  }
  return sheets;
}

Placement rigid_motion(Vec3 rotation, Vec3 translation) {
  Placement motion;
  motion.t = translation;
  const double angle = std::hypot(rotation.x, rotation.y, rotation.z);
  if (angle == 0.0) return motion;
  const double x = rotation.x / angle;
  const double y = rotation.y / angle;
  const double z = rotation.z / angle;
  const double s = std::sin(angle);
  const double v = 2.0 * std::sin(0.5 * angle) * std::sin(0.5 * angle);  // 1 - cos
  const double R[9] = {
      1.0 - v * (y * y + z * z), v * x * y - s * z,         v * x * z + s * y,
      v * x * y + s * z,         1.0 - v * (x * x + z * z), v * y * z - s * x,
      v * x * z - s * y,         v * y * z + s * x,         1.0 - v * (x * x + y * y)};
  std::copy_n(R, 9, motion.R);
  return motion;
}

Placement warm_placement(const Sheet& sheet, int plane, int first, int last,
                         const _KESTRANE_COMPENSATE_PARAM& param,
                         const _MRV_EXTRINSIC_PARAM& extrinsic) {
  const double rise = param.temperature - param.temperature_ref;
  const double drift = param.drift_gain * (param.drift - param.drift_ref);
  const int centre = first + (last - first) / 2;
  const double steps = plane - centre;
  const double angle = steps * (param.temperature_spread * rise + param.drift_spread * drift);
  Placement warm = rigid_motion({0.0, -angle, 0.0}, {0.0, 0.0, 0.0});
  warm.scale = 1.0 + param.scale_per_degree * rise;

  const double* T = extrinsic.T;
  const double along = sheet.offset / (T[0] - sheet.slope_y * T[1] - sheet.slope_z * T[2]);
  const double reach = warm.scale * along;
  const Vec3 pivot = {reach * T[0], reach * T[1], reach * T[2]};
  const Vec3 turned = rotate(warm.R, pivot);
  warm.t = {pivot.x - turned.x, pivot.y - turned.y, pivot.z - turned.z};
  return warm;
}

Vec3 carry(const Placement& placement, Vec3 point) {
  const Vec3 turned = rotate(placement.R, point);
  return {placement.scale * turned.x + placement.t.x, placement.scale * turned.y + placement.t.y,
          placement.scale * turned.z + placement.t.z};
}

Vec3 carry_back(const Placement& placement, Vec3 point) {
  const Vec3 turned = rotate_back(
      placement.R, {point.x - placement.t.x, point.y - placement.t.y, point.z - placement.t.z});
  return {turned.x / placement.scale, turned.y / placement.scale, turned.z / placement.scale};
}

double sheet_x(const Sheet& sheet, double y, double z) {
  const double u = y / kBowWidth;
  const double w = (z - kBowMiddle) / kBowDepth;
  return sheet.offset + sheet.slope_y * y + sheet.slope_z * z + sheet.bow_y * u * u +
         sheet.bow_z * w * w + shape_at(sheet, y, z).x;
}

// Newton's method on how far the point, carried back, misses the sheet. The bow is so gentle that
// three steps reach the last digit from anywhere near; the rest are a reserve.
double sheet_x(const Sheet& sheet, const Placement& placement, double y, double z) {
  constexpr int kSteps = 6;
  double x = sheet_x(sheet, y, z);
  for (int i = 0; i < kSteps; ++i) {
    const Vec3 back = carry_back(placement, {x, y, z});
    const Slopes slopes = slopes_at(sheet, back.y, back.z);
    const double miss = back.x - sheet_x(sheet, back.y, back.z);
    const double rate =
        (placement.R[0] - slopes.y * placement.R[1] - slopes.z * placement.R[2]) / placement.scale;
    x -= miss / rate;
  }
  return x;
}

kestrane::_LASER_TRIPLE local_plane(const Sheet& sheet, double y, double z) {
  return local_plane(sheet, Placement{}, y, z);
}

kestrane::_LASER_TRIPLE local_plane(const Sheet& sheet, const Placement& placement, double y,
                                    double z) {
  const Vec3 point = {sheet_x(sheet, placement, y, z), y, z};
  const Vec3 back = carry_back(placement, point);
  const Slopes slopes = slopes_at(sheet, back.y, back.z);
  return table_form(rotate(placement.R, {1.0, -slopes.y, -slopes.z}), point);
}

kestrane::_LASER_TRIPLE whole_plane(const Sheet& sheet) {
  return table_form({1.0, -sheet.slope_y, -sheet.slope_z}, {sheet.offset, 0.0, 0.0});
}

double plane_x(const kestrane::_LASER_TRIPLE& plane, double y, double z) {
  return -(plane.v[1] * y + plane.v[2] * z + 1.0) / plane.v[0];
}

// The middle in depth decides the width: bounds there lie halfway between those of the corners.
CellMiddle cell_middle(const kestrane::_LASER_PLANE_GRIDS& grids, int line, int cell) {
  const double start = 0.5 * (grids.grid_y_start[cell] + grids.grid_y_start[cell + 1]);
  const double step = 0.5 * (grids.grid_y_step[cell] + grids.grid_y_step[cell + 1]);
  return {start + (line + 0.5) * step, 0.5 * (grids.grid_z[cell] + grids.grid_z[cell + 1])};
}

void fill_true_table(const Sheet& sheet, const Placement& placement,
                     const kestrane::_LASER_PLANE_GRIDS& grids,
                     kestrane::_LASER_LINES_INFOS& block) {
  block.count = 15;
  for (int j = 0; j < 15; ++j) {
    block.lines[j].count = 50;
    for (int k = 0; k < 50; ++k) {
      const CellMiddle middle = cell_middle(grids, j, k);
      block.lines[j].cells[k] = local_plane(sheet, placement, middle.y, middle.z);
    }
  }
}

CloudSettings field_cloud_settings() {
  CloudSettings settings;
  settings.points = 4000;
  settings.depth_low = 220.0;
  settings.depth_high = 350.0;
  settings.frames = 20;
  return settings;
}

Cloud measure(const Sheet& sheet, const Placement& placement, const CloudSettings& settings) {
  Random random(settings.seed);
  const Frames frames = draw_frames(settings, random);
  const auto frame_count = static_cast<std::int64_t>(frames.shifts.size());
  Cloud cloud;
  cloud.bad_frames = frames.bad;
  for (std::int64_t i = 0; i < settings.points; ++i) {
    const std::int64_t frame = i * frame_count / settings.points;
    const PointKind kind = draw_kind(settings, random);
    double z = draw_depth(settings, kind, random);
    const double angle = random.uniform(settings.fan_low_degrees, settings.fan_high_degrees);
    const double u = std::tan(angle * kRadiansPerDegree);
    double shift = frames.shifts[static_cast<std::size_t>(frame)];
    if (settings.line_frames && kind != PointKind::kOutside) {
      const Line& line = frames.lines[static_cast<std::size_t>(frame)];
      z = line.depth / (1.0 - line.slant * u);  // z = depth + slant y
      shift += line.error(u / kEdge);
    }
    const double y = z * u;
    const double x = sheet_x(sheet, placement, y, z) + draw_error(settings, kind, random) + shift;
    const auto step = static_cast<std::int32_t>(frame);
    cloud.points.push_back({x, y, z, settings.first_frame + step * settings.frame_stride});
    cloud.kinds.push_back(kind);
  }
  return cloud;
}

Cloud measure(const Sheet& sheet, const CloudSettings& settings) {
  return measure(sheet, Placement{}, settings);
}

_KESTRANE_ID_POINT3DS record_of(Cloud& cloud) {
  return {cloud.points.data(), static_cast<std::int32_t>(cloud.points.size())};
}

}  // namespace simulation
