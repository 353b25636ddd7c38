// The points of a cloud that can be refined with, in an order that does not depend on theirs.
//
// in    a plane's points as the host has them, the depths to take
// out   usable points sorted by place, their interpolation weights and block, the frames that they
//       belong to
#pragma once

#include <cstdint>
#include <vector>

#include "kestrane/quality/refinement.h"
#include "quality/refinement/interpolation.h"

namespace kestrane::quality::refinement {

// A usable point: finite, inside the depths, at most 0.02 in u outside the fan's edge. There may be
// millions, so its numbers are packed.
struct Sample {
  double x;
  double y;
  double z;
  std::int32_t frame;  // rank of its capture frame among all usable points, from 0
  std::int16_t cell;   // of the nodes: 15 j + i
  std::int16_t block;  // of the table: 50 line + cell; -1 where a host would find none
};

struct Samples {
  std::vector<Sample> points;
  std::vector<std::int32_t> frames;  // ids by rank
  std::int64_t not_finite = 0;
  std::int64_t outside = 0;
};

Samples usable_samples(const FanNodes& nodes, _KESTRANE_ID_POINT3DS points,
                       const RefinementSettings& settings);

// The weights of every sample.
std::vector<Stencil> stencils_of(const FanNodes& nodes, const std::vector<Sample>& samples);

}  // namespace kestrane::quality::refinement
