// A stored standard and what a device that has moved since measures against it.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "kestrane/buffers.h"
#include "kestrane/records.h"
#include "simulation/scanner.h"

namespace fast_scene {

// A plane table in the library's form with the host's form over the same cells.
class Standard {
 public:
  explicit Standard(std::int32_t planes) {
    group_->init(planes);
    for (std::int32_t p = 0; p < planes; ++p) rows_.push_back({group_->planes[p].block, {0, 0, 0}});
  }

  explicit Standard(const std::vector<simulation::Sheet>& sheets)
      : Standard(static_cast<std::int32_t>(sheets.size())) {
    for (std::size_t p = 0; p < sheets.size(); ++p) {
      simulation::fill_true_table(sheets[p], {}, *group_->grids, group_->planes[p].block);
    }
  }

  const kestrane::_LASER_PLANE_BLOCK_INFOS& table() const { return *group_; }
  const kestrane::_LASER_PLANE_GRIDS& grids() const { return *group_->grids; }
  kestrane::_LASER_PLANE_GRIDS& grids() { return *group_->grids; }
  kestrane::_LASER_TRIPLE& cell(int plane, int line, int cell) {
    return group_->planes[plane].block.lines[line].cells[cell];
  }

  // All cells of one plane alike.
  void fill(int plane, kestrane::_LASER_TRIPLE abc) {
    for (int j = 0; j < 15; ++j) {
      for (int k = 0; k < 50; ++k) cell(plane, j, k) = abc;
    }
  }

  _MRV_LASER_PLANE_BLOCK_INFOS host() {
    return {rows_.data(), group_->grids, static_cast<std::int32_t>(rows_.size())};
  }

 private:
  std::unique_ptr<kestrane::LASER_PLANE_BLOCK_INFOS_GROUP> group_ =
      std::make_unique<kestrane::LASER_PLANE_BLOCK_INFOS_GROUP>();
  std::vector<_MRV_LASER_PLANE_BLOCK_INFO> rows_;
};

// One list per sheet, measured where `placement` has carried the sheets.
inline std::vector<std::vector<_KESTRANE_ID_POINT3D>> measure_all(
    const std::vector<simulation::Sheet>& sheets, const simulation::Placement& placement,
    simulation::CloudSettings settings) {
  std::vector<std::vector<_KESTRANE_ID_POINT3D>> lists;
  for (const simulation::Sheet& sheet : sheets) {
    lists.push_back(simulation::measure(sheet, placement, settings).points);
    ++settings.seed;
  }
  return lists;
}

}  // namespace fast_scene
