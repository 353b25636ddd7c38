/// @file
/// A plane table that owns its memory.
///
/// - Units and frames: those of records.h. x across the sheets, y along a laser line, z depth; a
///   plane is (a, b, c) of a x + b y + c z + 1 = 0.
/// - Memory: P x 15 x 50 x 3 reals in one block, the whole planes and the grid record. A table is a
///   value: a copy shares nothing with its original.
/// - Empty: a cell has no plane where all three coefficients are below 2.2e-16 in size, where a is
///   0, or where a coefficient is not finite. Every look-up treats such a cell as not there.
/// - Threads: reading one table in several threads is safe, which includes `record()` of a constant
///   table.

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "kestrane/export.h"
#include "kestrane/records.h"

namespace kestrane::quality {

/// A block of a plane's table.
struct Block {
  std::int32_t line;  ///< step across the fan, 0 to 14
  std::int32_t cell;  ///< step along the depth, 0 to 49
};

/// A place in the fan, in the unit of the points.
struct FanPlace {
  double y;  ///< along the laser line
  double z;  ///< depth
};

/// A point, in the unit of the points.
struct Point {
  double x;  ///< across the sheets
  double y;  ///< along the laser line
  double z;  ///< depth
};

/// A plane table of 15 x 50 blocks per plane, with the whole planes and the bounds of the blocks.
class KESTRANE_API PlaneTable {
 public:
  static constexpr std::int32_t kLines = 15;        ///< lines of a plane
  static constexpr std::int32_t kCells = 50;        ///< cells of a line
  static constexpr std::int32_t kMostPlanes = 100;  ///< planes that the library can hold

  /// A table without planes.
  PlaneTable();

  /// Room for `planes` planes, 0 to 100, all numbers 0 and so all cells empty; the grid record is
  /// that of the fan, its `grid_head` 0.
  ///
  /// @throws std::invalid_argument  `planes` is outside 0 to 100
  explicit PlaneTable(std::int32_t planes);

  /// Copies the host's record: cells, whole planes, grid record. A row counts as 15 x 50 (all its
  /// cells are read) or, with 0 lines, as empty.
  ///
  /// @throws std::invalid_argument  an array is null, a count is neither, or there are more than
  ///                                100 planes
  static PlaneTable copy_of(const _MRV_LASER_PLANE_BLOCK_INFOS& record);

  /// The same for the library's own record.
  static PlaneTable copy_of(const _LASER_PLANE_BLOCK_INFOS& record);

  PlaneTable(const PlaneTable& other);                 ///< a deep copy
  PlaneTable& operator=(const PlaneTable& other);      ///< a deep copy; on failure nothing changes
  PlaneTable(PlaneTable&& other) noexcept;             ///< `other` is left without planes
  PlaneTable& operator=(PlaneTable&& other) noexcept;  ///< `other` is left without planes
  ~PlaneTable();

  std::int32_t planes() const { return static_cast<std::int32_t>(rows_.size()); }  ///< rows

  /// All coefficients, planes() x 15 x 50 x 3 in this order; null without planes. They stay owned
  /// by the table and where they are until it is assigned to, moved from or destroyed.
  double* data() { return cells_.empty() ? nullptr : cells_.front().v; }
  /// @overload
  const double* data() const { return cells_.empty() ? nullptr : cells_.front().v; }

  /// Number of reals at data().
  std::size_t size() const { return cells_.size() * 3; }

  /// The (a, b, c) of a block.
  ///
  /// @throws std::invalid_argument  there is no such plane or block
  _LASER_TRIPLE& cell(std::int32_t plane, Block at);
  /// @overload
  const _LASER_TRIPLE& cell(std::int32_t plane, Block at) const;

  /// The (a, b, c) of a whole plane: three reals.
  ///
  /// @throws std::invalid_argument  there is no such plane
  double* whole_plane(std::int32_t plane);
  /// @overload
  const double* whole_plane(std::int32_t plane) const;

  _LASER_PLANE_GRIDS& grids() { return grids_; }              ///< bounds of the blocks
  const _LASER_PLANE_GRIDS& grids() const { return grids_; }  ///< bounds of the blocks

  /// The host's record over this table: what the jobs read from and write to. All counts are full.
  /// It leads into the table's own memory, with the life of data().
  _MRV_LASER_PLANE_BLOCK_INFOS record();

  /// The same for a job that only reads (a standard, a compensator's parameters). Nothing may be
  /// written through it.
  _MRV_LASER_PLANE_BLOCK_INFOS record() const;

  /// Whether a block has no plane.
  ///
  /// @throws std::invalid_argument  there is no such plane or block
  bool is_empty(std::int32_t plane, Block at) const;

  /// Whether no block of the row has a plane.
  ///
  /// @throws std::invalid_argument  there is no such plane
  bool row_is_empty(std::int32_t plane) const;

  /// The block of (y, z) by the rule of the jobs, both indices truncated toward zero; none outside
  /// the 15 x 50 blocks or where a coordinate is not a number.
  std::optional<Block> lookup(double y, double z) const;

  /// x of the plane's sheet at (y, z): that of the block's plane. Not a number outside the blocks
  /// and in an empty block.
  ///
  /// @throws std::invalid_argument  there is no such plane
  double x_at(std::int32_t plane, double y, double z) const;

  /// Signed distance of a point from the plane of its block, + at larger x. Not a number outside
  /// the blocks and in an empty block.
  ///
  /// @throws std::invalid_argument  there is no such plane
  double distance(std::int32_t plane, const Point& point) const;

  /// The middle of a block in y and z, as its bounds cut it: even steps of y at its nearer depth.
  ///
  /// @throws std::invalid_argument  there is no such block
  FanPlace block_middle(Block at) const;

  /// Equal numbers of planes and equal bits in all coefficients, whole planes and the grid record;
  /// a value that is not a number equals any other such value, 0.0 and -0.0 differ.
  KESTRANE_API friend bool operator==(const PlaneTable& a, const PlaneTable& b);
  /// The opposite of ==.
  friend bool operator!=(const PlaneTable& a, const PlaneTable& b) { return !(a == b); }

 private:
  void wire();

  std::vector<_LASER_TRIPLE> cells_;
  std::vector<_LASER_LINE_INFOS> lines_;
  std::vector<_MRV_LASER_PLANE_BLOCK_INFO> rows_;
  _LASER_PLANE_GRIDS grids_;
};

}  // namespace kestrane::quality
