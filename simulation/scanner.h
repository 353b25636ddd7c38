// A simulated laser-line scanner with known truth: sheets of light, the clouds that are measured
// on them, and where the sheets lie after the device has moved or warmed up.
//
// Everything is values in and values out, and the same seed gives the same device and the same
// cloud. Only the records of the public headers are used, never the library itself.
//
// Units   millimetres, radians unless a name says degrees; temperatures in kelvin or Celsius.
// Frames  as in the library: x across the sheets, y along a laser line, z depth.
#pragma once

#include <cstdint>
#include <vector>

#include "kestrane/records.h"

namespace simulation {

struct Vec3 {
  double x;
  double y;
  double z;
};

// --- The device ---------------------------------------------------------------------------------

// One sheet of light, gently bowed:
//   x(y, z) = offset + slope_y y + slope_z z + bow_y (y / 300)^2 + bow_z ((z - 550) / 450)^2
//             + ripple sin(2 pi y / 250) cos(2 pi z / 400) + kink |y| / 300 + edge (y / (z tan
//             30))^8
struct Sheet {
  double offset;   // x at y = 0, z = 0 of the flat part; never near 0
  double slope_y;  // of the flat part
  double slope_z;  // of the flat part
  double bow_y;    // bow at y = -300 and y = 300
  double bow_z;    // bow at the depths 100 and 1000; none at 550

  // Shapes that no quadratic follows; a device has none unless a study asks for them.
  double ripple = 0.0;  // height of waves, 250 long in y and 400 in z
  double kink = 0.0;    // of a fold along y = 0, at y = -300 and y = 300
  double edge = 0.0;    // at the fan's edges, where a lens distorts most
};

struct DeviceSettings {
  int planes = 8;              // sheets, 1 to 100
  std::uint64_t seed = 1;      // of the spread about the regular arrangement
  double baseline = 120.0;     // x where the sheets meet near z = 0: their common emitter
  double fan_slope = 0.25;     // slope_z runs evenly from minus to plus this, one sheet each
  double offset_spread = 2;    // offsets lie within baseline plus and minus this
  double slope_spread = 5e-3;  // slope_y lies within plus and minus this
  double bow = 0.4;            // bow_y and bow_z lie between half of this and this, either sign
};

std::vector<Sheet> make_device(const DeviceSettings& settings);

// --- Where the sheets lie -----------------------------------------------------------------------

// Carries a point p of the sheet as calibrated to scale * R p + t now. The default moves nothing.
struct Placement {
  double scale = 1.0;
  double R[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};  // rotation, row by row
  Vec3 t = {0, 0, 0};
};

// A rigid motion of the whole device: a rotation by the length of `rotation` about its direction,
// then a translation.
Placement rigid_motion(Vec3 rotation, Vec3 translation);

// What a change of temperature and of the second reading does to sheet `plane` of the range first
// to last - 1: growth about the origin by 1 + scale_per_degree * (rise of temperature), then a
// rotation about the y direction through the point of the grown sheet along `extrinsic.T`, by an
// angle in proportion to the distance from plane first + (last - first) / 2.
//
// The rotation's sense: for a positive angle, depth at positive z moves towards negative x.
// The temperature is taken as it is, without the band in which the library believes it.
Placement warm_placement(const Sheet& sheet, int plane, int first, int last,
                         const _KESTRANE_COMPENSATE_PARAM& param,
                         const _MRV_EXTRINSIC_PARAM& extrinsic);

Vec3 carry(const Placement& placement, Vec3 point);
Vec3 carry_back(const Placement& placement, Vec3 point);

// --- Truth --------------------------------------------------------------------------------------

// x of the sheet at (y, z), as calibrated or where it lies now.
double sheet_x(const Sheet& sheet, double y, double z);
double sheet_x(const Sheet& sheet, const Placement& placement, double y, double z);

// The tangent plane of the sheet at (y, z), as (a, b, c) of a x + b y + c z + 1 = 0.
kestrane::_LASER_TRIPLE local_plane(const Sheet& sheet, double y, double z);
kestrane::_LASER_TRIPLE local_plane(const Sheet& sheet, const Placement& placement, double y,
                                    double z);

// The flat part of the sheet, as (a, b, c).
kestrane::_LASER_TRIPLE whole_plane(const Sheet& sheet);

// x of a table plane at (y, z): what a calibrated table says where truth says sheet_x.
double plane_x(const kestrane::_LASER_TRIPLE& plane, double y, double z);

// Middle of a block of the table, in y and z.
struct CellMiddle {
  double y;
  double z;
};
CellMiddle cell_middle(const kestrane::_LASER_PLANE_GRIDS& grids, int line, int cell);

// Sets all cells of `block`, carved for 15 x 50, to the tangent planes at the middles of the
// blocks; counts as they should be are set too. A standard that no calibration has touched.
void fill_true_table(const Sheet& sheet, const Placement& placement,
                     const kestrane::_LASER_PLANE_GRIDS& grids,
                     kestrane::_LASER_LINES_INFOS& block);

// --- Measuring ----------------------------------------------------------------------------------

struct CloudSettings {
  int points = 20000;
  std::uint64_t seed = 1;

  // Where points lie: depths evenly spread, directions evenly spread in angle.
  double depth_low = 100.0;
  double depth_high = 1000.0;
  double fan_low_degrees = -30.0;  // a narrower pair covers the fan in part
  double fan_high_degrees = 30.0;

  // How they err. All errors are in x, so that y and z stay the true ones.
  double noise = 0.05;         // standard deviation per point
  double frame_noise = 0.0;    // standard deviation per capture frame, shared by its points
  double outlier_share = 0.0;  // of points that err evenly within plus and minus outlier_reach
  double outlier_reach = 20.0;
  double dropped_share = 0.0;    // of points whose x is not a number
  double outside_share = 0.0;    // of points nearer than depth_low or beyond depth_high
  double outside_margin = 80.0;  // how far outside they lie at most

  // Capture frames: consecutive runs of points, numbered first_frame, + frame_stride and so on.
  int frames = 1;
  std::int32_t first_frame = 0;
  std::int32_t frame_stride = 1;
  // Each frame one laser line on a flat target: at a depth of its own, slanted a little in depth,
  // and with errors that all of its points share.
  bool line_frames = false;
  double frame_tilt = 0.0;  // standard deviation of a frame's error at the fan's edges, odd in y
  double frame_bend = 0.0;  // the same, even in y

  int bad_frames = 0;            // frames, never the first, that are displaced as a whole
  double bad_frame_shift = 3.0;  // by this, in x
};

// What the field job measures: depths 220 to 350, 20 capture frames.
CloudSettings field_cloud_settings();

enum class PointKind : std::uint8_t { kGood, kOutlier, kDropped, kOutside };

struct Cloud {
  std::vector<_KESTRANE_ID_POINT3D> points;
  std::vector<PointKind> kinds;          // of each point; a bad frame does not change it
  std::vector<std::int32_t> bad_frames;  // numbers of the displaced frames, ascending
};

Cloud measure(const Sheet& sheet, const Placement& placement, const CloudSettings& settings);
Cloud measure(const Sheet& sheet, const CloudSettings& settings);

// The cloud as the record that calibrations take; it stays owned by `cloud`.
_KESTRANE_ID_POINT3DS record_of(Cloud& cloud);

}  // namespace simulation
