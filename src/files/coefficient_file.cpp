#include "files/coefficient_file.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include "files/reading.h"
#include "kestrane/files.h"
#include "records/coefficient_record.h"
#include "records/expects.h"
#include "records/shapes.h"
#include "records/table_fit.h"

namespace kestrane {
namespace {

[[maybe_unused]] constexpr const char* kSaving = "save_compensator_coeffs";

constexpr std::size_t kCellSize = sizeof(_LASER_TRIPLE);

_KESTRANE_STATUS check_record(const _COMPENSATOR_COEFFS& record) {
  if (record.plane_count < 1 || record.plane_count > record.plane_capacity)
    return KESTRANE_ERR_INVALID_PARAM;
  if (record.opt_coeffs == nullptr || record.opt_coeffs->planes == nullptr)
    return KESTRANE_ERR_NULL_POINTER;
  return KESTRANE_OK;
}

// The numbers of a slot as the file has them: rows R R R T, where a slot has all of R before T.
constexpr std::array<std::size_t, kSlotSize> kFileOrder = {0, 1, 2, 9, 3, 4, 5, 10, 6, 7, 8, 11};

// A count of the file, stored only if the record has room for it.
Reading take_count(InputFile& in, std::int32_t most, std::int32_t& count) {
  std::int32_t claimed = 0;
  if (!in.take(claimed)) return Reading::kCut;
  if (claimed > most) return Reading::kTooLarge;
  count = claimed;
  return Reading::kWhole;
}

// As many whole cells at a time as are at hand.
Reading take_cells(InputFile& in, _LASER_TRIPLE* cells, std::int32_t count) {
  auto left = static_cast<std::size_t>(std::max(count, 0));
  while (left > 0) {
    const std::string_view bytes = in.view(left * kCellSize);
    const std::size_t whole = std::min(bytes.size() / kCellSize, left);
    if (whole == 0) return Reading::kCut;
    std::memcpy(cells, bytes.data(), whole * kCellSize);
    in.consume(whole * kCellSize);
    cells += whole;
    left -= whole;
  }
  return Reading::kWhole;
}

Reading take_plane(InputFile& in, _LASER_LINES_INFOS& plane) {
  Reading done = take_count(in, kCorners.lines, plane.count);
  for (std::int32_t j = 0; done == Reading::kWhole && j < plane.count; ++j) {
    _LASER_LINE_INFOS& line = plane.lines[j];
    done = take_count(in, kCorners.cells, line.count);
    if (done == Reading::kWhole) done = take_cells(in, line.cells, line.count);
  }
  return done;
}

Reading take_planes(InputFile& in, _LASER_PLANE_GRID_OPT_COEFFS_INFOS& table) {
  Reading done = Reading::kWhole;
  for (std::int32_t i = 0; done == Reading::kWhole && i < table.plane_count; ++i)
    done = take_plane(in, table.planes[i]);
  return done;
}

Reading take_ranges(InputFile& in, _COMPENSATOR_COEFFS& record) {
  Reading done = take_count(in, kMaxRanges, record.range_count);
  for (std::int32_t r = 0; done == Reading::kWhole && r < record.range_count; ++r) {
    in.take(record.range_first[r]);  // where this one is missing the next one is, too
    if (!in.take(record.range_last[r])) done = Reading::kCut;
  }
  return done;
}

// Number by number: as many as the file holds, none after its end.
Reading take_transform(InputFile& in, double* slot) {
  const std::string_view bytes = in.view(kSlotSize * sizeof(double));
  const std::size_t numbers = std::min(bytes.size() / sizeof(double), kFileOrder.size());
  for (std::size_t i = 0; i < numbers; ++i)
    std::memcpy(&slot[kFileOrder[i]], bytes.data() + i * sizeof(double), sizeof(double));
  in.consume(numbers * sizeof(double));
  return numbers < kFileOrder.size() ? Reading::kCut : Reading::kWhole;
}

Reading take_transforms(InputFile& in, double* store) {
  std::int32_t count = 0;
  Reading done = take_count(in, kTransformSlots, count);
  KESTRANE_EXPECTS_OF("read_compensator_coeffs", count < 1 || store != nullptr,
                      "a coefficient record has its transforms");
  for (std::int32_t m = 0; m < count; ++m) done = take_transform(in, transform_slot(store, m));
  return done;
}

void put_count(OutputFile& out, std::int32_t count) { out.put(&count, sizeof count); }

void put_plane(OutputFile& out, const _LASER_LINES_INFOS& plane) {
  expect_fit(kSaving, plane, kCorners);
  put_count(out, plane.count);
  for (std::int32_t j = 0; j < plane.count; ++j) {
    const _LASER_LINE_INFOS& line = plane.lines[j];
    put_count(out, line.count);
    if (line.count > 0) out.put(line.cells, static_cast<std::size_t>(line.count) * kCellSize);
  }
}

// The count may be one that a refused file left: rows that no owner holds are not touched. A host
// may attach a larger table to a record that was made for fewer planes, and all of it is written.
void put_planes(OutputFile& out, const _COMPENSATOR_COEFFS& record) {
  const _LASER_PLANE_GRID_OPT_COEFFS_INFOS& table = *record.opt_coeffs;
  const std::int32_t room = std::max(table.plane_capacity, record.plane_capacity);
  KESTRANE_EXPECTS_OF(kSaving, table.plane_count <= room,
                      "a coefficient table's count stays within its capacity", table.plane_count,
                      room);
  put_count(out, table.plane_count);
  const std::int32_t rows = entries_within(table.plane_count, room);
  for (std::int32_t i = 0; i < rows; ++i) put_plane(out, table.planes[i]);
}

void put_ranges(OutputFile& out, const _COMPENSATOR_COEFFS& record) {
  KESTRANE_EXPECTS_OF(kSaving, record.range_count <= kMaxRanges,
                      "a coefficient record has at most 20 ranges", record.range_count);
  put_count(out, record.range_count);
  const std::int32_t ranges = entries_within(record.range_count, kMaxRanges);
  for (std::int32_t r = 0; r < ranges; ++r) {
    put_count(out, record.range_first[r]);
    put_count(out, record.range_last[r]);
  }
}

void put_transforms(OutputFile& out, const _COMPENSATOR_COEFFS& record) {
  KESTRANE_EXPECTS_OF(kSaving, record.plane_count <= kTransformSlots,
                      "a device has at most 100 planes", record.plane_count);
  KESTRANE_EXPECTS_OF(kSaving, record.Mbs_factory_to_user != nullptr,
                      "a coefficient record has its transforms");
  put_count(out, record.plane_count);
  const std::int32_t slots = entries_within(record.plane_count, kTransformSlots);
  for (std::int32_t m = 0; m < slots; ++m) {
    const double* slot = transform_slot(record.Mbs_factory_to_user, m);
    for (const std::size_t i : kFileOrder) out.put(&slot[i], sizeof(double));
  }
}

}  // namespace

_KESTRANE_STATUS read_coefficients(InputFile& in, _COMPENSATOR_COEFFS& record) {
  _LASER_PLANE_GRID_OPT_COEFFS_INFOS& table = *record.opt_coeffs;
  // The file's number of planes stays in the record, also where it is refused. A file without one
  // ends before its first plane.
  in.take(table.plane_count);
  if (table.plane_count != record.plane_count) return KESTRANE_ERR_COUNT_MISMATCH;
  Reading done = take_planes(in, table);
  if (done == Reading::kWhole) done = take_ranges(in, record);
  if (done == Reading::kWhole) done = take_transforms(in, record.Mbs_factory_to_user);
  return done == Reading::kTooLarge ? KESTRANE_ERR_COUNT_MISMATCH : KESTRANE_OK;
}

void write_coefficients(OutputFile& out, const _COMPENSATOR_COEFFS& record) {
  put_planes(out, record);
  put_ranges(out, record);
  put_transforms(out, record);
}

_KESTRANE_STATUS read_compensator_coeffs(const std::string& path, _COMPENSATOR_COEFFS& record) {
  const _KESTRANE_STATUS checked = check_record(record);
  if (checked != KESTRANE_OK) return checked;
  InputFile in(path);
  if (!in.is_open()) return KESTRANE_ERR_FILE_OPEN;
  return read_coefficients(in, record);
}

_KESTRANE_STATUS save_compensator_coeffs(_COMPENSATOR_COEFFS& record, const std::string& path) {
  const _KESTRANE_STATUS checked = check_record(record);
  if (checked != KESTRANE_OK) return checked;
  OutputFile out(path);
  if (!out.is_open()) return KESTRANE_ERR_FILE_OPEN;
  write_coefficients(out, record);
  return KESTRANE_OK;
}

}  // namespace kestrane
