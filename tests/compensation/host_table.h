// A plane table as a host holds it, with room for 15 lines of 50 cells in each plane.
#pragma once

#include <cstdint>
#include <vector>

#include "compensation/same_value.h"
#include "kestrane/records.h"
#include "simulation/random.h"

namespace kestrane_test {

class HostTable {
 public:
  static constexpr std::int32_t kLines = 15;
  static constexpr std::int32_t kCells = 50;

  // All counts full, all cells (0, 0, 0).
  explicit HostTable(std::int32_t planes)
      : rows_(static_cast<std::size_t>(planes)),
        lines_(rows_.size() * kLines),
        cells_(lines_.size() * kCells) {
    for (std::size_t i = 0; i < lines_.size(); ++i) lines_[i] = {&cells_[i * kCells], kCells};
    for (std::size_t p = 0; p < rows_.size(); ++p) rows_[p].block = {&lines_[p * kLines], kLines};
  }
  HostTable(const HostTable&) = delete;
  HostTable& operator=(const HostTable&) = delete;
  HostTable(HostTable&&) = default;

  std::int32_t size() const { return static_cast<std::int32_t>(rows_.size()); }

  _MRV_LASER_PLANE_BLOCK_INFOS record() { return {rows_.data(), nullptr, size()}; }

  _MRV_LASER_PLANE_BLOCK_INFO& row(std::int32_t p) { return rows_[static_cast<std::size_t>(p)]; }
  kestrane::_LASER_LINE_INFOS& line(std::int32_t p, std::int32_t j) {
    return lines_[static_cast<std::size_t>(p * kLines + j)];
  }
  double* cell(std::int32_t p, std::int32_t j, std::int32_t k) {
    return cells_[static_cast<std::size_t>((p * kLines + j) * kCells + k)].v;
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

  // Sheets of nearly constant x, each cell a little off its plane; some cells are empty.
  void fill_like_a_scanner(simulation::Random& random) {
    for (std::int32_t p = 0; p < size(); ++p) {
      double* whole = row(p).laser_plane_R;
      whole[0] = random.uniform(-0.012, -0.008);
      whole[1] = random.uniform(-1e-5, 1e-5);
      whole[2] = random.uniform(-1e-3, 1e-3);
      for (std::int32_t j = 0; j < kLines; ++j) {
        for (std::int32_t k = 0; k < kCells; ++k) {
          const bool empty = random.index(10) == 0;
          for (int i = 0; i < 3; ++i) {
            cell(p, j, k)[i] = empty ? 0.0 : whole[i] * random.uniform(0.98, 1.02);
          }
        }
      }
    }
  }

 private:
  std::vector<_MRV_LASER_PLANE_BLOCK_INFO> rows_;
  std::vector<kestrane::_LASER_LINE_INFOS> lines_;
  std::vector<kestrane::_LASER_TRIPLE> cells_;
};

// How many numbers of all cells and whole planes differ, counts aside.
inline int count_differences(HostTable& x, HostTable& y) {
  int different = 0;
  for (std::int32_t p = 0; p < x.size(); ++p) {
    for (int i = 0; i < 3; ++i) {
      different += same_value(x.row(p).laser_plane_R[i], y.row(p).laser_plane_R[i]) ? 0 : 1;
    }
    for (std::int32_t n = 0; n < HostTable::kLines * HostTable::kCells; ++n) {
      for (int i = 0; i < 3; ++i) {
        different += same_value(x.cell(p, 0, n)[i], y.cell(p, 0, n)[i]) ? 0 : 1;
      }
    }
  }
  return different;
}

}  // namespace kestrane_test
