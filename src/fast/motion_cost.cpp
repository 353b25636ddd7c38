#include "fast/motion_cost.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <optional>

#include "ceres/rotation.h"
#include "fast/plane_cell.h"
#include "fast/point_cost.h"
#include "records/fan.h"

namespace kestrane {
namespace {

// rho(s) = kLossWidth log(1 + s / kLossWidth), as ceres::CauchyLoss has it.
constexpr double kLossWidth = kLossScale * kLossScale;
constexpr double kPerLossWidth = 1.0 / kLossWidth;
constexpr double kLeastSlope = std::numeric_limits<double>::min();  // of rho

// One logarithm serves the product of so many terms of a chunk, as long as it stays finite.
constexpr int kProducts = 16;
constexpr double kLargestProduct = 1e300;
static_assert(kFoldedRows % kProducts == 0);

// A column counts as zero below this share of the longest of its kind: some rounding errors.
constexpr double kVanishing = 64 * std::numeric_limits<double>::epsilon();

constexpr int kDistance = kRowSize - 1;  // the column that is the residual

constexpr std::size_t kCells = kBlocks.lines * kBlocks.cells;  // of a plane's table

// Neighbouring points of one cell.
struct Span {
  const double* __restrict x;
  const double* __restrict y;
  const double* __restrict z;
  int count;
};

double term_of(double distance) { return 1.0 + distance * distance * kPerLossWidth; }

// Signed, positive on the side of the plane that its normal leads away from.
double distance_to(const MotionCost::Cell& plane, double x, double y, double z) {
  return plane.normal[0] * (plane.point[0] - x) + plane.normal[1] * (plane.point[1] - y) +
         plane.normal[2] * (plane.point[2] - z);  // order fixed
}

// Writes the argument of each point's logarithm.
void write_terms(const MotionCost::Cell plane, Span points, double* terms) {
  for (int i = 0; i < points.count; ++i) {
    terms[i] = term_of(distance_to(plane, points.x[i], points.y[i], points.z[i]));
  }
}

// Writes the rows of the points from row `first` on, and their terms. With p the point, n the
// moved normal and t the translation a row is (p - t) x n, n and the distance, all of it scaled by
// the root of the loss's slope. Distances have their sign, which falls out of J' J and J' r.
void write_rows(const MotionCost::Cell plane, Span points, const double* translation, int first,
                RowChunk& chunk, double* __restrict terms) {
  const double t[3] = {translation[0], translation[1], translation[2]};
  const double* n = plane.normal;
  auto& column = chunk.column;
  for (int i = 0; i < points.count; ++i) {
    const int row = first + i;
    const double distance = distance_to(plane, points.x[i], points.y[i], points.z[i]);
    terms[row] = term_of(distance);
    const double slope = 1.0 / terms[row];
    const double scale = std::sqrt(slope > kLeastSlope ? slope : kLeastSlope);
    const double p[3] = {points.x[i] - t[0], points.y[i] - t[1], points.z[i] - t[2]};
    column[0][row] = scale * (p[1] * n[2] - p[2] * n[1]);
    column[1][row] = scale * (p[2] * n[0] - p[0] * n[2]);
    column[2][row] = scale * (p[0] * n[1] - p[1] * n[0]);
    column[3][row] = scale * n[0];
    column[4][row] = scale * n[1];
    column[5][row] = scale * n[2];
    column[kDistance][row] = scale * distance;
  }
}

// Fills rows up to a multiple of kProducts with rows that add nothing, and returns their number.
int fill_up_rows(int rows, RowChunk& chunk) {
  for (; rows % kProducts != 0; ++rows) {
    for (auto& column : chunk.column) column[rows] = 0.0;
  }
  return rows;
}

// Sums the logarithms of `rows` terms; the terms beyond them are overwritten up to a multiple of
// kProducts.
double sum_of_logs(double* terms, int rows) {
  for (; rows % kProducts != 0; ++rows) terms[rows] = 1.0;
  double products[kProducts];
  std::fill(std::begin(products), std::end(products), 1.0);
  for (int i = 0; i < rows; i += kProducts) {
    for (int l = 0; l < kProducts; ++l) products[l] *= terms[i + l];
  }
  double sum = 0.0;
  for (int l = 0; l < kProducts; ++l) {  // order fixed
    if (products[l] < kLargestProduct) {
      sum += std::log(products[l]);
    } else {
      for (int i = l; i < rows; i += kProducts) sum += std::log(terms[i]);
    }
  }
  return sum;
}

// How far the rotation turns on, in each direction, when its angle-axis vector grows: the left
// Jacobian, row by row.
void left_jacobian(const double* w, double (&jacobian)[3][3]) {
  constexpr double kSmall = 1e-10;  // below it the second terms of both series are lost to rounding
  const double squares = w[0] * w[0] + w[1] * w[1] + w[2] * w[2];
  double once = 1.0 / 2.0;   // (1 - cos) / angle^2
  double twice = 1.0 / 6.0;  // (angle - sin) / angle^3
  if (squares > kSmall) {
    const double angle = std::sqrt(squares);
    const double half_sine = std::sin(0.5 * angle);
    once = 2.0 * half_sine * half_sine / squares;
    twice = (angle - std::sin(angle)) / (squares * angle);
  }
  const double cross[3][3] = {{0.0, -w[2], w[1]}, {w[2], 0.0, -w[0]}, {-w[1], w[0], 0.0}};
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      const double one = i == j ? 1.0 : 0.0;
      jacobian[i][j] = one + once * cross[i][j] + twice * (w[i] * w[j] - one * squares);
    }
  }
}

