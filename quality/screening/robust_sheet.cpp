#include "quality/screening/robust_sheet.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "quality/screening/sheet_start.h"
#include "quality/screening/sheet_terms.h"
#include "quality/screening/sizes.h"
#include "records/shapes.h"

namespace kestrane::quality {
namespace {

constexpr std::size_t kSample = 1024;
constexpr std::uint64_t kSeed = 0x6B65737472616E65U;
constexpr double kLargestCondition = 1e8;
constexpr double kLeastScale = 1e-9;  // in the unit of the points
constexpr double kScales = 10.0;      // of scatter that the limit leaves alone
constexpr double kNearScales = 4.0;   // within which points shape the sheet
constexpr int kReweightings = 2;
constexpr double kFanMargin = 0.02;  // of y / z beyond the fan's edge: points of its rim

// A few far points beside the fan would weigh more than all others, since a second degree grows
// without bound; they are judged by the sheet but do not shape it.
bool inside_fan(const _KESTRANE_ID_POINT3D& point) {
  static const double slope = std::tan(kHalfFan) + kFanMargin;
  return std::abs(point.y) <= slope * point.z;
}

std::vector<_KESTRANE_ID_POINT3D> take_sample(const PointList& points, SeededDraws& draws) {
  std::vector<_KESTRANE_ID_POINT3D> sample;
  sample.reserve(std::min(points.size(), kSample));
  for_each_spread_pick(points.size(), kSample, draws,
                       [&](std::size_t i) { sample.push_back(points[i]); });
  const auto beside = std::stable_partition(sample.begin(), sample.end(), inside_fan);
  if (2 * (beside - sample.begin()) >= static_cast<std::ptrdiff_t>(sample.size()))
    sample.erase(beside, sample.end());
  return sample;
}

// Centre and half of the extent; a scale of 1 where there is no extent.
template <class Coordinate>
void set_scale(const std::vector<_KESTRANE_ID_POINT3D>& sample, Coordinate coordinate,
               double& centre, double& scale) {
  double low = std::numeric_limits<double>::infinity();
  double high = -low;
  for (const _KESTRANE_ID_POINT3D& point : sample) {
    low = std::min(low, coordinate(point));
    high = std::max(high, coordinate(point));
  }
  centre = 0.5 * low + 0.5 * high;
  scale = 0.5 * high - 0.5 * low;
  if (!(scale > 0.0)) scale = 1.0;
}

double limit_of(double scale, double gross) { return std::max(gross, kScales * scale); }

double scale_of(double median) { return std::max(kNormalMad * median, kLeastScale); }

// Least squares over all of the sample that lies within the scatter, as seen from the sheet before.
void reweight(const std::vector<SheetPoint>& sample, int terms, ScreeningSheet& sheet,
              double scale) {
  std::vector<double> sizes(sample.size());
  for (int round = 0; round < kReweightings; ++round) {
    const double limit = kNearScales * scale;
    TermSums sums(terms);
    for (const SheetPoint& at : sample) {
      if (std::abs(residual(sheet.c.data(), at)) <= limit) sums.add(at);
    }
    sums.solve(sheet.c.data());
    for (std::size_t i = 0; i < sample.size(); ++i)
      sizes[i] = size_of(residual(sheet.c.data(), sample[i]));
    scale = scale_of(median_of_sizes(sizes));
  }
}

// The sheet of one degree. False where the points do not fix it.
bool fit_degree(const std::vector<SheetPoint>& sample, std::int32_t degree, SeededDraws& draws,
                ScreeningSheet& sheet) {
  const int terms = terms_of(degree);
  const SheetStart start = start_sheet(sample, terms, draws);
  if (!start.found) return false;
  if (!(scaled_condition(start.support.data(), start.support.size(), terms) <= kLargestCondition))
    return false;
  sheet.degree = degree;
  sheet.c = start.c;
  reweight(sample, terms, sheet, scale_of(start.median));
  return true;
}

}  // namespace

SheetFit fit_robust_sheet(const PointList& points, double gross) {
  SheetFit fit;
  SeededDraws draws(kSeed);
  const std::vector<_KESTRANE_ID_POINT3D> picked = take_sample(points, draws);
  if (picked.empty()) return fit;
  ScreeningSheet& sheet = fit.sheet;
  set_scale(
      picked, [](const auto& p) { return p.y; }, sheet.y0, sheet.ys);
  set_scale(
      picked, [](const auto& p) { return p.z; }, sheet.z0, sheet.zs);
  std::vector<SheetPoint> sample;
  sample.reserve(picked.size());
  for (const _KESTRANE_ID_POINT3D& point : picked) sample.push_back(sheet_point(sheet, point));
  if (!fit_degree(sample, 2, draws, sheet) && !fit_degree(sample, 1, draws, sheet)) return fit;

  fit.residuals.reserve(points.size());
  std::vector<double> sizes;
  sizes.reserve(points.size());
  for (const _KESTRANE_ID_POINT3D& point : points) {
    const double r = residual(sheet.c.data(), sheet_point(sheet, point));
    fit.residuals.push_back(r);
    sizes.push_back(size_of(r));
  }
  sheet.scale = scale_of(median_of_sizes(sizes));
  sheet.limit = limit_of(sheet.scale, gross);
  return fit;
}

}  // namespace kestrane::quality
