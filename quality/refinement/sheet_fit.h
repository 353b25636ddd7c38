// A whole sheet as a plane or a quadratic, fitted so that no minority of the points decides.
//
// in    samples, which of their frames count
// out   a polynomial x(y, z), residuals against it, their scale
//
// The start of a refinement: a plane from steps of least absolute values, then Huber's and Tukey's
// weights. A freer start would fit the errors of few frames and then reject good points.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "quality/refinement/samples.h"

namespace kestrane::quality::refinement {

inline constexpr int kPlaneTerms = 3;
inline constexpr int kQuadraticTerms = 6;

// x = c0 + c1 v + c2 w + c3 v^2 + c4 v w + c5 w^2, v = (y - y0) / ys, w = (z - z0) / zs.
struct Sheet {
  int terms = 0;
  double y0 = 0.0, z0 = 0.0;
  double ys = 1.0, zs = 1.0;
  std::array<double, kQuadraticTerms> c = {};

  double at(double y, double z) const;
};

// Where samples lie in (y, z): their centre, spread along both axes, and the ratio of the smaller
// to the larger principal spread, 0 on a line.
struct Spread {
  double y0, z0;
  double ys, zs;
  double ratio;
};
Spread spread_of(const std::vector<Sample>& samples);

// Which weights a step of the fit gives.
enum class Weighting { kLeastAbsolute, kHuber, kTukey };

// One fit with the weights that the residuals against `model` get under `scale`. Samples of frames
// that are not `taken` count nothing. Nothing where the points do not fix the terms.
//
// taken  per frame rank
// every  takes every n-th sample alone
std::optional<Sheet> fit_step(const std::vector<Sample>& samples,
                              const std::vector<std::uint8_t>& taken, const Sheet& model,
                              double scale, Weighting weighting, int terms, std::size_t every);

// Scale of the residuals of the samples of frames that are taken.
double scale_against(const std::vector<Sample>& samples, const std::vector<std::uint8_t>& taken,
                     const Sheet& model, std::size_t every, std::vector<double>& scratch);

// A fitted sheet with the scale of its residuals.
struct FittedSheet {
  Sheet sheet;
  double scale = 0.0;
};

// Steps of least absolute values, on at most some thousand samples, that begin with the least
// squares of all: the start of everything else.
std::optional<FittedSheet> absolute_fit(const std::vector<Sample>& samples,
                                        const std::vector<std::uint8_t>& taken,
                                        const Spread& spread, int terms);

// Two further steps, on at most some ten thousand samples.
std::optional<FittedSheet> improve(const std::vector<Sample>& samples,
                                   const std::vector<std::uint8_t>& taken, const FittedSheet& from,
                                   Weighting weighting);

}  // namespace kestrane::quality::refinement
