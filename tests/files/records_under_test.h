// Carved records full of random numbers, and everything that a record holds as one string of bytes,
// so that two records can be compared down to the cells that no count reaches.
#pragma once

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <string>

#include "kestrane/buffers.h"
#include "simulation/random.h"

namespace kestrane {

template <class T>
void append_bytes(std::string& to, const T& value) {
  to.append(reinterpret_cast<const char*>(&value), sizeof value);
}

inline void append_table(std::string& to, const _LASER_LINES_INFOS& table, int lines, int cells) {
  append_bytes(to, table.count);
  for (int j = 0; j < lines; ++j) {
    append_bytes(to, table.lines[j].count);
    for (int k = 0; k < cells; ++k) append_bytes(to, table.lines[j].cells[k]);
  }
}

// A carved coefficient record; rows, ranges and transforms hold raw random bits.
class Coefficients {
 public:
  Coefficients(std::int32_t capacity, std::int32_t planes, std::uint64_t seed) {
    EXPECT_EQ(manager_.init(capacity), KESTRANE_OK);
    EXPECT_EQ(manager_.get_compensator_coeffs(planes, record_), KESTRANE_OK);
    fill(seed);
  }

  _COMPENSATOR_COEFFS& operator*() { return *record_; }
  _COMPENSATOR_COEFFS* operator->() { return record_; }

  // Full tables, four ranges, and new numbers everywhere.
  void fill(std::uint64_t seed) {
    simulation::Random random(seed);
    record_->opt_coeffs->plane_count = record_->plane_count;
    for (int i = 0; i < record_->plane_capacity; ++i) fill_plane(random, i);
    record_->range_count = 4;
    for (auto* list : {record_->range_first, record_->range_last})
      for (int r = 0; r < 20; ++r) list[r] = static_cast<std::int32_t>(random.bits());
    for (int d = 0; d < 1200; ++d)
      record_->Mbs_factory_to_user[d] = std::bit_cast<double>(random.bits());
  }

  std::string all_bytes() const {
    std::string bytes;
    append_bytes(bytes, record_->plane_count);
    append_bytes(bytes, record_->plane_capacity);
    append_bytes(bytes, record_->opt_coeffs->plane_count);
    append_bytes(bytes, record_->opt_coeffs->plane_capacity);
    for (int i = 0; i < record_->plane_capacity; ++i)
      append_table(bytes, record_->opt_coeffs->planes[i], 16, 51);
    append_bytes(bytes, record_->range_count);
    append_bytes(bytes, record_->range_first);
    append_bytes(bytes, record_->range_last);
    bytes.append(reinterpret_cast<const char*>(record_->Mbs_factory_to_user), 9600);
    return bytes;
  }

 private:
  void fill_plane(simulation::Random& random, int plane) {
    _LASER_LINES_INFOS& table = record_->opt_coeffs->planes[plane];
    table.count = 16;
    for (int j = 0; j < 16; ++j) {
      table.lines[j].count = 51;
      for (int k = 0; k < 51; ++k)
        for (double& v : table.lines[j].cells[k].v) v = std::bit_cast<double>(random.bits());
    }
  }

  LASER_COMPENSATOR_COEFFS_MANAGER manager_;
  _COMPENSATOR_COEFFS* record_ = nullptr;
};

// A carved plane table; cells and whole planes hold numbers of the sizes that planes have.
class PlaneTable {
 public:
  PlaneTable(std::int32_t capacity, std::int32_t planes, std::uint64_t seed) {
    EXPECT_EQ(group_.init(capacity), KESTRANE_OK);
    EXPECT_EQ(group_.get_laser_plane_info(planes, record_), KESTRANE_OK);
    fill(seed);
  }

  _LASER_PLANE_BLOCK_INFOS& operator*() { return *record_; }
  _LASER_PLANE_BLOCK_INFOS* operator->() { return record_; }

  // Full tables and new numbers everywhere but in `block_aux`.
  void fill(std::uint64_t seed) {
    simulation::Random random(seed);
    _LASER_PLANE_GRIDS& grids = *record_->grids;
    for (double* list : {grids.grid_z, grids.grid_y_start, grids.grid_y_step})
      for (int k = 0; k < 51; ++k) list[k] = random.uniform(-1500.0, 1500.0);
    grids.z_start = random.uniform();
    grids.z_step = random.uniform();
    for (int i = 0; i < record_->plane_capacity; ++i) fill_plane(random, record_->planes[i]);
  }

  std::string all_bytes() const {
    std::string bytes;
    append_bytes(bytes, record_->plane_count);
    append_bytes(bytes, record_->plane_capacity);
    append_bytes(bytes, *record_->grids);
    for (int i = 0; i < record_->plane_capacity; ++i) {
      const _LASER_PLANE_BLOCK_INFO& plane = record_->planes[i];
      append_table(bytes, plane.block, 15, 50);
      append_table(bytes, plane.block_aux, 15, 50);
      append_bytes(bytes, plane.pivot);
      append_bytes(bytes, plane.laser_plane_R);
      append_bytes(bytes, plane.plane_flag);
    }
    return bytes;
  }

 private:
  static void fill_plane(simulation::Random& random, _LASER_PLANE_BLOCK_INFO& plane) {
    plane.block.count = 15;
    for (int j = 0; j < 15; ++j) {
      plane.block.lines[j].count = 50;
      for (int k = 0; k < 50; ++k)
        for (double& v : plane.block.lines[j].cells[k].v) v = random.uniform(-0.01, 0.01);
    }
    for (double& r : plane.laser_plane_R) r = random.uniform(-0.01, 0.01);
    for (double& p : plane.pivot) p = random.uniform();
  }

  LASER_PLANE_BLOCK_INFOS_GROUP group_;
  _LASER_PLANE_BLOCK_INFOS* record_ = nullptr;
};

}  // namespace kestrane
