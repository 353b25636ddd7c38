// The points of a plane's cloud as the figures see them: each with its block, its frame and its
// signed distance from the block's plane.
//
// in    a cloud, the plane's cells, the bounds of the blocks, the depth band of the fit
// out   the valid points in cloud order, one column per property; the cloud's frame numbers
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "kestrane/records.h"
#include "records/fan.h"
#include "records/shapes.h"

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

// Distances of points from the planes of their blocks.
class BlockResiduals {
 public:
  BlockResiduals(CellsOfPlane cells, const _LASER_PLANE_GRIDS& grids, FitBand band);

  // A point in its block, line * 50 + cell.
  struct Measured {
    std::size_t block;
    double residual;
  };

  // None for a point that is not finite, outside the band, or without a block that has a plane.
  std::optional<Measured> of(const _KESTRANE_ID_POINT3D& point) const {
    if (!std::isfinite(point.x) || !std::isfinite(point.y)) return std::nullopt;
    if (!(point.z >= band_.nearest && point.z <= band_.farthest)) return std::nullopt;
    const std::optional<CellIndex> at = find_cell(grids_, point.y, point.z);
    if (!at) return std::nullopt;
    const auto block = static_cast<std::size_t>(at->line * kBlocks.cells + at->cell);
    if (scales_[block] == 0.0) return std::nullopt;
    const double* abc = cells_[block].v;
    return Measured{
        block, scales_[block] * (abc[0] * point.x + abc[1] * point.y + abc[2] * point.z + 1.0)};
  }

 private:
  CellsOfPlane cells_;
  const _LASER_PLANE_GRIDS& grids_;
  FitBand band_;
  std::array<double, 750> scales_;  // sign(a) / |(a, b, c)|; 0 without a plane
};

// All columns have the same length.
struct PlanePoints {
  std::vector<double> residual;
  std::vector<std::uint16_t> block;  // line * 50 + cell
  std::vector<std::int32_t> pose;    // rank of the point's frame in the list of frames

  std::size_t size() const { return residual.size(); }
};

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
