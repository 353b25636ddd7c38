// The rooms of the module `_core`. Each adds its functions; none is public: arguments are arrays in
// the very form that the libraries take, and the Python sources of the package see to that.
#pragma once

#include <pybind11/pybind11.h>

namespace kestrane::python {

void add_errors(pybind11::module_& module);
void add_tables(pybind11::module_& module);
void add_factory(pybind11::module_& module);
void add_field(pybind11::module_& module);
void add_compensation(pybind11::module_& module);
void add_safe_factory(pybind11::module_& module);
void add_safe_field(pybind11::module_& module);
void add_coefficients(pybind11::module_& module);
void add_screening(pybind11::module_& module);
void add_judgement(pybind11::module_& module);
void add_files(pybind11::module_& module);
void add_lzf(pybind11::module_& module);

}  // namespace kestrane::python
