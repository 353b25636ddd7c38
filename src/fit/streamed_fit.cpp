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
Side side_of(const StreamedRows& rows, const StreamedPlane& plane) {
  const double error = height_error(plane.cloud, plane.normal_error, plane.heights);
  if (std::abs(plane.abcd[3]) > 1.001 * rows.farthest_from(plane) + 2.0 * error) {
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

// The fit of the rows in use, whose centroid is settled; its statistics where their `copies` are
// given.
std::optional<PlaneFit> streamed_fit(StreamedRows& rows, const PointRows* copies) {
  const StreamedPlane plane = rows.plane(StreamedRows::For::kResult);
  if (!may_be_handed_out(plane)) return std::nullopt;
  PlaneFit fit{plane.abcd, {}};
  if (copies != nullptr) fit.stats = rows.measure(*copies, plane);
  const Side side = side_of(rows, plane);
  if (side == Side::kUndecided) return std::nullopt;
  if (side == Side::kInward) fit.plane *= -1.0;
  return fit;
}

// ---- every fit by decomposition, of rows that are copied together ------------------------------

// What is left once the rejections are done, or one has failed.
RobustFit finished(WorkingRows working, bool complete, int decompositions, Wanted wanted) {
  RobustFit result;
  result.complete = complete;
  result.decompositions = decompositions + 1;
  if (wanted == Wanted::kPlane) {
    result.fit = PlaneFit{decomposed_plane(working.rows(), working.sums()), {}};
    return result;
  }
  result.fit = fit_rows(working.rows(), working.sums());
  if (complete) result.inliers = working.release();
  return result;
}

RobustFit fit_from_second_rejection(WorkingRows working, int decompositions, Wanted wanted) {
  const PlaneAbcd plane = decomposed_plane(working.rows(), working.sums());
  const bool enough = working.reject_beyond_sigmas(plane, kSigmaRejection, kFewestRows);
  return finished(std::move(working), enough, decompositions + 1, wanted);
}

RobustFit fit_by_decomposition(const PointMatrix3& points, DepthBand band, Wanted wanted) {
  WorkingRows working(points, band);
  if (working.rows().count < kFewestRows) return {};
  const PlaneAbcd plane = decomposed_plane(working.rows(), working.sums());
  if (!working.reject_beyond(plane, kFirstRejection, kFewestRows)) {
    return finished(std::move(working), false, 1, wanted);
  }
  return fit_from_second_rejection(std::move(working), 1, wanted);
}

// ---- streamed fits, decomposing where they cannot decide ---------------------------------------

// Hands out the fit of the rows in use, whose centroid is settled.
RobustFit finished(StreamedRows& rows, bool complete, int decompositions, Wanted wanted) {
  const bool all = wanted == Wanted::kAll;
  PointMatrix3 copies;
  if (all) copies = rows.take_copies();
  const PointRows copied = rows_of(copies);
  RobustFit result;
  result.complete = complete;
  result.decompositions = decompositions;
  if (rows.count() >= kFewestStreamedRows) result.fit = streamed_fit(rows, all ? &copied : nullptr);
  if (!result.fit) {
    WorkingRows working(all ? std::move(copies) : rows.copy());
    return finished(std::move(working), complete, decompositions, wanted);
  }
  if (complete) result.inliers = std::move(copies);
  return result;
}

// Does one rejection: by the streamed plane, or by the decomposed one where that cannot decide.
template <class ByStreamed, class BandAbout>
bool reject(StreamedRows& rows, int& decompositions, ByStreamed by_streamed, BandAbout band_about) {
  const StreamedPlane streamed = rows.plane(StreamedRows::For::kRejection);
  if (const std::optional<bool> enough = by_streamed(streamed)) return *enough;
  ++decompositions;
  const WorkingRows copied(rows.copy());
  const PlaneAbcd plane = decomposed_plane(copied.rows(), copied.sums());
  return rows.keep_within(SignedDistance(plane), band_about(copied, plane));
}

bool reject_beyond_limit(StreamedRows& rows, int& decompositions) {
  return reject(
      rows, decompositions,
      [&rows](const StreamedPlane& plane) { return rows.reject_beyond(plane, kFirstRejection); },
      [](const WorkingRows&, const PlaneAbcd&) {
        return SigmaBand{-kFirstRejection, kFirstRejection};
      });
}

bool reject_beyond_band(StreamedRows& rows, int& decompositions) {
  return reject(
      rows, decompositions,
      [&rows](const StreamedPlane& plane) {
        return rows.reject_beyond_sigmas(plane, kSigmaRejection);
      },
      [](const WorkingRows& copied, const PlaneAbcd& plane) {
        return copied.sigma_band_about(plane, kSigmaRejection);
      });
}

}  // namespace

RobustFit fit_in_band(const PointMatrix3& points, DepthBand band, Wanted wanted) {
  return fit_in_band(points, band, wanted, best_row_vectors());
}

RobustFit fit_in_band(const PointMatrix3& points, DepthBand band, Wanted wanted,
                      RowVectors vectors) {
  if (points.rows() < kFewestStreamedRows) return fit_by_decomposition(points, band, wanted);
  StreamedRows rows(rows_of(points), wanted == Wanted::kAll, vectors);
  rows.select(band.lowest, band.highest);
  if (rows.count() < kFewestStreamedRows || !rows.in_range()) {
    return fit_by_decomposition(points, band, wanted);
  }
  int decompositions = 0;
  if (!reject_beyond_limit(rows, decompositions)) {
    rows.settle_centroid();
    return finished(rows, false, decompositions, wanted);
  }
  if (rows.count() < kFewestStreamedRows) {
    return fit_from_second_rejection(WorkingRows(rows.copy()), decompositions, wanted);
  }
  const bool enough = reject_beyond_band(rows, decompositions);
  return finished(rows, enough, decompositions, wanted);
}

RobustFit fit_in_band_by_decomposition(const PointMatrix3& points, DepthBand band) {
  return fit_by_decomposition(points, band, Wanted::kAll);
}

std::optional<PlaneFit> streamed_plane_fit(const PointMatrix3& points) {
  const PointRows all = rows_of(points);
  StreamedRows rows(all, true, best_row_vectors());
  rows.select(-kEverything, kEverything);
  if (!rows.in_range()) return std::nullopt;
  rows.settle_centroid();
  return streamed_fit(rows, &all);
}

}  // namespace kestrane
