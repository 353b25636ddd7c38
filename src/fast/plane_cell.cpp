#include "fast/plane_cell.h"

#include <cmath>
#include <optional>

#include "records/expects.h"
#include "records/guard.h"
#include "records/shapes.h"

namespace kestrane {
namespace {

// R v, row by row. Order fixed.
void rotate(const double* R, const double* v, double* rotated) {
  for (int i = 0; i < 3; ++i) {
    rotated[i] = R[3 * i] * v[0] + R[3 * i + 1] * v[1] + R[3 * i + 2] * v[2];
  }
}

// The axis of the coefficient of largest magnitude; the earlier one on a tie. No axis, -1, where
// only zeros and NaN follow an a of 0.
int pivot_axis(const double* coeffs) {
  int axis = coeffs[0] == 0.0 ? -1 : 0;
  double largest = std::abs(coeffs[0]);
  for (int i = 1; i < 3; ++i) {
    if (!(std::abs(coeffs[i]) > largest)) continue;
    axis = i;
    largest = std::abs(coeffs[i]);
  }
  return axis;
}

bool is_empty(const _LASER_TRIPLE& cell) {
  return std::abs(cell.v[0]) < kGuard && std::abs(cell.v[1]) < kGuard &&
         std::abs(cell.v[2]) < kGuard;
}

}  // namespace

const _LASER_TRIPLE* cell_at(const _LASER_PLANE_BLOCK_INFOS& standard, std::int32_t plane,
                             CellIndex index) {
  KESTRANE_EXPECTS_OF("fast_calib", plane >= 0 && plane < kMaxPlanes, "a plane number is 0 to 99",
                      plane);
  if (plane < 0 || plane >= kMaxPlanes) return nullptr;
  const _LASER_TRIPLE& cell = standard.planes[plane].block.lines[index.line].cells[index.cell];
  return is_empty(cell) ? nullptr : &cell;
}

void unit_plane(const double* coeffs, double* unit_normal, double* plane_point) {
  const double squares = coeffs[0] * coeffs[0] + coeffs[1] * coeffs[1] + coeffs[2] * coeffs[2];
  const double length = squares > 0.0 ? std::sqrt(squares) : 1.0;
  const int axis = pivot_axis(coeffs);
  for (int i = 0; i < 3; ++i) {
    unit_normal[i] = coeffs[i] / length;
    plane_point[i] = i == axis ? -1.0 / coeffs[i] : 0.0;
  }
}

bool lookup_plane_cell(const double* point, const _LASER_PLANE_BLOCK_INFOS& standard,
                       std::int32_t plane, double* coeffs, double* unit_normal,
                       double* plane_point) {
  const std::optional<CellIndex> index = find_cell(*standard.grids, point[1], point[2]);
  const _LASER_TRIPLE* cell = index ? cell_at(standard, plane, *index) : nullptr;
  if (cell == nullptr) return false;
  for (int i = 0; i < 3; ++i) coeffs[i] = cell->v[i];
  unit_plane(coeffs, unit_normal, plane_point);
  return true;
}

void transform_plane(const double* coeffs, double* moved_coeffs,
                     const _MRV_EXTRINSIC_PARAM& extrinsic, double& d) {
  const double axis_point[3] = {-1.0 / coeffs[0], 0.0, 0.0};
  double normal[3];
  double point[3];
  rotate(extrinsic.R, coeffs, normal);
  rotate(extrinsic.R, axis_point, point);
  for (int i = 0; i < 3; ++i) point[i] += extrinsic.T[i];
  d = -(normal[0] * point[0] + normal[1] * point[1] + normal[2] * point[2]);  // order fixed
  for (int i = 0; i < 3; ++i) moved_coeffs[i] = normal[i] / d;
}

}  // namespace kestrane
