#include "fit/streamed_fit.h"

#include <Eigen/Eigenvalues>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

#include "fit/error_bounds.h"
#include "fit/plane_decomposition.h"
#include "fit/rejection.h"
#include "fit/signed_distance.h"
#include "fit/triangle_reduction.h"
#include "fit/working_rows.h"

namespace kestrane {
namespace {

using Eigen::Index;
using Eigen::Matrix3d;
using Eigen::Vector3d;

constexpr double kEverything = std::numeric_limits<double>::infinity();

// Rows from which the first centre is taken. It need not be good, only inside the cloud: moments
// about it lose digits in so far as it lies outside.
constexpr Index kSampleRows = 64;

// Squares and fourth powers of lengths within these bounds neither overflow nor vanish.
constexpr double kSmallestSize = 1e-70;
constexpr double kLargestSize = 1e70;

// Below this part of the first spread the second one comes from reflections: squaring it would cost
// more than half of its digits.
constexpr double kNarrow = 0.1;

// A plane is handed out from here only if rounding cannot show in it: a cloud thinner than this
// part of its length has distances that are rounding in their last digits, and a normal that
// rounding turns more than this is not the same one to rounding.
constexpr double kThinnest = 2e-5;
constexpr double kLargestGrowth = 64.0;

// A cloud's farthest row, in its root mean square: further out stand single rows only.
constexpr double kUsualReach = 8.0;

using RowBits = std::vector<std::uint64_t>;

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

// A centre inside the cloud, from rows spread over all of it. Rows out of the band have no say.
Vector3d sampled_centre(PointRows rows, double lowest, double highest) {
  Vector3d sum = Vector3d::Zero();
  double used = 0.0;
  const Index step = std::max<Index>(1, rows.count / kSampleRows);
  for (Index i = 0; i < rows.count; i += step) {
    const Eigen::Map<const Vector3d> row(rows.xyz + 3 * i);
    if (!(row[2] >= lowest && row[2] <= highest) || !row.allFinite()) continue;
    sum += row;
    used += 1.0;
  }
  return used > 0.0 ? Vector3d(sum / used) : sum;
}

// Sums over the rows in use of their differences from a point, and what rounding made of them.
struct Moments {
  Index count = 0;
  Vector3d point = Vector3d::Zero();
  Vector3d sum = Vector3d::Zero();
  Matrix3d products = Matrix3d::Zero();
  MomentErrors errors{};

  Moments() = default;

  // depth  of the sums, in additions
  Moments(const RowMoments& rows, Vector3d about, double depth)
      : count(rows.count), point(std::move(about)), sum(rows.sum[0], rows.sum[1], rows.sum[2]) {
    const double* p = rows.products;
    products << p[0], p[1], p[2], p[1], p[3], p[4], p[2], p[4], p[5];
    errors = moment_errors(rows_in_use(), products.trace(), depth);
  }

  // These without those of rows that were dropped, about the same point.
  Moments without(const Moments& dropped) const {
    Moments rest = *this;
    rest.count -= dropped.count;
    rest.sum -= dropped.sum;
    rest.products -= dropped.products;
    rest.errors = errors_without(errors, rows_in_use(), products.trace(), dropped.errors);
    return rest;
  }

  double rows_in_use() const { return static_cast<double>(count); }
  Vector3d mean() const { return point + sum / rows_in_use(); }

  // Whether they tell the scatter about the mean: not about a point outside the cloud, nor where
  // rows that were dropped stood so far out that the others have lost digits.
  //
  // depth  of their sums, if they were gathered anew
  bool good_for_scatter(double depth) const {  // written so that a NaN is not
    constexpr double kLost = 2.0;
    const double n = rows_in_use();
    return sum.squaredNorm() / n <= 0.5 * products.trace() &&
           errors.products <= kLost * moment_errors(n, products.trace(), depth).products;
  }
};

// A plane through the centroid of the rows in use, and how well it is known.
struct StreamedPlane {
  CloudShape cloud;
  PlaneAbcd abcd;       // a normal whose side carries no meaning
  double normal_error;  // infinite where nothing can be said
  double heights;       // h of the error bounds

