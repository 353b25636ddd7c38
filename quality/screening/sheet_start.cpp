#include "quality/screening/sheet_start.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <utility>

#include "quality/screening/sizes.h"

namespace kestrane::quality {
namespace {

// With a third of the points off, 1 in 12 draws of six is clean: all 128 miss once in 70,000 times,
// and the steps over the nearer half mend many of those.
constexpr int kDraws = 128;
constexpr std::size_t kJudges = 128;  // points that a drawn sheet is judged by
constexpr int kMostSteps = 8;
constexpr double kFarthest = std::numeric_limits<double>::max();

using Coefficients = std::array<double, kMostTerms>;

// Solves the square system of `terms` equations by elimination, the largest pivot first. False
// where a pivot vanishes.
bool solve_square(std::array<std::array<double, kMostTerms + 1>, kMostTerms>& rows,
                  std::size_t terms, Coefficients& c) {
  for (std::size_t k = 0; k < terms; ++k) {
    std::size_t pivot = k;
    for (std::size_t i = k + 1; i < terms; ++i) {
      if (std::abs(rows[i][k]) > std::abs(rows[pivot][k])) pivot = i;
    }
    if (!(std::abs(rows[pivot][k]) > 0.0)) return false;
    std::swap(rows[k], rows[pivot]);
    for (std::size_t i = k + 1; i < terms; ++i) {
      const double factor = rows[i][k] / rows[k][k];
      for (std::size_t j = k; j <= terms; ++j) rows[i][j] -= factor * rows[k][j];
    }
  }
  c.fill(0.0);
  for (std::size_t k = terms; k-- > 0;) {
    double rest = rows[k][terms];
    for (std::size_t j = k + 1; j < terms; ++j) rest -= rows[k][j] * c[j];
    c[k] = rest / rows[k][k];
  }
  return true;
}

// The sheet through `terms` points of the sample, drawn at random.
bool draw_sheet(const std::vector<SheetPoint>& sample, std::size_t terms, SeededDraws& draws,
                Coefficients& c) {
  std::array<std::array<double, kMostTerms + 1>, kMostTerms> rows;
  for (std::size_t i = 0; i < terms; ++i) {
    const SheetPoint& at = sample[draws.below(sample.size())];
    const std::array<double, kMostTerms> t = {1.0,         at.u,        at.v,
                                              at.u * at.u, at.u * at.v, at.v * at.v};
    std::copy_n(t.begin(), terms, rows[i].begin());
    rows[i][terms] = at.x;
  }
  return solve_square(rows, terms, c);
}

// Whether more than half of the judges lie nearer than `limit`: only such a sheet can be better.
bool may_be_better(const std::vector<SheetPoint>& judges, const Coefficients& c, double limit) {
  std::size_t nearer = 0;
  for (const SheetPoint& at : judges)
    nearer += static_cast<std::size_t>(std::abs(residual(c.data(), at)) < limit);
  return nearer > judges.size() / 2;
}

// The median of |residual| over points.
double median_size(const std::vector<SheetPoint>& points, const Coefficients& c,
                   std::vector<double>& sizes) {
  sizes.clear();
  for (const SheetPoint& at : points) sizes.push_back(size_of(residual(c.data(), at)));
  return median_of_sizes(sizes);
}

// The points no farther than the median, in the order of the sample.
void take_nearer_half(const std::vector<SheetPoint>& sample, SheetStart& start) {
  start.support.clear();
  for (const SheetPoint& at : sample) {
    if (size_of(residual(start.c.data(), at)) <= start.median) start.support.push_back(at);
  }
}

// Least squares over the nearer half; true while that brings the median down.
bool step(const std::vector<SheetPoint>& sample, int terms, std::vector<double>& sizes,
          SheetStart& start) {
  TermSums sums(terms);
  for (const SheetPoint& at : start.support) sums.add(at);
  Coefficients c;
  sums.solve(c.data());
  const double median = median_size(sample, c, sizes);
  if (!(median < start.median)) return false;
  start.c = c;
  start.median = median;
  take_nearer_half(sample, start);
  return true;
}

}  // namespace

SheetStart start_sheet(const std::vector<SheetPoint>& sample, int terms, SeededDraws& draws) {
  SheetStart start;
  const auto size = static_cast<std::size_t>(terms);
  if (sample.size() < size) return start;
  std::vector<SheetPoint> judges;
  for_each_spread_pick(sample.size(), kJudges, draws,
                       [&](std::size_t i) { judges.push_back(sample[i]); });
  std::vector<double> sizes;
  double best = kFarthest;
  for (int n = 0; n < kDraws; ++n) {
    Coefficients c;
    if (!draw_sheet(sample, size, draws, c) || !may_be_better(judges, c, best)) continue;
    best = median_size(judges, c, sizes);
    start.c = c;
    start.found = true;
  }
  if (!start.found) return start;
  start.median = median_size(sample, start.c, sizes);
  take_nearer_half(sample, start);
  for (int n = 0; n < kMostSteps && step(sample, terms, sizes, start); ++n) {
  }
  return start;
}

}  // namespace kestrane::quality
