#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

#include "kestrane/quality/refinement.h"
#include "quality/cells.h"
#include "quality/refinement/cell_planes.h"
#include "quality/refinement/estimate.h"
#include "records/fan.h"
#include "records/guard.h"

namespace kestrane::quality {
namespace {

using refinement::BlockMap;
using refinement::BlockPlane;
using refinement::Estimate;
using refinement::fan_nodes;
using refinement::FanNodes;
using refinement::kAcross;
using refinement::kAlong;
using refinement::kNodes;
using refinement::kPlaneDamping;
using refinement::node_index;
using refinement::Sample;
using refinement::Samples;
using refinement::Sheet;
using refinement::Spread;
using refinement::Start;

constexpr std::size_t kFewestPoints = 20;
constexpr double kLeastSpread = 1e-3;  // of the narrow to the wide direction in (y, z)

void require(bool holds, const char* what) {
  if (!holds) throw std::invalid_argument(what);
}

void check(const RefinementSettings& settings) {
  require(settings.folds >= 3 && settings.folds <= 40, "folds must be 3 to 40");
  require(settings.significance > 0.0 && std::isfinite(settings.significance),
          "significance must be above 0");
  require(settings.cut >= 2.0 && settings.cut <= 20.0, "cut must be 2 to 20");
  require(settings.frame_cut >= 0.0 && std::isfinite(settings.frame_cut),
          "frame_cut must be 0 or above");
  require(settings.depth_near >= 123.0 && settings.depth_far <= 1500.0 &&
              settings.depth_near < settings.depth_far,
          "depths must lie within 123 to 1500, the near one first");
}

RefinedPlane refused(RefinedPlane plane, const char* why) {
  plane.refused = why;
  plane.corners.clear();
  plane.cells.clear();
  plane.indicators.clear();
  return plane;
}

// The plane x = q0 + q1 y + q2 z in table form.
_LASER_TRIPLE table_form(double q0, double q1, double q2) {
  return {{-1.0 / q0, q1 / q0, q2 / q0}};
}

// x = q[0] + q[1] y + q[2] z of a flat sheet.
std::array<double, 3> flat_form(const Sheet& plane) {
  const double q1 = plane.c[1] / plane.ys;
  const double q2 = plane.c[2] / plane.zs;
  return {plane.c[0] - q1 * plane.y0 - q2 * plane.z0, q1, q2};
}

void set_corners(const FanNodes& nodes, const Sheet& whole, const Estimate& estimate,
                 RefinedPlane& plane) {
  plane.corners.resize(kNodes);
  for (int i = 0; i < kAcross; ++i) {
    for (int j = 0; j < kAlong; ++j) {
      const double z = nodes.z[static_cast<std::size_t>(j)];
      const double y = nodes.u[static_cast<std::size_t>(i)] * z;
      const std::size_t node = node_index(i, j);
      plane.corners[static_cast<std::size_t>(kAlong * i + j)] = {
          whole.at(y, z) + estimate.fan_values[node], y, z, estimate.sigma[node]};
    }
  }
}

void set_cells(const FanNodes& nodes, const _LASER_PLANE_GRIDS& grids, const Samples& samples,
               const Sheet& whole, const Estimate& estimate, RefinedPlane& plane) {
  const auto counts = part_counts(grids, samples.points, estimate.counted);
  const std::array<double, 3> q = flat_form(whole);
  plane.cells.resize(counts.size());
  for (std::size_t block = 0; block < counts.size(); ++block) {
    const BlockPlane bent = BlockMap(nodes, grids, static_cast<std::int32_t>(block), counts[block])
                                .plane_of(estimate.fan_values);
    const double q1 = q[1] + bent.p[1];
    const double q2 = q[2] + bent.p[2];
    plane.cells[block] =
        table_form(q[0] + (bent.p[0] - bent.p[1] * bent.y0 - bent.p[2] * bent.z0), q1, q2);
  }
}

// Largest, mean and standard deviation of the signed distances per block, in two passes.
void set_indicators(const Samples& samples, const Estimate& estimate, RefinedPlane& plane) {
  plane.indicators.assign(plane.cells.size(), {});
  std::vector<std::int32_t> count(plane.cells.size());
  const auto each_distance = [&](auto take) {
    for (std::size_t n = 0; n < samples.points.size(); ++n) {
      const Sample& s = samples.points[n];
      if (estimate.counted[n] == 0 || s.block < 0) continue;
      const auto block = static_cast<std::size_t>(s.block);
      take(block, signed_distance(plane.cells[block], s.x, s.y, s.z));
    }
  };
  each_distance([&](std::size_t block, double r) {
    double* v = plane.indicators[block].v;
    v[0] = count[block] == 0 ? r : std::max(v[0], r);
    v[1] += r;
    ++count[block];
  });
  for (std::size_t block = 0; block < count.size(); ++block)
    if (count[block] > 0) plane.indicators[block].v[1] /= count[block];
  each_distance([&](std::size_t block, double r) {
    double* v = plane.indicators[block].v;
    v[2] += (r - v[1]) * (r - v[1]);
  });
  for (std::size_t block = 0; block < count.size(); ++block) {
    double* v = plane.indicators[block].v;
    if (count[block] > 0) v[2] = std::sqrt(v[2] / count[block]);
  }
}

void set_account(const Samples& samples, const Estimate& estimate, RefinedPlane& plane) {
  for (std::size_t n = 0; n < samples.points.size(); ++n) {
    const bool taken = estimate.taken[static_cast<std::size_t>(samples.points[n].frame)] != 0;
    if (estimate.counted[n] != 0) {
      ++plane.counts.used;
    } else {
      ++(taken ? plane.counts.outliers : plane.counts.bad_frames);
    }
  }
  plane.frames_used = estimate.frames;
  for (std::size_t f = 0; f < estimate.taken.size(); ++f)
    if (estimate.taken[f] == 0) plane.frames_left_out.push_back(samples.frames[f]);
  plane.order = estimate.damping.order;
  plane.lambda = estimate.damping.lambda;
  plane.plane_only = estimate.damping.order == kPlaneDamping.order &&
                     estimate.damping.lambda == kPlaneDamping.lambda;
  plane.noise = std::sqrt(estimate.variance);
  plane.degrees_of_freedom = estimate.degrees_of_freedom;
  plane.cross_validated_rms = std::sqrt(estimate.squared_error);
}

}  // namespace

RefinedPlane refine_plane(_KESTRANE_ID_POINT3DS points, const RefinementSettings& settings) {
  check(settings);
  require(points.count >= 0, "a cloud's count must not be negative");
  require(points.points != nullptr || points.count == 0, "a cloud must lead to its points");
  const FanNodes nodes = fan_nodes();
  _LASER_PLANE_GRIDS grids = {};
  fill_grids(grids);

  RefinedPlane plane;
  const Samples samples = usable_samples(nodes, points, settings);
  plane.counts.points = points.count;
  plane.counts.not_finite = samples.not_finite;
  plane.counts.outside = samples.outside;
  if (samples.points.size() < kFewestPoints) return refused(plane, "fewer than 20 usable points");
  const Spread spread = spread_of(samples.points);
  if (!(spread.ratio >= kLeastSpread))
    return refused(plane, "the points lie nearly on one line, which leaves the plane open");
  std::optional<Start> start = robust_start(samples, spread, settings);
  if (!start) return refused(plane, "the points fix no plane");
  const Sheet whole = start->plane;
  const std::array<double, 3> q = flat_form(whole);
  if (std::abs(q[0]) < kGuard)
    return refused(plane, "the plane passes through the origin, which no table can hold");
  const _LASER_TRIPLE abc = table_form(q[0], q[1], q[2]);
  if (!has_plane(abc)) return refused(plane, "the plane lies too far off for a table to hold");
  plane.whole_plane = {abc.v[0], abc.v[1], abc.v[2]};

  const auto estimate = estimate_surface(nodes, grids, samples, std::move(*start), settings);
  if (!estimate) return refused(plane, "the points fix no surface");
  set_corners(nodes, whole, *estimate, plane);
  set_cells(nodes, grids, samples, whole, *estimate, plane);
  if (!std::all_of(plane.cells.begin(), plane.cells.end(), has_plane))
    return refused(plane, "a block passes through the origin, which no table can hold");
  set_indicators(samples, *estimate, plane);
  set_account(samples, *estimate, plane);
  return plane;
}

RefinedPlane refine_plane(const PointList& points, const RefinementSettings& settings) {
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): no constant points in the record's form
  auto* first = const_cast<_KESTRANE_ID_POINT3D*>(points.data());  // only read
  return refine_plane({first, static_cast<std::int32_t>(points.size())}, settings);
}

}  // namespace kestrane::quality
