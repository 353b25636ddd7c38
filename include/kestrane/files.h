/// @file
/// Calibration data on disk: a binary file of coefficients and a text file of plane tables.
///
/// - Formats: both are the record's numbers in a fixed order, each count in front of what it
///   counts, without a magic number, a version or a checksum.
/// - Coefficients: 32-bit integers and 64-bit reals in the machine's byte order, no padding. Number
///   of planes; per plane the number of lines; per line the number of cells and 24 bytes a cell;
///   number of ranges and first and last of each; number of transforms and three rows of R R R T of
///   each.
/// - Plane table: white space between numbers; 51 + 51 + 51 + 2 numbers of the grid record, one per
///   line; number of planes; per plane the number of lines; per line the number of cells and one
///   cell per line; after a plane's lines its `laser_plane_R`. Six significant digits, so a table
///   that is read back is not the saved one to the last bit.
/// - Locale: neither the host's C++ locale nor its C locale changes what is written or read.
/// - Memory: a record must be carved already, with room for what the file holds; nothing is
///   allocated here.
/// - Safety: a reader takes any bytes. It never writes outside 16 x 51 cells of a coefficient
///   table, 15 x 50 cells of a plane table, 20 ranges and 100 transforms: a larger count in the
///   file is not stored and ends the call with the status of a wrong plane count. A negative count
///   is stored, and nothing belongs to it.
/// - Ends: a file that is cut short or malformed is not a failure: everything before that place
///   is in the record, every field after it stays as it was, and the call returns KESTRANE_OK,
///   unless the plane count itself is missing. The units are single numbers, but a cell of the
///   coefficient file counts as one: it is never stored in part.
/// - Writers: truncate a file that exists. A failed write or close is not reported.
/// - Threads: calls on different records and files are independent. No file is left open, and an
///   open file locks no one out.
///
/// Only the standard allocation exception could leave one of these, and none of them allocates.

#pragma once

#include <string>

#include "kestrane/export.h"
#include "kestrane/records.h"

namespace kestrane {

/// Reads a coefficient file into `record`. The counts of ranges and cells become those of the file,
/// the record's `plane_count` stays. An empty file changes nothing.
///
/// @retval KESTRANE_ERR_INVALID_PARAM   `plane_count` is below 1 or above `plane_capacity`
/// @retval KESTRANE_ERR_NULL_POINTER    `opt_coeffs` or its `planes` is null
/// @retval KESTRANE_ERR_FILE_OPEN       the file could not be opened, or is a folder
/// @retval KESTRANE_ERR_COUNT_MISMATCH  the file has another number of planes:
///                                      `opt_coeffs->plane_count` is the file's then, and nothing
///                                      else has changed; or a count in the file goes beyond the
///                                      record: what stood before it has been read
///
/// Checked in this order, the first two before the file is touched.
KESTRANE_API _KESTRANE_STATUS read_compensator_coeffs(const std::string& path,
                                                      _COMPENSATOR_COEFFS& record);

/// Writes `record` with the counts that it holds, whatever they are. The number of planes is that
/// of `opt_coeffs`, the number of transforms that of the record.
///
/// @retval KESTRANE_ERR_INVALID_PARAM  `plane_count` is below 1 or above `plane_capacity`
/// @retval KESTRANE_ERR_NULL_POINTER   `opt_coeffs` or its `planes` is null
/// @retval KESTRANE_ERR_FILE_OPEN      the file could not be opened
KESTRANE_API _KESTRANE_STATUS save_compensator_coeffs(_COMPENSATOR_COEFFS& record,
                                                      const std::string& path);

/// Reads a plane table into `record`: grid bounds, cells, counts and whole planes. `grid_head`,
/// `block_aux`, `pivot` and `plane_flag` are not in the file and stay.
///
/// @retval KESTRANE_ERR_NULL_POINTER   `planes` or `grids` is null
/// @retval KESTRANE_ERR_FILE_OPEN      the file could not be opened, or is a folder
/// @retval KESTRANE_ERR_INVALID_PARAM  the file's number of planes is not `plane_count`, where a
///                                     missing one counts as 0: the grid bounds have been read
///                                     then; or a count in the file goes beyond 15 x 50: what stood
///                                     before it has been read
KESTRANE_API _KESTRANE_STATUS read_plane_block_infos(const std::string& path,
                                                     _LASER_PLANE_BLOCK_INFOS& record);

/// Writes `record` with the counts that it holds. A table without planes ends after the line with
/// the 0.
///
/// @retval KESTRANE_ERR_NULL_POINTER  `planes` or `grids` is null
/// @retval KESTRANE_ERR_FILE_OPEN     the file could not be opened
KESTRANE_API _KESTRANE_STATUS save_plane_block_infos(_LASER_PLANE_BLOCK_INFOS& record,
                                                     const std::string& path);

}  // namespace kestrane
