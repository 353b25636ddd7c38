// The plane of a block: what the table can hold of a surface.
//
// in    values of a surface at all nodes, how many samples lie in each sixteenth of each block
// out   per block the plane in x that follows the surface best over the rectangle that the look-up
//       takes for it
//
// A block's rectangle is not the quadrilateral of four nodes: it is cut at even steps of y at the
// depth where it begins. The surface is taken at the middles of the rectangle's 4 x 4 parts, each
// with the weight n_s + max(0.25, 0.1 n / 16), n_s the samples in that part and n those of the
// block: where samples crowd the plane follows them, and no part goes unheard.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "kestrane/records.h"
#include "quality/refinement/samples.h"

namespace kestrane::quality::refinement {

// x = p[0] + p[1] (y - y0) + p[2] (z - z0).
struct BlockPlane {
  double y0 = 0.0, z0 = 0.0;
  std::array<double, 3> p = {};

  double at(double y, double z) const { return p[0] + p[1] * (y - y0) + p[2] * (z - z0); }
};

// The linear map from node values to the plane of one block, made once for many surfaces.
class BlockMap {
 public:
  // counts  samples in the 16 parts, part 4 s + t is s-th across and t-th along
  BlockMap(const FanNodes& nodes, const _LASER_PLANE_GRIDS& grids, std::int32_t block,
           const std::array<std::int32_t, 16>& counts);

  BlockPlane plane_of(const std::vector<double>& values) const;

 private:
  static constexpr int kMostAcross = 7;  // nodes that the rectangle of a block reaches
  double y0_, z0_;
  int first_u_, across_, first_z_;
  std::array<std::array<double, 4 * kMostAcross>, 3> map_ = {};
};

// Samples in the parts of every block; only samples of a block are counted.
//
// counted  per sample
std::vector<std::array<std::int32_t, 16>> part_counts(const _LASER_PLANE_GRIDS& grids,
                                                      const std::vector<Sample>& samples,
                                                      const std::vector<std::uint8_t>& counted);

}  // namespace kestrane::quality::refinement
