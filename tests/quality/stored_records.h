// Tables and coefficient records for the tests of storage, and what their files hold as a plain
// stream reads it.
#pragma once

#include <cstdint>
#include <cstring>
#include <locale>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "kestrane/buffers.h"
#include "kestrane/quality/plane_table.h"

namespace quality_tests {

using kestrane::quality::PlaneTable;

// Numbers that all differ, none of which six digits hold.
inline PlaneTable odd_table(std::int32_t planes) {
  PlaneTable table(planes);
  for (std::size_t i = 0; i < table.size(); ++i)
    table.data()[i] = (i % 3 == 0 ? -1.0 : 0.01) / (119.0 + 1e-3 * static_cast<double>(i));
  for (std::int32_t p = 0; p < planes; ++p) {
    for (int i = 0; i < 3; ++i) table.whole_plane(p)[i] = 1.0 / (3.0 + p + i);
  }
  return table;
}

// A coefficient record with a full row per plane, two ranges and transforms; every number differs.
class OddCoefficients {
 public:
  explicit OddCoefficients(std::int32_t planes) {
    kestrane::_COMPENSATOR_COEFFS* out = nullptr;
    owner_.init(planes);
    owner_.get_compensator_coeffs(planes, out);
    double next = 1.0;
    for (std::int32_t p = 0; p < planes; ++p) {
      for (std::int32_t j = 0; j < 16; ++j) {
        for (std::int32_t k = 0; k < 51; ++k) {
          for (double& value : owner_.opt_coeffs->planes[p].lines[j].cells[k].v)
            value = 1.0 / (next += 1.0);
        }
      }
    }
    for (std::int32_t i = 0; i < 12 * planes; ++i)
      owner_.Mbs_factory_to_user[i] = 1.0 / (next += 1.0);
    owner_.range_count = 2;
    for (const int r : {0, 1}) {
      owner_.range_first[r] = 3 * r;
      owner_.range_last[r] = 3 * r + 2;
    }
  }
  kestrane::_COMPENSATOR_COEFFS& operator*() { return owner_; }
  kestrane::_COMPENSATOR_COEFFS* operator->() { return &owner_; }

 private:
  kestrane::LASER_COMPENSATOR_COEFFS_MANAGER owner_;
};

// The numbers of a table's text, as a stream in the classic locale reads them; none where the text
// is not a whole table.
inline std::optional<PlaneTable> table_in(const std::string& text) {
  if (text.empty() || text.back() != '\n') return std::nullopt;
  std::istringstream in(text);
  in.imbue(std::locale::classic());
  kestrane::_LASER_PLANE_GRIDS grids{};
  const auto read = [&](double* to, int count) {
    for (int i = 0; i < count; ++i) in >> to[i];
  };
  read(grids.grid_z, 51);
  read(grids.grid_y_start, 51);
  read(grids.grid_y_step, 51);
  read(&grids.z_start, 1);
  read(&grids.z_step, 1);
  std::int32_t planes = 0;
  in >> planes;
  if (!in || planes < 1 || planes > 100) return std::nullopt;
  PlaneTable table(planes);
  table.grids() = grids;
  for (std::int32_t p = 0; p < planes; ++p) {
    std::int32_t lines = -1;
    in >> lines;
    if (!in || (lines != 0 && lines != 15)) return std::nullopt;
    for (std::int32_t j = 0; j < lines; ++j) {
      std::int32_t cells = -1;
      in >> cells;
      if (!in || cells != 50) return std::nullopt;
      for (std::int32_t k = 0; k < 50; ++k) read(table.cell(p, {j, k}).v, 3);
    }
    read(table.whole_plane(p), 3);
  }
  std::string rest;
  if (!in || in >> rest) return std::nullopt;
  return table;
}

// The bytes of a coefficient record, in the order of its file.
inline std::string bytes_of_coefficients(const kestrane::_COMPENSATOR_COEFFS& record) {
  std::string bytes;
  const auto put = [&](const auto& value) {
    bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
  };
  put(record.opt_coeffs->plane_count);
  for (std::int32_t p = 0; p < record.opt_coeffs->plane_count; ++p) {
    const auto& row = record.opt_coeffs->planes[p];
    put(row.count);
    for (std::int32_t j = 0; j < row.count; ++j) {
      put(row.lines[j].count);
      for (std::int32_t k = 0; k < row.lines[j].count; ++k) put(row.lines[j].cells[k]);
    }
  }
  put(record.range_count);
  for (std::int32_t r = 0; r < record.range_count; ++r) {
    put(record.range_first[r]);
    put(record.range_last[r]);
  }
  put(record.plane_count);
  for (std::int32_t p = 0; p < record.plane_count; ++p) {
    for (const int i : {0, 1, 2, 9, 3, 4, 5, 10, 6, 7, 8, 11})
      put(record.Mbs_factory_to_user[12 * p + i]);
  }
  return bytes;
}

}  // namespace quality_tests
