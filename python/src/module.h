// The rooms of the module `_core`. Each adds its functions; none is public: arguments are arrays in
// the very form that the libraries take, and the Python sources of the package see to that.
#pragma once

#include <pybind11/pybind11.h>

namespace kestrane::python {

void add_lzf(pybind11::module_& module);

}  // namespace kestrane::python
