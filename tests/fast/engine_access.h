// The engine's private operations and fields.
#pragma once

#include "kestrane/fast_calib.h"
#include "tests/support/reveal.h"

namespace engine_access {

KESTRANE_REVEAL(AllocBufSize, kestrane::KestraneLaserFastCalibrator, alloc_buf_size);
KESTRANE_REVEAL(FilterPointByFrame, kestrane::KestraneLaserFastCalibrator, filter_point_by_frame);
KESTRANE_REVEAL(DivideInteriorPlanes, kestrane::KestraneLaserFastCalibrator,
                divide_interior_planes);
KESTRANE_REVEAL(Buffer, kestrane::KestraneLaserFastCalibrator, buffer);
KESTRANE_REVEAL(Standard, kestrane::KestraneLaserFastCalibrator, standard);
KESTRANE_REVEAL(Extrinsic, kestrane::KestraneLaserFastCalibrator, extrinsic);

}  // namespace engine_access
