// A result of the safe field calibration, back from its arrays.
#pragma once

#include "kestrane/quality/difference.h"
#include "kestrane/quality/field.h"
#include "python/src/arrays.h"

namespace kestrane::python {

// All that is judged.
quality::FieldResult field_result_of(const py::handle& source);

// The same of a difference.
quality::Difference difference_of(const py::handle& source);

}  // namespace kestrane::python