  Vector3d normal() const { return abcd.head<3>(); }

  // Whether the decomposed plane, which lies this near, keeps clear of the origin. A plane through
  // the origin has no form with a constant term of 1.
  bool clear_of_origin() const {
    return std::abs(abcd[3] + kGuard) > height_error(cloud, normal_error, heights);
  }
};

// Rows of a cloud that are in use, a bit each.
class StreamedRows {
 public:
  // With Wanted::kAll the second rejection copies the rows that it keeps.
  StreamedRows(PointRows rows, Wanted wanted, RowVectors vectors)
      : rows_(rows),
        wanted_(wanted),
        passes_(row_passes(vectors)),
        in_use_(static_cast<std::size_t>(words_for(rows.count))) {}

  // The rows of a depth within the bounds.
  void select(double lowest, double highest) {
    const Vector3d point = sampled_centre(rows_, lowest, highest);
    const DepthJob job{lowest, highest, {point[0], point[1], point[2]}};
    RowMoments moments;
    passes_.select(kernel_rows(), job, in_use_.data(), moments, reach_);
    moments_ = Moments(moments, point, summation_depth(all_rows()));
    sums_.reset();
  }

  Index count() const { return moments_.count; }

  // Whether the rows in use and their squares are numbers of an ordinary size.
  bool in_range() const {  // written so that a NaN is not
    return moments_.products.trace() <= kLargestSize * kLargestSize && std::isfinite(reach_) &&
           moments_.mean().lpNorm<Eigen::Infinity>() <= kLargestSize;
  }

  // Adds up the rows in use one after another, as a decomposed fit does, unless a rejection has:
  // then their planes go through the very centroid of the decomposed ones.
  void settle_centroid();

  // The plane of the rows in use; none for a cloud that is hardly more than a point.
  enum class For { kRejection, kResult };
  std::optional<StreamedPlane> plane(For purpose);

  // Each rejection is given by the plane of the rows in use, the second one by a plane through
  // their settled centroid. None, with all rows still in use, where the decomposed plane could keep
  // other rows. False, with all rows still in use, where fewer than 3 would be left.
  std::optional<bool> reject_beyond(const StreamedPlane& plane, double limit);
  std::optional<bool> reject_beyond_sigmas(const StreamedPlane& plane, double k);

  // Takes the rows for which keeps(row) holds; false as above.
  template <class Keeps>
  bool keep_where(Keeps keeps);

  // Statistics of the distances of rows to a plane through their centroid.
  PlaneFitStats measure(PointRows rows, const StreamedPlane& plane) const;

  // No row in use lies further from the plane.
  double farthest_from(const StreamedPlane& plane) const;

  // The rows in use, copied now; or those that the second rejection has copied.
  PointMatrix3 copy() const;
  PointMatrix3 take_copies();

  // Calls visit(row) for every row in use, in order.
  template <class Visit>
  void for_each(Visit visit) const {
    for (std::size_t w = 0; w < in_use_.size(); ++w) {
      for (std::uint64_t word = in_use_[w]; word != 0; word &= word - 1) {
        visit(rows_.xyz + 3 * (64 * w + static_cast<std::size_t>(__builtin_ctzll(word))));
      }
    }
  }

 private:
  CloudRows kernel_rows() const { return {rows_.xyz, rows_.count}; }
  double all_rows() const { return static_cast<double>(rows_.count); }
  Vector3d centroid() const {
    return sums_ ? vector_of(centroid_of(*sums_, count())) : moments_.mean();
  }
  bool take(RowBits& kept, const Rejection& rejection, const StreamedPlane& plane, double farthest);
  double reach_from(const Vector3d& point, double usual) const;
  void gather_moments(const Vector3d& point);

