#include "quality/findings/plane_lists.h"

#include <algorithm>
#include <cmath>

namespace kestrane::quality {
namespace {

using IsWorse = bool (*)(double, double);

bool is_above(double a, double b) { return a > b; }
bool is_below(double a, double b) { return a < b; }

Extreme worst_of(const FactoryResult& result, FigureOf figure_of, IsWorse is_worse) {
  Extreme worst;
  for (const std::int32_t p : planes_where(result, has_table)) {
    const double value = figure_of(result.planes[static_cast<std::size_t>(p)]);
    if (std::isnan(value)) continue;
    if (worst.plane < 0 || is_worse(value, worst.value)) worst = {p, value};
  }
  return worst;
}

}  // namespace

std::size_t count_tables(const FactoryResult& result) {
  return static_cast<std::size_t>(
      std::count_if(result.planes.begin(), result.planes.end(), has_table));
}

std::vector<std::int32_t> planes_where(const FactoryResult& result,
                                       const std::function<bool(const PlaneFigures&)>& asked) {
  std::vector<std::int32_t> planes;
  for (std::size_t p = 0; p < result.planes.size(); ++p) {
    if (has_table(result.planes[p]) && asked(result.planes[p])) {
      planes.push_back(static_cast<std::int32_t>(p));
    }
  }
  return planes;
}

Extreme largest(const FactoryResult& result, FigureOf figure_of) {
  return worst_of(result, figure_of, is_above);
}

Extreme smallest(const FactoryResult& result, FigureOf figure_of) {
  return worst_of(result, figure_of, is_below);
}

}  // namespace kestrane::quality
