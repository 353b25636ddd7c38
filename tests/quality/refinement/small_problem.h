// A refinement problem of a few nodes, for plain linear algebra beside it.
#pragma once

#include <Eigen/Dense>
#include <cstdint>
#include <functional>
#include <vector>

#include "quality/refinement/problem.h"
#include "records/fan.h"
#include "simulation/random.h"

namespace quality_tests {

// Samples of frames in turn at the right edge of the fan, up to 0.019 beyond it, where some lie in
// no block. Every eleventh does not count.
class SmallProblem {
 public:
  struct Settings {
    int samples = 240;
    int frames = 7;
    double noise = 0.05;
    double frame_noise = 0.0;
    std::uint64_t seed = 1;
  };
  using Surface = std::function<double(double u, double z)>;

  SmallProblem(const Settings& settings, const Surface& surface) {
    kestrane::fill_grids(grids);
    simulation::Random random(settings.seed);
    std::vector<double> offsets(static_cast<std::size_t>(settings.frames));
    for (double& offset : offsets) offset = settings.frame_noise * random.gaussian();
    kestrane::quality::PointList points;
    for (int n = 0; n < settings.samples; ++n) {
      const double u = random.uniform(nodes.u[11], nodes.u[15] + 0.019);
      const double z = random.uniform(nodes.z[10], nodes.z[14]);
      const int frame = n % settings.frames;
      const double x = surface(u, z) + settings.noise * random.gaussian() +
                       offsets[static_cast<std::size_t>(frame)];
      points.push_back({x, u * z, z, frame});
    }
    samples = usable_samples(nodes, {points.data(), static_cast<std::int32_t>(points.size())}, {});
    stencils = stencils_of(nodes, samples.points);
    for (std::size_t n = 0; n < samples.points.size(); ++n) {
      values.push_back(samples.points[n].x);
      counted.push_back(n % 11 == 5 ? 0 : 1);
    }
  }
  SmallProblem(const SmallProblem&) = delete;
  SmallProblem& operator=(const SmallProblem&) = delete;

  kestrane::quality::refinement::Problem problem() const {
    return {nodes, grids, active, samples.points, stencils, values, counted};
  }

  // The weights of a sample's nodes, one column per active node.
  Eigen::RowVectorXd row(std::size_t n) const {
    Eigen::RowVectorXd weights = Eigen::RowVectorXd::Zero(active.count());
    for (int j = 0; j < 4; ++j)
      for (int i = 0; i < 4; ++i)
        weights[active.number(stencils[n].first_across + i, stencils[n].first_along + j)] =
            stencils[n].along[j] * stencils[n].across[i];
    return weights;
  }

  // A'A + lambda S and A'd over the samples for which `takes` holds, solved.
  template <class Takes>
  Eigen::VectorXd solution(const Eigen::MatrixXd& penalty, double lambda, Takes takes) const {
    Eigen::MatrixXd matrix = lambda * penalty;
    Eigen::VectorXd right = Eigen::VectorXd::Zero(active.count());
    for (std::size_t n = 0; n < samples.points.size(); ++n) {
      if (counted[n] == 0 || !takes(n)) continue;
      matrix += row(n).transpose() * row(n);
      right += values[n] * row(n).transpose();
    }
    return matrix.ldlt().solve(right);
  }

  kestrane::quality::refinement::FanNodes nodes = kestrane::quality::refinement::fan_nodes();
  kestrane::_LASER_PLANE_GRIDS grids = {};
  kestrane::quality::refinement::ActiveNodes active{10, 6, 9, 7};
  kestrane::quality::refinement::Samples samples;
  std::vector<kestrane::quality::refinement::Stencil> stencils;
  std::vector<double> values;
  std::vector<std::uint8_t> counted;
};

// Curved both ways, by some millimetres over the samples.
inline double bent(double u, double z) {
  return 3.0 + 2.0 * u - 0.01 * z + 5.0 * u * u + 4e-5 * (z - 450.0) * (z - 450.0);
}

}  // namespace quality_tests