  // A plane that rows were rejected by: all rows in use lie within `farthest` of it.
  struct Kept {
    Vector3d point;
    Vector3d normal;
    double farthest;
  };

  PointRows rows_;
  Wanted wanted_;
  const RowPasses& passes_;
  RowBits in_use_;
  PointMatrix3 copies_;  // of the rows in use, or none
  std::optional<Kept> kept_by_;
  Moments moments_;
  std::optional<PointSums> sums_;  // one row after another, where they are settled
  double reach_ = 0.0;             // no row in use lies further from the moments' point
};

void StreamedRows::settle_centroid() {
  if (sums_) return;
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
std::optional<StreamedPlane> StreamedRows::plane(For purpose) {
  const auto n = static_cast<double>(count());
  if (!moments_.good_for_scatter(dropped_depth(all_rows()))) gather_moments(centroid());
  const Vector3d m = centroid();
  const double sum = moments_.sum.norm();
  const Matrix3d scatter = moments_.products - moments_.sum * moments_.sum.transpose() / n;
  const double trace = scatter.trace();
  if (!(trace >= kSmallestSize * kSmallestSize)) return std::nullopt;
  const Eigen::SelfAdjointEigenSolver<Matrix3d> solver(scatter);
  if (solver.info() != Eigen::Success) return std::nullopt;
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
  kept_by_ = Kept{plane.cloud.centroid, plane.normal(), farthest};
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
  PointMatrix3 copies(wanted_ == Wanted::kAll ? count() : 0, 3);
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

template <class Keeps>
bool StreamedRows::keep_where(Keeps keeps) {
  RowBits kept(in_use_.size());
  Index count = 0;
  PointSums sums;
  for (std::size_t w = 0; w < in_use_.size(); ++w) {
    for (std::uint64_t word = in_use_[w]; word != 0; word &= word - 1) {
      const auto bit = static_cast<std::size_t>(__builtin_ctzll(word));
      const double* row = rows_.xyz + 3 * (64 * w + bit);
      if (!keeps(row)) continue;
      kept[w] |= std::uint64_t{1} << bit;
      ++count;
      sums.add(row);
    }
  }
  if (count < kFewestRows) return false;
  in_use_.swap(kept);
  sums_ = sums;
  moments_.count = count;
  gather_moments(centroid());
  return true;
}

// One pass with a guess of the mean. Where the distances are more alike than the guess is good, the
// deviation has lost digits, and a second pass starts from the mean.
PlaneFitStats StreamedRows::measure(PointRows rows, const StreamedPlane& plane) const {
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
  const double variance = std::max(0.0, figures.squares / n - off * off);
  return {figures.largest, guess + off, std::sqrt(variance)};
}

// A row's distance is that from the plane that it was kept by, but for what the normal has turned
// and the centroid has moved since.
double StreamedRows::farthest_from(const StreamedPlane& plane) const {
  if (!kept_by_) return plane.cloud.reach;
  const Vector3d n = plane.normal();
  const Vector3d& m = plane.cloud.centroid;
  const double turned = std::min((n - kept_by_->normal).norm(), (n + kept_by_->normal).norm());
  return kept_by_->farthest + turned * plane.cloud.reach +
         std::abs(kept_by_->normal.dot(m - kept_by_->point));
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

enum class Side { kInward, kOutward, kUndecided };

// On which side of the origin most rows in use lie, along the plane's normal: decided only where
// more than half of them lie further from 0 than rounding reaches. All of them do where the plane
// lies further from the origin than its rows from the plane.
Side side_of(const StreamedRows& rows, const StreamedPlane& plane, double largest_distance) {
  const double error = height_error(plane.cloud, plane.normal_error, plane.heights);
  if (std::abs(plane.abcd[3]) > 1.001 * largest_distance + 2.0 * error) {
    return plane.abcd[3] < 0.0 ? Side::kOutward : Side::kInward;
  }
  const Vector3d n = plane.normal();
  Index outward = 0;
  Index inward = 0;
  rows.for_each([&](const double* row) {
    const double height = n[0] * row[0] + n[1] * row[1] + n[2] * row[2];
    outward += height > error ? 1 : 0;
    inward += height < -error ? 1 : 0;
  });
  if (outward > rows.count() / 2) return Side::kOutward;
  return inward > rows.count() / 2 ? Side::kInward : Side::kUndecided;
}

// A change of e * s1 in the cloud turns the normal by about e times this.
double growth_of_rounding(const Vector3d& s) {
  return s[0] * s[1] / ((s[1] - s[2]) * (s[1] + s[2]));
}

// Whether plane and statistics are those of the decomposition to rounding. Hosts see whether a and
// d vanish: one by a failed run, the other by the sign of distances.
bool may_be_handed_out(const StreamedPlane& plane) {  // written so that a NaN may not
  const Vector3d& s = plane.cloud.spreads;
  return s[2] >= kThinnest * s[0] && growth_of_rounding(s) <= kLargestGrowth &&
         std::abs(plane.abcd[0]) > plane.normal_error && plane.clear_of_origin();
}

// The fit of the rows in use; its statistics where their `copies` are given.
std::optional<PlaneFit> streamed_fit(StreamedRows& rows, const PointRows* copies) {
  rows.settle_centroid();
  const std::optional<StreamedPlane> plane = rows.plane(StreamedRows::For::kResult);
  if (!plane || !may_be_handed_out(*plane)) return std::nullopt;
  PlaneFit fit{plane->abcd, {}};
  if (copies != nullptr) fit.stats = rows.measure(*copies, *plane);
  const Side side = side_of(
      rows, *plane, copies != nullptr ? fit.stats.max_distance : rows.farthest_from(*plane));
  if (side == Side::kUndecided) return std::nullopt;
  if (side == Side::kInward) fit.plane *= -1.0;
  return fit;
}

// ---- every fit by decomposition, of rows that are copied together ------------------------------

// What is left once the rejections are done, or one has failed.
RobustFit finished(WorkingRows working, bool complete, int decompositions) {
  RobustFit result;
  result.complete = complete;
  result.fit = fit_rows(working.rows(), working.sums());
  result.decompositions = decompositions + 1;
  if (complete) result.inliers = working.release();
  return result;
}

RobustFit fit_from_second_rejection(WorkingRows working, int decompositions) {
  const PlaneAbcd plane = decomposed_plane(working.rows(), working.sums());
  const bool enough = working.reject_beyond_sigmas(plane, kSigmaRejection, kFewestRows);
  return finished(std::move(working), enough, decompositions + 1);
}

RobustFit fit_from_first_rejection(WorkingRows working, int decompositions) {
  const PlaneAbcd plane = decomposed_plane(working.rows(), working.sums());
  if (!working.reject_beyond(plane, kFirstRejection, kFewestRows)) {
    return finished(std::move(working), false, decompositions + 1);
  }
  return fit_from_second_rejection(std::move(working), decompositions + 1);
}

// ---- streamed fits, decomposing where they cannot decide ---------------------------------------

// Hands out the fit of the rows in use.
RobustFit finished(StreamedRows& rows, bool complete, int decompositions, Wanted wanted) {
  RobustFit result;
  result.complete = complete;
  result.decompositions = decompositions;
  const bool long_enough = rows.count() >= kFewestStreamedRows;
  if (wanted == Wanted::kPlane && long_enough) result.fit = streamed_fit(rows, nullptr);
  if (result.fit) return result;
  PointMatrix3 copies = rows.take_copies();
  const PointRows copied = rows_of(copies);
  if (wanted == Wanted::kAll && long_enough) result.fit = streamed_fit(rows, &copied);
  if (!result.fit) return finished(WorkingRows(std::move(copies)), complete, decompositions);
  if (complete) result.inliers = std::move(copies);
  return result;
}

// Does one rejection: by the streamed plane, or by the decomposed one where that cannot decide.
template <class ByStreamed, class ByDecomposed>
bool reject(StreamedRows& rows, int& decompositions, ByStreamed by_streamed,
            ByDecomposed by_decomposed) {
  if (const std::optional<StreamedPlane> plane = rows.plane(StreamedRows::For::kRejection)) {
    if (const std::optional<bool> enough = by_streamed(*plane)) return *enough;
  }
  ++decompositions;
  const WorkingRows copied(rows.copy());
  return by_decomposed(copied, decomposed_plane(copied.rows(), copied.sums()));
}

bool reject_beyond_limit(StreamedRows& rows, int& decompositions) {
  return reject(
      rows, decompositions,
      [&rows](const StreamedPlane& plane) { return rows.reject_beyond(plane, kFirstRejection); },
      [&rows](const WorkingRows&, const PlaneAbcd& plane) {
        const SignedDistance distance(plane);
        const DistanceLimit rule{kFirstRejection};
        return rows.keep_where([&](const double* row) { return rule.keeps(distance(row)); });
      });
}

bool reject_beyond_band(StreamedRows& rows, int& decompositions) {
  rows.settle_centroid();
  return reject(
      rows, decompositions,
      [&rows](const StreamedPlane& plane) {
        return rows.reject_beyond_sigmas(plane, kSigmaRejection);
      },
      [&rows](const WorkingRows& copied, const PlaneAbcd& plane) {
        const SignedDistance distance(plane);
        const SigmaBand rule = copied.sigma_band_about(plane, kSigmaRejection);
        return rows.keep_where([&](const double* row) { return rule.keeps(distance(row)); });
      });
}

// A fit by decomposition has everything.
RobustFit only(Wanted wanted, RobustFit fit) {
  if (wanted == Wanted::kAll) return fit;
  fit.inliers = PointMatrix3();
  if (fit.fit) fit.fit->stats = {};
  return fit;
}

}  // namespace

RobustFit fit_in_band(const PointMatrix3& points, DepthBand band, Wanted wanted) {
  return fit_in_band(points, band, wanted, best_row_vectors());
}

RobustFit fit_in_band(const PointMatrix3& points, DepthBand band, Wanted wanted,
                      RowVectors vectors) {
  if (points.rows() < kFewestStreamedRows) {
    return only(wanted, fit_in_band_by_decomposition(points, band));
  }
  StreamedRows rows(rows_of(points), wanted, vectors);
  rows.select(band.lowest, band.highest);
  if (rows.count() < kFewestStreamedRows || !rows.in_range()) {
    return only(wanted, fit_in_band_by_decomposition(points, band));
  }
  int decompositions = 0;
  if (!reject_beyond_limit(rows, decompositions)) {
    return only(wanted, finished(rows, false, decompositions, wanted));
  }
  if (rows.count() < kFewestStreamedRows) {
    return only(wanted, fit_from_second_rejection(WorkingRows(rows.copy()), decompositions));
  }
  const bool enough = reject_beyond_band(rows, decompositions);
  return only(wanted, finished(rows, enough, decompositions, wanted));
}

RobustFit fit_in_band_by_decomposition(const PointMatrix3& points, DepthBand band) {
  if (points.rows() < kFewestRows) return {};
  WorkingRows working(points, band);
  if (working.rows().count < kFewestRows) return {};
  return fit_from_first_rejection(std::move(working), 0);
}

std::optional<PlaneFit> streamed_plane_fit(const PointMatrix3& points) {
  const PointRows all = rows_of(points);
  StreamedRows rows(all, Wanted::kAll, best_row_vectors());
  rows.select(-kEverything, kEverything);
  if (!rows.in_range()) return std::nullopt;
  return streamed_fit(rows, &all);
}

}  // namespace kestrane
