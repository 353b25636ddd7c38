#include <algorithm>
#include <cerrno>
#include <cmath>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "files/file_stream.h"
#include "files/number_format.h"
#include "files/number_parse.h"
#include "files/plane_block_file.h"
#include "kestrane/quality/storage.h"
#include "quality/cells.h"
#include "quality/storage/file_replacement.h"
#include "quality/storage/library_record.h"
#include "quality/storage/opened_file.h"
#include "quality/storage/place_in_file.h"

namespace kestrane::quality {
namespace {

constexpr double kUnread = std::numeric_limits<double>::quiet_NaN();  // no number text leaves it
constexpr int kGridNumbers = 51 + 51 + 51 + 2;

void check(const PlaneTable& table) {
  if (table.planes() == 0) throw std::invalid_argument("a table without planes");
  const _LASER_PLANE_GRIDS& grids = table.grids();
  const auto finite = [](double value) { return std::isfinite(value); };
  const bool bounds =
      std::all_of(std::begin(grids.grid_z), std::end(grids.grid_z), finite) &&
      std::all_of(std::begin(grids.grid_y_start), std::end(grids.grid_y_start), finite) &&
      std::all_of(std::begin(grids.grid_y_step), std::end(grids.grid_y_step), finite) &&
      finite(grids.z_start) && finite(grids.z_step);
  if (!bounds) throw std::invalid_argument("the grid record has a number that is not finite");
  constexpr std::size_t kLineReals = PlaneTable::kCells * 3;
  for (std::size_t i = 0; i < table.size(); ++i) {
    if (finite(table.data()[i])) continue;
    const auto line = static_cast<std::int32_t>(i / kLineReals);
    throw std::invalid_argument(at(line / PlaneTable::kLines, line % PlaneTable::kLines) +
                                " has a cell that is not finite");
  }
  for (std::int32_t p = 0; p < table.planes(); ++p) {
    if (!std::all_of(table.whole_plane(p), table.whole_plane(p) + 3, finite))
      throw std::invalid_argument("whole plane " + std::to_string(p) + " is not finite");
  }
}

// The number of planes, which stands after the bounds of the grid.
std::int32_t read_plane_count(const std::string& path) {
  InputFile in(path);
  require_open(in, path);
  double bound = 0.0;
  for (int i = 0; i < kGridNumbers; ++i) {
    if (read_number(in, bound)) continue;
    require_read(in, path);
    throw FileError(path, "cut in the bounds of the grid, after number " + std::to_string(i));
  }
  std::int32_t planes = 0;
  if (!read_number(in, planes)) {
    require_read(in, path);
    throw FileError(path, "cut before the number of planes");
  }
  if (planes < 1 || planes > PlaneTable::kMostPlanes)
    throw FileError(path, "holds " + std::to_string(planes) + " planes instead of 1 to 100");
  return planes;
}

// Numbers are filled in their order, so that the last of three tells.
bool is_unread(const double* abc) { return std::isnan(abc[2]); }

// Refuses a row with anything that the file should have filled, and empties one without lines.
// Counts that the file did not reach are full. `end` says how the reading ended where it did so too
// early.
void check_row(const std::string& path, const std::string& end, std::int32_t p,
               _LASER_PLANE_BLOCK_INFO& row) {
  if (row.block.count != 0 && row.block.count != PlaneTable::kLines)
    throw FileError(path, "plane " + std::to_string(p) + " has " + std::to_string(row.block.count) +
                              " lines instead of 15");
  for (std::int32_t j = 0; j < row.block.count; ++j) {
    const _LASER_LINE_INFOS& line = row.block.lines[j];
    if (line.count != PlaneTable::kCells)
      throw FileError(path,
                      at(p, j) + " has " + std::to_string(line.count) + " cells instead of 50");
    if (is_unread(line.cells[PlaneTable::kCells - 1].v)) throw FileError(path, end + after(p, j));
  }
  if (is_unread(row.laser_plane_R)) throw FileError(path, end + after(p, row.block.count));
  if (row.block.count == 0)
    std::fill_n(row.block.lines[0].cells, PlaneTable::kLines * PlaneTable::kCells, _LASER_TRIPLE{});
}

bool is_space(char character) {
  return character == ' ' || (character >= '\t' && character <= '\r');
}

// White space up to the end of the file, and a line end as the last of it: without that the last
// number may be a part of one.
void check_end(const std::string& path, InputFile& in) {
  char last = 0;
  for (std::string_view rest = in.view(1); !rest.empty(); rest = in.view(1)) {
    if (!std::all_of(rest.begin(), rest.end(), is_space))
      throw FileError(path, "goes on after the last plane");
    last = rest.back();
    in.consume(rest.size());
  }
  require_read(in, path);
  if (last != '\n') throw FileError(path, "cut: it does not end with a line end");
}

// The largest move of x over the corners and the middle of a block.
double move_of(const PlaneTable& a, const PlaneTable& b, std::int32_t plane, Block block) {
  const _LASER_PLANE_GRIDS& grids = a.grids();
  const FanPlace middle = a.block_middle(block);
  const double y = grids.grid_y_start[block.cell] + block.line * grids.grid_y_step[block.cell];
  const double z = grids.z_start + block.cell * grids.z_step;
  const double to_y = y + grids.grid_y_step[block.cell];
  const double to_z = z + grids.z_step;
  double largest = 0.0;
  for (const FanPlace place :
       {middle, FanPlace{y, z}, FanPlace{to_y, z}, FanPlace{y, to_z}, FanPlace{to_y, to_z}}) {
    const double move = plane_x(a.cell(plane, block), place.y, place.z) -
                        plane_x(b.cell(plane, block), place.y, place.z);
    largest = std::max(largest, std::abs(move));
  }
  return largest;
}

SavedTable compare_x(const PlaneTable& table, const PlaneTable& stored) {
  SavedTable saved;
  for (std::int32_t p = 0; p < table.planes(); ++p) {
    for (std::int32_t j = 0; j < PlaneTable::kLines; ++j) {
      for (std::int32_t k = 0; k < PlaneTable::kCells; ++k) {
        if (table.is_empty(p, {j, k}) || stored.is_empty(p, {j, k})) continue;
        const double move = move_of(table, stored, p, {j, k});
        if (saved.plane >= 0 && !(move > saved.largest_move)) continue;
        saved = {move, p, {j, k}};
      }
    }
  }
  return saved;
}

// Whether two numbers have the same text.
bool same_text(double a, double b) {
  char texts[2][kLongestNumber];
  const std::string_view first(texts[0],
                               static_cast<std::size_t>(format_number(texts[0], a) - texts[0]));
  const std::string_view second(texts[1],
                                static_cast<std::size_t>(format_number(texts[1], b) - texts[1]));
  return first == second;
}

bool same_text(const double* a, const double* b, std::size_t count) {
  return std::equal(a, a + count, b, [](double x, double y) { return same_text(x, y); });
}

bool same_grids(const _LASER_PLANE_GRIDS& a, const _LASER_PLANE_GRIDS& b) {
  return same_text(a.grid_z, b.grid_z, 51) && same_text(a.grid_y_start, b.grid_y_start, 51) &&
         same_text(a.grid_y_step, b.grid_y_step, 51) && same_text(a.z_start, b.z_start) &&
         same_text(a.z_step, b.z_step);
}

bool same_planes(const PlaneTable& a, const PlaneTable& b) {
  if (a.planes() != b.planes() || !same_text(a.data(), b.data(), a.size())) return false;
  for (std::int32_t p = 0; p < a.planes(); ++p) {
    if (!same_text(a.whole_plane(p), b.whole_plane(p), 3)) return false;
  }
  return true;
}

}  // namespace

SavedTable save_table(const PlaneTable& table, const std::string& path) {
  check(table);
  SavedTable saved;
  LibraryRecord record(table);
  replace_file(
      path,
      [&](const std::string& written) {
        OutputFile out(written);
        if (out.is_open()) write_plane_blocks(out, record.record());
        return out.finish();
      },
      [&](const std::string& written) {
        const PlaneTable stored = read_table(written);
        if (!same_grids(table.grids(), stored.grids()) || !same_planes(table, stored))
          throw FileError(written, "other numbers");
        saved = compare_x(table, stored);
      });
  return saved;
}

PlaneTable read_table(const std::string& path) {
  PlaneTable table(read_plane_count(path));
  std::fill_n(table.data(), table.size(), kUnread);
  LibraryRecord over(table);
  _LASER_PLANE_BLOCK_INFOS& record = over.record();
  for (std::int32_t p = 0; p < table.planes(); ++p)
    std::fill_n(record.planes[p].laser_plane_R, 3, kUnread);

  InputFile in(path);
  require_open(in, path);
  const _KESTRANE_STATUS status = read_plane_blocks(in, record);
  require_read(in, path);
  const char* const end = status == KESTRANE_OK ? "cut " : "has a count that no table has ";
  for (std::int32_t p = 0; p < table.planes(); ++p) {
    check_row(path, end, p, record.planes[p]);
    std::copy_n(record.planes[p].laser_plane_R, 3, table.whole_plane(p));
  }
  check_end(path, in);
  return table;
}

}  // namespace kestrane::quality
