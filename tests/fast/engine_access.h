// Reaches the engine's private operations and fields: an explicit instantiation may name them.
#pragma once

#include "kestrane/fast_calib.h"

namespace engine_access {

template <class Tag, auto kMember>
struct Reveal {
  friend constexpr auto member(Tag) { return kMember; }
};

#define REVEAL(Tag, name)              \
  struct Tag {                         \
    friend constexpr auto member(Tag); \
  };                                   \
  template struct Reveal<Tag, &kestrane::KestraneLaserFastCalibrator::name>

REVEAL(AllocBufSize, alloc_buf_size);
REVEAL(FilterPointByFrame, filter_point_by_frame);
REVEAL(DivideInteriorPlanes, divide_interior_planes);
REVEAL(Buffer, buffer);
REVEAL(Standard, standard);
REVEAL(Extrinsic, extrinsic);

#undef REVEAL

}  // namespace engine_access
