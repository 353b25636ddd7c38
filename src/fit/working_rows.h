// The rows that a robust fit still works on, thinned in place.
//
// in    a cloud
// out   the rows that are left, with their coordinate sums
#pragma once

#include "fit/plane_fit.h"
#include "fit/points.h"

namespace kestrane {

class WorkingRows {
 public:
  // All rows, or those whose depth lies in the band; a depth that is NaN does.
  explicit WorkingRows(const PointMatrix3& points);
  WorkingRows(const PointMatrix3& points, DepthBand band);
  explicit WorkingRows(PointMatrix3&& points);

  PointRows rows() const { return {storage_.data(), count_}; }
  const PointSums& sums() const { return sums_; }

  // Each rejection keeps the rows that its rule keeps, by their distances to `plane`, and gives
  // true. Where fewer than `fewest` (at most 3) would be left all rows stay, and it gives false.
  bool reject_beyond(const PlaneAbcd& plane, double limit, Eigen::Index fewest);
  bool reject_beyond_sigmas(const PlaneAbcd& plane, double k, Eigen::Index fewest);

  // The band of k sigmas about the sum of the rows' distances to `plane`.
  SigmaBand sigma_band_about(const PlaneAbcd& plane, double k) const;

  // The rows, in storage cut to their number. Leaves no rows.
  PointMatrix3 release();

 private:
  template <class Rule>
  bool reject(const PlaneAbcd& plane, const Rule& rule, Eigen::Index fewest);

  PointMatrix3 storage_;  // the first count_ rows are in use
  Eigen::Index count_ = 0;
  PointSums sums_;
};

}  // namespace kestrane