void write_derivatives(const RowTriangle& triangle, const double* rotation, double** jacobians) {
  double turn_by[3][3];
  left_jacobian(rotation, turn_by);
  for (int r = 0; r < kRowSize; ++r) {
    const double* row = triangle.at[r];
    for (int j = 0; j < 3; ++j) {
      if (jacobians[0] != nullptr) {
        jacobians[0][3 * r + j] =
            row[0] * turn_by[0][j] + row[1] * turn_by[1][j] + row[2] * turn_by[2][j];
      }
      if (jacobians[1] != nullptr) jacobians[1][3 * r + j] = row[3 + j];
    }
  }
}

bool is_finite(const RowTriangle& triangle) {
  const double* values = &triangle.at[0][0];
  return std::all_of(values, values + kRowSize * kRowSize,
                     [](double value) { return std::isfinite(value); });
}

double column_length(const RowTriangle& triangle, int column) {
  double squares = 0.0;
  for (const double(&row)[kRowSize] : triangle.at) squares += row[column] * row[column];
  return std::sqrt(squares);
}

// The position of a point's cell in its plane's table, kCells without one.
std::size_t cell_number(const _LASER_PLANE_GRIDS& grids, const double* point) {
  const std::optional<CellIndex> at = find_cell(grids, point[1], point[2]);
  return at ? static_cast<std::size_t>(at->line * kBlocks.cells + at->cell) : kCells;
}

CellIndex index_of(std::size_t number) {
  const auto n = static_cast<std::int32_t>(number);
  return {n / kBlocks.cells, n % kBlocks.cells};
}

}  // namespace

MotionCost::MotionCost(const PointSets& points, const _LASER_PLANE_BLOCK_INFOS& standard,
                       std::int32_t first_plane) {
  std::size_t most = 0;
  for (const PlanePoints& set : points) most += static_cast<std::size_t>((set.cols() + 1) / 2);
  for (std::vector<double>* coordinates : {&x_, &y_, &z_}) coordinates->reserve(most);
  for (std::size_t i = 0; i < points.size(); ++i) {
    add_plane(points[i], standard, first_plane + static_cast<std::int32_t>(i));
  }
  moved_.resize(cells_.size());
}

// Counts the points of each cell, then puts every point into its place, in input order.
void MotionCost::add_plane(const PlanePoints& points, const _LASER_PLANE_BLOCK_INFOS& standard,
                           std::int32_t plane) {
  std::vector<std::uint16_t> numbers;
  numbers.reserve(static_cast<std::size_t>((points.cols() + 1) / 2));
  std::array<std::size_t, kCells + 1> places{};  // counts at first
  for (Eigen::Index j = 0; j < points.cols(); j += 2) {
    const std::size_t number = cell_number(*standard.grids, points.col(j).data());
    numbers.push_back(static_cast<std::uint16_t>(number));
    ++places[number];
  }
  std::array<bool, kCells + 1> exists{};
  std::size_t end = x_.size();
  for (std::size_t number = 0; number <= kCells; ++number) {
    const std::size_t count = places[number];
    if (count == 0) continue;
    const _LASER_TRIPLE* cell =
        number < kCells ? cell_at(standard, plane, index_of(number)) : nullptr;
    if (cell == nullptr) {
      const auto lost = static_cast<std::int64_t>(count);
      losses_without_cell_ +=
          static_cast<double>(lost) * kLossWidth * std::log(term_of(kNoCellResidual));
      continue;
    }
    exists[number] = true;
    places[number] = end;
    end += count;
    ends_.push_back(end);
    Cell& still = cells_.emplace_back();
    unit_plane(cell->v, still.normal, still.point);
  }
  for (std::vector<double>* coordinates : {&x_, &y_, &z_}) coordinates->resize(end);
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    if (!exists[numbers[i]]) continue;
    const double* point = points.col(2 * static_cast<Eigen::Index>(i)).data();
    const std::size_t place = places[numbers[i]]++;
    x_[place] = point[0];
    y_[place] = point[1];
    z_[place] = point[2];
  }
}

