// Both file formats in formatted and unformatted streams, number by number: the slow plain form
// that the library's files are held against.
//
// Readers look for the counts that a record has no room for, and store a number only when the
// stream gave one; beyond that they go through every loop, and leave it to the stream's failed
// state that nothing more is read.
#pragma once

#include <cstdint>
#include <istream>
#include <locale>
#include <ostream>

#include "kestrane/records.h"

namespace literal {

template <class T>
void write_raw(std::ostream& out, const T& value) {
  out.write(reinterpret_cast<const char*>(&value), sizeof value);
}

template <class T>
bool read_raw(std::istream& in, T& field) {
  T value;
  if (!in.read(reinterpret_cast<char*>(&value), sizeof value)) return false;
  field = value;
  return true;
}

template <class T>
bool extract(std::istream& in, T& field) {
  T value;
  if (!(in >> value)) return false;
  field = value;
  return true;
}

inline void save_coefficients(std::ostream& out, const kestrane::_COMPENSATOR_COEFFS& record) {
  write_raw(out, record.opt_coeffs->plane_count);
  for (int i = 0; i < record.opt_coeffs->plane_count; ++i) {
    const kestrane::_LASER_LINES_INFOS& plane = record.opt_coeffs->planes[i];
    write_raw(out, plane.count);
    for (int j = 0; j < plane.count; ++j) {
      write_raw(out, plane.lines[j].count);
      for (int k = 0; k < plane.lines[j].count; ++k) write_raw(out, plane.lines[j].cells[k]);
    }
  }
  write_raw(out, record.range_count);
  for (int r = 0; r < record.range_count; ++r) {
    write_raw(out, record.range_first[r]);
    write_raw(out, record.range_last[r]);
  }
  write_raw(out, record.plane_count);
  for (int m = 0; m < record.plane_count; ++m) {
    const double* slot = record.Mbs_factory_to_user + 12 * m;
    for (int row = 0; row < 3; ++row) {
      for (int column = 0; column < 3; ++column) write_raw(out, slot[3 * row + column]);
      write_raw(out, slot[9 + row]);
    }
  }
}

inline _KESTRANE_STATUS read_coefficients(std::istream& in, kestrane::_COMPENSATOR_COEFFS& record) {
  kestrane::_LASER_PLANE_GRID_OPT_COEFFS_INFOS& table = *record.opt_coeffs;
  read_raw(in, table.plane_count);
  if (table.plane_count != record.plane_count) return KESTRANE_ERR_COUNT_MISMATCH;
  for (int i = 0; i < table.plane_count; ++i) {
    std::int32_t lines = table.planes[i].count;
    if (read_raw(in, lines) && lines > 16) return KESTRANE_ERR_COUNT_MISMATCH;
    table.planes[i].count = lines;
    for (int j = 0; j < lines; ++j) {
      kestrane::_LASER_LINE_INFOS& line = table.planes[i].lines[j];
      std::int32_t cells = line.count;
      if (read_raw(in, cells) && cells > 51) return KESTRANE_ERR_COUNT_MISMATCH;
      line.count = cells;
      for (int k = 0; k < cells; ++k) read_raw(in, line.cells[k]);
    }
  }
  std::int32_t ranges = record.range_count;
  if (read_raw(in, ranges) && ranges > 20) return KESTRANE_ERR_COUNT_MISMATCH;
  record.range_count = ranges;
  for (int r = 0; r < ranges; ++r) {
    read_raw(in, record.range_first[r]);
    read_raw(in, record.range_last[r]);
  }
  std::int32_t matrices = 0;
  if (read_raw(in, matrices) && matrices > 100) return KESTRANE_ERR_COUNT_MISMATCH;
  for (int m = 0; m < matrices; ++m) {
    double* slot = record.Mbs_factory_to_user + 12 * m;
    for (int row = 0; row < 3; ++row) {
      for (int column = 0; column < 3; ++column) read_raw(in, slot[3 * row + column]);
      read_raw(in, slot[9 + row]);
    }
  }
  return KESTRANE_OK;
}

inline void save_plane_blocks(std::ostream& out, const kestrane::_LASER_PLANE_BLOCK_INFOS& record) {
  out.imbue(std::locale::classic());
  for (const double z : record.grids->grid_z) out << z << "\n";
  for (const double y : record.grids->grid_y_start) out << y << "\n";
  for (const double y : record.grids->grid_y_step) out << y << "\n";
  out << record.grids->z_start << "\n" << record.grids->z_step << "\n";
  out << record.plane_count << "\n";
  for (int i = 0; i < record.plane_count; ++i) {
    const kestrane::_LASER_PLANE_BLOCK_INFO& plane = record.planes[i];
    out << plane.block.count << "\n";
    for (int j = 0; j < plane.block.count; ++j) {
      const kestrane::_LASER_LINE_INFOS& line = plane.block.lines[j];
      out << line.count << "\n";
      for (int k = 0; k < line.count; ++k) {
        const double* v = line.cells[k].v;
        out << v[0] << " " << v[1] << " " << v[2] << " "
            << "\n";
      }
    }
    const double* r = plane.laser_plane_R;
    out << r[0] << " " << r[1] << " " << r[2] << "\n";
  }
}

inline _KESTRANE_STATUS read_plane_blocks(std::istream& in,
                                          kestrane::_LASER_PLANE_BLOCK_INFOS& record) {
  in.imbue(std::locale::classic());
  for (double& z : record.grids->grid_z) extract(in, z);
  for (double& y : record.grids->grid_y_start) extract(in, y);
  for (double& y : record.grids->grid_y_step) extract(in, y);
  extract(in, record.grids->z_start);
  extract(in, record.grids->z_step);
  std::int32_t planes = 0;
  extract(in, planes);
  if (planes != record.plane_count) return KESTRANE_ERR_INVALID_PARAM;
  for (int i = 0; i < planes; ++i) {
    kestrane::_LASER_PLANE_BLOCK_INFO& plane = record.planes[i];
    std::int32_t lines = plane.block.count;
    if (extract(in, lines) && lines > 15) return KESTRANE_ERR_INVALID_PARAM;
    plane.block.count = lines;
    for (int j = 0; j < lines; ++j) {
      kestrane::_LASER_LINE_INFOS& line = plane.block.lines[j];
      std::int32_t cells = line.count;
      if (extract(in, cells) && cells > 50) return KESTRANE_ERR_INVALID_PARAM;
      line.count = cells;
      for (int k = 0; k < cells; ++k)
        for (double& v : line.cells[k].v) extract(in, v);
    }
    for (double& r : plane.laser_plane_R) extract(in, r);
  }
  return KESTRANE_OK;
}

}  // namespace literal
