// Where the planes of a plane's blocks come from, and how they meet.
//
// in    the plane's cells, the points that lie on each, the indicators of the job
// out   origins, seams, the measured share of a volume
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "kestrane/quality/factory.h"
#include "quality/factory/plane_points.h"

namespace kestrane::quality {

// The block at an index of 0 to 749, line by line.
inline Block block_at(std::size_t index) {
  return {static_cast<std::int32_t>(index / 50), static_cast<std::int32_t>(index % 50)};
}

// Per line of blocks, whether its sector has points of its own: an indicator that is not (0, 0, 0).
using OwnSectors = std::array<bool, 15>;
OwnSectors sectors_with_points(CellsOfPlane indicators);

// Origin of each block, line by line.
//
// points  of each block, without outliers
std::vector<Origin> block_origins(CellsOfPlane cells, const std::vector<std::int64_t>& points,
                                  const OwnSectors& own);

// Per block the largest step of x to a measured neighbour, at either end of the edge between them;
// not a number where the block is not measured, or no neighbour is.
//
// The edge between [j][k] and [j+1][k] ends at the corners (j+1, k) and (j+1, k+1) of the look-up,
// that between [j][k] and [j][k+1] at (j, k+1) and (j+1, k+1): the rectangles of neighbouring
// depths share no edge, since each is as wide as its nearer depth, and the nearer one's is not
// taken.
std::vector<double> block_seams(CellsOfPlane cells, const std::vector<Origin>& origins,
                                const _LASER_PLANE_GRIDS& grids);

// The blocks whose middle lies in a volume.
class BlocksInVolume {
 public:
  // table  gives the bounds of the blocks
  BlocksInVolume(const PlaneTable& table, const WorkingVolume& volume);

  bool empty() const { return blocks_.empty(); }

  // Share of its blocks that have this origin.
  double share(const std::vector<Origin>& origins, Origin wanted) const;

 private:
  std::vector<std::uint16_t> blocks_;
};

}  // namespace kestrane::quality