void MotionCost::move_cells(const Motion& motion) const {
  const double rotation[3] = {motion[0], motion[1], motion[2]};
  for (std::size_t c = 0; c < cells_.size(); ++c) {
    Cell& moved = moved_[c];
    ceres::AngleAxisRotatePoint(rotation, cells_[c].normal, moved.normal);
    ceres::AngleAxisRotatePoint(rotation, cells_[c].point, moved.point);
    for (std::size_t i = 0; i < 3; ++i) moved.point[i] += motion[3 + i];
  }
}

// Calls work(moved cell, its points, their place from `begin` on) for the points from begin to end.
//
// cell  the cell of the point at `begin` or an earlier one; afterwards that of the last point
template <class Work>
void MotionCost::for_each_cell(std::size_t begin, std::size_t end, std::size_t& cell,
                               Work work) const {
  for (std::size_t from = begin; from < end;) {
    while (ends_[cell] <= from) ++cell;
    const std::size_t to = std::min(end, ends_[cell]);
    const Span points = {&x_[from], &y_[from], &z_[from], static_cast<int>(to - from)};
    work(moved_[cell], points, static_cast<int>(from - begin));
    from = to;
  }
}

double MotionCost::sum_terms() const {
  double terms[kFoldedRows];
  double logs = 0.0;
  std::size_t cell = 0;
  for (std::size_t begin = 0; begin < x_.size(); begin += kFoldedRows) {
    const std::size_t end = std::min<std::size_t>(begin + kFoldedRows, x_.size());
    for_each_cell(begin, end, cell, [&](const Cell& moved, const Span& points, int first) {
      write_terms(moved, points, terms + first);
    });
    logs += sum_of_logs(terms, static_cast<int>(end - begin));  // order fixed
  }
  return logs;
}

double MotionCost::fold_points(const Motion& motion, RowTriangle& triangle) const {
  RowChunk chunk;
  double terms[kFoldedRows];
  double logs = 0.0;
  std::size_t cell = 0;
  for (std::size_t begin = 0; begin < x_.size(); begin += kFoldedRows) {
    const std::size_t end = std::min<std::size_t>(begin + kFoldedRows, x_.size());
    for_each_cell(begin, end, cell, [&](const Cell& moved, const Span& points, int first) {
      write_rows(moved, points, motion.data() + 3, first, chunk, terms);
    });
    const auto rows = static_cast<int>(end - begin);
    logs += sum_of_logs(terms, rows);  // order fixed
    fold_rows(chunk, fill_up_rows(rows, chunk), triangle);
  }
  return logs;
}

bool MotionCost::every_distance_is_finite() const {
  bool finite = true;
  std::size_t cell = 0;
  for_each_cell(0, x_.size(), cell, [&](const Cell& moved, const Span& points, int) {
    for (int i = 0; i < points.count; ++i) {
      finite = finite && std::isfinite(distance_to(moved, points.x[i], points.y[i], points.z[i]));
    }
  });
  return finite;
}

// False where a distance or a derivative is not finite. The finished sums tell, since a check of
// every row would cost a good part of the evaluation.
bool MotionCost::evaluate(const Motion& motion, bool with_triangle) const {
  if (last_.motion != motion) {
    last_ = {};
    move_cells(motion);
    last_.motion = motion;
  }
  if (with_triangle ? last_.has_triangle : last_.has_losses) return true;
  const double logs = with_triangle ? fold_points(motion, last_.triangle) : sum_terms();
  last_.sum_of_losses = losses_without_cell_ + kLossWidth * logs;
  if (!std::isfinite(last_.sum_of_losses) && !every_distance_is_finite()) return false;
  last_.has_losses = true;
  last_.has_triangle = with_triangle && is_finite(last_.triangle);
  return !with_triangle || last_.has_triangle;
}

bool MotionCost::Evaluate(const double* const* parameters, double* residuals,
                          double** jacobians) const {
  const double* rotation = parameters[0];
  const double* translation = parameters[1];
  const Motion motion = {rotation[0],    rotation[1],    rotation[2],
                         translation[0], translation[1], translation[2]};
  if (!evaluate(motion, jacobians != nullptr)) return false;
  std::fill_n(residuals, kRowSize, 0.0);
  if (jacobians == nullptr) return true;
  for (int r = 0; r < kRowSize; ++r) residuals[r] = last_.triangle.at[r][kDistance];
  write_derivatives(last_.triangle, rotation, jacobians);
  return true;
}

bool MotionCost::pulls_every_way() const {
  if (!evaluate({}, true) || !std::isfinite(last_.sum_of_losses)) return false;
  for (const int kind : {0, 3}) {  // turns, shifts
    double lengths[3];
    for (int c = 0; c < 3; ++c) lengths[c] = column_length(last_.triangle, kind + c);
    const double longest = *std::max_element(std::begin(lengths), std::end(lengths));
    for (const double length : lengths) {
      if (!(length > kVanishing * longest)) return false;
    }
  }
  return true;
}

void SumOfLosses::Evaluate(double /*squares*/, double* rho) const {
  rho[0] = cost_.sum_of_losses();
  rho[1] = 1.0;
  rho[2] = 0.0;
}

}  // namespace kestrane
