#include "quality/refinement/cell_planes.h"

#include <Eigen/Dense>
#include <algorithm>

namespace kestrane::quality::refinement {
namespace {

constexpr int kParts = 4;  // in each direction

// The rectangle that the look-up takes for a block.
struct Rectangle {
  double y, z;
  double width, height;
};

Rectangle rectangle_of(const _LASER_PLANE_GRIDS& grids, std::int32_t block) {
  const std::int32_t line = block / kBlocks.cells;
  const std::int32_t k = block % kBlocks.cells;
  return {grids.grid_y_start[k] + line * grids.grid_y_step[k], grids.grid_z[k],
          grids.grid_y_step[k], grids.z_step};
}

int part_of(double quotient) {
  return static_cast<int>(std::clamp(quotient * kParts, 0.0, kParts - 1.0));
}

}  // namespace

BlockMap::BlockMap(const FanNodes& nodes, const _LASER_PLANE_GRIDS& grids, std::int32_t block,
                   const std::array<std::int32_t, 16>& counts)
    : first_u_(kAcross) {
  const Rectangle r = rectangle_of(grids, block);
  y0_ = r.y + 0.5 * r.width;
  z0_ = r.z + 0.5 * r.height;
  double n = 0.0;
  for (const std::int32_t count : counts) n += count;
  const double least = std::max(0.25, 0.1 * n / 16.0);

  std::array<Stencil, 16> stencils;
  Eigen::Matrix<double, 16, 3> places;
  Eigen::Matrix<double, 16, 1> weights;
  int end_u = 0;
  for (int s = 0; s < kParts; ++s) {
    for (int t = 0; t < kParts; ++t) {
      const int part = kParts * s + t;
      const auto at = static_cast<std::size_t>(part);
      const double y = r.y + (s + 0.5) * r.width / kParts;
      const double z = r.z + (t + 0.5) * r.height / kParts;
      stencils[at] = stencil_of(weights_across(nodes, y / z), weights_along(nodes, z));
      places.row(part) << 1.0, y - y0_, z - z0_;
      weights[part] = counts[at] + least;
      first_u_ = std::min<int>(first_u_, stencils[at].first_across);
      end_u = std::max(end_u, stencils[at].first_across + 4);
    }
  }
  across_ = end_u - first_u_;
  first_z_ = stencils[0].first_along;
  const Eigen::Matrix<double, 3, 16> weighted = places.transpose() * weights.asDiagonal();
  const Eigen::Matrix3d normal = weighted * places;
  const Eigen::Matrix<double, 3, 16> fit = normal.ldlt().solve(weighted);
  for (int part = 0; part < 16; ++part) {
    const Stencil& stencil = stencils[static_cast<std::size_t>(part)];
    for (int j = 0; j < 4; ++j) {
      for (int i = 0; i < 4; ++i) {
        const auto node =
            static_cast<std::size_t>(across_ * j + stencil.first_across + i - first_u_);
        const double w = stencil.along[j] * stencil.across[i];
        for (int c = 0; c < 3; ++c) map_[static_cast<std::size_t>(c)][node] += fit(c, part) * w;
      }
    }
  }
}

BlockPlane BlockMap::plane_of(const std::vector<double>& values) const {
  BlockPlane plane{y0_, z0_, {}};
  for (int j = 0; j < 4; ++j) {
    const double* v = &values[node_index(first_u_, first_z_ + j)];
    const auto row = static_cast<std::size_t>(across_ * j);
    for (int i = 0; i < across_; ++i) {
      for (std::size_t c = 0; c < 3; ++c)
        plane.p[c] += map_[c][row + static_cast<std::size_t>(i)] * v[i];
    }
  }
  return plane;
}

std::vector<std::array<std::int32_t, 16>> part_counts(const _LASER_PLANE_GRIDS& grids,
                                                      const std::vector<Sample>& samples,
                                                      const std::vector<std::uint8_t>& counted) {
  std::vector<std::array<std::int32_t, 16>> counts(
      static_cast<std::size_t>(kBlocks.lines * kBlocks.cells));
  for (std::size_t n = 0; n < samples.size(); ++n) {
    const Sample& sample = samples[n];
    if (counted[n] == 0 || sample.block < 0) continue;
    const Rectangle r = rectangle_of(grids, sample.block);
    const int s = part_of((sample.y - r.y) / r.width);
    const int t = part_of((sample.z - r.z) / r.height);
    ++counts[static_cast<std::size_t>(sample.block)][static_cast<std::size_t>(kParts * s + t)];
  }
  return counts;
}

}  // namespace kestrane::quality::refinement
