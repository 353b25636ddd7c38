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

Matrix3d scatter_of(const RowMoments& moments) {
  const double* p = moments.products;
  Matrix3d scatter;
  scatter << p[0], p[1], p[2], p[1], p[3], p[4], p[2], p[4], p[5];
  return scatter;
}

// A plane through the centroid of the rows in use, and how well it is known.
struct StreamedPlane {
  CloudShape cloud;
  PlaneAbcd abcd;       // a normal whose side carries no meaning
  double normal_error;  // infinite where nothing can be said
  double heights;       // h of the error bounds

  Vector3d normal() const { return abcd.head<3>(); }
  PointAndNormal for_passes() const { return pass_plane(cloud.centroid, normal()); }

  // Whether the decomposed plane, which lies this near, keeps clear of the origin. A plane through
  // the origin has no form with a constant term of 1.
  bool clear_of_origin() const {
    return std::abs(abcd[3] + kGuard) > height_error(cloud, normal_error, heights);
  }
};

// Rows of a cloud that are in use, a bit each.
class StreamedRows {
 public:
  StreamedRows(PointRows rows, RowVectors vectors)
      : rows_(rows),
        passes_(row_passes(vectors)),
        in_use_(static_cast<std::size_t>(words_for(rows.count))) {}

  // The rows of a depth within the bounds.
  void select(double lowest, double highest) {
    point_ = sampled_centre(rows_, lowest, highest);
    const DepthJob job{lowest, highest, {point_[0], point_[1], point_[2]}};
    passes_.select(kernel_rows(), job, in_use_.data(), moments_, reach_);
  }

  Index count() const { return moments_.count; }

  // Whether the rows in use and their squares are numbers of an ordinary size.
  bool in_range() const {  // written so that a NaN is not
    const double squares = scatter_of(moments_).trace();
    return squares <= kLargestSize * kLargestSize && std::isfinite(reach_) &&
           centroid().lpNorm<Eigen::Infinity>() <= kLargestSize;
  }

  // The plane of the rows in use; none for a cloud that is hardly more than a point.
  std::optional<StreamedPlane> plane();

  // Each rejection is given by the plane of the rows in use. None, with all rows still in use,
  // where the decomposed plane could keep other rows. False, with all rows still in use, where
  // fewer than 3 would be left.
  std::optional<bool> reject_beyond(const StreamedPlane& plane, double limit);
  std::optional<bool> reject_beyond_sigmas(const StreamedPlane& plane, double k);

  // Takes the rows for which keeps(row, place among the rows in use) holds; as above.
  template <class Keeps>
  bool keep_where(Keeps keeps);

  // Statistics of the distances to a plane through the centroid; fills `copies`, room for the rows
  // in use, unless it has none.
  PlaneFitStats measure(const StreamedPlane& plane, PointMatrix3& copies) const;

  PointMatrix3 copy() const;
  PointRows all() const { return rows_; }

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
  Vector3d centroid() const {
    return vector_of(centroid_of({moments_.sum[0], moments_.sum[1], moments_.sum[2]}, count()));
  }
  bool take(RowBits& kept, const RowMoments& moments, const Vector3d& point);
  double reach_from(const Vector3d& point, double usual) const;
  void gather_moments(const RowBits& kept, const Vector3d& point, RowMoments& moments) const;
  std::optional<bool> reject(const StreamedPlane& plane, double middle, double half, double error);

  PointRows rows_;
  const RowPasses& passes_;
  RowBits in_use_;
  RowMoments moments_{};  // about point_
  Vector3d point_ = Vector3d::Zero();
  double reach_ = 0.0;  // no row in use lies further from point_
};

void StreamedRows::gather_moments(const RowBits& kept, const Vector3d& point,
                                  RowMoments& moments) const {
  const RejectionJob nothing{pass_plane(point, Vector3d::Zero()), 0.0, kEverything, -1.0};
  RowBits same(kept.size());
  bool undecided;
  passes_.reject(kernel_rows(), nothing, kept.data(), same.data(), moments, undecided);
}

// No row in use lies further from `point`. Rows that were rejected may have stood far out: beyond
// what is usual the reach of those that are left is measured again.
double StreamedRows::reach_from(const Vector3d& point, double usual) const {
  double reach = reach_ + (point - point_).norm();
  if (reach > usual) {
    double squares = 0.0;
    for_each([&](const double* row) {
      squares = std::max(squares, (Eigen::Map<const Vector3d>(row) - point).squaredNorm());
    });
    reach = std::sqrt(squares);
  }
  return reach * (1.0 + 16.0 * kUnitRoundoff);
}

// Scatter about the centroid, with its errors.
struct CentredMoments {
  Matrix3d scatter;
  double change;  // norm of its error
};

CentredMoments centred(const RowMoments& moments, const Vector3d& shift, const Vector3d& centroid) {
  const auto n = static_cast<double>(moments.count);
  const Matrix3d scatter = scatter_of(moments) - n * shift * shift.transpose();
  const double trace = scatter.trace();
  const double sizes = centroid.lpNorm<1>() + std::sqrt(3.0 * std::max(0.0, trace) / n);
  return {scatter, moments_change(n, trace, shift.norm(), sizes)};
}

