// The planes of a device that a row speaks of: those that have a table.
//
// in    a factory result and what is asked of a plane
// out   plane numbers, ascending, and the plane where a figure is worst
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "kestrane/quality/factory.h"

namespace kestrane::quality {

inline bool has_table(const PlaneFigures& plane) { return plane.reason.empty(); }

std::size_t count_tables(const FactoryResult& result);

// Planes that have a table and are as `asked`.
std::vector<std::int32_t> planes_where(const FactoryResult& result,
                                       const std::function<bool(const PlaneFigures&)>& asked);

// Where a figure is worst; plane -1 and not a number where no plane has it.
struct Extreme {
  std::int32_t plane = -1;
  double value = kNotDetermined;
};

using FigureOf = double (*)(const PlaneFigures& plane);

// The first of equal planes.
Extreme largest(const FactoryResult& result, FigureOf figure_of);
Extreme smallest(const FactoryResult& result, FigureOf figure_of);

}  // namespace kestrane::quality
