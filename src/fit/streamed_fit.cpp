#include "fit/streamed_fit.h"

#include <cmath>
#include <limits>
#include <utility>

#include "fit/error_bounds.h"
#include "fit/rejection.h"
#include "fit/signed_distance.h"
#include "fit/streamed_rows.h"
#include "fit/working_rows.h"

namespace kestrane {
namespace {

using Eigen::Index;
using Eigen::Vector3d;

constexpr double kEverything = std::numeric_limits<double>::infinity();

// A plane is handed out from here only if rounding cannot show in it: a cloud thinner than this
// part of its length has distances that are rounding in their last digits, and a normal that
// rounding turns more than this is not the same one to rounding.
constexpr double kThinnest = 2e-5;
constexpr double kLargestGrowth = 64.0;

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
  StreamedRows rows(rows_of(points), wanted == Wanted::kAll, vectors);
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
  StreamedRows rows(all, true, best_row_vectors());
  rows.select(-kEverything, kEverything);
  if (!rows.in_range()) return std::nullopt;
  return streamed_fit(rows, &all);
}

}  // namespace kestrane
