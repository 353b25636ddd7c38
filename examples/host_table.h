// A host's own memory for a plane table: rows, lines and cells in the form in which the library
// hands tables out and takes them in.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "kestrane/records.h"

namespace examples {

class HostTable {
 public:
  static constexpr int kLines = 15;
  static constexpr int kCells = 50;

  // Room for `planes` full rows; all counts start at that shape, all numbers at zero.
  explicit HostTable(int planes)
      : cells_(static_cast<std::size_t>(planes) * kLines * kCells),
        lines_(static_cast<std::size_t>(planes) * kLines),
        rows_(static_cast<std::size_t>(planes)) {
    for (std::size_t n = 0; n < lines_.size(); ++n) lines_[n] = {&cells_[n * kCells], kCells};
    for (std::size_t p = 0; p < rows_.size(); ++p) rows_[p].block = {&lines_[p * kLines], kLines};
    infos_ = {rows_.data(), &grids_, planes};
  }
  HostTable(const HostTable&) = delete;
  HostTable& operator=(const HostTable&) = delete;

  // The record to hand to the library; it stays owned here.
  _MRV_LASER_PLANE_BLOCK_INFOS& infos() { return infos_; }

  const kestrane::_LASER_PLANE_GRIDS& grids() const { return grids_; }
  const kestrane::_LASER_TRIPLE& cell(int plane, int line, int cell) const {
    return rows_[static_cast<std::size_t>(plane)].block.lines[line].cells[cell];
  }

 private:
  std::vector<kestrane::_LASER_TRIPLE> cells_;
  std::vector<kestrane::_LASER_LINE_INFOS> lines_;
  std::vector<_MRV_LASER_PLANE_BLOCK_INFO> rows_;
  kestrane::_LASER_PLANE_GRIDS grids_ = {};
  _MRV_LASER_PLANE_BLOCK_INFOS infos_ = {};
};

}  // namespace examples
