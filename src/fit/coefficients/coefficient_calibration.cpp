#include "fit/coefficients/coefficient_calibration.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "kestrane/fast_calib.h"
#include "records/coefficient_record.h"
#include "records/expects.h"
#include "records/guard.h"
#include "records/shapes.h"
#include "records/table_copy.h"
#include "records/table_fit.h"

namespace kestrane {
namespace {

constexpr int kOldSamples = 10;
constexpr double kFirstCondition = 22.0;
constexpr double kConditionStep = 2.0;
constexpr double kReadingLimit = 0.01;  // how far a reading may stray, in the unit of the points

// A model solved for the corner's x: x(t) = -(m t) - n.
struct SolvedModel {
  double m;
  double n;

  double x_at(double t) const { return -(m * t) - n; }  // order fixed
};

SolvedModel solve_for_x(const _LASER_TRIPLE& cell) {
  const double s = cell.v[1] + kGuard;
  return {cell.v[0] / s, cell.v[2] / s};
}

// A reading that is not a number passes, and flows on.
double limited_reading(double x, double predicted) {
  if (x > predicted + kReadingLimit) return predicted + kReadingLimit;
  if (predicted - kReadingLimit > x) return predicted - kReadingLimit;
  return x;
}

void set_unit_transform(double* slot) {
  std::fill_n(slot, kSlotSize, 0.0);
  set_unit_diagonal(slot);
}

void copy_coefficient_table(const _LASER_PLANE_GRID_OPT_COEFFS_INFOS& from,
                            _LASER_PLANE_GRID_OPT_COEFFS_INFOS& to) {
  KESTRANE_EXPECTS_OF("calib", from.plane_count <= from.plane_capacity,
                      "a coefficient table's count stays within its capacity", from.plane_count,
                      from.plane_capacity);
  to.plane_count = from.plane_count;
  to.plane_capacity = from.plane_capacity;
  for (std::int32_t p = 0; p < from.plane_count; ++p) {
    expect_fit("calib", from.planes[p], kCorners);
    copy_table(from.planes[p], to.planes[p]);
  }
}

void copy_ranges(const _COMPENSATOR_COEFFS& from, _COMPENSATOR_COEFFS& to) {
  KESTRANE_EXPECTS_OF("calib", from.range_count <= kMaxRanges,
                      "a coefficient record has at most 20 ranges", from.range_count);
  const auto bytes =
      static_cast<std::size_t>(entries_within(from.range_count, kMaxRanges)) * sizeof(std::int32_t);
  std::memmove(to.range_first, from.range_first, bytes);
  std::memmove(to.range_last, from.range_last, bytes);
  to.range_count = from.range_count;
}

_KESTRANE_STATUS check_inputs(const _LASER_PLANE_INDICATORS_INFOS& indicators,
                              const _LASER_PLANE_GRID_CORNERS_INFOS& corners,
                              const _COMPENSATOR_COEFFS& source) {
  if (indicators.plane_count == 0) return KESTRANE_ERR_INVALID_PARAM;
  if (indicators.planes == nullptr) return KESTRANE_ERR_NULL_POINTER;
  if (corners.plane_count == 0) return KESTRANE_ERR_INVALID_PARAM;
  if (corners.planes == nullptr) return KESTRANE_ERR_NULL_POINTER;
  if (source.plane_count < 1) return KESTRANE_ERR_INVALID_PARAM;
  if (source.opt_coeffs == nullptr) return KESTRANE_ERR_NULL_POINTER;
  return KESTRANE_OK;
}

}  // namespace

void copy_coeffs_with_identity_transforms(const _COMPENSATOR_COEFFS& source,
                                          _COMPENSATOR_COEFFS& result) {
  KESTRANE_EXPECTS_OF("calib", source.plane_count <= kTransformSlots,
                      "a device has at most 100 planes", source.plane_count);
  KESTRANE_EXPECTS_OF("calib", result.opt_coeffs != nullptr, "the result record is carved");
  KESTRANE_EXPECTS_OF("calib", result.Mbs_factory_to_user != nullptr,
                      "a coefficient record has its transforms");
  const std::int32_t slots = entries_within(source.plane_count, kTransformSlots);
  for (std::int32_t i = 0; i < slots; ++i)
    set_unit_transform(transform_slot(result.Mbs_factory_to_user, i));
  copy_coefficient_table(*source.opt_coeffs, *result.opt_coeffs);
  result.plane_count = source.plane_count;
  result.plane_capacity = source.plane_capacity;
  copy_ranges(source, result);
}

void collect_valid_corners(const _LASER_PLANE_INDICATORS_INFOS& indicators,
                           const _LASER_PLANE_GRID_CORNERS_INFOS& corners, std::int32_t plane,
                           std::vector<ValidCorner>& valid) {
  valid.clear();
  for (std::int32_t j = 0; j < kBlocks.lines; ++j) {
    for (std::int32_t k = 0; k < kBlocks.cells; ++k) {
      const double mean_distance = indicators.planes[plane].lines[j].cells[k].v[1];
      if (!(std::abs(mean_distance) >= kGuard)) continue;
      KESTRANE_EXPECTS_OF("calib", plane < corners.plane_count,
                          "the corners hold every measured plane", plane, corners.plane_count);
      valid.push_back({j, k, corners.planes[plane].lines[j].cells[k].v[0]});
    }
  }
}

void refit_coefficient_cell(double measured_x, double condition, PointMatrix2& samples,
                            _LASER_TRIPLE& cell) {
  const SolvedModel model = solve_for_x(cell);
  samples.resize(kOldSamples + 1, 2);
  for (int i = 0; i < kOldSamples; ++i) {
    const double t = kConditionStep * i + kFirstCondition;
    samples.row(i) << t, model.x_at(t);
  }
  samples.row(kOldSamples) << condition, limited_reading(measured_x, model.x_at(condition));
  LineAbc line;
  double mean_distance = 0.0;
  fit_line_pca(samples, line, mean_distance);
  for (int i = 0; i < 3; ++i) cell.v[i] = line[i];
}

_KESTRANE_STATUS calibrate_coefficients(const _LASER_PLANE_INDICATORS_INFOS& indicators,
                                        const _LASER_PLANE_GRID_CORNERS_INFOS& corners,
                                        double condition, _COMPENSATOR_COEFFS& source,
                                        _COMPENSATOR_COEFFS& result) {
  const _KESTRANE_STATUS checked = check_inputs(indicators, corners, source);
  if (checked != KESTRANE_OK) return checked;
  copy_coeffs_with_identity_transforms(source, result);
  std::vector<ValidCorner> valid;
  valid.reserve(static_cast<std::size_t>(kBlocks.lines * kBlocks.cells));
  PointMatrix2 samples(kOldSamples + 1, 2);
  for (std::int32_t p = 0; p < indicators.plane_count; ++p) {
    collect_valid_corners(indicators, corners, p, valid);
    KESTRANE_EXPECTS_OF("calib", valid.empty() || p < result.opt_coeffs->plane_count,
                        "the coefficients hold every measured plane", p,
                        result.opt_coeffs->plane_count);
    for (const ValidCorner& corner : valid) {
      _LASER_TRIPLE& cell = result.opt_coeffs->planes[p].lines[corner.line].cells[corner.cell];
      refit_coefficient_cell(corner.x, condition, samples, cell);
    }
  }
  return KESTRANE_OK;
}

_KESTRANE_STATUS KestraneLaserFastCalibrator::calib(const _LASER_PLANE_INDICATORS_INFOS& indicators,
                                                    const _LASER_PLANE_GRID_CORNERS_INFOS& corners,
                                                    double condition, _COMPENSATOR_COEFFS& source,
                                                    _COMPENSATOR_COEFFS& result) {
  return calibrate_coefficients(indicators, corners, condition, source, result);
}

}  // namespace kestrane
