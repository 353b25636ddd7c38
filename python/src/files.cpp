// Checked saving and reading of both files.
#include <string>

#include "kestrane/quality/storage.h"
#include "python/src/coefficients.h"
#include "python/src/module.h"
#include "python/src/tables.h"

namespace kestrane::python {
namespace {

// Largest move of x by the six digits, and where: (move, plane, line, step).
py::tuple save_table(const py::handle& table, const std::string& path) {
  const TableView view(table);
  quality::SavedTable saved;
  {
    const py::gil_scoped_release unlocked;
    saved = quality::save_table(view.copy(), path);
  }
  return py::make_tuple(saved.largest_move, saved.plane, saved.block.line, saved.block.cell);
}

py::tuple read_table(const std::string& path) {
  quality::PlaneTable table;
  {
    const py::gil_scoped_release unlocked;
    table = quality::read_table(path);
  }
  return arrays_of(std::move(table));
}

void save_coefficients(const py::handle& coefficients, const std::string& path) {
  const CoefficientOwner record = coefficients_of(coefficients);
  const py::gil_scoped_release unlocked;
  quality::save_coefficients(*record, path);
}

py::dict read_coefficients(const std::string& path) {
  CoefficientOwner record;
  {
    const py::gil_scoped_release unlocked;
    record = quality::read_coefficients(path);
  }
  return pack_coefficients(*record);
}

}  // namespace

void add_files(py::module_& module) {
  module.def("save_table", &save_table, py::arg("table"), py::arg("path"));
  module.def("read_table", &read_table, py::arg("path"));
  module.def("save_coefficients", &save_coefficients, py::arg("coefficients"), py::arg("path"));
  module.def("read_coefficients", &read_coefficients, py::arg("path"));
}

}  // namespace kestrane::python
