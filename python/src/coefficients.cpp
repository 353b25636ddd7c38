#include "python/src/coefficients.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "kestrane/fast_calib.h"
#include "kestrane/quality/coefficients.h"
#include "python/src/engines.h"
#include "python/src/errors.h"
#include "python/src/module.h"
#include "python/src/tables.h"

namespace kestrane::python {
namespace {

constexpr py::ssize_t kMostPlanes = 100;
constexpr py::ssize_t kMostRanges = 20;
constexpr py::ssize_t kSlots = 100;

CoefficientOwner carved(std::int32_t planes) {
  auto owner = std::make_unique<LASER_COMPENSATOR_COEFFS_MANAGER>();
  _COMPENSATOR_COEFFS* record = nullptr;
  if (owner->init(planes) != KESTRANE_OK ||
      owner->get_compensator_coeffs(planes, record) != KESTRANE_OK) {
    throw std::bad_alloc();
  }
  return owner;
}

bool is_nothing(const double* models) {
  return std::all_of(models, models + 3 * kCornersOfPlane, [](double v) { return std::isnan(v); });
}

void fill_row(const double* models, _LASER_LINES_INFOS& row) {
  if (is_nothing(models)) {
    row.count = 0;
    return;
  }
  for (py::ssize_t line = 0; line < kCornerLines; ++line) {
    for (py::ssize_t cell = 0; cell < kCornerCells; ++cell, models += 3) {
      std::copy_n(models, 3, row.lines[line].cells[cell].v);
    }
  }
}

// A rows-by-rows matrix (R | t) as the record's slot: the rotation, then the translation.
void fill_slot(const double* matrix, double* slot) {
  for (int row = 0; row < 3; ++row) {
    std::copy_n(matrix + 4 * row, 3, slot + 3 * row);
    slot[9 + row] = matrix[4 * row + 3];
  }
}

py::dict read_back(const CoefficientOwner& owner) { return pack_coefficients(*owner); }

// The rows of a plane-by-plane array as the tables of a record.
class Tables {
 public:
  Tables(const py::array& array, py::ssize_t lines, py::ssize_t cells) {
    const auto planes = static_cast<std::size_t>(array.shape(0));
    triples_ = triples_of(array);
    lines_.resize(planes * static_cast<std::size_t>(lines));
    for (std::size_t n = 0; n < lines_.size(); ++n) {
      lines_[n] = {&triples_[n * static_cast<std::size_t>(cells)],
                   static_cast<std::int32_t>(cells)};
    }
    for (std::size_t p = 0; p < planes; ++p) {
      tables_.push_back(
          {&lines_[p * static_cast<std::size_t>(lines)], static_cast<std::int32_t>(lines)});
    }
  }
  _LASER_LINES_INFOS* tables() { return tables_.data(); }
  std::int32_t count() const { return static_cast<std::int32_t>(tables_.size()); }

