#include "kestrane/quality/plane_table.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>

#include "quality/cells.h"
#include "records/fan.h"
#include "records/shapes.h"

namespace kestrane::quality {
namespace {

constexpr double kNothing = std::numeric_limits<double>::quiet_NaN();
constexpr std::size_t kRowCells = PlaneTable::kLines * PlaneTable::kCells;

std::size_t index_of(std::int32_t number) { return static_cast<std::size_t>(number); }

void require_plane(const PlaneTable& table, std::int32_t plane) {
  if (plane >= 0 && plane < table.planes()) return;
  throw std::invalid_argument("the table has no plane " + std::to_string(plane));
}

void require_block(Block at) {
  if (at.line >= 0 && at.line < PlaneTable::kLines && at.cell >= 0 && at.cell < PlaneTable::kCells)
    return;
  throw std::invalid_argument("no block [" + std::to_string(at.line) + ", " +
                              std::to_string(at.cell) + "] in a table");
}

std::size_t cell_index(std::int32_t plane, Block at) {
  return index_of(plane) * kRowCells + index_of(at.line * PlaneTable::kCells + at.cell);
}

// The cell of a block; null where there is no block, or no plane in it.
const _LASER_TRIPLE* find_plane(const std::vector<_LASER_TRIPLE>& cells, std::int32_t plane,
                                std::optional<Block> at) {
  if (!at) return nullptr;
  const _LASER_TRIPLE& abc = cells[cell_index(plane, *at)];
  return has_plane(abc) ? &abc : nullptr;
}

bool same_bits(double a, double b) {
  return (std::isnan(a) && std::isnan(b)) ||
         std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
}

bool same_bits(const double* a, const double* b, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    if (!same_bits(a[i], b[i])) return false;
  }
  return true;
}

bool same_grids(const _LASER_PLANE_GRIDS& a, const _LASER_PLANE_GRIDS& b) {
  return std::equal(std::begin(a.grid_head), std::end(a.grid_head), b.grid_head) &&
         same_bits(a.grid_z, b.grid_z, 51) && same_bits(a.grid_y_start, b.grid_y_start, 51) &&
         same_bits(a.grid_y_step, b.grid_y_step, 51) && same_bits(a.z_start, b.z_start) &&
         same_bits(a.z_step, b.z_step);
}

[[noreturn]] void refuse_record(const std::string& what) {
  throw std::invalid_argument("a plane table's record " + what);
}

// Copies a row of either record; one without lines stays as it was made, empty.
void copy_row(const _LASER_LINES_INFOS& from, _LASER_TRIPLE* to) {
  if (from.count == 0) return;
  if (from.count != PlaneTable::kLines) refuse_record("has a row that is neither full nor empty");
  if (from.lines == nullptr) refuse_record("has a row without lines");
  for (std::int32_t j = 0; j < PlaneTable::kLines; ++j) {
    const _LASER_LINE_INFOS& line = from.lines[j];
    if (line.count != PlaneTable::kCells) refuse_record("has a line that is not full");
    if (line.cells == nullptr) refuse_record("has a line without cells");
    std::copy_n(line.cells, PlaneTable::kCells, to + j * PlaneTable::kCells);
  }
}

void check_parts(std::int32_t planes, const void* grids, const void* rows) {
  if (planes < 0 || planes > PlaneTable::kMostPlanes)
    refuse_record("has " + std::to_string(planes) + " planes");
  if (grids == nullptr) refuse_record("has no grid record");
  if (planes > 0 && rows == nullptr) refuse_record("has no rows");
}

template <class Record>
PlaneTable copy_record(const Record& record) {
  check_parts(record.plane_count, record.grids, record.planes);
  PlaneTable table(record.plane_count);
  table.grids() = *record.grids;
  for (std::int32_t p = 0; p < record.plane_count; ++p) {
    copy_row(record.planes[p].block, &table.cell(p, {0, 0}));
    std::copy_n(record.planes[p].laser_plane_R, 3, table.whole_plane(p));
  }
  return table;
}

}  // namespace

PlaneTable::PlaneTable() : grids_{} { fill_grids(grids_); }

PlaneTable::PlaneTable(std::int32_t planes) : PlaneTable() {
  if (planes < 0 || planes > kMostPlanes)
    throw std::invalid_argument("a plane table holds 0 to 100 planes, not " +
                                std::to_string(planes));
  cells_.resize(index_of(planes) * kRowCells);
  lines_.resize(index_of(planes) * kLines);
  rows_.resize(index_of(planes));
  wire();
}

PlaneTable PlaneTable::copy_of(const _MRV_LASER_PLANE_BLOCK_INFOS& record) {
  return copy_record(record);
}

PlaneTable PlaneTable::copy_of(const _LASER_PLANE_BLOCK_INFOS& record) {
  return copy_record(record);
}

