// How far measured points lie from the standard, moved by a rigid transform.
//
// in    points per laser plane, the standard, a transform
// out   a distance per point, and three figures over all of them
#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "fast/point_sets.h"
#include "records/fan.h"
#include "records/shapes.h"

namespace kestrane {

struct ResidualIndicators {
  double mean;       // NaN where nothing was measured
  double max;        // -1000 where nothing was measured
  double deviation;  // half the mean absolute deviation; NaN where nothing was measured
};

// One laser plane of the standard, its cells moved by a transform. A cell is moved when the first
// point falls on it and serves all later ones: the distance is the same to the last bit.
class MovedPlane {
 public:
  // standard  outlives the object
  MovedPlane(const _LASER_PLANE_BLOCK_INFOS& standard, const _MRV_EXTRINSIC_PARAM& extrinsic);

  // Turns to another laser plane.
  void select(std::int32_t plane);

  // The distance of a point to its cell's moved plane. False where it has no cell; `distance` is
  // not written then. A cell with a = 0 gives NaN.
  bool measure(double x, double y, double z, double& distance) {
    const std::optional<CellIndex> at = find_cell(grids_, y, z);
    if (!at) return false;
    const auto index = static_cast<std::size_t>(at->line * kBlocks.cells + at->cell);
    if (states_[index] == State::kUnseen) states_[index] = move_cell(*at, cells_[index]);
    if (states_[index] == State::kEmpty) return false;
    const Cell& cell = cells_[index];
    // order fixed
    distance = std::abs(cell.abc[0] * x + cell.abc[1] * y + cell.abc[2] * z + 1.0) / cell.length;
    return true;
  }

 private:
  enum class State : std::uint8_t { kUnseen, kEmpty, kMoved };

  struct Cell {
    double abc[3];
    double length;  // of (a, b, c)
  };

  State move_cell(CellIndex at, Cell& cell) const;

  const _LASER_PLANE_BLOCK_INFOS* standard_;
  _LASER_PLANE_GRIDS grids_;
  _MRV_EXTRINSIC_PARAM extrinsic_;
  std::int32_t plane_ = 0;
  std::array<State, kBlocks.lines * kBlocks.cells> states_;
  std::array<Cell, kBlocks.lines * kBlocks.cells> cells_;
};

// Gathers distances, in order, and reduces them to the three figures.
class ResidualMeter {
 public:
  void clear() { distances_.clear(); }
  void reserve(std::size_t count) { distances_.reserve(count); }
  void add(double distance) { distances_.push_back(distance); }

  double mean() const;
  ResidualIndicators indicators() const;

 private:
  std::vector<double> distances_;
};

// Measures `points`, matrix i against plane first_plane + i. `residuals` has at least as many rows
// as `points`; each is resized to its matrix's columns, and the entry of a point without a cell
// keeps what stood there.
ResidualIndicators measure_residuals(const PointSets& points,
                                     const _LASER_PLANE_BLOCK_INFOS& standard,
                                     std::int32_t first_plane,
                                     const _MRV_EXTRINSIC_PARAM& extrinsic,
                                     ResidualSets& residuals);

}  // namespace kestrane
