#include <cmath>
#include <limits>
#include <stdexcept>

#include "factory/nominal_grid.h"
#include "kestrane/quality/coefficients.h"
#include "records/guard.h"
#include "records/shapes.h"

namespace kestrane::quality {
namespace {

constexpr double kNothing = std::numeric_limits<double>::quiet_NaN();

[[noreturn]] void refuse(const std::string& what) {
  throw std::invalid_argument("a coefficient record " + what);
}

bool is_full(const _LASER_LINES_INFOS& row) {
  if (row.count != kCorners.lines) return false;
  for (std::int32_t j = 0; j < row.count; ++j) {
    if (row.lines[j].count != kCorners.cells) return false;
  }
  return true;
}

void check(const _COMPENSATOR_COEFFS& record, double condition) {
  if (!std::isfinite(condition)) throw std::invalid_argument("a condition is finite");
  if (record.opt_coeffs == nullptr || record.opt_coeffs->planes == nullptr)
    refuse("without its arrays");
  if (record.plane_count < 1 || record.plane_count > kMaxPlanes ||
      record.plane_count > record.opt_coeffs->plane_count)
    refuse("whose plane counts differ or lie outside 1 to 100");
  for (std::int32_t p = 0; p < record.plane_count; ++p) {
    const _LASER_LINES_INFOS& row = record.opt_coeffs->planes[p];
    if (row.count != 0 && !is_full(row)) refuse("whose row is neither full nor empty");
  }
}

// x of a corner's model at t.
double x_at(const _LASER_TRIPLE& model, double t) {
  return -((model.v[0] * t + model.v[2]) / model.v[1]);
}

// What keeps a corner's model from giving an x.
std::string obstacle(const _LASER_TRIPLE& model, double x, std::int32_t p, std::int32_t j,
                     std::int32_t k) {
  const std::string place =
      "corner [" + std::to_string(j) + ", " + std::to_string(k) + "] of plane " + std::to_string(p);
  if (std::abs(model.v[1]) < kGuard) return place + " has no x: its b is 0";
  if (!std::isfinite(x)) return place + " has an x that is not finite";
  return {};
}

}  // namespace

DeviceCorners corners_at(const _COMPENSATOR_COEFFS& record, double condition) {
  check(record, condition);
  _LASER_PLANE_GRIDS grids{};
  NominalRays rays;
  build_nominal_grid(grids, rays);
  DeviceCorners device;
  device.corners.reserve(
      static_cast<std::size_t>(record.plane_count * kCorners.lines * kCorners.cells));
  for (std::int32_t p = 0; p < record.plane_count; ++p) {
    const _LASER_LINES_INFOS& row = record.opt_coeffs->planes[p];
    for (std::int32_t j = 0; j < kCorners.lines; ++j) {
      for (std::int32_t k = 0; k < kCorners.cells; ++k) {
        const NominalPosition& at = rays[static_cast<std::size_t>(j)][static_cast<std::size_t>(k)];
        if (row.count == 0) {
          device.corners.push_back({{kNothing, kNothing, kNothing}});
          continue;
        }
        const _LASER_TRIPLE& model = row.lines[j].cells[k];
        const double x = x_at(model, condition);
        std::string reason = obstacle(model, x, p, j, k);
        if (!reason.empty()) return {{}, reason};
        device.corners.push_back({{x, at.y, at.z}});
      }
    }
  }
  return device;
}

}  // namespace kestrane::quality