 private:
  std::vector<_LASER_TRIPLE> triples_;
  std::vector<_LASER_LINE_INFOS> lines_;
  std::vector<_LASER_LINES_INFOS> tables_;
};

py::dict update_coefficients(const py::handle& indicators, const py::handle& corners,
                             double condition, const py::handle& source) {
  const py::array figures = checked<double>(indicators, "indicators", {kAny, kLines, kCells, 3});
  const py::array places =
      checked<double>(corners, "corners", {figures.shape(0), kCornerLines, kCornerCells, 3});
  const CoefficientOwner old = coefficients_of(source);
  if (figures.shape(0) > old->plane_count) {
    throw py::value_error("the result has " + std::to_string(figures.shape(0)) +
                          " planes, the coefficients have " + std::to_string(old->plane_count));
  }
  const CoefficientOwner updated = carved_like(*old);
  Tables indicator_tables(figures, kLines, kCells);
  Tables corner_tables(places, kCornerLines, kCornerCells);
  const _LASER_PLANE_INDICATORS_INFOS indicator_record = {
      indicator_tables.tables(), indicator_tables.count(), indicator_tables.count()};
  const _LASER_PLANE_GRID_CORNERS_INFOS corner_record = {
      corner_tables.tables(), corner_tables.count(), corner_tables.count()};
  _KESTRANE_STATUS status = KESTRANE_OK;
  {
    const py::gil_scoped_release unlocked;
    KestraneLaserFastCalibrator engine;  // needs no store for this
    status = engine.calib(indicator_record, corner_record, condition, *old, *updated);
  }
  if (status != KESTRANE_OK) raise_status(status, "update_coefficients");
  return read_back(updated);
}

py::object corners_at(const py::handle& source, double condition) {
  const CoefficientOwner record = coefficients_of(source);
  quality::DeviceCorners found;
  {
    const py::gil_scoped_release unlocked;
    found = quality::corners_at(*record, condition);
  }
  if (!found.refused.empty()) throw py::value_error(found.refused);
  const py::ssize_t planes = record->plane_count;
  return owned(std::move(found.corners), {planes, kCornerLines, kCornerCells, 3});
}

py::tuple table_of_corners(const py::handle& corners) {
  const py::array places =
      checked<double>(corners, "corners", {kAny, kCornerLines, kCornerCells, 3});
  const std::vector<_LASER_TRIPLE> triples = triples_of(places);
  quality::TableOfCorners found;
  {
    const py::gil_scoped_release unlocked;
    found = quality::table_of(triples);
  }
  if (!found.refused.empty()) throw py::value_error(found.refused);
  return arrays_of(std::move(found.table));
}

}  // namespace

CoefficientOwner coefficients_of(py::handle source) {
  const py::array models =
      checked<double>(source.attr("models"), "models", {kAny, kCornerLines, kCornerCells, 3});
  const py::array ranges = checked<std::int32_t>(source.attr("ranges"), "ranges", {kAny, 2});
  const py::array transforms =
      checked<double>(source.attr("factory_to_user"), "factory_to_user", {kSlots, 3, 4});
  const py::ssize_t planes = models.shape(0);
  if (planes < 1 || planes > kMostPlanes) throw py::value_error("coefficients of 1 to 100 planes");
  if (ranges.shape(0) > kMostRanges) throw py::value_error("at most 20 ranges of planes");
  CoefficientOwner owner = carved(static_cast<std::int32_t>(planes));
  for (py::ssize_t p = 0; p < planes; ++p) {
    fill_row(data_of<double>(models) + static_cast<std::size_t>(p) * 3 * kCornersOfPlane,
             owner->opt_coeffs->planes[p]);
  }
  owner->range_count = static_cast<std::int32_t>(ranges.shape(0));
  for (py::ssize_t r = 0; r < ranges.shape(0); ++r) {
    owner->range_first[r] = data_of<std::int32_t>(ranges)[2 * r];
    owner->range_last[r] = data_of<std::int32_t>(ranges)[2 * r + 1];
  }
  for (py::ssize_t slot = 0; slot < kSlots; ++slot) {
    fill_slot(data_of<double>(transforms) + 12 * slot, owner->Mbs_factory_to_user + 12 * slot);
  }
  return owner;
}

CoefficientOwner carved_like(const _COMPENSATOR_COEFFS& record) {
  return carved(record.plane_count);
}

py::dict pack_coefficients(const _COMPENSATOR_COEFFS& record) {
  const auto planes = static_cast<py::ssize_t>(record.plane_count);
  std::vector<double> models;
  models.reserve(static_cast<std::size_t>(planes) * 3 * kCornersOfPlane);
  for (py::ssize_t p = 0; p < planes; ++p) {
    const _LASER_LINES_INFOS& row = record.opt_coeffs->planes[p];
    if (row.count == 0) models.insert(models.end(), 3 * kCornersOfPlane, kNotANumber);
    for (std::int32_t line = 0; line < row.count; ++line) {
      for (std::int32_t cell = 0; cell < row.lines[line].count; ++cell) {
        const double* const v = row.lines[line].cells[cell].v;
        models.insert(models.end(), v, v + 3);
      }
    }
  }
  std::vector<std::int32_t> ranges;
  for (std::int32_t r = 0; r < record.range_count; ++r) {
    ranges.insert(ranges.end(), {record.range_first[r], record.range_last[r]});
  }
  std::vector<double> transforms;
  for (py::ssize_t slot = 0; slot < kSlots; ++slot) {
    const double* const from = record.Mbs_factory_to_user + 12 * slot;
    for (int row = 0; row < 3; ++row) {
      transforms.insert(transforms.end(),
                        {from[3 * row], from[3 * row + 1], from[3 * row + 2], from[9 + row]});
    }
  }
  const auto range_count = static_cast<py::ssize_t>(record.range_count);
  py::dict fields;
  fields["models"] = owned(std::move(models), {planes, kCornerLines, kCornerCells, 3});
  fields["ranges"] = owned(std::move(ranges), {range_count, 2});
  fields["factory_to_user"] = owned(std::move(transforms), {kSlots, 3, 4});
  return fields;
}

void add_coefficients(py::module_& module) {
  module.def("update_coefficients", &update_coefficients, py::arg("indicators"), py::arg("corners"),
             py::arg("condition"), py::arg("source"));
  module.def("corners_at", &corners_at, py::arg("coefficients"), py::arg("condition"));
  module.def("table_of_corners", &table_of_corners, py::arg("corners"));
}

}  // namespace kestrane::python
