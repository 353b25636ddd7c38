// The module `_core`. Each room registers its own functions; see module.h.
#include "python/src/module.h"

PYBIND11_MODULE(_core, module) {
  module.doc() = "The libraries kestrane and kestrane-quality over NumPy memory; see kestrane.";
  kestrane::python::add_lzf(module);
}
