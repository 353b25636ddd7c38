/// @file
/// Owner classes: each begins with the record that it owns, so that a pointer to the object serves
/// as a pointer to the record.
///
/// - Memory: `init` takes one zeroed block for the whole object, divides it into sections whose
///   sizes are multiples of 128 bytes, and sets all pointers and counts. The destructor frees it.
///   `init` is for a fresh object: a second one loses the first block.
/// - Assignment: `operator=` copies every field flat, pointers included. Both objects then lead to
///   one block and only one of them may be destroyed; it serves to pass a table around, not to
///   duplicate one.
/// - Counts: a `get_...` operation sets the count in use and hands out the object. A count above
///   the capacity gives KESTRANE_ERR_INVALID_PARAM and changes nothing; a negative count is not
///   refused.
/// - Threads: one object serves one thread at a time; objects share nothing.

#pragma once

#include <cstdint>

#include "kestrane/export.h"
#include "kestrane/records.h"

namespace kestrane {

/// Owns a plane table of 15 x 50 blocks per plane with its grid record.
class KESTRANE_API LASER_PLANE_BLOCK_INFOS_GROUP : public _LASER_PLANE_BLOCK_INFOS {
 public:
  /// An object without memory, all fields zero: `init` comes next.
  LASER_PLANE_BLOCK_INFOS_GROUP();

  /// Frees the block.
  ~LASER_PLANE_BLOCK_INFOS_GROUP();

  /// Deleted: two objects would own one block.
  LASER_PLANE_BLOCK_INFOS_GROUP(const LASER_PLANE_BLOCK_INFOS_GROUP&) = delete;

  /// A flat copy, see above.
  LASER_PLANE_BLOCK_INFOS_GROUP& operator=(const LASER_PLANE_BLOCK_INFOS_GROUP& other);

  /// Allocates and carves the table for `capacity` planes, fills the grid record, and leaves
  /// `plane_count` and `plane_capacity` at `capacity`. A capacity of 0 gives a block that holds the
  /// grid record alone.
  ///
  /// @retval KESTRANE_ERR_NO_MEMORY  the block could not be had, or its size does not fit 32 bits
  ///                                 or falls below the grid record; no field has changed
  _KESTRANE_STATUS init(std::int32_t capacity);

  /// Sets `plane_count` and hands the record out; it stays owned by this object.
  ///
  /// @retval KESTRANE_ERR_INVALID_PARAM  `count` is above `plane_capacity`; nothing has changed
  _KESTRANE_STATUS get_laser_plane_info(std::int32_t count, _LASER_PLANE_BLOCK_INFOS*& out);

 private:
  std::int32_t alloc_buf_size(void* buffer, std::int32_t count, bool commit);
  void set_grids();
  void init_laser_plane_R();

  std::uint64_t reserved_;
  void* block_;
};

/// Owns an indicator table of 15 x 50 cells per plane.
class KESTRANE_API LASER_PLANE_INDICATOR_MANAGER : public _LASER_PLANE_INDICATORS_INFOS {
 public:
  /// An object without memory, all fields zero: `init` comes next.
  LASER_PLANE_INDICATOR_MANAGER();

  /// Frees the block.
  ~LASER_PLANE_INDICATOR_MANAGER();

  /// Deleted: two objects would own one block.
  LASER_PLANE_INDICATOR_MANAGER(const LASER_PLANE_INDICATOR_MANAGER&) = delete;

  /// A flat copy, see above.
  LASER_PLANE_INDICATOR_MANAGER& operator=(const LASER_PLANE_INDICATOR_MANAGER& other);

  /// Allocates and carves the table for `capacity` planes, and leaves `plane_count` and
  /// `plane_capacity` at `capacity`.
  ///
  /// @retval KESTRANE_ERR_NO_MEMORY  the block could not be had, or its size does not fit 32 bits;
  ///                                 no field has changed
  _KESTRANE_STATUS init(std::int32_t capacity);

  /// Sets `plane_count` and hands the record out; it stays owned by this object.
  ///
  /// @retval KESTRANE_ERR_INVALID_PARAM  `count` is above `plane_capacity`; nothing has changed
  _KESTRANE_STATUS get_laser_plane_indicator(std::int32_t count,
                                             _LASER_PLANE_INDICATORS_INFOS*& out);

