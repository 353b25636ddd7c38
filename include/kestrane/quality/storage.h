/// @file
/// Saving and reading of both calibration files without surprises.
///
/// - Formats: those of files.h. Neither has a checksum: a flipped digit that leaves a number is
///   read as that number.
/// - Saving: a new file is written beside the target, synced, read back, compared (a table to the
///   six digits that its format has, coefficients to the bit) and renamed onto the target, and the
///   folder is synced. Whoever looks sees the old file or the new one, each whole, also after a
///   crash between any two steps; after any failure the old file is as it was. A process that is
///   killed may leave a file `<name>.new-...` or `<name>.old-...` beside the target. Symbolic links
///   are followed. The new file has the permissions of the old one, but not its other hard links.
/// - Reading: a file that is cut, goes on after its end, has counts that are not those of a full or
///   an empty row, or numbers that are not finite is refused: "cut after plane 3, line 7" names the
///   last plane and line that are complete. Planes and lines count from 0.
/// - Errors: `FileError` with path and reason; `std::invalid_argument` for a table or a record that
///   no file can hold, before a file is touched; `std::bad_alloc`.
/// - Threads: calls share nothing; of two that save the same path one wins as a whole.

#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "kestrane/buffers.h"
#include "kestrane/export.h"
#include "kestrane/quality/errors.h"
#include "kestrane/quality/plane_table.h"
#include "kestrane/records.h"

namespace kestrane::quality {

/// What six digits have made of a table.
struct SavedTable {
  /// The largest |x of the file - x of the table| over the corners and middles of all blocks that
  /// are not empty, in the unit of the points; 0 without such a block.
  double largest_move = 0.0;
  std::int32_t plane = -1;  ///< where that is; -1 without a block
  Block block = {};         ///< where that is
};

/// Saves a plane table; `grid_head` is not in the file.
///
/// @throws std::invalid_argument  the table has no planes, or a number that is not finite
/// @throws FileError              the file could not be written; the old one is intact
KESTRANE_API SavedTable save_table(const PlaneTable& table, const std::string& path);

/// Reads a plane table; `grid_head` is 0.
///
/// @throws FileError  the file could not be read or is not a whole table of 1 to 100 planes
KESTRANE_API PlaneTable read_table(const std::string& path);

/// Saves a coefficient record.
///
/// @throws std::invalid_argument  a pointer is null, the plane count is outside 1 to 100 or not
///                                that of the coefficient table, a row is neither full (16 x 51)
///                                nor empty, there are more than 20 ranges or less than none, or a
///                                number is not finite
/// @throws FileError              the file could not be written; the old one is intact
KESTRANE_API void save_coefficients(const _COMPENSATOR_COEFFS& record, const std::string& path);

/// Reads a coefficient record with as many planes as the file has. Its owner can be handed to
/// whatever takes the record.
///
/// @throws FileError  the file could not be read or is not a whole record of 1 to 100 planes
KESTRANE_API std::unique_ptr<LASER_COMPENSATOR_COEFFS_MANAGER> read_coefficients(
    const std::string& path);

}  // namespace kestrane::quality
