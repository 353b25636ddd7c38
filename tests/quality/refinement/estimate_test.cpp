#include "quality/refinement/estimate.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <set>
#include <stdexcept>
#include <vector>

#include "kestrane/quality/refinement.h"
#include "quality/refinement/free_quadratic.h"
#include "quality/refinement/penalty.h"
#include "records/fan.h"
#include "simulation/random.h"
#include "tests/support/bits.h"

namespace {

using namespace kestrane::quality::refinement;
using kestrane::_LASER_PLANE_GRIDS;
using kestrane::quality::PointList;
using kestrane::quality::RefinementSettings;
using kestrane_test::same_bits;

using Flags = std::vector<std::uint8_t>;

_LASER_PLANE_GRIDS fan_grids() {
  _LASER_PLANE_GRIDS grids = {};
  kestrane::fill_grids(grids);
  return grids;
}

struct Cloud {
  std::uint64_t seed;
  double ripple = 0.0;
  int good = 30;              // of 31 points
  double scale_factor = 1.0;  // of the scale that the estimate starts with
  double significance = 2.5;
  double bow = 3e-4;
};

// Points of 12 frames in a few cells, two frames off by a little, bad points off by anything up to
// three millimetres, and some far away from the cells and from the sheet.
Samples samples_of(const Cloud& cloud) {
  simulation::Random random(cloud.seed);
  PointList points;
  for (int n = 0; n < 320; ++n) {
    const double z = random.uniform(425.0, 560.0), y = random.uniform(-60.0, 60.0);
    const int frame = n % 12;
    double x = 118.0 + 0.01 * y - 0.2 * z + cloud.bow * y * y + cloud.ripple * std::sin(0.1 * z) +
               random.uniform(-0.05, 0.05);
    if (frame == 3 || frame == 7) x += 0.14;
    if (n % 31 >= cloud.good) x += 3.0 * std::exp(-4.0 * random.uniform()) * (n % 2 == 0 ? 1 : -1);
    points.push_back({x, y, z, 5 * frame});
  }
  for (const double y : {180.0, 190.0, 200.0})
    points.push_back({118.0 + 0.01 * y - 0.2 * 700.0 + 500.0, y, 700.0, 0});
  return usable_samples(fan_nodes(), {points.data(), static_cast<std::int32_t>(points.size())}, {});
}

double scale_of_residuals(std::vector<double> sizes) {
  std::sort(sizes.begin(), sizes.end());
  const std::size_t half = sizes.size() / 2;
  const double middle = sizes.size() % 2 == 1 ? sizes[half] : 0.5 * (sizes[half - 1] + sizes[half]);
  return std::max(1.4826 * middle, 1e-9);
}

// Round by round, with what stands for each part.
struct PlainEstimate {
  Estimate estimate;
  int rounds = 0;
  int choices = 0;
  bool changes = false;            // from one choice to the next
  bool chooses_otherwise = false;  // in a round that keeps the damping
  bool goes_on = false;            // beyond its last round
};

PlainEstimate plain_estimate(const Samples& samples, const Start& start,
                             const RefinementSettings& settings) {
  const FanNodes nodes = fan_nodes();
  const _LASER_PLANE_GRIDS grids = fan_grids();
  const std::vector<Sample>& points = samples.points;
  const std::vector<double> values = residuals_against(points, start.plane);
  const std::vector<Stencil> stencils = stencils_of(nodes, points);
  std::vector<double> scratch;
  BandedMatrix factor;
  PlainEstimate plain;
  Estimate& e = plain.estimate;
  e.residuals = start.residuals;
  e.taken = start.taken;
  double scale = start.scale, scale_at_choice = 0.0;
  const auto near_samples = [&] {
    Flags counted;
    for (std::size_t n = 0; n < points.size(); ++n) {
      const bool near = std::abs(e.residuals[n]) <= settings.cut * scale;
      counted.push_back(near && e.taken[static_cast<std::size_t>(points[n].frame)] != 0 ? 1 : 0);
    }
    return counted;
  };
  for (int round = 0; round < 4; ++round) {
    const Flags counted = near_samples();
    if (counted == e.counted) break;
    ++plain.rounds;
    e.counted = counted;
    std::set<int> u, z;
    for (std::size_t n = 0; n < points.size(); ++n) {
      if (counted[n] == 0) continue;
      u.insert(points[n].cell % 15);
      z.insert(points[n].cell / 15);
    }
    e.active.first_u = *u.begin() - 1;
    e.active.across = *u.rbegin() + 2 - e.active.first_u + 1;
    e.active.first_z = *z.begin() - 1;
    e.active.along = *z.rbegin() + 2 - e.active.first_z + 1;
    const Problem problem{nodes, grids, e.active, points, stencils, values, e.counted};
    const NormalEquations all = equations_of(problem);
    const Groups groups = group_frames(problem, samples.frames.size(), settings.folds);
    const BandedMatrix penalties[2] = {penalty(nodes, e.active, 2), penalty(nodes, e.active, 3)};
    if (round == 0 || scale < 0.9 * scale_at_choice) {
      const Damping before = e.damping;
      e.damping = choose_damping(problem, all, groups, penalties, settings.significance);
      plain.changes =
          plain.changes ||
          (round > 0 && (before.order != e.damping.order || before.lambda != e.damping.lambda));
      scale_at_choice = scale;
      ++plain.choices;
    } else {
      const Damping other = choose_damping(problem, all, groups, penalties, settings.significance);
      if (other.order != e.damping.order || other.lambda != e.damping.lambda)
        plain.chooses_otherwise = true;
    }
    EXPECT_TRUE(solve_damped(all, nullptr, penalties[e.damping.order - 2], e.damping.lambda, factor,
                             e.values));
    if (e.damping.order == 3) free_quadratic(problem, factor, e.values);
    Continuation(nodes, e.active).apply(e.values, e.fan_values);
    std::vector<double> sizes;
    for (std::size_t n = 0; n < points.size(); ++n) {
      e.residuals[n] = values[n] - surface_at(stencils[n], e.fan_values);
      if (e.taken[static_cast<std::size_t>(points[n].frame)] != 0)
        sizes.push_back(std::abs(e.residuals[n]));
    }
    scale = scale_of_residuals(sizes);
    e.taken = taken_frames(frame_medians(points, e.residuals, samples.frames.size(), scratch),
                           scale, settings.frame_cut);
  }
  plain.goes_on = near_samples() != e.counted;
  const Problem problem{nodes, grids, e.active, points, stencils, values, e.counted};
  const NormalEquations all = equations_of(problem);
  const Groups groups = group_frames(problem, samples.frames.size(), settings.folds);
  const BandedMatrix inverse = invert(factor);
  e.degrees_of_freedom = trace_of_product(inverse, all.matrix);
  double squares = 0.0;
  for (std::size_t n = 0; n < points.size(); ++n)
    if (e.counted[n] != 0) squares += e.residuals[n] * e.residuals[n];
  e.variance = squares / (static_cast<double>(all.samples) - e.degrees_of_freedom);
  const LeftOut left_out =
      leave_out_groups(problem, all, groups, penalty(nodes, e.active, e.damping.order), e.damping);
  e.squared_error = left_out.squared_error;
  e.frames = groups.frames;
  e.sigma =
      node_sigma(e.active, Continuation(nodes, e.active), inverse, e.variance, e.values, left_out);
  return plain;
}

PlainEstimate expect_plain_rounds(const Cloud& cloud) {
  const Samples samples = samples_of(cloud);
  RefinementSettings settings;
  settings.significance = cloud.significance;
  std::optional<Start> start = robust_start(samples, spread_of(samples.points), settings);
  if (!start) {
    ADD_FAILURE() << "no start";
    return {};
  }
  start->scale *= cloud.scale_factor;
  if (cloud.scale_factor == 1.0) std::fill(start->taken.begin(), start->taken.end(), 1);
  PlainEstimate plain = plain_estimate(samples, *start, settings);
  const Estimate& expected = plain.estimate;
  const auto estimate = estimate_surface(fan_nodes(), fan_grids(), samples, *start, settings);
  if (!estimate) {
    ADD_FAILURE() << "no estimate";
    return plain;
  }
  EXPECT_TRUE(estimate->active == expected.active) << cloud.seed;
  EXPECT_EQ(estimate->counted, expected.counted) << cloud.seed;
  EXPECT_EQ(estimate->taken, expected.taken) << cloud.seed;
  EXPECT_EQ(estimate->frames, expected.frames);
  EXPECT_EQ(estimate->damping.order, expected.damping.order) << cloud.seed;
  EXPECT_EQ(estimate->damping.lambda, expected.damping.lambda) << cloud.seed;
  EXPECT_TRUE(same_bits(estimate->values, expected.values));
  EXPECT_TRUE(same_bits(estimate->residuals, expected.residuals));
  EXPECT_TRUE(same_bits(estimate->fan_values, expected.fan_values));
  EXPECT_TRUE(same_bits(estimate->sigma, expected.sigma));
  EXPECT_TRUE(same_bits(estimate->degrees_of_freedom, expected.degrees_of_freedom));
  EXPECT_TRUE(same_bits(estimate->variance, expected.variance));
  EXPECT_TRUE(same_bits(estimate->squared_error, expected.squared_error));
  return plain;
}

// From a start whose scale is told too large, so that points far off count in the first round and
// the damping is chosen again without them.
TEST(EstimateSurface, ChoosesAgainWhereTheNoiseFalls) {
  const auto plain = expect_plain_rounds({2, 0.05, 30, 30.0});
  EXPECT_GT(plain.choices, 1);
  EXPECT_TRUE(plain.changes);
  EXPECT_EQ(plain.estimate.damping.order, 3);
  EXPECT_EQ(expect_plain_rounds({1, 0.0, 30, 30.0, 2.5, 0.0}).estimate.damping.order, 2);
}

// Frames that are off are taken in the first round, and the damping stays as it was chosen then.
TEST(EstimateSurface, KeepsTheDampingWhereTheNoiseStays) {
  EXPECT_TRUE(expect_plain_rounds({1, 0.1, 30, 1.0}).chooses_otherwise);
  EXPECT_TRUE(expect_plain_rounds({1, 0.02, 30, 1.0, 0.7}).chooses_otherwise);
}

// Bad points of every size fall off one round after the other.
TEST(EstimateSurface, EndsAfterFourRounds) {
  EXPECT_TRUE(expect_plain_rounds({11, 0.0, 18, 40.0}).goes_on);
}

// A plane's points in one cell at either end of the fan, where an interpolation needs four nodes.
Samples samples_at_end(bool far, int frames) {
  const FanNodes nodes = fan_nodes();
  simulation::Random random(7);
  PointList points;
  for (int n = 0; n < 60; ++n) {
    const double u =
        far ? random.uniform(nodes.u[14], nodes.u[15]) : random.uniform(nodes.u[0], nodes.u[1]);
    const double z = far ? random.uniform(1474.0, 1499.0) : random.uniform(151.0, 176.0);
    points.push_back({118.0 + 0.1 * u * z - 0.2 * z, u * z, z, n % frames});
  }
  return usable_samples(nodes, {points.data(), 60}, {});
}

TEST(EstimateSurface, WorksWithFourNodesAtTheEndsOfTheFan) {
  for (const bool far : {false, true}) {
    const Samples samples = samples_at_end(far, 6);
    const auto start = robust_start(samples, spread_of(samples.points), {});
    ASSERT_TRUE(start);
    const auto estimate = estimate_surface(fan_nodes(), fan_grids(), samples, *start, {});
    ASSERT_TRUE(estimate);
    EXPECT_TRUE(estimate->active == (far ? ActiveNodes{12, 4, 47, 4} : ActiveNodes{0, 4, 0, 4}));
  }
}

// The farthest of the four nodes bears on no point there; so far off, it makes the bending
// infinite.
TEST(EstimateSurface, IsNothingWithoutAFactor) {
  const Samples samples = samples_at_end(true, 4);
  const auto start = robust_start(samples, spread_of(samples.points), {});
  ASSERT_TRUE(start);
  FanNodes nodes = fan_nodes();
  EXPECT_TRUE(estimate_surface(nodes, fan_grids(), samples, *start, {}));
  nodes.u[12] = -1e301;
  EXPECT_FALSE(estimate_surface(nodes, fan_grids(), samples, *start, {}));
}

TEST(EstimateSurface, IsNothingWithoutAFrame) {
  const Samples samples = samples_of({1});
  std::optional<Start> start = robust_start(samples, spread_of(samples.points), {});
  ASSERT_TRUE(start);
  std::fill(start->taken.begin(), start->taken.end(), std::uint8_t{0});
  EXPECT_FALSE(estimate_surface(fan_nodes(), fan_grids(), samples, *start, {}));
}

// --- a device of small clouds ----------------------------------------------------------------

PointList small_cloud(std::uint64_t seed) {
  simulation::Random random(seed);
  PointList cloud;
  for (int n = 0; n < 100; ++n) {
    const double z = random.uniform(410.0, 425.0), y = random.uniform(5.0, 20.0);
    cloud.push_back({118.0 - 0.2 * z + 0.01 * random.gaussian(), y, z, n % 20});
  }
  return cloud;
}

TEST(RefineSmallClouds, GivesEachTheRowOfItsPlaneOnAnyNumberOfThreads) {
  const std::vector<PointList> clouds = {small_cloud(1), PointList{}, small_cloud(2),
                                         small_cloud(3)};
  for (const std::int32_t threads : {1, 2, 16}) {
    const auto device = kestrane::quality::refine(clouds, {}, threads);
    ASSERT_EQ(device.planes.size(), 4U);
    ASSERT_EQ(device.table.planes(), 4);
    for (const std::int32_t p : {0, 1, 2, 3}) {
      const auto plane = kestrane::quality::refine_plane(clouds[static_cast<std::size_t>(p)]);
      EXPECT_EQ(device.planes[static_cast<std::size_t>(p)].refused, plane.refused);
      EXPECT_EQ(device.table.row_is_empty(p), p == 1);
      if (p == 1) continue;
      for (const std::size_t block : {std::size_t{0}, std::size_t{360}, std::size_t{749}}) {
        const auto at = static_cast<std::int32_t>(block);
        EXPECT_TRUE(same_bits(device.table.cell(p, {at / 50, at % 50}).v, plane.cells[block].v));
      }
      EXPECT_EQ(device.table.whole_plane(p)[2], plane.whole_plane[2]);
    }
  }
}

TEST(RefineSmallClouds, ThrowsOnAnyNumberOfThreads) {
  const std::vector<PointList> clouds(6, small_cloud(1));
  RefinementSettings wrong;
  wrong.folds = 2;
  for (const std::int32_t threads : {1, 2, 4})
    EXPECT_THROW(kestrane::quality::refine(clouds, wrong, threads), std::invalid_argument);
  EXPECT_THROW(kestrane::quality::refine(clouds, {}, 0), std::invalid_argument);
  try {
    kestrane::quality::refine(std::vector<PointList>(101));
    ADD_FAILURE() << "takes 101 clouds";
  } catch (const std::invalid_argument& error) {
    EXPECT_STREQ(error.what(), "a device has at most 100 planes");
  }
  EXPECT_EQ(kestrane::quality::refine(std::vector<PointList>(100)).planes.size(), 100U);
}

}  // namespace
