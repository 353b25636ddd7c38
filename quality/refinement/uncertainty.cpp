#include "quality/refinement/uncertainty.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace kestrane::quality::refinement {
namespace {

constexpr std::size_t kFewestGroups = 5;  // with fewer, errors of frames cannot be seen

double inverse_at(const BandedMatrix& inverse, int a, int b) {
  const int low = std::min(a, b);
  return inverse.row(low)[std::max(a, b) - low];
}

// Of a sum of active nodes, from the scatter of the samples.
double scatter_variance(const Combination& sum, const BandedMatrix& inverse) {
  double variance = 0.0;
  for (std::size_t a = 0; a < static_cast<std::size_t>(sum.count); ++a)
    for (std::size_t b = 0; b < static_cast<std::size_t>(sum.count); ++b)
      variance += sum.factor[a] * sum.factor[b] * inverse_at(inverse, sum.number[a], sum.number[b]);
  return variance;
}

double value_of(const Combination& sum, const std::vector<double>& values) {
  double value = 0.0;
  for (std::size_t t = 0; t < static_cast<std::size_t>(sum.count); ++t)
    value += sum.factor[t] * values[static_cast<std::size_t>(sum.number[t])];
  return value;
}

// Jackknife over the m groups, (m - 1) / m times the squares about their mean, enlarged by
// (m - 1) / (m - 3) for its few degrees of freedom.
double group_variance(const Combination& sum, const LeftOut& left_out) {
  const auto m = static_cast<double>(std::ssize(left_out.values));
  double mean = 0.0;
  for (const auto& values : left_out.values) mean += value_of(sum, values) / m;
  double squares = 0.0;
  for (const auto& values : left_out.values) {
    const double d = value_of(sum, values) - mean;
    squares += d * d;
  }
  return squares * (m - 1.0) / m * (m - 1.0) / (m - 3.0);
}

// RMS of the second derivative along the rays, over the active nodes.
double bending(const ActiveNodes& active, const std::vector<double>& values) {
  double squares = 0.0;
  int count = 0;
  for (int j = 1; j + 1 < active.along; ++j) {
    for (int i = 0; i < active.across; ++i) {
      const auto at = static_cast<std::size_t>(active.across * j + i);
      const auto step = static_cast<std::size_t>(active.across);
      const double second = (values[at - step] - 2.0 * values[at]) + values[at + step];
      squares += second * second;
      ++count;
    }
  }
  return std::sqrt(squares / count) / (kDepthStep * kDepthStep);
}

}  // namespace

LeftOut leave_out_groups(const Problem& problem, const NormalEquations& all, const Groups& groups,
                         const BandedMatrix& penalty, const Damping& damping) {
  LeftOut result;
  result.squared_error = std::numeric_limits<double>::quiet_NaN();
  if (groups.members.size() < 2) return result;
  Validation validation(problem, all, groups);
  Squares sum;
  for (std::size_t group = 0; group < groups.members.size(); ++group) {
    const Squares squares =
        validation.errors_of(group, validation.equations_of_group(group), penalty, damping.lambda);
    result.values.push_back(validation.values());
    sum.sum += squares.sum;
    sum.count += squares.count;
  }
  result.squared_error = sum.sum / static_cast<double>(sum.count);
  return result;
}

std::vector<double> node_sigma(const ActiveNodes& active, const Continuation& continuation,
                               const BandedMatrix& inverse, double variance,
                               const std::vector<double>& values, const LeftOut& left_out) {
  const double curvature = bending(active, values);
  std::vector<double> sigma(kNodes);
  for (int j = 0; j < kAlong; ++j) {
    for (int i = 0; i < kAcross; ++i) {
      const Combination& sum = continuation.at(i, j);
      double own = variance * scatter_variance(sum, inverse);
      if (left_out.values.size() >= kFewestGroups)
        own = std::max(own, group_variance(sum, left_out));
      const double unseen = 0.5 * curvature * sum.distance * sum.distance;
      sigma[node_index(i, j)] = std::sqrt(own + unseen * unseen);
    }
  }
  return sigma;
}

}  // namespace kestrane::quality::refinement
