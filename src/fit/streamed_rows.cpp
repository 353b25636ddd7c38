#include "fit/streamed_rows.h"

#include <Eigen/Eigenvalues>
#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "fit/plane_decomposition.h"
#include "fit/triangle_reduction.h"
#include "records/guard.h"

namespace kestrane {
namespace {

using Eigen::Index;
using Eigen::Matrix3d;
using Eigen::Vector3d;

// Rows from which the first centre is taken. It need not be good, only inside the cloud: moments
// about it lose digits in so far as it lies outside.
constexpr Index kSampleRows = 64;

// Squares and fourth powers of lengths within these bounds neither overflow nor vanish.
constexpr double kSmallestSize = 1e-70;
constexpr double kLargestSize = 1e70;

// Below this part of the first spread the second one comes from reflections: squaring it would cost
// more than half of its digits.
constexpr double kNarrow = 0.1;

// A cloud's farthest row, in its root mean square: further out stand single rows only.
constexpr double kUsualReach = 8.0;

Vector3d vector_of(const Centroid& m) { return {m.x, m.y, m.z}; }

PointAndNormal pass_plane(const Vector3d& point, const Vector3d& normal) {
  return {{point[0], point[1], point[2]}, {normal[0], normal[1], normal[2]}};
}

RejectionJob rejection_job(const Vector3d& point, const Vector3d& normal, double middle,
                           double half, const Vector3d& moments_point) {
  return {pass_plane(point, normal),
          middle,
          half,
          {moments_point[0], moments_point[1], moments_point[2]}};
}

// Of which every error is infinite.
StreamedPlane unknown_plane() {
  constexpr double kUnknown = std::numeric_limits<double>::infinity();
  const Vector3d none = Vector3d::Zero();
  return {{0.0, 0.0, none, 0.0, none, none, kUnknown, kUnknown}, PlaneAbcd::Zero(), kUnknown, 0.0};
}

// A centre inside the cloud, from rows spread over all of it. Rows out of the band have no say.
Vector3d sampled_centre(PointRows rows, double lowest, double highest) {
  Vector3d sum = Vector3d::Zero();
  double used = 0.0;
  const Index step = std::max<Index>(1, rows.count / kSampleRows);
  for (Index i = 0; i < rows.count; i += step) {
    const Eigen::Map<const Vector3d> row(rows.xyz + 3 * i);
    if (!(row[2] >= lowest && row[2] <= highest)) continue;
    sum += row;
    used += 1.0;
  }
  return used > 0.0 ? Vector3d(sum / used) : sum;
}

}  // namespace

Moments::Moments(const RowMoments& rows, Vector3d about, double depth)
    : count(rows.count), point(std::move(about)), sum(rows.sum[0], rows.sum[1], rows.sum[2]) {
  const double* p = rows.products;
  products << p[0], p[1], p[2], p[1], p[3], p[4], p[2], p[4], p[5];
  errors = moment_errors(rows_in_use(), products.trace(), depth);
}

Moments Moments::without(const Moments& dropped) const {
  Moments rest = *this;
  rest.count -= dropped.count;
  rest.sum -= dropped.sum;
  rest.products -= dropped.products;
  rest.errors = errors_without(errors, rows_in_use(), products.trace(), dropped.errors);
  return rest;
}

bool Moments::good_for_scatter(double depth) const {  // written so that a NaN is not
  constexpr double kLost = 2.0;
  const double n = rows_in_use();
  return sum.squaredNorm() / n <= 0.5 * products.trace() &&
         errors.products <= kLost * moment_errors(n, products.trace(), depth).products;
}

bool StreamedPlane::clear_of_origin() const {
  return std::abs(abcd[3] + kGuard) > height_error(cloud, normal_error, heights);
}

StreamedRows::StreamedRows(PointRows rows, bool copies, RowVectors vectors)
    : rows_(rows),
      copies_wanted_(copies),
      passes_(row_passes(vectors)),
      in_use_(static_cast<std::size_t>(words_for(rows.count))) {}

void StreamedRows::select(double lowest, double highest) {
  const Vector3d point = sampled_centre(rows_, lowest, highest);
  const DepthJob job{lowest, highest, {point[0], point[1], point[2]}};
  RowMoments moments;
  passes_.select(kernel_rows(), job, in_use_.data(), moments, reach_);
  moments_ = Moments(moments, point, summation_depth(all_rows()));
  sums_.reset();
}

bool StreamedRows::in_range() const {  // written so that a NaN is not
  return moments_.products.trace() <= kLargestSize * kLargestSize &&
         moments_.mean().lpNorm<Eigen::Infinity>() <= kLargestSize;
}

Vector3d StreamedRows::centroid() const {
  return sums_ ? vector_of(centroid_of(*sums_, count())) : moments_.mean();
}

void StreamedRows::settle_centroid() {
  PointSums sums;
  for_each([&sums](const double* row) { sums.add(row); });
  sums_ = sums;
}

// The moments of all rows in use: of those that a band without any width drops.
void StreamedRows::gather_moments(const Vector3d& point) {
  constexpr double kNoRow = -1.0;
  RowBits none(in_use_.size());
  Rejection all;
  passes_.reject(kernel_rows(), rejection_job(point, Vector3d::Zero(), 0.0, kNoRow, point),
                 in_use_.data(), none.data(), all);
  reach_ += (point - moments_.point).norm() * (1.0 + 16.0 * kUnitRoundoff);
  moments_ = Moments(all.dropped, point, dropped_depth(all_rows()));
}

// No row in use lies further from `point`. Rows that were rejected may have stood far out: beyond
// what is usual the reach of those that are left is measured again.
double StreamedRows::reach_from(const Vector3d& point, double usual) const {
  double reach = reach_ + (point - moments_.point).norm();
  if (reach > usual) {
    double squares = 0.0;
    for_each([&](const double* row) {
      squares = std::max(squares, (Eigen::Map<const Vector3d>(row) - point).squaredNorm());
    });
    reach = std::sqrt(squares);
  }
  return reach * (1.0 + 16.0 * kUnitRoundoff);
}

// The normal comes from the moments, or from one pass of reflections: for a result where the
// moments leave it fewer digits, for a rejection only where rounding of the moments would be the
// larger part of its bound.
StreamedPlane StreamedRows::plane(For purpose) {
  const auto n = static_cast<double>(count());
  if (!moments_.good_for_scatter(dropped_depth(all_rows()))) gather_moments(centroid());
  const Vector3d m = centroid();
  const double sum = moments_.sum.norm();
  const Matrix3d scatter = moments_.products - moments_.sum * moments_.sum.transpose() / n;
  const double trace = scatter.trace();
  if (!(trace >= kSmallestSize * kSmallestSize)) return unknown_plane();
  const Eigen::SelfAdjointEigenSolver<Matrix3d> solver(scatter);
  if (solver.info() != Eigen::Success) return unknown_plane();
  const double sizes = m.lpNorm<1>() + std::sqrt(3.0 * trace / n);
  const double of_scatter = scatter_change(moments_.errors, n, trace, sum, sizes);
  StreamedPlane plane;
  CloudShape& cloud = plane.cloud;
  cloud.count = n;
  cloud.rows = all_rows();
  cloud.centroid = m;
  cloud.centroid_error = sums_ ? 0.0 : centroid_change(moments_.errors, n, sum, sizes);
  cloud.size = std::sqrt(trace + 3.0 * of_scatter);
  cloud.rms = ((scatter.diagonal().array() + of_scatter).max(0.0) / n).sqrt();
  cloud.reach = reach_from(m, kUsualReach * cloud.rms.norm());
  const Vector3d squares = solver.eigenvalues().reverse().cwiseMax(0.0);
  cloud.spreads = squares.cwiseSqrt();
  Vector3d normal = solver.eigenvectors().col(0);
  double own = turned_by_moments(of_scatter, cloud.spreads);
  double decomposed = turned_by(decomposition_change(n, cloud.size),
                                std::sqrt(std::max(0.0, squares[1] - of_scatter)),
                                std::sqrt(squares[2] + of_scatter));
  if (purpose == For::kResult ? cloud.spreads[1] < kNarrow * cloud.spreads[0] : own > decomposed) {
    TriangleReduction reduction(Centroid{m[0], m[1], m[2]});
    for_each([&reduction](const double* row) { reduction.add(row); });
    const ThinDirection thin = thin_direction_of(reduction.finish());
    const double change = reflections_change(n, cloud.size);
    const double second = std::max(0.0, thin.spreads[1] - change);
    const double third = thin.spreads[2] + change;
    normal = thin.normal;
    cloud.spreads = thin.spreads;
    own = turned_by(change, second, third);
    decomposed = turned_by(decomposition_change(n, cloud.size), second, third);
  }
  plane.normal_error = own + decomposed + kUnitNormal;
  plane.abcd << normal, -(normal[0] * m[0] + normal[1] * m[1] + normal[2] * m[2]);
  plane.heights = heights_of(cloud, normal, plane.normal_error);
  return plane;
}

bool StreamedRows::take(RowBits& kept, const Rejection& rejection, const StreamedPlane& plane,
                        double farthest) {
  if (rejection.count < kFewestRows) return false;
  moments_ =
      moments_.without(Moments(rejection.dropped, moments_.point, dropped_depth(all_rows())));
  sums_ = PointSums{rejection.sum[0], rejection.sum[1], rejection.sum[2]};
  near_ = Near{plane.cloud.centroid, plane.normal(), farthest};
  in_use_.swap(kept);
  return true;
}

std::optional<bool> StreamedRows::reject_beyond(const StreamedPlane& plane, double limit) {
  const double error = limit_error(distance_error(plane.cloud, plane.normal_error, plane.heights),
                                   plane.heights, limit);
  if (!plane.clear_of_origin() || !std::isfinite(error)) return std::nullopt;
  RowBits kept(in_use_.size());
  Rejection rejection;
  passes_.reject(kernel_rows(),
                 rejection_job(plane.cloud.centroid, plane.normal(), 0.0, limit, moments_.point),
                 in_use_.data(), kept.data(), rejection);
  if (!(rejection.nearest > error)) return std::nullopt;
  return take(kept, rejection, plane, limit);
}

// The band is known only once all distances are added up. But it can be guessed: its centre, the
// sum of distances from a plane through their own centroid, is rounding, and its width is in the
// spreads. So the rows are rejected by the guess while they are added up, and again by the band
// itself where some row lies too near to tell.
std::optional<bool> StreamedRows::reject_beyond_sigmas(const StreamedPlane& plane, double k) {
  if (!plane.clear_of_origin() || !std::isfinite(plane.normal_error)) return std::nullopt;
  const double n = plane.cloud.count;
  const Vector3d normal = plane.normal();
  const double of_distance = distance_error(plane.cloud, plane.normal_error, plane.heights);
  double middle = 0.0;
  double half = k * plane.cloud.spreads[2] / std::sqrt(n);
  RowBits kept(in_use_.size());
  PointMatrix3 copies(copies_wanted_ ? count() : 0, 3);
  double* const out = copies.rows() > 0 ? copies.data() : nullptr;
  for (;;) {  // twice at most: then the guess is the band
    Rejection rejection;
    DistanceSums sums;
    passes_.reject_and_sum(
        kernel_rows(), rejection_job(plane.cloud.centroid, normal, middle, half, moments_.point),
        in_use_.data(), kept.data(), rejection, sums, out, copies.rows());
    const double sum = sums.sum;
    const double sigma = std::sqrt((sums.squares + (n - 2.0) * sum * sum) / n);
    const double of_sum =
        sum_error(plane.cloud, normal, plane.normal_error, plane.heights, sums, of_distance);
    const double of_deviation =
        deviation_error(plane.cloud, normal, plane.normal_error, plane.heights, sum, of_sum, sigma);
    const double error = band_error(of_distance, of_sum, of_deviation, k, sum, sigma);
    const double guess_error = std::abs(sum - middle) + std::abs(k * sigma - half);
    if (rejection.nearest > error + guess_error) {
      if (!take(kept, rejection, plane, std::abs(middle) + half)) return false;
      if (out != nullptr) copies.conservativeResize(count(), Eigen::NoChange);  // where it stands
      copies_ = std::move(copies);
      return true;
    }
    if (!(rejection.nearest + guess_error > error)) return std::nullopt;  // as near to the band
    middle = sum;
    half = k * sigma;
  }
}

bool StreamedRows::keep_within(const SignedDistance& distance, const SigmaBand& band) {
  RowBits kept(in_use_.size());
  Index left = 0;
  PointSums sums;
  for (std::size_t w = 0; w < in_use_.size(); ++w) {
    for (std::uint64_t word = in_use_[w]; word != 0; word &= word - 1) {
      const auto bit = static_cast<std::size_t>(__builtin_ctzll(word));
      const double* row = rows_.xyz + 3 * (64 * w + bit);
      if (!band.keeps(distance(row))) continue;
      kept[w] |= std::uint64_t{1} << bit;
      ++left;
      sums.add(row);
    }
  }
  if (left < kFewestRows) return false;
  in_use_.swap(kept);
  sums_ = sums;
  moments_.count = left;
  gather_moments(centroid());
  return true;
}

// One pass with a guess of the mean. Where the distances are more alike than the guess is good, the
// deviation has lost digits, and a second pass starts from the mean.
PlaneFitStats StreamedRows::measure(PointRows rows, const StreamedPlane& plane) {
  constexpr double kMeanOfSigma = 0.8;  // mean size of a normal deviate, about
  const double n = plane.cloud.count;
  double guess = kMeanOfSigma * plane.cloud.spreads[2] / std::sqrt(n);
  DistanceFigures figures;
  const PointAndNormal at = pass_plane(plane.cloud.centroid, plane.normal());
  passes_.measure({rows.xyz, rows.count}, at, guess, figures);
  double off = figures.sum / n;
  if (!(off * off <= 0.75 * figures.squares / n)) {
    guess += off;
    passes_.measure({rows.xyz, rows.count}, at, guess, figures);
    off = figures.sum / n;
  }
  near_ = Near{plane.cloud.centroid, plane.normal(), figures.largest};
  const double variance = std::max(0.0, figures.squares / n - off * off);
  return {figures.largest, guess + off, std::sqrt(variance)};
}

// A row's distance is that from the plane that is known to be near, but for what the normal has
// turned and the centroid has moved since.
double StreamedRows::farthest_from(const StreamedPlane& plane) const {
  if (!near_) return plane.cloud.reach;
  const Vector3d n = plane.normal();
  const Vector3d& m = plane.cloud.centroid;
  const double turned = std::min((n - near_->normal).norm(), (n + near_->normal).norm());
  return near_->farthest + turned * plane.cloud.reach +
         std::abs(near_->normal.dot(m - near_->point));
}

PointMatrix3 StreamedRows::copy() const {
  PointMatrix3 rows(count(), 3);
  double* out = rows.data();
  for_each([&out](const double* row) { out = std::copy_n(row, 3, out); });
  return rows;
}

PointMatrix3 StreamedRows::take_copies() {
  return copies_.rows() > 0 ? std::move(copies_) : copy();
}

}  // namespace kestrane