PlaneTable::PlaneTable(const PlaneTable& other)
    : cells_(other.cells_), lines_(other.lines_), rows_(other.rows_), grids_(other.grids_) {
  wire();
}

PlaneTable& PlaneTable::operator=(const PlaneTable& other) {
  if (this != &other) *this = PlaneTable(other);
  return *this;
}

// Vectors keep their memory when they are moved, so that rows and lines lead where they should.
PlaneTable::PlaneTable(PlaneTable&& other) noexcept
    : cells_(std::move(other.cells_)),
      lines_(std::move(other.lines_)),
      rows_(std::move(other.rows_)),
      grids_(other.grids_) {}

PlaneTable& PlaneTable::operator=(PlaneTable&& other) noexcept {
  PlaneTable taken(std::move(other));
  cells_.swap(taken.cells_);
  lines_.swap(taken.lines_);
  rows_.swap(taken.rows_);
  grids_ = taken.grids_;
  return *this;
}

PlaneTable::~PlaneTable() = default;

void PlaneTable::wire() {
  for (std::size_t n = 0; n < lines_.size(); ++n) lines_[n] = {&cells_[n * kCells], kCells};
  for (std::size_t p = 0; p < rows_.size(); ++p) rows_[p].block = {&lines_[p * kLines], kLines};
}

_LASER_TRIPLE& PlaneTable::cell(std::int32_t plane, Block at) {
  require_plane(*this, plane);
  require_block(at);
  return cells_[cell_index(plane, at)];
}

const _LASER_TRIPLE& PlaneTable::cell(std::int32_t plane, Block at) const {
  require_plane(*this, plane);
  require_block(at);
  return cells_[cell_index(plane, at)];
}

double* PlaneTable::whole_plane(std::int32_t plane) {
  require_plane(*this, plane);
  return rows_[index_of(plane)].laser_plane_R;
}

const double* PlaneTable::whole_plane(std::int32_t plane) const {
  require_plane(*this, plane);
  return rows_[index_of(plane)].laser_plane_R;
}

_MRV_LASER_PLANE_BLOCK_INFOS PlaneTable::record() {
  wire();  // a job may have written counts of its own
  return {rows_.data(), &grids_, planes()};
}

_MRV_LASER_PLANE_BLOCK_INFOS PlaneTable::record() const {
  // The record's form knows no constant rows; the jobs that take one only read.
  // NOLINTBEGIN(cppcoreguidelines-pro-type-const-cast)
  return {const_cast<_MRV_LASER_PLANE_BLOCK_INFO*>(rows_.data()),
          const_cast<_LASER_PLANE_GRIDS*>(&grids_), planes()};
  // NOLINTEND(cppcoreguidelines-pro-type-const-cast)
}

bool PlaneTable::is_empty(std::int32_t plane, Block at) const {
  return !has_plane(cell(plane, at));
}

bool PlaneTable::row_is_empty(std::int32_t plane) const {
  require_plane(*this, plane);
  const auto first = cells_.begin() + static_cast<std::ptrdiff_t>(cell_index(plane, {0, 0}));
  return std::none_of(first, first + kRowCells, has_plane);
}

std::optional<Block> PlaneTable::lookup(double y, double z) const {
  const std::optional<CellIndex> at = find_cell(grids_, y, z);
  if (!at) return std::nullopt;
  return Block{at->line, at->cell};
}

double PlaneTable::x_at(std::int32_t plane, double y, double z) const {
  require_plane(*this, plane);
  const _LASER_TRIPLE* const abc = find_plane(cells_, plane, lookup(y, z));
  return abc != nullptr ? plane_x(*abc, y, z) : kNothing;
}

double PlaneTable::distance(std::int32_t plane, const Point& point) const {
  require_plane(*this, plane);
  const _LASER_TRIPLE* const abc = find_plane(cells_, plane, lookup(point.y, point.z));
  return abc != nullptr ? signed_distance(*abc, point.x, point.y, point.z) : kNothing;
}

FanPlace PlaneTable::block_middle(Block at) const {
  require_block(at);
  return {grids_.grid_y_start[at.cell] + (at.line + 0.5) * grids_.grid_y_step[at.cell],
          grids_.z_start + (at.cell + 0.5) * grids_.z_step};
}

bool operator==(const PlaneTable& a, const PlaneTable& b) {
  if (a.planes() != b.planes() || !same_grids(a.grids_, b.grids_)) return false;
  if (!same_bits(a.data(), b.data(), a.size())) return false;
  for (std::int32_t p = 0; p < a.planes(); ++p) {
    if (!same_bits(a.whole_plane(p), b.whole_plane(p), 3)) return false;
  }
  return true;
}

}  // namespace kestrane::quality
