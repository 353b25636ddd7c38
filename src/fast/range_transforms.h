// Where the calibration of a device with coefficients puts its result.
//
// in    coefficient records, a range of planes, a transform
// out   a status; the transform in the slot of each plane of the range
#pragma once

#include <cstddef>
#include <cstdint>

#include "kestrane/records.h"

namespace kestrane {

// Whether both records can serve the range; the first check that applies decides.
//
// lists  how many lists of points there are
//
// KESTRANE_ERR_COUNT_MISMATCH  not one list per plane
// KESTRANE_ERR_EMPTY_RANGE     the range is a single plane
// KESTRANE_ERR_INVALID_PARAM   a record without planes, or 20 ranges and more in `in`
// KESTRANE_ERR_NULL_POINTER    a record without coefficients
// KESTRANE_ERR_RANGE_UNKNOWN   no range of `in` is exactly this one
_KESTRANE_STATUS check_range(std::size_t lists, std::int32_t first_plane, std::int32_t last_plane,
                             const _COMPENSATOR_COEFFS& in, const _COMPENSATOR_COEFFS& out);

// Writes `transform` into the slots of first_plane to last_plane, both included. Planes beyond the
// table's have no slot.
void write_range(const _MRV_EXTRINSIC_PARAM& transform, std::int32_t first_plane,
                 std::int32_t last_plane, _COMPENSATOR_COEFFS& coeffs);

}  // namespace kestrane
