#include "files/plane_block_file.h"

#include <cstdint>
#include <span>

#include "files/number_format.h"
#include "files/number_parse.h"
#include "files/reading.h"
#include "kestrane/files.h"
#include "records/expects.h"
#include "records/shapes.h"
#include "records/table_fit.h"

namespace kestrane {
namespace {

_KESTRANE_STATUS check_record(const _LASER_PLANE_BLOCK_INFOS& record) {
  if (record.planes == nullptr || record.grids == nullptr) return KESTRANE_ERR_NULL_POINTER;
  return KESTRANE_OK;
}

bool read_all(InputFile& in, std::span<double> values) {
  for (double& value : values)
    if (!read_number(in, value)) return false;
  return true;
}

bool read_grids(InputFile& in, _LASER_PLANE_GRIDS& grids) {
  return read_all(in, grids.grid_z) && read_all(in, grids.grid_y_start) &&
         read_all(in, grids.grid_y_step) && read_number(in, grids.z_start) &&
         read_number(in, grids.z_step);
}

// A count of the file, stored only if the record has room for it.
Reading read_count(InputFile& in, std::int32_t most, std::int32_t& count) {
  std::int32_t claimed = 0;
  if (!read_number(in, claimed)) return Reading::kCut;
  if (claimed > most) return Reading::kTooLarge;
  count = claimed;
  return Reading::kWhole;
}

Reading read_line(InputFile& in, _LASER_LINE_INFOS& line) {
  const Reading counted = read_count(in, kBlocks.cells, line.count);
  if (counted != Reading::kWhole) return counted;
  for (std::int32_t k = 0; k < line.count; ++k)
    if (!read_all(in, line.cells[k].v)) return Reading::kCut;
  return Reading::kWhole;
}

Reading read_plane(InputFile& in, _LASER_PLANE_BLOCK_INFO& plane) {
  Reading done = read_count(in, kBlocks.lines, plane.block.count);
  for (std::int32_t j = 0; done == Reading::kWhole && j < plane.block.count; ++j)
    done = read_line(in, plane.block.lines[j]);
  if (done == Reading::kWhole && !read_all(in, plane.laser_plane_R)) done = Reading::kCut;
  return done;
}

template <class Number>
void put_number(OutputFile& out, Number value, char after) {
  char* end = format_number(out.room(kLongestNumber + 1), value);
  *end++ = after;
  out.fill_to(end);
}

void put_column(OutputFile& out, std::span<const double> values) {
  for (const double value : values) put_number(out, value, '\n');
}

void put_grids(OutputFile& out, const _LASER_PLANE_GRIDS& grids) {
  put_column(out, grids.grid_z);
  put_column(out, grids.grid_y_start);
  put_column(out, grids.grid_y_step);
  put_number(out, grids.z_start, '\n');
  put_number(out, grids.z_step, '\n');
}

// Cell lines end in a blank, unlike those of whole planes.
void put_cell(OutputFile& out, const _LASER_TRIPLE& cell) {
  for (const double value : cell.v) put_number(out, value, ' ');
  out.put("\n", 1);
}

void put_line(OutputFile& out, const _LASER_LINE_INFOS& line) {
  put_number(out, line.count, '\n');
  for (std::int32_t k = 0; k < line.count; ++k) put_cell(out, line.cells[k]);
}

void put_plane(OutputFile& out, const _LASER_PLANE_BLOCK_INFO& plane) {
  expect_fit("save_plane_block_infos", plane.block, kBlocks);
  put_number(out, plane.block.count, '\n');
  for (std::int32_t j = 0; j < plane.block.count; ++j) put_line(out, plane.block.lines[j]);
  put_number(out, plane.laser_plane_R[0], ' ');
  put_number(out, plane.laser_plane_R[1], ' ');
  put_number(out, plane.laser_plane_R[2], '\n');
}

}  // namespace

_KESTRANE_STATUS read_plane_blocks(InputFile& in, _LASER_PLANE_BLOCK_INFOS& record) {
  std::int32_t planes = 0;
  // A file without a plane count holds 0 planes.
  const bool counted = read_grids(in, *record.grids) && read_number(in, planes);
  if (planes != record.plane_count) return KESTRANE_ERR_INVALID_PARAM;
  Reading done = counted ? Reading::kWhole : Reading::kCut;
  for (std::int32_t i = 0; done == Reading::kWhole && i < planes; ++i)
    done = read_plane(in, record.planes[i]);
  return done == Reading::kTooLarge ? KESTRANE_ERR_INVALID_PARAM : KESTRANE_OK;
}

void write_plane_blocks(OutputFile& out, const _LASER_PLANE_BLOCK_INFOS& record) {
  put_grids(out, *record.grids);
  put_number(out, record.plane_count, '\n');
  for (std::int32_t i = 0; i < record.plane_count; ++i) put_plane(out, record.planes[i]);
}

_KESTRANE_STATUS read_plane_block_infos(const std::string& path, _LASER_PLANE_BLOCK_INFOS& record) {
  const _KESTRANE_STATUS checked = check_record(record);
  if (checked != KESTRANE_OK) return checked;
  KESTRANE_EXPECTS(record.plane_count <= record.plane_capacity,
                   "a plane table's count stays within its capacity", record.plane_count,
                   record.plane_capacity);
  InputFile in(path);
  if (!in.is_open()) return KESTRANE_ERR_FILE_OPEN;
  return read_plane_blocks(in, record);
}

_KESTRANE_STATUS save_plane_block_infos(_LASER_PLANE_BLOCK_INFOS& record, const std::string& path) {
  const _KESTRANE_STATUS checked = check_record(record);
  if (checked != KESTRANE_OK) return checked;
  KESTRANE_EXPECTS(record.plane_count <= record.plane_capacity,
                   "a plane table's count stays within its capacity", record.plane_count,
                   record.plane_capacity);
  OutputFile out(path);
  if (!out.is_open()) return KESTRANE_ERR_FILE_OPEN;
  write_plane_blocks(out, record);
  return KESTRANE_OK;
}

}  // namespace kestrane
