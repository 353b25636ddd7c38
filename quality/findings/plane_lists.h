// The planes of a device that a row speaks of.
//
// in    a factory result and what is asked of a plane
// out   plane numbers, ascending, and the plane where a figure is worst
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "kestrane/quality/factory.h"

namespace kestrane::quality {

inline bool has_table(const PlaneFigures& plane) { return plane.reason.empty(); }

// Planes that have a table and are as `asked`.
template <class Asked>
std::vector<std::int32_t> planes_where(const FactoryResult& result, const Asked& asked) {
  std::vector<std::int32_t> planes;
  for (std::size_t p = 0; p < result.planes.size(); ++p) {
    if (has_table(result.planes[p]) && asked(result.planes[p])) {
      planes.push_back(static_cast<std::int32_t>(p));
    }
  }
  return planes;
}

// Where a figure is largest; plane -1 and not a number where no plane has it.
struct Extreme {
  std::int32_t plane = -1;
  double value = kNotDetermined;
};

template <class FigureOf>
Extreme largest(const FactoryResult& result, const FigureOf& figure_of) {
  Extreme found;
  for (std::size_t p = 0; p < result.planes.size(); ++p) {
    if (!has_table(result.planes[p])) continue;
    const double value = figure_of(result.planes[p]);
    if (std::isnan(value) || value <= found.value) continue;
    found = {static_cast<std::int32_t>(p), value};
  }
  return found;
}

template <class FigureOf>
Extreme smallest(const FactoryResult& result, const FigureOf& figure_of) {
  Extreme found = largest(result, [&](const PlaneFigures& plane) { return -figure_of(plane); });
  found.value = -found.value;
  return found;
}

}  // namespace kestrane::quality
