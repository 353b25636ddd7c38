#include "quality/refinement/estimate.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "quality/refinement/continuation.h"
#include "quality/refinement/free_quadratic.h"
#include "quality/refinement/penalty.h"
#include "quality/refinement/robust_scale.h"

namespace kestrane::quality::refinement {
namespace {

constexpr int kRounds = 4;  // of rejection and solution
constexpr double kChooseAgain =
    0.9;  // share of the noise at the last choice below which it is made anew
constexpr int kFewestNodes = 4;  // in each direction: what an interpolation reaches

struct Span {
  int first;
  int count;
};

// The nodes of intervals low .. high, one wider on either side, at least 4.
Span nodes_of(int low, int high, int nodes) {
  int first = std::max(low - 1, 0);
  int last = std::min(high + 2, nodes - 1);
  if (last - first + 1 < kFewestNodes) {
    first = std::clamp(first, 0, nodes - kFewestNodes);
    last = first + kFewestNodes - 1;
  }
  return {first, last - first + 1};
}

ActiveNodes active_nodes(const std::vector<Sample>& samples,
                         const std::vector<std::uint8_t>& counted) {
  int low_u = kAcross, high_u = 0, low_z = kAlong, high_z = 0;
  for (std::size_t n = 0; n < samples.size(); ++n) {
    if (counted[n] == 0) continue;
    const int i = samples[n].cell % (kAcross - 1);
    const int j = samples[n].cell / (kAcross - 1);
    low_u = std::min(low_u, i);
    high_u = std::max(high_u, i);
    low_z = std::min(low_z, j);
    high_z = std::max(high_z, j);
  }
  const Span u = nodes_of(low_u, high_u, kAcross);
  const Span z = nodes_of(low_z, high_z, kAlong);
  return {u.first, u.count, z.first, z.count};
}

// Samples of taken frames within `reach` of the surface.
std::vector<std::uint8_t> near_surface(const std::vector<Sample>& samples,
                                       const std::vector<double>& residuals,
                                       const std::vector<std::uint8_t>& taken, double reach) {
  std::vector<std::uint8_t> near(samples.size());
  for (std::size_t n = 0; n < samples.size(); ++n) {
    const bool counts = taken[static_cast<std::size_t>(samples[n].frame)] != 0;
    near[n] = counts && std::abs(residuals[n]) <= reach ? 1 : 0;
  }
  return near;
}

double scale_of_taken(const std::vector<Sample>& samples, const std::vector<double>& residuals,
                      const std::vector<std::uint8_t>& taken, std::vector<double>& scratch) {
  scratch.clear();
  for (std::size_t n = 0; n < samples.size(); ++n)
    if (taken[static_cast<std::size_t>(samples[n].frame)] != 0)
      scratch.push_back(std::abs(residuals[n]));
  return scale_of(scratch);
}

double squares_of_counted(const Estimate& estimate) {
  double squares = 0.0;
  for (std::size_t n = 0; n < estimate.residuals.size(); ++n)
    if (estimate.counted[n] != 0) squares += estimate.residuals[n] * estimate.residuals[n];
  return squares;
}

}  // namespace

std::optional<Estimate> estimate_surface(const FanNodes& nodes, const _LASER_PLANE_GRIDS& grids,
                                         const Samples& samples, Start start,
                                         const RefinementSettings& settings) {
  const std::vector<Sample>& points = samples.points;
  const std::vector<double> values = residuals_against(points, start.plane);
  const std::vector<Stencil> stencils = stencils_of(nodes, points);
  std::vector<double> scratch;
  BandedMatrix factor;

  Estimate estimate;
  estimate.residuals = std::move(start.residuals);
  estimate.taken = std::move(start.taken);
  double scale = start.scale;
  double scale_at_choice = 0.0;
  for (int round = 0; round < kRounds; ++round) {
    std::vector<std::uint8_t> counted =
        near_surface(points, estimate.residuals, estimate.taken, settings.cut * scale);
    if (round > 0 && counted == estimate.counted) break;
    if (std::none_of(counted.begin(), counted.end(), [](auto c) { return c != 0; }))
      return std::nullopt;
    estimate.counted = std::move(counted);
    estimate.active = active_nodes(points, estimate.counted);
    const Problem problem{nodes,    grids,  estimate.active, points,
                          stencils, values, estimate.counted};
    const NormalEquations all = equations_of(problem);
    const Groups groups = group_frames(problem, samples.frames.size(), settings.folds);
    const BandedMatrix penalties[2] = {penalty(nodes, estimate.active, 2),
                                       penalty(nodes, estimate.active, 3)};
    if (round == 0 || scale < kChooseAgain * scale_at_choice) {
      estimate.damping = choose_damping(problem, all, groups, penalties, settings.significance);
      scale_at_choice = scale;
    }
    const BandedMatrix& damped = penalties[estimate.damping.order - 2];
    if (!solve_damped(all, nullptr, damped, estimate.damping.lambda, factor, estimate.values))
      return std::nullopt;
    if (estimate.damping.order == 3) free_quadratic(problem, factor, estimate.values);
    const Continuation continuation(nodes, estimate.active);
    continuation.apply(estimate.values, estimate.fan_values);
    for (std::size_t n = 0; n < points.size(); ++n)
      estimate.residuals[n] = values[n] - surface_at(stencils[n], estimate.fan_values);
    scale = scale_of_taken(points, estimate.residuals, estimate.taken, scratch);
    estimate.taken =
        taken_frames(frame_medians(points, estimate.residuals, samples.frames.size(), scratch),
                     scale, settings.frame_cut);
  }

  const Problem problem{nodes, grids, estimate.active, points, stencils, values, estimate.counted};
  const NormalEquations all = equations_of(problem);
  const Groups groups = group_frames(problem, samples.frames.size(), settings.folds);
  const BandedMatrix damped = penalty(nodes, estimate.active, estimate.damping.order);
  const BandedMatrix inverse = invert(factor);
  estimate.degrees_of_freedom = trace_of_product(inverse, all.matrix);
  const double rest = static_cast<double>(all.samples) - estimate.degrees_of_freedom;
  estimate.variance = squares_of_counted(estimate) / std::max(rest, 1.0);
  const LeftOut left_out = leave_out_groups(problem, all, groups, damped, estimate.damping);
  estimate.squared_error = left_out.squared_error;
  estimate.frames = groups.frames;
  estimate.sigma = node_sigma(estimate.active, Continuation(nodes, estimate.active), inverse,
                              estimate.variance, estimate.values, left_out);
  return estimate;
}

}  // namespace kestrane::quality::refinement
