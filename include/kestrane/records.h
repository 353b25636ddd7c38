/// @file
/// The vocabulary of the library: the status, the small enumerations, and every record that
/// crosses a public operation.
///
/// - Units: the library converts none. Lengths have the unit of the measured points (usually
///   millimetres), and fixed depths (150 to 1500, 100 to 1000) are numbers in that unit. Angles are
///   radians. Temperatures and the second reading have the host's scale.
/// - Frames: all tables are in the scanner's measuring frame: x across the sheets, y along a laser
///   line, z depth. `Mbs_factory_to_user` maps the factory frame to the user's frame.
/// - Planes: a plane of a table is (a, b, c) of a x + b y + c z + 1 = 0. A fit gives the working
///   form (a, b, c, d) of a x + b y + c z + d = 0 with a unit normal.
/// - Memory: a record owns nothing. The owner classes of buffers.h hold the memory of the library's
///   own records; the memory of `_MRV_` records and point arrays belongs to the host.
/// - Counts: a count says how much of a line or table is in use. Only `plane_capacity` and
///   `group_capacity` are ever tested; all other counts are preconditions.

#pragma once

#include <cstdint>

#include "kestrane/export.h"

/// Result of every public operation that can fail. The numbers are fixed and have gaps.
enum _KESTRANE_STATUS : std::int32_t {
  KESTRANE_OK = 0,                    ///< success
  KESTRANE_ERR_FAILED = -1,           ///< a run failed, or the factory store could not be allocated
  KESTRANE_ERR_NO_MEMORY = -2,        ///< an `init` could not allocate
  KESTRANE_ERR_NULL_POINTER = -5,     ///< a record leads to no array
  KESTRANE_ERR_INVALID_PARAM = -7,    ///< a count, index or value outside what the operation takes
  KESTRANE_ERR_FILE_OPEN = -8,        ///< a file could not be opened
  KESTRANE_ERR_COUNT_MISMATCH = -14,  ///< a file's plane count or the number of lists is wrong
  KESTRANE_ERR_RANGE_UNKNOWN = -15,   ///< no plane range of the coefficients is the one asked for
  KESTRANE_ERR_FIT_FAILED = -16,      ///< a plane's points could not be prepared
  KESTRANE_ERR_SOLVE_FAILED = -17,    ///< the solver found no usable solution
  KESTRANE_ERR_EMPTY_RANGE = -18,     ///< the range holds one plane only
  KESTRANE_ERR_NOT_READY = -19        ///< `init` has not succeeded
};