 private:
  std::int32_t alloc_buf_size(void* buffer, std::int32_t count, bool commit);

  void* block_;
};

/// Owns a corner table of 16 x 51 cells per plane.
class KESTRANE_API LASER_PLANE_GRID_CORNERS_MANAGER : public _LASER_PLANE_GRID_CORNERS_INFOS {
 public:
  /// An object without memory, all fields zero: `init` comes next.
  LASER_PLANE_GRID_CORNERS_MANAGER();

  /// Frees the block.
  ~LASER_PLANE_GRID_CORNERS_MANAGER();

  /// Deleted: two objects would own one block.
  LASER_PLANE_GRID_CORNERS_MANAGER(const LASER_PLANE_GRID_CORNERS_MANAGER&) = delete;

  /// A flat copy, see above.
  LASER_PLANE_GRID_CORNERS_MANAGER& operator=(const LASER_PLANE_GRID_CORNERS_MANAGER& other);

  /// Allocates and carves the table for `capacity` planes, and leaves `plane_count` and
  /// `plane_capacity` at `capacity`.
  ///
  /// @retval KESTRANE_ERR_NO_MEMORY  the block could not be had, or its size does not fit 32 bits;
  ///                                 no field has changed
  _KESTRANE_STATUS init(std::int32_t capacity);

  /// Sets `plane_count` and hands the record out; it stays owned by this object.
  ///
  /// @retval KESTRANE_ERR_INVALID_PARAM  `count` is above `plane_capacity`; nothing has changed
  _KESTRANE_STATUS get_laser_plane_grid_corners(std::int32_t count,
                                                _LASER_PLANE_GRID_CORNERS_INFOS*& out);

 private:
  std::int32_t alloc_buf_size(void* buffer, std::int32_t count, bool commit);

  void* block_;
};

/// Owns a coefficient table of 16 x 51 cells per plane.
class KESTRANE_API LASER_PLANE_GRID_OPT_COEFFS_MANAGER : public _LASER_PLANE_GRID_OPT_COEFFS_INFOS {
 public:
  /// An object without memory, all fields zero: `init` comes next.
  LASER_PLANE_GRID_OPT_COEFFS_MANAGER();

  /// Frees the block.
  ~LASER_PLANE_GRID_OPT_COEFFS_MANAGER();

  /// Deleted: two objects would own one block.
  LASER_PLANE_GRID_OPT_COEFFS_MANAGER(const LASER_PLANE_GRID_OPT_COEFFS_MANAGER&) = delete;

  /// A flat copy, see above.
  LASER_PLANE_GRID_OPT_COEFFS_MANAGER& operator=(const LASER_PLANE_GRID_OPT_COEFFS_MANAGER& other);

  /// Allocates and carves the table for `capacity` planes, and leaves `plane_count` and
  /// `plane_capacity` at `capacity`.
  ///
  /// @retval KESTRANE_ERR_NO_MEMORY  the block could not be had, or its size does not fit 32 bits;
  ///                                 no field has changed
  _KESTRANE_STATUS init(std::int32_t capacity);

  /// Sets `plane_count` and hands the record out; it stays owned by this object.
  ///
  /// @retval KESTRANE_ERR_INVALID_PARAM  `count` is above `plane_capacity`; nothing has changed
  _KESTRANE_STATUS get_laser_plane_grid_opt_coeffs(std::int32_t count,
                                                   _LASER_PLANE_GRID_OPT_COEFFS_INFOS*& out);

 private:
  std::int32_t alloc_buf_size(void* buffer, std::int32_t count, bool commit);

  void* block_;
};

/// Owns several corner tables of equal capacity.
class KESTRANE_API LASER_GRID_PLANE_GROUPS_MANAGER : public _LASER_GRID_PLANE_GROUPS {
 public:
  /// An object without memory, all fields zero: `init` comes next.
  LASER_GRID_PLANE_GROUPS_MANAGER();

  /// Frees the tables and their array.
  ~LASER_GRID_PLANE_GROUPS_MANAGER();

