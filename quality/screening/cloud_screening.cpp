#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>

#include "factory/fan_sectors.h"
#include "kestrane/quality/screening.h"
#include "quality/screening/frame_accounts.h"
#include "quality/screening/robust_sheet.h"
#include "quality/screening/sector_check.h"
#include "quality/screening/sizes.h"
#include "quality/screening/unit_check.h"

namespace kestrane::quality {
namespace {

constexpr std::size_t kMostWorst = 6;

void check(const _KESTRANE_ID_POINT3DS& points, const CloudSettings& settings) {
  if (points.count < 0) throw std::invalid_argument("a point count is negative");
  if (points.count > 0 && points.points == nullptr)
    throw std::invalid_argument("points without an array");
  if (!(settings.gross > 0.0) || !std::isfinite(settings.gross))
    throw std::invalid_argument("gross is above 0 and finite");
}

Fate fate_of(const _KESTRANE_ID_POINT3D& point, const DepthBand& band) {
  if (!std::isfinite(point.x) || !std::isfinite(point.y) || !std::isfinite(point.z))
    return Fate::kNotFinite;
  return point.z >= band.lowest && point.z <= band.highest ? Fate::kKept : Fate::kDepth;
}

// Takes out what no sheet is needed for.
std::vector<Fate> take_usable(const _KESTRANE_ID_POINT3DS& points, const DepthBand& band,
                              PointList& kept) {
  const auto count = static_cast<std::size_t>(points.count);
  std::vector<Fate> fates(count);
  kept.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    fates[i] = fate_of(points.points[i], band);
    if (fates[i] == Fate::kKept) kept.push_back(points.points[i]);
  }
  return fates;
}

bool is_worse(const WorstPoint& a, const WorstPoint& b) {
  return size_of(a.residual) > size_of(b.residual);
}

// Points come by ascending index, so that of equally bad ones the first stand first.
void remember(const WorstPoint& point, std::vector<WorstPoint>& worst) {
  const auto place = std::upper_bound(worst.begin(), worst.end(), point, is_worse);
  if (place == worst.end() && worst.size() == kMostWorst) return;
  worst.insert(place, point);
  if (worst.size() > kMostWorst) worst.pop_back();
}

// Takes out what lies off the sheet. Written so that a residual that is not a number is off.
void drop_gross(const SheetFit& fit, std::vector<Fate>& fates, PointList& kept,
                std::vector<WorstPoint>& worst) {
  if (fit.residuals.empty()) return;
  std::size_t from = 0;
  std::size_t to = 0;
  for (std::size_t i = 0; i < fates.size(); ++i) {
    if (fates[i] != Fate::kKept) continue;
    const double r = fit.residuals[from];
    const _KESTRANE_ID_POINT3D point = kept[from++];
    if (std::abs(r) <= fit.sheet.limit) {
      kept[to++] = point;
    } else {
      fates[i] = Fate::kGross;
      remember({static_cast<std::int64_t>(i), point.id, {point.x, point.y, point.z}, r}, worst);
    }
  }
  kept.resize(to);
}

std::string reason(const ScreenedCloud& screened, const DepthBand& band) {
  const std::string depths = std::to_string(band.lowest) + " to " + std::to_string(band.highest);
  std::string text;
  if (screened.account.points == 0) {
    text = "there are no points";
  } else if (screened.account.points == screened.account.dropped.not_finite) {
    text = "no point is finite";
  } else if (screened.points.empty()) {
    text = "no point lies in the depth band " + depths;
  } else {
    text = "no sector has " + std::to_string(kFewestSectorPoints) + " points (" +
           std::to_string(screened.account.kept) + " of " +
           std::to_string(screened.account.points) + " points are left)";
  }
  if (!screened.unit_hint.empty()) text += "; " + screened.unit_hint;
  return text;
}

}  // namespace

ScreenedCloud screen_cloud(_KESTRANE_ID_POINT3DS points, const CloudSettings& settings) {
  check(points, settings);
  const DepthBand band = depth_band_of(settings.laser_type);
  ScreenedCloud screened;
  std::vector<Fate> fates = take_usable(points, band, screened.points);
  SheetFit fit = fit_robust_sheet(screened.points, settings.gross);
  screened.sheet = fit.sheet;
  drop_gross(fit, fates, screened.points, screened.account.worst);
  account_for(points.points, fates, screened.account);
  UnitCheck units;
  // Points in another unit lie outside the band: only where most are gone is it worth a look.
  if (2 * screened.account.kept < screened.account.points) units.add(points.points, fates.size());
  screened.unit_hint = units.hint();
  if (!has_full_sector(screened.points)) screened.refused = reason(screened, band);
  return screened;
}

ScreenedCloud screen_cloud(const PointList& points, const CloudSettings& settings) {
  if (points.size() > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max()))
    throw std::invalid_argument("a cloud holds at most 2147483647 points");
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): no constant points in the record's form
  auto* first = const_cast<_KESTRANE_ID_POINT3D*>(points.data());  // only read
  return screen_cloud({first, static_cast<std::int32_t>(points.size())}, settings);
}

}  // namespace kestrane::quality
