#include "files/coefficient_file.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>

#include "files/file_stream.h"
#include "kestrane/quality/storage.h"
#include "quality/storage/file_replacement.h"
#include "quality/storage/opened_file.h"
#include "quality/storage/place_in_file.h"
#include "records/coefficient_record.h"
#include "records/shapes.h"

namespace kestrane::quality {
namespace {

using Owner = LASER_COMPENSATOR_COEFFS_MANAGER;

constexpr double kUnread = std::numeric_limits<double>::quiet_NaN();
constexpr std::int32_t kUncounted = -1;
constexpr std::int64_t kTransform = kSlotSize * static_cast<std::int64_t>(sizeof(double));
constexpr std::size_t kLineReals = static_cast<std::size_t>(kCorners.cells) * 3;

bool all_finite(const double* values, std::size_t count) {
  return std::all_of(values, values + count, [](double value) { return std::isfinite(value); });
}

// --- what a file can hold ------------------------------------------------------------------------

[[noreturn]] void refuse(const std::string& what) {
  throw std::invalid_argument("a coefficient record " + what);
}

void check_row(const _LASER_LINES_INFOS& row, std::int32_t p) {
  if (row.count == 0) return;
  if (row.count != kCorners.lines) refuse("whose row is neither full nor empty");
  for (std::int32_t j = 0; j < row.count; ++j) {
    if (row.lines[j].count != kCorners.cells) refuse("whose row is neither full nor empty");
    if (!all_finite(row.lines[j].cells->v, kLineReals)) refuse("that is not finite in " + at(p, j));
  }
}

void check(const _COMPENSATOR_COEFFS& record) {
  if (record.opt_coeffs == nullptr || record.opt_coeffs->planes == nullptr ||
      record.Mbs_factory_to_user == nullptr)
    refuse("without its arrays");
  if (record.plane_count < 1 || record.plane_count > kMaxPlanes ||
      record.opt_coeffs->plane_count != record.plane_count)
    refuse("whose plane counts differ or lie outside 1 to 100");
  if (record.range_count < 0 || record.range_count > kMaxRanges) refuse("of too many ranges");
  for (std::int32_t p = 0; p < record.plane_count; ++p) check_row(record.opt_coeffs->planes[p], p);
  const auto reals = static_cast<std::size_t>(record.plane_count * kSlotSize);
  if (!all_finite(record.Mbs_factory_to_user, reals)) refuse("with a transform that is not finite");
}

// --- reading -------------------------------------------------------------------------------------

std::int32_t read_plane_count(const std::string& path) {
  InputFile in(path);
  require_open(in, path);
  std::int32_t planes = 0;
  if (!in.take(planes)) {
    require_read(in, path);
    throw FileError(path, "cut before the number of planes");
  }
  if (planes < 1 || planes > kMaxPlanes)
    throw FileError(path, "holds " + std::to_string(planes) + " planes instead of 1 to 100");
  return planes;
}

// Fills all that the file will fill with what no whole file leaves.
void mark_unread(_COMPENSATOR_COEFFS& record) {
  for (std::int32_t p = 0; p < record.plane_count; ++p) {
    _LASER_LINES_INFOS& row = record.opt_coeffs->planes[p];
    for (std::int32_t j = 0; j < kCorners.lines; ++j) {
      std::fill_n(row.lines[j].cells->v, kLineReals, kUnread);
      row.lines[j].count = kUncounted;
    }
    row.count = kUncounted;
  }
  record.range_count = kUncounted;
  std::fill_n(record.Mbs_factory_to_user, record.plane_count * kSlotSize, kUnread);
}

// Whether the file ended before what follows line j of plane p.
bool ends_after(std::int32_t p, std::int32_t j, const _COMPENSATOR_COEFFS& record) {
  const _LASER_LINES_INFOS* const rows = record.opt_coeffs->planes;
  if (j + 1 < rows[p].count) return rows[p].lines[j + 1].count == kUncounted;
  if (p + 1 < record.plane_count) return rows[p + 1].count == kUncounted;
  return record.range_count == kUncounted;
}

// The first thing that keeps a row from being whole, in the order of the file. `end` says how the
// reading ended where it did so too early.
void check_read_row(const std::string& path, const std::string& end, std::int32_t p,
                    const _COMPENSATOR_COEFFS& record) {
  const _LASER_LINES_INFOS& row = record.opt_coeffs->planes[p];
  if (row.count == kUncounted) throw FileError(path, end + after(p, 0));
  if (row.count != 0 && row.count != kCorners.lines)
    throw FileError(path, "plane " + std::to_string(p) + " has " + std::to_string(row.count) +
                              " lines instead of 16");
  for (std::int32_t j = 0; j < row.count; ++j) {
    const _LASER_LINE_INFOS& line = row.lines[j];
    if (line.count == kUncounted) throw FileError(path, end + after(p, j));
    if (line.count != kCorners.cells)
      throw FileError(path,
                      at(p, j) + " has " + std::to_string(line.count) + " cells instead of 51");
    if (all_finite(line.cells->v, kLineReals)) continue;
    if (ends_after(p, j, record)) throw FileError(path, end + after(p, j));
    throw FileError(path, at(p, j) + " is not finite");
  }
}

// Bytes of a whole file with the counts of the record.
std::int64_t size_of_file(const _COMPENSATOR_COEFFS& record) {
  constexpr std::int64_t kCount = sizeof(std::int32_t);
  std::int64_t size = kCount;
  for (std::int32_t p = 0; p < record.plane_count; ++p) {
    const std::int64_t lines = record.opt_coeffs->planes[p].count;
    size += kCount +
            lines * (kCount + kCorners.cells * static_cast<std::int64_t>(sizeof(_LASER_TRIPLE)));
  }
  size += kCount + 2 * kCount * record.range_count;
  return size + kCount + record.plane_count * kTransform;
}

// Skips up to `most` bytes and tells how many there were.
std::int64_t skip(InputFile& in, std::int64_t most) {
  std::int64_t skipped = 0;
  while (skipped < most) {
    const auto at_hand = static_cast<std::int64_t>(in.view(1).size());
    if (at_hand == 0) break;
    const std::int64_t step = std::min(at_hand, most - skipped);
    in.consume(static_cast<std::size_t>(step));
    skipped += step;
  }
  return skipped;
}

// The end of the file: as many transforms as there are planes, and nothing more.
void check_end(const std::string& path, const _COMPENSATOR_COEFFS& record) {
  InputFile in(path);
  require_open(in, path);
  const std::int64_t transforms = record.plane_count * kTransform;
  skip(in, size_of_file(record) - transforms - static_cast<std::int64_t>(sizeof(std::int32_t)));
  std::int32_t count = 0;
  const bool whole = in.take(count) && skip(in, transforms) == transforms;
  require_read(in, path);
  if (!whole) throw FileError(path, "cut in the ranges or transforms");
  if (count != record.plane_count)
    throw FileError(path, "has " + std::to_string(count) + " transforms for " +
                              std::to_string(record.plane_count) + " planes");
  if (!in.view(1).empty()) throw FileError(path, "goes on after the last transform");
}

void check_read(const std::string& path, const _COMPENSATOR_COEFFS& record,
                _KESTRANE_STATUS status) {
  const std::string end = status == KESTRANE_OK ? "cut " : "has a count that no record has ";
  for (std::int32_t p = 0; p < record.plane_count; ++p) check_read_row(path, end, p, record);
  if (record.range_count == kUncounted) throw FileError(path, end + after(record.plane_count, 0));
  if (record.range_count < 0) throw FileError(path, "has a negative number of ranges");
  check_end(path, record);
  if (!all_finite(record.Mbs_factory_to_user,
                  static_cast<std::size_t>(record.plane_count * kSlotSize)))
    throw FileError(path, "has a transform that is not finite");
}

// --- comparing -----------------------------------------------------------------------------------

bool same_bytes(const void* a, const void* b, std::size_t size) {
  return std::memcmp(a, b, size) == 0;
}

bool same_row(const _LASER_LINES_INFOS& a, const _LASER_LINES_INFOS& b) {
  if (a.count != b.count) return false;
  for (std::int32_t j = 0; j < a.count; ++j) {
    if (!same_bytes(a.lines[j].cells, b.lines[j].cells, kLineReals * sizeof(double))) return false;
  }
  return true;
}

bool same_record(const _COMPENSATOR_COEFFS& a, const _COMPENSATOR_COEFFS& b) {
  if (a.plane_count != b.plane_count || a.range_count != b.range_count) return false;
  const std::size_t ranges = static_cast<std::size_t>(a.range_count) * sizeof(std::int32_t);
  if (!same_bytes(a.range_first, b.range_first, ranges) ||
      !same_bytes(a.range_last, b.range_last, ranges))
    return false;
  for (std::int32_t p = 0; p < a.plane_count; ++p) {
    if (!same_row(a.opt_coeffs->planes[p], b.opt_coeffs->planes[p])) return false;
  }
  return same_bytes(a.Mbs_factory_to_user, b.Mbs_factory_to_user,
                    static_cast<std::size_t>(a.plane_count * kSlotSize) * sizeof(double));
}

std::unique_ptr<Owner> make_owner(std::int32_t planes) {
  auto owner = std::make_unique<Owner>();
  _COMPENSATOR_COEFFS* record = nullptr;
  if (owner->init(planes) != KESTRANE_OK ||
      owner->get_compensator_coeffs(planes, record) != KESTRANE_OK)
    throw std::bad_alloc();
  return owner;
}

}  // namespace

void save_coefficients(const _COMPENSATOR_COEFFS& record, const std::string& path) {
  check(record);
  replace_file(
      path,
      [&](const std::string& written) {
        OutputFile out(written);
        if (out.is_open()) write_coefficients(out, record);
        return out.finish();
      },
      [&](const std::string& written) {
        if (!same_record(record, *quality::read_coefficients(written)))
          throw FileError(written, "other numbers");
      });
}

std::unique_ptr<Owner> read_coefficients(const std::string& path) {
  std::unique_ptr<Owner> owner = make_owner(read_plane_count(path));
  mark_unread(*owner);
  InputFile in(path);
  require_open(in, path);
  const _KESTRANE_STATUS status = kestrane::read_coefficients(in, *owner);
  require_read(in, path);
  check_read(path, *owner, status);
  return owner;
}

}  // namespace kestrane::quality
