// The module `_core`. Each room registers its own functions; see module.h.
#include "python/src/module.h"

#include <cstdio>
#include <iostream>

PYBIND11_MODULE(_core, module) {
  module.doc() = "The libraries kestrane and kestrane-quality over NumPy memory; see kestrane.";
#ifdef NDEBUG
  module.attr("release_build") = true;
#else
  module.attr("release_build") = false;
#endif
  kestrane::python::add_errors(module);
  kestrane::python::add_tables(module);
  kestrane::python::add_coefficients(module);
  kestrane::python::add_files(module);
  kestrane::python::add_screening(module);
  kestrane::python::add_factory(module);
  kestrane::python::add_field(module);
  kestrane::python::add_compensation(module);
  kestrane::python::add_safe_factory(module);
  kestrane::python::add_safe_field(module);
  kestrane::python::add_judgement(module);
  kestrane::python::add_lzf(module);
  module.def(
      "flush_output",
      [] {
        std::cout.flush();
        std::fflush(stdout);
      },
      "Hands on what the libraries have written to standard output.");
}