std::optional<StreamedPlane> StreamedRows::plane() {
  const auto n = static_cast<double>(count());
  const Vector3d m = centroid();
  Vector3d shift = m - point_;
  // Moments about a point outside the cloud lose digits. Then once more, about the centroid.
  if (!(n * shift.squaredNorm() <= 0.5 * scatter_of(moments_).trace())) {
    RowMoments again;
    gather_moments(in_use_, m, again);
    moments_ = again;
    reach_ += shift.norm() * (1.0 + 16.0 * kUnitRoundoff);
    point_ = m;
    shift.setZero();
  }
  const CentredMoments about = centred(moments_, shift, m);
  const double trace = about.scatter.trace();
  if (!(trace >= kSmallestSize * kSmallestSize)) return std::nullopt;
  const Eigen::SelfAdjointEigenSolver<Matrix3d> solver(about.scatter);
  if (solver.info() != Eigen::Success) return std::nullopt;
  StreamedPlane plane;
  CloudShape& cloud = plane.cloud;
  cloud.count = n;
  cloud.centroid = m;
  cloud.size = std::sqrt(trace + 3.0 * about.change);
  cloud.rms = ((about.scatter.diagonal().array() + about.change).max(0.0) / n).sqrt();
  cloud.reach = reach_from(m, kUsualReach * cloud.rms.norm());
  const Vector3d squares = solver.eigenvalues().reverse().cwiseMax(0.0);
  cloud.spreads = squares.cwiseSqrt();
  Vector3d normal = solver.eigenvectors().col(0);
  double second = std::sqrt(std::max(0.0, squares[1] - about.change));
  double third = std::sqrt(squares[2] + about.change);
  double own = turned_by_moments(about.change, cloud.spreads);
  if (cloud.spreads[1] < kNarrow * cloud.spreads[0]) {
    TriangleReduction reduction(Centroid{m[0], m[1], m[2]});
    for_each([&reduction](const double* row) { reduction.add(row); });
    const ThinDirection thin = thin_direction_of(reduction.finish());
    const double change = reflections_change(n, cloud.size);
    normal = thin.normal;
    cloud.spreads = thin.spreads;
    second = std::max(0.0, thin.spreads[1] - change);
    third = thin.spreads[2] + change;
    own = turned_by(change, second, third);
  }
  plane.normal_error =
      own + turned_by(decomposition_change(n, cloud.size), second, third) + kUnitNormal;
  plane.abcd << normal, -(normal[0] * m[0] + normal[1] * m[1] + normal[2] * m[2]);
  plane.heights = heights_of(m, normal, plane.normal_error);
  return plane;
}

bool StreamedRows::take(RowBits& kept, const RowMoments& moments, const Vector3d& point) {
  if (moments.count < kFewestRows) return false;
  reach_ += (point - point_).norm() * (1.0 + 16.0 * kUnitRoundoff);
  point_ = point;
  moments_ = moments;
  in_use_.swap(kept);
  return true;
}

std::optional<bool> StreamedRows::reject(const StreamedPlane& plane, double middle, double half,
                                         double error) {
  if (!std::isfinite(error)) return std::nullopt;
  RowBits kept(in_use_.size());
  RowMoments moments;
  bool undecided;
  passes_.reject(kernel_rows(), {plane.for_passes(), middle, half, error}, in_use_.data(),
                 kept.data(), moments, undecided);
  if (undecided) return std::nullopt;
  return take(kept, moments, plane.cloud.centroid);
}

std::optional<bool> StreamedRows::reject_beyond(const StreamedPlane& plane, double limit) {
  const double of_distance = distance_error(plane.cloud, plane.normal_error, plane.heights);
  if (!plane.clear_of_origin()) return std::nullopt;
  return reject(plane, 0.0, limit, limit_error(of_distance, limit));
}

std::optional<bool> StreamedRows::reject_beyond_sigmas(const StreamedPlane& plane, double k) {
  if (!plane.clear_of_origin() || !std::isfinite(plane.normal_error)) return std::nullopt;
  DistanceSums sums;
  passes_.sum_distances(kernel_rows(), plane.for_passes(), in_use_.data(), sums);
  const double n = plane.cloud.count;
  const double sum = sums.sum;
  const double sigma = std::sqrt((sums.squares + (n - 2.0) * sum * sum) / n);
  const Vector3d normal = plane.normal();
  const double of_distance = distance_error(plane.cloud, plane.normal_error, plane.heights);
  const double of_sum =
      sum_error(plane.cloud, normal, plane.normal_error, plane.heights, sums, of_distance);
  const double of_deviation =
      deviation_error(plane.cloud, normal, plane.normal_error, plane.heights, sum, of_sum, sigma);
  return reject(plane, sum, k * sigma,
                band_error(of_distance, of_sum, of_deviation, k, sum, sigma));
}

