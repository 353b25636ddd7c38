#include "quality/refinement/sheet_fit.h"

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>

#include "quality/refinement/robust_scale.h"

namespace kestrane::quality::refinement {
namespace {

constexpr double kHuberLimit = 1.345;
constexpr double kTukeyLimit = 4.685;
constexpr double kLeastSize = 0.1;  // of a residual under least absolute values, in scales
constexpr int kAbsoluteSteps = 12;
constexpr int kImprovingSteps = 2;
constexpr std::size_t kMostForStart = 4096;  // samples, evenly spread over the sorted ones
constexpr std::size_t kMostForImproving = 32768;
constexpr double kRank = 1e-10;  // pivot of the scaled normal equations below which a term is free

using Basis = std::array<double, kQuadraticTerms>;
using Normal = Eigen::Matrix<double, kQuadraticTerms, kQuadraticTerms>;

Basis basis_at(const Sheet& sheet, double y, double z) {
  const double v = (y - sheet.y0) / sheet.ys;
  const double w = (z - sheet.z0) / sheet.zs;
  return {1.0, v, w, v * v, v * w, w * w};
}

double weight_of(Weighting weighting, double residual, double scale) {
  const double size = std::abs(residual);
  switch (weighting) {
    case Weighting::kLeastAbsolute:
      return 1.0 / std::max(size, kLeastSize * scale);
    case Weighting::kHuber:
      return size <= kHuberLimit * scale ? 1.0 : kHuberLimit * scale / size;
    case Weighting::kTukey: {
      const double t = size / (kTukeyLimit * scale);
      return t < 1.0 ? (1.0 - t * t) * (1.0 - t * t) : 0.0;
    }
  }
  return 0.0;
}

std::size_t stride_for(std::size_t samples, std::size_t most) {
  return std::max<std::size_t>(1, samples / most);
}

std::optional<FittedSheet> steps(const std::vector<Sample>& samples,
                                 const std::vector<std::uint8_t>& taken, FittedSheet fitted,
                                 Weighting weighting, int terms, int count, std::size_t every) {
  std::vector<double> scratch;
  for (int step = 0; step < count; ++step) {
    const auto next = fit_step(samples, taken, fitted.sheet, fitted.scale, weighting, terms, every);
    if (!next) return std::nullopt;
    fitted = {*next, scale_against(samples, taken, *next, every, scratch)};
  }
  return fitted;
}

}  // namespace

double Sheet::at(double y, double z) const {
  const Basis basis = basis_at(*this, y, z);
  double x = c[0] + c[1] * basis[1] + c[2] * basis[2];
  if (terms > kPlaneTerms) x += c[3] * basis[3] + c[4] * basis[4] + c[5] * basis[5];
  return x;
}

Spread spread_of(const std::vector<Sample>& samples) {
  const auto n = static_cast<double>(std::ssize(samples));
  double y0 = 0.0, z0 = 0.0;
  for (const Sample& s : samples) {
    y0 += s.y;
    z0 += s.z;
  }
  y0 /= n;
  z0 /= n;
  double yy = 0.0, yz = 0.0, zz = 0.0;
  for (const Sample& s : samples) {
    yy += (s.y - y0) * (s.y - y0);
    yz += (s.y - y0) * (s.z - z0);
    zz += (s.z - z0) * (s.z - z0);
  }
  const double middle = 0.5 * (yy + zz);
  const double half = std::hypot(0.5 * (yy - zz), yz);
  const double smaller = std::max(middle - half, 0.0);
  const double ratio = middle + half > 0.0 ? std::sqrt(smaller / (middle + half)) : 0.0;
  return {y0, z0, std::sqrt(yy / n), std::sqrt(zz / n), ratio};
}

std::optional<Sheet> fit_step(const std::vector<Sample>& samples,
                              const std::vector<std::uint8_t>& taken, const Sheet& model,
                              double scale, Weighting weighting, int terms, std::size_t every) {
  Normal normal = Normal::Zero();
  Basis right = {};
  for (std::size_t n = 0; n < samples.size(); n += every) {
    const Sample& s = samples[n];
    if (taken[static_cast<std::size_t>(s.frame)] == 0) continue;
    const double weight = weight_of(weighting, s.x - model.at(s.y, s.z), scale);
    const Basis basis = basis_at(model, s.y, s.z);
    for (int a = 0; a < terms; ++a) {
      const double part = weight * basis[static_cast<std::size_t>(a)];
      for (int b = a; b < terms; ++b) normal(b, a) += part * basis[static_cast<std::size_t>(b)];
      right[static_cast<std::size_t>(a)] += part * s.x;
    }
  }
  const Eigen::MatrixXd lower = normal.topLeftCorner(terms, terms);
  const Eigen::LDLT<Eigen::MatrixXd> factor(lower.selfadjointView<Eigen::Lower>());
  const double largest = lower.diagonal().maxCoeff();
  if (factor.info() != Eigen::Success || !(factor.vectorD().minCoeff() > kRank * largest))
    return std::nullopt;
  const Eigen::VectorXd c = factor.solve(Eigen::Map<const Eigen::VectorXd>(right.data(), terms));
  Sheet sheet = model;
  sheet.terms = terms;
  sheet.c = {};
  std::copy_n(c.data(), terms, sheet.c.begin());
  return sheet;
}

double scale_against(const std::vector<Sample>& samples, const std::vector<std::uint8_t>& taken,
                     const Sheet& model, std::size_t every, std::vector<double>& scratch) {
  scratch.clear();
  for (std::size_t n = 0; n < samples.size(); n += every) {
    const Sample& s = samples[n];
    if (taken[static_cast<std::size_t>(s.frame)] != 0)
      scratch.push_back(std::abs(s.x - model.at(s.y, s.z)));
  }
  return scale_of(scratch);
}

std::optional<FittedSheet> absolute_fit(const std::vector<Sample>& samples,
                                        const std::vector<std::uint8_t>& taken,
                                        const Spread& spread, int terms) {
  const std::size_t every = stride_for(samples.size(), kMostForStart);
  FittedSheet start;
  start.sheet.y0 = spread.y0;
  start.sheet.z0 = spread.z0;
  start.sheet.ys = spread.ys;
  start.sheet.zs = spread.zs;
  start.sheet.terms = kPlaneTerms;
  // Under this scale every weight is 1: the first step is least squares.
  start.scale = 1.0 / kLeastScale;
  const auto squares = steps(samples, taken, start, Weighting::kHuber, terms, 1, every);
  if (!squares) return std::nullopt;
  return steps(samples, taken, *squares, Weighting::kLeastAbsolute, terms, kAbsoluteSteps, every);
}

std::optional<FittedSheet> improve(const std::vector<Sample>& samples,
                                   const std::vector<std::uint8_t>& taken, const FittedSheet& from,
                                   Weighting weighting) {
  const std::size_t every = stride_for(samples.size(), kMostForImproving);
  std::vector<double> scratch;
  FittedSheet fitted = from;
  fitted.scale = scale_against(samples, taken, from.sheet, every, scratch);
  return steps(samples, taken, fitted, weighting, from.sheet.terms, kImprovingSteps, every);
}

}  // namespace kestrane::quality::refinement