/// The library: its own records, its owner classes, the four jobs and the files.
namespace kestrane {

/// Depth band of every plane fit of the factory calibration. Any value but LASER_TYPE_FAR acts as
/// LASER_TYPE_STANDARD.
enum _LASER_TYPE : std::int32_t {
  LASER_TYPE_STANDARD = 0,  ///< 100 to 1000, both included
  LASER_TYPE_FAR = 1        ///< 220 to 1000, both included
};

/// Whether the factory calibration refines the grid corners against the points of each cell.
enum _KESTRANE_OPTIM_FLAG : std::int32_t {
  KESTRANE_OPTIM_OFF = 0,  ///< corners lie on the planes of their sectors
  KESTRANE_OPTIM_ON = 1    ///< corners follow the points of their cells, by up to 0.5 in x
};

/// The cell of every table; the table says what the three numbers mean.
struct _LASER_TRIPLE {
  double v[3];  ///< a plane, a point, a line or three figures
};

/// One line of cells.
struct _LASER_LINE_INFOS {
  _LASER_TRIPLE* cells;  ///< not owned
  std::int32_t count;    ///< cells in use
};

/// One table: 15 lines of 50 cells (blocks) or 16 lines of 51 cells (corners). A line is one step
/// across the fan, its cells run along the depth.
struct _LASER_LINES_INFOS {
  _LASER_LINE_INFOS* lines;  ///< not owned
  std::int32_t count;        ///< lines in use
};

/// Bounds of the cells, shared by all planes of one table. The measuring volume is a fan of 60
/// degrees in the y-z plane, from depth 150 to 1500.
struct _LASER_PLANE_GRIDS {
  std::int32_t grid_head[4];  ///< carried along, never computed here
  double grid_z[51];          ///< depth of corner k
  double grid_y_start[51];    ///< y of the fan's lower edge at that depth
  double grid_y_step[51];     ///< width of a block at that depth
  double z_start;             ///< depth of corner 0
  double z_step;              ///< depth of a block
};

/// One plane's row of the library's own plane table.
struct _LASER_PLANE_BLOCK_INFO {
  _LASER_LINES_INFOS block;      ///< local planes (a, b, c); a cell whose a is exactly 0.0 is empty
  _LASER_LINES_INFOS block_aux;  ///< laid out beside `block`; neither read nor written
  double pivot[3];               ///< the point about which the plane was last rotated
  double laser_plane_R[3];       ///< (a, b, c) of the whole plane
  std::uint8_t plane_flag;       ///< cleared when the block is carved
};

/// The library's own plane table. Owned by LASER_PLANE_BLOCK_INFOS_GROUP.
struct _LASER_PLANE_BLOCK_INFOS {
  _LASER_PLANE_BLOCK_INFO* planes;  ///< rows in plane order
  _LASER_PLANE_GRIDS* grids;        ///< cell bounds
  std::int32_t plane_count;         ///< rows in use
  std::int32_t plane_capacity;      ///< rows that the owner's block holds
};

/// Per plane, how well each block's plane fits its points: 15 x 50 cells of (largest, mean,
/// standard deviation) of the signed distances; all 0.0 for a block without points.
struct _LASER_PLANE_INDICATORS_INFOS {
  _LASER_LINES_INFOS* planes;   ///< one table per plane, in plane order
  std::int32_t plane_count;     ///< rows in use
  std::int32_t plane_capacity;  ///< rows that the owner's block holds
};

/// Per plane, the grid corner points: 16 x 51 cells of (x, y, z).
struct _LASER_PLANE_GRID_CORNERS_INFOS {
  _LASER_LINES_INFOS* planes;   ///< one table per plane, in plane order
  std::int32_t plane_count;     ///< rows in use
  std::int32_t plane_capacity;  ///< rows that the owner's block holds
};

/// Per plane, 16 x 51 lines (a, b, c) of a t + b x + c = 0, which tie a corner's x to the condition
/// t of the device.
struct _LASER_PLANE_GRID_OPT_COEFFS_INFOS {
  _LASER_LINES_INFOS* planes;   ///< one table per plane, in plane order
  std::int32_t plane_count;     ///< rows in use
  std::int32_t plane_capacity;  ///< rows that the owner's block holds
};

/// Several corner tables side by side.
struct _LASER_GRID_PLANE_GROUPS {
  _LASER_PLANE_GRID_CORNERS_INFOS** groups;        ///< one per group
  _LASER_PLANE_GRID_CORNERS_INFOS** groups_spare;  ///< as long, all null
  std::int32_t group_count;                        ///< groups in use
  std::int32_t group_capacity;                     ///< groups that the owner holds
};

/// Everything that the calibration leaves for the run-time compensation of one device.
struct _COMPENSATOR_COEFFS {
  _LASER_PLANE_GRID_OPT_COEFFS_INFOS* opt_coeffs;  ///< per-corner coefficients
  std::int32_t plane_count;                        ///< planes in use
  std::int32_t plane_capacity;                     ///< planes that the owner holds
  std::int32_t range_first[20];                    ///< first plane of each plane range
  std::int32_t range_last[20];                     ///< last plane of each plane range, included
  std::int32_t range_count;                        ///< plane ranges in use
  double* Mbs_factory_to_user;  ///< 100 slots of 12: a rotation, row by row, then a translation
};

}  // namespace kestrane

/// One plane's row in the host's form.
struct _MRV_LASER_PLANE_BLOCK_INFO {
  kestrane::_LASER_LINES_INFOS block;  ///< local planes (a, b, c), as in the library's own row
  double laser_plane_R[3];             ///< (a, b, c) of the whole plane
};