template <class Keeps>
bool StreamedRows::keep_where(Keeps keeps) {
  RowBits kept(in_use_.size());
  for (std::size_t w = 0; w < in_use_.size(); ++w) {
    for (std::uint64_t word = in_use_[w]; word != 0; word &= word - 1) {
      const auto bit = static_cast<std::size_t>(__builtin_ctzll(word));
      if (keeps(rows_.xyz + 3 * (64 * w + bit))) kept[w] |= std::uint64_t{1} << bit;
    }
  }
  const Vector3d point = centroid();
  RowMoments moments;
  gather_moments(kept, point, moments);
  return take(kept, moments, point);
}

// One pass with a guess of the mean. Where the distances are more alike than the guess is good, the
// deviation has lost digits, and a second pass starts from the mean.
PlaneFitStats StreamedRows::measure(const StreamedPlane& plane, PointMatrix3& copies) const {
  constexpr double kMeanOfSigma = 0.8;  // mean size of a normal deviate, about
  const double n = plane.cloud.count;
  double guess = kMeanOfSigma * plane.cloud.spreads[2] / std::sqrt(n);
  DistanceFigures figures;
  passes_.measure(kernel_rows(), plane.for_passes(), in_use_.data(), guess, figures,
                  copies.size() > 0 ? copies.data() : nullptr, copies.rows());
  double off = figures.sum / n;
  if (!(off * off <= 0.75 * figures.squares / n)) {
    guess += off;
    passes_.measure(kernel_rows(), plane.for_passes(), in_use_.data(), guess, figures, nullptr, 0);
    off = figures.sum / n;
  }
  const double variance = std::max(0.0, figures.squares / n - off * off);
  return {figures.largest, guess + off, std::sqrt(variance)};
}

PointMatrix3 StreamedRows::copy() const {
  PointMatrix3 rows(count(), 3);
  double* out = rows.data();
  for_each([&out](const double* row) { out = std::copy_n(row, 3, out); });
  return rows;
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

// The fit of the rows in use; copies them to `inliers`, which has room for them or no room at all.
std::optional<PlaneFit> streamed_fit(StreamedRows& rows, PointMatrix3& inliers) {
  const std::optional<StreamedPlane> plane = rows.plane();
  if (!plane || !may_be_handed_out(*plane)) return std::nullopt;
  PlaneFit fit{plane->abcd, rows.measure(*plane, inliers)};
  const Side side = side_of(rows, *plane, fit.stats.max_distance);
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
RobustFit finished(StreamedRows& rows, bool complete, int decompositions, Inliers inliers) {
  RobustFit result;
  result.complete = complete;
  result.decompositions = decompositions;
  if (complete && inliers == Inliers::kCopied) result.inliers = PointMatrix3(rows.count(), 3);
  if (rows.count() >= kFewestStreamedRows) result.fit = streamed_fit(rows, result.inliers);
  if (result.fit) return result;
  result.inliers.resize(0, 3);  // the decomposition needs the room
  return finished(WorkingRows(rows.copy()), complete, decompositions);
}

// Does one rejection: by the streamed plane, or by the decomposed one where that cannot decide.
template <class ByStreamed, class ByDecomposed>
bool reject(StreamedRows& rows, int& decompositions, ByStreamed by_streamed,
            ByDecomposed by_decomposed) {
  if (const std::optional<StreamedPlane> plane = rows.plane()) {
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

RobustFit with(Inliers inliers, RobustFit fit) {
  if (inliers == Inliers::kLeftOut) fit.inliers = PointMatrix3();
  return fit;
}

}  // namespace

RobustFit fit_in_band(const PointMatrix3& points, DepthBand band, Inliers inliers) {
  return fit_in_band(points, band, inliers, best_row_vectors());
}

RobustFit fit_in_band(const PointMatrix3& points, DepthBand band, Inliers inliers,
                      RowVectors vectors) {
  if (points.rows() < kFewestStreamedRows) {
    return with(inliers, fit_in_band_by_decomposition(points, band));
  }
  StreamedRows rows(rows_of(points), vectors);
  rows.select(band.lowest, band.highest);
  if (rows.count() < kFewestStreamedRows || !rows.in_range()) {
    return with(inliers, fit_in_band_by_decomposition(points, band));
  }
  int decompositions = 0;
  if (!reject_beyond_limit(rows, decompositions)) {
    return finished(rows, false, decompositions, inliers);
  }
  if (rows.count() < kFewestStreamedRows) {
    return with(inliers, fit_from_second_rejection(WorkingRows(rows.copy()), decompositions));
  }
  const bool enough = reject_beyond_band(rows, decompositions);
  return with(inliers, finished(rows, enough, decompositions, inliers));
}

RobustFit fit_in_band_by_decomposition(const PointMatrix3& points, DepthBand band) {
  if (points.rows() < kFewestRows) return {};
  WorkingRows working(points, band);
  if (working.rows().count < kFewestRows) return {};
  return fit_from_first_rejection(std::move(working), 0);
}

std::optional<PlaneFit> streamed_plane_fit(const PointMatrix3& points) {
  StreamedRows rows(rows_of(points), best_row_vectors());
  rows.select(-kEverything, kEverything);
  if (!rows.in_range()) return std::nullopt;
  PointMatrix3 no_copies;
  return streamed_fit(rows, no_copies);
}

}  // namespace kestrane
