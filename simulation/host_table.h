// A host's own memory for a plane table, in the form in which the library hands tables out and
// takes them in: rows, lines and cells, all of the full shape of 15 x 50 blocks a plane.
//
// Memory  everything that `infos()` leads to belongs to the table and lives as long as it does.
//         A table can be moved, and the record moves along; it cannot be copied.
// Counts  start full, so that the library may write into every line and read from every one.
//         Numbers start at zero, the grid record too.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "kestrane/records.h"

namespace simulation {

class HostTable {
 public:
  static constexpr std::int32_t kLines = 15;
  static constexpr std::int32_t kCells = 50;

  // Room for `planes` rows.
  explicit HostTable(std::int32_t planes)
      : cells_(static_cast<std::size_t>(planes) * kLines * kCells),
        lines_(static_cast<std::size_t>(planes) * kLines),
        rows_(static_cast<std::size_t>(planes)),
        grids_(std::make_unique<kestrane::_LASER_PLANE_GRIDS>()),
        infos_{rows_.data(), grids_.get(), planes} {
    for (std::size_t n = 0; n < lines_.size(); ++n) lines_[n].cells = &cells_[n * kCells];
    for (std::size_t p = 0; p < rows_.size(); ++p) rows_[p].block.lines = &lines_[p * kLines];
    set_counts(kLines, kCells);
  }
  HostTable(const HostTable&) = delete;
  HostTable& operator=(const HostTable&) = delete;
  HostTable(HostTable&&) = default;

  // The record to hand to the library. What it leads to stays owned here, whatever the library or
  // a host writes into its `plane_count`.
  _MRV_LASER_PLANE_BLOCK_INFOS& infos() { return infos_; }

  std::int32_t size() const { return static_cast<std::int32_t>(rows_.size()); }
  const kestrane::_LASER_PLANE_GRIDS& grids() const { return *grids_; }

  _MRV_LASER_PLANE_BLOCK_INFO& row(std::int32_t plane) { return rows_[index(plane)]; }
  const _MRV_LASER_PLANE_BLOCK_INFO& row(std::int32_t plane) const { return rows_[index(plane)]; }

  kestrane::_LASER_LINE_INFOS& line(std::int32_t plane, std::int32_t line) {
    return lines_[index(plane * kLines + line)];
  }

  const kestrane::_LASER_TRIPLE& cell(std::int32_t plane, std::int32_t line,
                                      std::int32_t cell) const {
    return cells_[index((plane * kLines + line) * kCells + cell)];
  }

  // The cell's three numbers. A plane's cells follow one another line by line, so that line 0 and
  // cells 0 to 749 walk through all of them.
  double* abc(std::int32_t plane, std::int32_t line, std::int32_t cell) {
    return cells_[index((plane * kLines + line) * kCells + cell)].v;
  }

  // Gives every row and every line the same count.
  void set_counts(std::int32_t lines, std::int32_t cells) {
    for (_MRV_LASER_PLANE_BLOCK_INFO& row : rows_) row.block.count = lines;
    for (kestrane::_LASER_LINE_INFOS& line : lines_) line.count = cells;
  }

  // Gives every cell and every whole plane the same (a, b, c).
  void fill(double a, double b, double c) {
    for (kestrane::_LASER_TRIPLE& cell : cells_) cell = {{a, b, c}};
    for (_MRV_LASER_PLANE_BLOCK_INFO& row : rows_) {
      row.laser_plane_R[0] = a;
      row.laser_plane_R[1] = b;
      row.laser_plane_R[2] = c;
    }
  }

 private:
  static std::size_t index(std::int32_t number) { return static_cast<std::size_t>(number); }

  std::vector<kestrane::_LASER_TRIPLE> cells_;
  std::vector<kestrane::_LASER_LINE_INFOS> lines_;
  std::vector<_MRV_LASER_PLANE_BLOCK_INFO> rows_;
  std::unique_ptr<kestrane::_LASER_PLANE_GRIDS> grids_;
  _MRV_LASER_PLANE_BLOCK_INFOS infos_;
};

}  // namespace simulation
