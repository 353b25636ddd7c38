// A result of the safe factory calibration, back from its arrays.
#pragma once

#include <vector>

#include "kestrane/quality/factory.h"
#include "python/src/arrays.h"

namespace kestrane::python {

// All that is judged: figures, accounts and settings, without table, indicators and corners.
quality::FactoryResult factory_result_of(const py::handle& source);

// (planes, 15): whether any figure of a line's blocks is not 0.
py::array sectors_with_points(const std::vector<_LASER_TRIPLE>& indicators, py::ssize_t planes);

}  // namespace kestrane::python
