// The points of a plane's cloud as the figures see them: each with its block, its frame and its
// signed distance from the block's plane.
//
// in    a cloud, the plane's cells, the bounds of the blocks, the depth band of the fit
// out   the valid points in cloud order, one column per property; the cloud's frame numbers
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "kestrane/records.h"

namespace kestrane::quality {

// Depths that the fits of a laser type take, both ends included.
struct FitBand {
  double nearest;
  double farthest;
};
FitBand fit_band_of(_LASER_TYPE type);

// 15 x 50 planes, line by line.
using CellsOfPlane = std::span<const _LASER_TRIPLE>;

using Cloud = std::span<const _KESTRANE_ID_POINT3D>;

// All columns have the same length.
struct PlanePoints {
  std::vector<double> residual;
  std::vector<std::uint16_t> block;  // line * 50 + cell
  std::vector<std::int32_t> pose;    // rank of the point's frame in the list of frames

  std::size_t size() const { return residual.size(); }
};

// The distinct frame numbers of a cloud, ascending.
std::vector<std::int32_t> frames_of(Cloud cloud);

// Ranks of frame numbers among `frames`, which holds all that are asked for. Quick where points of
// one frame follow one another.
class FrameRanks {
 public:
  explicit FrameRanks(const std::vector<std::int32_t>& frames) : frames_(frames) {}

  std::int32_t of(std::int32_t frame) {
    if (frames_[rank_] != frame) {
      const auto found = std::lower_bound(frames_.begin(), frames_.end(), frame);
      rank_ = static_cast<std::size_t>(found - frames_.begin());
    }
    return static_cast<std::int32_t>(rank_);
  }

 private:
  const std::vector<std::int32_t>& frames_;
  std::size_t rank_ = 0;
};

// The points that are finite, inside the band, and in a block that has a plane.
//
// frames  those of the cloud
PlanePoints points_on_blocks(Cloud cloud, const std::vector<std::int32_t>& frames,
                             CellsOfPlane cells, const _LASER_PLANE_GRIDS& grids, FitBand band);

}  // namespace kestrane::quality
