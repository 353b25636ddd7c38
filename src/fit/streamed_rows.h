// The rows of a cloud that a streamed fit has in use, a bit each, and their plane.
//
// in    a cloud; a depth band; two rejections
// out   the plane of the rows in use with how well it is known, and their statistics
//
// The moments of the rows in use are at hand at any time: those of the rows that a rejection drops
// are taken off.
#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <optional>
#include <vector>

#include "fit/error_bounds.h"
#include "fit/points.h"
#include "fit/rejection.h"
#include "fit/row_kernel.h"
#include "fit/signed_distance.h"

namespace kestrane {

using RowBits = std::vector<std::uint64_t>;

// Sums over the rows in use of their differences from a point, and what rounding made of them.
struct Moments {
  Eigen::Index count = 0;
  Eigen::Vector3d point = Eigen::Vector3d::Zero();
  Eigen::Vector3d sum = Eigen::Vector3d::Zero();
  Eigen::Matrix3d products = Eigen::Matrix3d::Zero();
  MomentErrors errors{};

  Moments() = default;

  // depth  of the sums, in additions
  Moments(const RowMoments& rows, Eigen::Vector3d about, double depth);

  // These without those of rows that were dropped, about the same point.
  Moments without(const Moments& dropped) const;

  double rows_in_use() const { return static_cast<double>(count); }
  Eigen::Vector3d mean() const { return point + sum / rows_in_use(); }

  // Whether they tell the scatter about the mean: not about a point outside the cloud, nor where
  // rows that were dropped stood so far out that the others have lost digits.
  //
  // depth  of their sums, if they were gathered anew
  bool good_for_scatter(double depth) const;
};

// A plane through the centroid of the rows in use, and how well it is known: not at all for a cloud
// that is hardly more than a point.
struct StreamedPlane {
  CloudShape cloud;
  PlaneAbcd abcd;       // a normal whose side carries no meaning
  double normal_error;  // infinite where nothing can be said
  double heights;       // h of the error bounds

  Eigen::Vector3d normal() const { return abcd.head<3>(); }

  // Whether the decomposed plane, which lies this near, keeps clear of the origin. A plane through
  // the origin has no form with a constant term of 1.
  bool clear_of_origin() const;
};

class StreamedRows {
 public:
  // copies  whether the second rejection copies the rows that it keeps
  StreamedRows(PointRows rows, bool copies, RowVectors vectors);

  // The rows of a depth within the bounds.
  void select(double lowest, double highest);

  Eigen::Index count() const { return moments_.count; }

  // Whether the rows in use and their squares are numbers of an ordinary size.
  bool in_range() const;

  // Adds up the rows in use one after another, as a decomposed fit does and as a rejection has:
  // then their planes go through the very centroid of the decomposed ones.
  void settle_centroid();

  // The plane of the rows in use.
  enum class For { kRejection, kResult };
  StreamedPlane plane(For purpose);

  // Each rejection is given by the plane of the rows in use, the second one by a plane through
  // their settled centroid. None, with all rows still in use, where the decomposed plane could keep
  // other rows. False, with all rows still in use, where fewer than 3 would be left.
  std::optional<bool> reject_beyond(const StreamedPlane& plane, double limit);
  std::optional<bool> reject_beyond_sigmas(const StreamedPlane& plane, double k);

  // Takes the rows in use whose distances the band keeps; false as above.
  bool keep_within(const SignedDistance& distance, const SigmaBand& band);

  // Statistics of the distances of the rows in use, which are `rows`, to a plane through their
  // centroid.
  PlaneFitStats measure(PointRows rows, const StreamedPlane& plane);

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
  Eigen::Vector3d centroid() const;
  bool take(RowBits& kept, const Rejection& rejection, const StreamedPlane& plane, double farthest);
  double reach_from(const Eigen::Vector3d& point, double usual) const;
  void gather_moments(const Eigen::Vector3d& point);

  // A plane that rows were rejected by or measured from: all rows in use lie within `farthest` of
  // it.
  struct Near {
    Eigen::Vector3d point;
    Eigen::Vector3d normal;
    double farthest;
  };

  PointRows rows_;
  bool copies_wanted_;
  const RowPasses& passes_;
  RowBits in_use_;
  PointMatrix3 copies_;  // of the rows in use, or none
  std::optional<Near> near_;
  Moments moments_;
  std::optional<PointSums> sums_;  // one row after another, where they are settled
  double reach_ = 0.0;             // no row in use lies further from the moments' point
};

}  // namespace kestrane
