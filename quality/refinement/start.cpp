#include "quality/refinement/start.h"

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>

#include "quality/refinement/choice.h"
#include "quality/refinement/robust_scale.h"

namespace kestrane::quality::refinement {
namespace {

constexpr std::size_t kFewestFrames = 5;

using Normal = Eigen::Matrix<double, kQuadraticTerms, kQuadraticTerms>;
using Right = Eigen::Matrix<double, kQuadraticTerms, 1>;

// Sums over samples of one group of frames; squared errors follow from them for any polynomial.
struct Sums {
  Normal normal = Normal::Zero();
  Right right = Right::Zero();
  double squares = 0.0;
  double count = 0.0;

  void add(const Right& basis, double x) {
    normal += basis * basis.transpose();
    right += basis * x;
    squares += x * x;
    count += 1.0;
  }
  void remove(const Sums& other) {
    normal -= other.normal;
    right -= other.right;
  }
};

// Mean squared error on each group of the polynomial of `terms` terms that the others give.
std::vector<double> errors_left_out(const std::vector<Sums>& groups, const Sums& all, int terms) {
  std::vector<double> errors;
  for (const Sums& group : groups) {
    Sums others = all;
    others.remove(group);
    const Eigen::MatrixXd normal = others.normal.topLeftCorner(terms, terms);
    const Eigen::VectorXd c = normal.ldlt().solve(others.right.head(terms));
    double squares = group.squares;  // less 2 right c, plus c normal c
    for (int i = 0; i < terms; ++i) {
      double row = -2.0 * group.right[i];
      for (int j = 0; j < terms; ++j) row += group.normal(i, j) * c[j];
      squares += row * c[i];
    }
    errors.push_back(squares / group.count);
  }
  return errors;
}

// Whether the quadratic predicts frames that were left out significantly better than the plane,
// over the samples near either. None predicts nothing.
bool frames_support(const Samples& samples, const std::vector<std::uint8_t>& taken,
                    const FittedSheet& plane, const std::optional<FittedSheet>& quadratic,
                    const RefinementSettings& settings) {
  if (!quadratic) return false;
  std::vector<std::int32_t> rank(taken.size(), -1);
  std::int32_t frames = 0;
  for (std::size_t f = 0; f < taken.size(); ++f)
    if (taken[f] != 0) rank[f] = frames++;
  const auto count = static_cast<std::size_t>(std::min(frames, settings.folds));
  if (count < kFewestFrames) return false;
  std::vector<Sums> groups(count);
  Sums all;
  const Sheet& sheet = quadratic->sheet;
  for (const Sample& s : samples.points) {
    const std::int32_t r = rank[static_cast<std::size_t>(s.frame)];
    if (r < 0) continue;
    const double from_plane = s.x - plane.sheet.at(s.y, s.z);
    const double from_quadratic = s.x - sheet.at(s.y, s.z);
    if (std::abs(from_plane) > settings.cut * plane.scale &&
        std::abs(from_quadratic) > settings.cut * quadratic->scale)
      continue;
    const double v = (s.y - sheet.y0) / sheet.ys;
    const double w = (s.z - sheet.z0) / sheet.zs;
    const Right basis{1.0, v, w, v * v, v * w, w * w};
    groups[static_cast<std::size_t>(r) % count].add(basis, from_plane);
    all.add(basis, from_plane);
  }
  return is_significantly_better(errors_left_out(groups, all, kPlaneTerms),
                                 errors_left_out(groups, all, kQuadraticTerms),
                                 settings.significance);
}

std::vector<std::uint8_t> check_frames(const Samples& samples, const FittedSheet& plane,
                                       const std::optional<FittedSheet>& quadratic, double cut) {
  const std::size_t frames = samples.frames.size();
  std::vector<double> scratch;
  FrameMedians medians = frame_medians(
      samples.points, residuals_against(samples.points, plane.sheet), frames, scratch);
  double scale = plane.scale;
  if (quadratic) {
    FrameMedians other = frame_medians(
        samples.points, residuals_against(samples.points, quadratic->sheet), frames, scratch);
    if (other.spread < medians.spread) {
      medians = std::move(other);
      scale = quadratic->scale;
    }
  }
  return taken_frames(medians, scale, cut);
}

}  // namespace

std::vector<double> residuals_against(const std::vector<Sample>& samples, const Sheet& sheet) {
  std::vector<double> residuals;
  residuals.reserve(samples.size());
  for (const Sample& s : samples) residuals.push_back(s.x - sheet.at(s.y, s.z));
  return residuals;
}

std::optional<Start> robust_start(const Samples& samples, const Spread& spread,
                                  const RefinementSettings& settings) {
  const std::vector<Sample>& points = samples.points;
  const std::vector<std::uint8_t> all(samples.frames.size(), 1);
  std::optional<FittedSheet> plane = absolute_fit(points, all, spread, kPlaneTerms);
  if (plane) plane = improve(points, all, *plane, Weighting::kHuber);
  if (!plane) return std::nullopt;
  std::optional<FittedSheet> quadratic = absolute_fit(points, all, spread, kQuadraticTerms);
  if (quadratic) quadratic = improve(points, all, *quadratic, Weighting::kHuber);

  Start start;
  start.taken = check_frames(samples, *plane, quadratic, settings.frame_cut);
  plane = improve(points, start.taken, *plane, Weighting::kTukey);
  if (!plane) return std::nullopt;
  if (quadratic) quadratic = improve(points, start.taken, *quadratic, Weighting::kTukey);

  start.plane = plane->sheet;
  const bool bent = frames_support(samples, start.taken, *plane, quadratic, settings);
  const FittedSheet& nearer = bent ? *quadratic : *plane;
  start.residuals = residuals_against(points, nearer.sheet);
  start.scale = nearer.scale;
  return start;
}

}  // namespace kestrane::quality::refinement