/// The plane table as the host holds it. Its memory must have room for every line and cell that
/// the library copies there.
struct _MRV_LASER_PLANE_BLOCK_INFOS {
  _MRV_LASER_PLANE_BLOCK_INFO* planes;  ///< rows in plane order
  kestrane::_LASER_PLANE_GRIDS* grids;  ///< cell bounds
  std::int32_t plane_count;             ///< rows in use
};

/// A rigid transform as a matrix: p goes to R p + T.
struct _MRV_EXTRINSIC_PARAM {
  double R[9];  ///< rotation, row by row
  double T[3];  ///< translation
};

/// A rigid transform as a quaternion.
struct _MRV_TRANSFORM {
  double quaternion[4];   ///< unit, in the order x, y, z, w
  double translation[3];  ///< x, y, z
};

/// One measured point. An x that is not a number marks a dropped point.
struct _KESTRANE_ID_POINT3D {
  double x;         ///< across the sheets; not a number for a dropped point
  double y;         ///< along the laser line
  double z;         ///< depth
  std::int32_t id;  ///< number of the capture frame
};

/// A counted array of points in host memory.
struct _KESTRANE_ID_POINT3DS {
  _KESTRANE_ID_POINT3D* points;  ///< not owned
  std::int32_t count;            ///< points
};

/// The device's present condition and its compensation gains.
struct _KESTRANE_COMPENSATE_PARAM {
  double temperature;         ///< present; only values strictly between -20 and 100 scale a plane
  double temperature_ref;     ///< at calibration
  double drift;               ///< second present reading
  double drift_ref;           ///< at calibration
  double drift_gain;          ///< gain on the second reading
  double temperature_spread;  ///< rotation, radians per plane step and per unit of temperature
  double drift_spread;        ///< rotation, radians per plane step and per unit of the gained drift
  double scale_per_degree;    ///< relative growth of a plane's distance per unit of temperature
};

/// What the scanner library beside this one shares with it.
namespace morvia {

/// Four machine words of the scanner library beside this one; only its assignment lives here.
struct MORVIA_LASER_PLANE_CONTAINER {
  std::uint64_t words[4];  ///< of no meaning here

  /// Copies the four words.
  KESTRANE_API MORVIA_LASER_PLANE_CONTAINER& operator=(const MORVIA_LASER_PLANE_CONTAINER& other);
};

}  // namespace morvia

/// The layout is part of the interface.
static_assert(sizeof(kestrane::_LASER_TRIPLE) == 24);
static_assert(sizeof(kestrane::_LASER_LINE_INFOS) == 16);
static_assert(sizeof(kestrane::_LASER_LINES_INFOS) == 16);
static_assert(sizeof(kestrane::_LASER_PLANE_GRIDS) == 1256);
static_assert(sizeof(kestrane::_LASER_PLANE_BLOCK_INFO) == 88);
static_assert(sizeof(kestrane::_LASER_PLANE_BLOCK_INFOS) == 24);
static_assert(sizeof(kestrane::_LASER_PLANE_INDICATORS_INFOS) == 16);
static_assert(sizeof(kestrane::_LASER_PLANE_GRID_CORNERS_INFOS) == 16);
static_assert(sizeof(kestrane::_LASER_PLANE_GRID_OPT_COEFFS_INFOS) == 16);
static_assert(sizeof(kestrane::_LASER_GRID_PLANE_GROUPS) == 24);
static_assert(sizeof(kestrane::_COMPENSATOR_COEFFS) == 192);
static_assert(sizeof(_MRV_LASER_PLANE_BLOCK_INFO) == 40);
static_assert(sizeof(_MRV_LASER_PLANE_BLOCK_INFOS) == 24);
static_assert(sizeof(_MRV_EXTRINSIC_PARAM) == 96);
static_assert(sizeof(_MRV_TRANSFORM) == 56);
static_assert(sizeof(_KESTRANE_ID_POINT3D) == 32);
static_assert(sizeof(_KESTRANE_ID_POINT3DS) == 16);
static_assert(sizeof(_KESTRANE_COMPENSATE_PARAM) == 64);
static_assert(sizeof(morvia::MORVIA_LASER_PLANE_CONTAINER) == 32);
