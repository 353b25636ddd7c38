#include "quality/factory/blocks.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <utility>

#include "quality/cells.h"
#include "records/shapes.h"

namespace kestrane::quality {
namespace {

constexpr std::int64_t kMeasuredFrom = 10;  // points

std::size_t block_index(std::int32_t line, std::int32_t cell) {
  return static_cast<std::size_t>(line * kBlocks.cells + cell);
}

Origin origin_of(const _LASER_TRIPLE& cell, std::int64_t points, bool own_sector) {
  if (!has_plane(cell)) return Origin::kEmpty;
  if (points >= kMeasuredFrom) return Origin::kMeasured;
  if (points > 0) return Origin::kThin;
  return own_sector ? Origin::kExtended : Origin::kBorrowed;
}

// Corner (j, k) of the look-up's rectangles.
FanPlace corner_of(const _LASER_PLANE_GRIDS& grids, std::int32_t j, std::int32_t k) {
  return {grids.grid_y_start[k] + j * grids.grid_y_step[k], grids.grid_z[k]};
}

double step_at(const _LASER_TRIPLE& a, const _LASER_TRIPLE& b, FanPlace at) {
  return std::abs(plane_x(a, at.y, at.z) - plane_x(b, at.y, at.z));
}

// Keeps the larger one; anything is larger than a value that is not a number.
void raise(double& largest, double value) {
  if (!(largest >= value)) largest = value;
}

class Seams {
 public:
  Seams(CellsOfPlane cells, const std::vector<Origin>& origins)
      : cells_(cells), origins_(origins), steps_(cells.size(), kNotDetermined) {}

  void add(std::size_t a, std::size_t b, FanPlace one_end, FanPlace other_end) {
    if (origins_[a] != Origin::kMeasured || origins_[b] != Origin::kMeasured) return;
    const double step =
        std::max(step_at(cells_[a], cells_[b], one_end), step_at(cells_[a], cells_[b], other_end));
    raise(steps_[a], step);
    raise(steps_[b], step);
  }

  std::vector<double> take() { return std::move(steps_); }

 private:
  CellsOfPlane cells_;
  const std::vector<Origin>& origins_;
  std::vector<double> steps_;
};

}  // namespace

OwnSectors sectors_with_points(CellsOfPlane indicators) {
  OwnSectors own{};
  for (std::int32_t j = 0; j < kBlocks.lines; ++j) {
    const CellsOfPlane line = indicators.subspan(block_index(j, 0), 50);
    bool& is_own = own[static_cast<std::size_t>(j)];
    for (const _LASER_TRIPLE& cell : line) {
      is_own = is_own || cell.v[0] != 0.0 || cell.v[1] != 0.0 || cell.v[2] != 0.0;
    }
  }
  return own;
}

std::vector<Origin> block_origins(CellsOfPlane cells, const std::vector<std::int64_t>& points,
                                  const OwnSectors& own) {
  std::vector<Origin> origins;
  origins.reserve(cells.size());
  for (std::size_t b = 0; b < cells.size(); ++b) {
    const std::size_t line = b / static_cast<std::size_t>(kBlocks.cells);
    origins.push_back(origin_of(cells[b], points[b], own[line]));
  }
  return origins;
}

std::vector<double> block_seams(CellsOfPlane cells, const std::vector<Origin>& origins,
                                const _LASER_PLANE_GRIDS& grids) {
  Seams seams(cells, origins);
  for (std::int32_t j = 0; j < kBlocks.lines; ++j) {
    for (std::int32_t k = 0; k < kBlocks.cells; ++k) {
      const FanPlace far_corner = corner_of(grids, j + 1, k + 1);
      if (j + 1 < kBlocks.lines) {
        seams.add(block_index(j, k), block_index(j + 1, k), corner_of(grids, j + 1, k), far_corner);
      }
      if (k + 1 < kBlocks.cells) {
        seams.add(block_index(j, k), block_index(j, k + 1), corner_of(grids, j, k + 1), far_corner);
      }
    }
  }
  return seams.take();
}

BlocksInVolume::BlocksInVolume(const PlaneTable& table, const WorkingVolume& volume) {
  constexpr std::size_t kBlocksOfPlane = 750;
  for (std::size_t b = 0; b < kBlocksOfPlane; ++b) {
    const FanPlace middle = table.block_middle(block_at(b));
    if (volume.holds(middle.y, middle.z)) blocks_.push_back(static_cast<std::uint16_t>(b));
  }
}

double BlocksInVolume::share(const std::vector<Origin>& origins, Origin wanted) const {
  const auto count = std::count_if(blocks_.begin(), blocks_.end(),
                                   [&](std::uint16_t b) { return origins[b] == wanted; });
  return static_cast<double>(count) / static_cast<double>(std::ssize(blocks_));
}

}  // namespace kestrane::quality
