#include "fit/distance_stats.h"

#include <algorithm>
#include <cmath>

namespace kestrane {
namespace {

using Eigen::Index;

constexpr Index kBlock = 256;  // distances of one block stay in the first-level cache
constexpr Index kLanes = 4;    // partial results side by side; kBlock is a multiple of it

class UnsignedDistance {
 public:
  UnsignedDistance(const Centroid& m, const PlaneAbcd& plane) : m_(m), n_(plane.head<3>()) {
    if (n_.squaredNorm() > 0.0) n_ /= n_.norm();
  }

  double operator()(const double* point) const {
    return std::abs((point[0] - m_.x) * n_[0] + (point[1] - m_.y) * n_[1] +
                    (point[2] - m_.z) * n_[2]);
  }

 private:
  Centroid m_;
  Eigen::Vector3d n_;
};

// Count, mean and summed squares about the mean of the distances so far.
struct Moments {
  double count = 0.0;
  double mean = 0.0;
  double squares = 0.0;

  void join(const Moments& other) {
    const double total = count + other.count;
    const double apart = other.mean - mean;
    mean += apart * (other.count / total);
    squares += other.squares + apart * apart * (count * other.count / total);
    count = total;
  }
};

template <class Term>
double lane_sum(const double* r, Index count, Term term) {
  double lane[kLanes] = {};
  Index i = 0;
  for (; i + kLanes <= count; i += kLanes) {
    for (Index k = 0; k < kLanes; ++k) lane[k] += term(r[i + k]);
  }
  double sum = (lane[0] + lane[2]) + (lane[1] + lane[3]);
  for (; i < count; ++i) sum += term(r[i]);
  return sum;
}

double largest_of(const double* r, Index count, double largest) {
  double lane[kLanes] = {largest, largest, largest, largest};
  Index i = 0;
  for (; i + kLanes <= count; i += kLanes) {
    for (Index k = 0; k < kLanes; ++k) lane[k] = lane[k] < r[i + k] ? r[i + k] : lane[k];
  }
  for (; i < count; ++i) lane[0] = lane[0] < r[i] ? r[i] : lane[0];
  return std::max(std::max(lane[0], lane[1]), std::max(lane[2], lane[3]));
}

Moments moments_of(const double* r, Index count) {
  const double n = static_cast<double>(count);
  const double mean = lane_sum(r, count, [](double ri) { return ri; }) / n;
  return {n, mean, lane_sum(r, count, [mean](double ri) { return (ri - mean) * (ri - mean); })};
}

}  // namespace

PlaneFitStats distance_stats(PointRows rows, const Centroid& centroid, const PlaneAbcd& plane) {
  const UnsignedDistance distance(centroid, plane);
  const double n = static_cast<double>(rows.count);
  double largest = 0.0;
  double sum = 0.0;
  for (Index i = 0; i < rows.count; ++i) {  // order fixed
    const double r = distance(rows.xyz + 3 * i);
    if (!(r <= largest)) largest = r;  // a NaN is taken over
    sum += r;
  }
  const double mean = sum / n;
  double squares = 0.0;
  for (Index i = 0; i < rows.count; ++i) {  // order fixed
    const double off = distance(rows.xyz + 3 * i) - mean;
    squares += off * off;
  }
  return {largest, mean, std::sqrt(squares / n)};
}

PlaneFitStats streamed_distance_stats(PointRows rows, const Centroid& centroid,
                                      const PlaneAbcd& plane) {
  const UnsignedDistance distance(centroid, plane);
  Moments all;
  double largest = 0.0;
  double r[kBlock];
  for (Index start = 0; start < rows.count; start += kBlock) {
    const Index count = std::min(kBlock, rows.count - start);
    for (Index i = 0; i < count; ++i) r[i] = distance(rows.xyz + 3 * (start + i));
    largest = largest_of(r, count, largest);
    all.join(moments_of(r, count));
  }
  return {largest, all.mean, std::sqrt(all.squares / all.count)};
}

}  // namespace kestrane
