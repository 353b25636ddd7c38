#include "fit/working_rows.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "fit/rejection.h"
#include "fit/signed_distance.h"

namespace kestrane {
namespace {

using Eigen::Index;

constexpr Index kBlock = 256;     // distances of one block stay in the first-level cache
constexpr Index kMostFewest = 3;  // rows that a rejection can put back

// Calls visit(first row, distances, count) for block after block. Computing distances again is
// cheaper than keeping them.
template <class Visit>
void for_each_block(PointRows rows, const SignedDistance& distance, Visit visit) {
  double distances[kBlock];
  for (Index start = 0; start < rows.count; start += kBlock) {
    const Index count = std::min(kBlock, rows.count - start);
    const double* xyz = rows.xyz + 3 * start;
    for (Index i = 0; i < count; ++i) distances[i] = distance(xyz + 3 * i);
    visit(start, distances, count);
  }
}

struct SumAndSquares {
  double sum = 0.0;
  double squares = 0.0;  // about the sum, as the band wants them

  SigmaBand band(Index count, double k) const { return sigma_band(sum, squares, count, k); }
};

SumAndSquares sum_and_squares(PointRows rows, const SignedDistance& distance) {
  double sum = 0.0;
  for_each_block(rows, distance, [&sum](Index, const double* distances, Index count) {
    for (Index i = 0; i < count; ++i) sum += distances[i];  // order fixed
  });
  double squares = 0.0;
  for_each_block(rows, distance, [sum, &squares](Index, const double* distances, Index count) {
    for (Index i = 0; i < count; ++i) {  // order fixed
      squares += (distances[i] - sum) * (distances[i] - sum);
    }
  });
  return {sum, squares};
}

// Appends rows to a list that may be the front of the one that they come from. The sums are a value
// of its own, not a field behind a pointer that the stores might reach, so they stay in registers.
struct RowList {
  double* end;
  PointSums sums;

  void append(const double* point) {
    sums.add(point);
    end[0] = point[0];
    end[1] = point[1];
    end[2] = point[2];
    end += 3;
  }

  Index count_from(const double* begin) const { return (end - begin) / 3; }
};

// Moves the kept rows to the front.
template <class Rule>
RowList compact(double* xyz, Index count, const SignedDistance& distance, const Rule& rule) {
  RowList kept{xyz, {}};
  for_each_block({xyz, count}, distance, [&](Index start, const double* distances, Index n) {
    RowList list = kept;
    const double* point = xyz + 3 * start;
    for (Index i = 0; i < n; ++i, point += 3) {
      if (rule.keeps(distances[i])) list.append(point);
    }
    kept = list;
  });
  return kept;
}

}  // namespace

WorkingRows::WorkingRows(const PointMatrix3& points)
    : storage_(points), count_(points.rows()), sums_(sums_of(rows_of(points))) {}

WorkingRows::WorkingRows(PointMatrix3&& points)
    : storage_(std::move(points)), count_(storage_.rows()), sums_(sums_of(rows_of(storage_))) {}

WorkingRows::WorkingRows(const PointMatrix3& points, DepthBand band) : storage_(points.rows(), 3) {
  const auto lowest = static_cast<double>(band.lowest);
  const auto highest = static_cast<double>(band.highest);
  const PointRows all = rows_of(points);
  RowList inside{storage_.data(), {}};
  for (Index i = 0; i < all.count; ++i) {
    const double* point = all.xyz + 3 * i;
    if (!(lowest > point[2] || point[2] > highest)) inside.append(point);
  }
  count_ = inside.count_from(storage_.data());
  sums_ = inside.sums;
}

template <class Rule>
bool WorkingRows::reject(const PlaneAbcd& plane, const Rule& rule, Index fewest) {
  // Fewer than three kept rows have overwritten no more than the first two.
  double front[3 * kMostFewest];
  double* const xyz = storage_.data();
  const Index saved = 3 * std::min(kMostFewest, count_);
  std::copy_n(xyz, saved, front);
  const RowList kept = compact(xyz, count_, SignedDistance(plane), rule);
  if (kept.count_from(xyz) < fewest) {
    std::copy_n(front, saved, xyz);
    return false;
  }
  count_ = kept.count_from(xyz);
  sums_ = kept.sums;
  return true;
}

bool WorkingRows::reject_beyond(const PlaneAbcd& plane, double limit, Index fewest) {
  return reject(plane, DistanceLimit{limit}, fewest);
}

SigmaBand WorkingRows::sigma_band_about(const PlaneAbcd& plane, double k) const {
  return sum_and_squares(rows(), SignedDistance(plane)).band(count_, k);
}

bool WorkingRows::reject_beyond_sigmas(const PlaneAbcd& plane, double k, Index fewest) {
  return reject(plane, sigma_band_about(plane, k), fewest);
}

PointMatrix3 WorkingRows::release() {
  if (count_ == 0) return {0, 3};
  storage_.conservativeResize(count_, Eigen::NoChange);  // cuts the block where it stands
  count_ = 0;
  return std::move(storage_);
}

}  // namespace kestrane
