// The package's coefficients on their way into the libraries and out of them.
//
// in    an object with `models` (P, 16, 51, 3), `ranges` (R, 2) and `factory_to_user` (100, 3, 4)
// out   a dict of the same
//
// A plane without coefficients has models that are not numbers: a row without lines in the record.
#pragma once

#include <memory>

#include "kestrane/buffers.h"
#include "python/src/arrays.h"

namespace kestrane::python {

using CoefficientOwner = std::unique_ptr<LASER_COMPENSATOR_COEFFS_MANAGER>;

// A record of its own, with all that the arrays hold.
CoefficientOwner coefficients_of(py::handle source);

// A record of the same size, without data.
CoefficientOwner carved_like(const _COMPENSATOR_COEFFS& record);

// `factory_to_user` of slots that the record does not use are as they stand there.
py::dict pack_coefficients(const _COMPENSATOR_COEFFS& record);

}  // namespace kestrane::python