  /// Deleted: two objects would own one block.
  LASER_GRID_PLANE_GROUPS_MANAGER(const LASER_GRID_PLANE_GROUPS_MANAGER&) = delete;

  /// A flat copy, see above.
  LASER_GRID_PLANE_GROUPS_MANAGER& operator=(const LASER_GRID_PLANE_GROUPS_MANAGER& other);

  /// Makes `count` corner tables of `planes` planes each.
  ///
  /// @retval KESTRANE_ERR_INVALID_PARAM  either number is 0; nothing has changed
  /// @retval KESTRANE_ERR_NO_MEMORY      something could not be allocated; tables made before stay
  ///                                     until the object is destroyed
  _KESTRANE_STATUS init(std::int32_t count, std::int32_t planes);

  /// Sets the counts in use of the first `count` tables and hands the record out.
  ///
  /// @retval KESTRANE_ERR_INVALID_PARAM  `count` is above `group_capacity`: nothing has changed; or
  ///                                     `planes` is above a table's capacity: `group_count` and
  ///                                     the tables before it have changed
  _KESTRANE_STATUS get_laser_grid_plane_groups(std::int32_t count, std::int32_t planes,
                                               _LASER_GRID_PLANE_GROUPS*& out);

 private:
  std::int32_t alloc_buf_size(void* buffer, std::int32_t count, bool commit);
  _KESTRANE_STATUS init_groups(std::int32_t planes, LASER_PLANE_GRID_CORNERS_MANAGER*& array,
                               _LASER_GRID_PLANE_GROUPS& record);

  void* block_;
  LASER_PLANE_GRID_CORNERS_MANAGER* managers_;
};

/// Owns the coefficients of one device: per-corner line models, plane ranges, and 100 slots of
/// factory-to-user transforms, whatever the capacity is.
class KESTRANE_API LASER_COMPENSATOR_COEFFS_MANAGER : public _COMPENSATOR_COEFFS {
 public:
  /// An object without memory, all fields zero: `init` comes next.
  LASER_COMPENSATOR_COEFFS_MANAGER();

  /// Frees transforms and table.
  ~LASER_COMPENSATOR_COEFFS_MANAGER();

  /// Deleted: two objects would own one block.
  LASER_COMPENSATOR_COEFFS_MANAGER(const LASER_COMPENSATOR_COEFFS_MANAGER&) = delete;

  /// Flat like the others: `opt_coeffs` then leads to the table inside `other`.
  LASER_COMPENSATOR_COEFFS_MANAGER& operator=(const LASER_COMPENSATOR_COEFFS_MANAGER& other);

  /// Allocates the transforms, all 100 a unit rotation without translation, and a coefficient table
  /// for `capacity` planes; no plane range is in use. The record's own `plane_count` is left alone:
  /// `get_compensator_coeffs` sets it, and comes before any use of the record.
  ///
  /// @retval KESTRANE_ERR_INVALID_PARAM  capacity 0; nothing has changed
  /// @retval KESTRANE_ERR_NO_MEMORY      a block could not be had; transforms that were allocated
  ///                                     before the table failed stay until the object is destroyed
  _KESTRANE_STATUS init(std::int32_t capacity);

  /// Sets the planes in use, in the record and in its coefficient table, and hands the record out.
  /// No data is cleared or moved.
  ///
  /// @retval KESTRANE_ERR_INVALID_PARAM  `count` is above `plane_capacity`; nothing has changed
  _KESTRANE_STATUS get_compensator_coeffs(std::int32_t count, _COMPENSATOR_COEFFS*& out);

 private:
  std::int32_t alloc_buf_size(void* buffer, std::int32_t count, bool commit);
  void init_Mbs_factory_to_user(double* store);
  _KESTRANE_STATUS init_grid_opt_coeffs(std::int32_t count,
                                        LASER_PLANE_GRID_OPT_COEFFS_MANAGER& manager,
                                        _COMPENSATOR_COEFFS& record);

  void* block_;
  LASER_PLANE_GRID_OPT_COEFFS_MANAGER opt_coeffs_manager_;
};

}  // namespace kestrane
