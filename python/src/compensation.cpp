// The compensation of a table.
#include <cstring>

#include "kestrane/compensator.h"
#include "python/src/engines.h"
#include "python/src/errors.h"
#include "python/src/module.h"
#include "python/src/tables.h"

namespace kestrane::python {
namespace {

py::array compensate(const py::handle& table, const py::handle& condition,
                     const py::handle& translation, std::int32_t first, std::int32_t last) {
  const TableView view(table);
  const py::array numbers = checked<double>(condition, "condition", {8});
  const py::array t = checked<double>(translation, "extrinsic_t", {3});
  if (first < 0 || first > last || last > view.planes()) {
    throw py::value_error("a range outside the table");
  }
  if (view.planes() == 0) throw py::value_error("a table without planes");
  const auto out = std::make_shared<quality::PlaneTable>(view.planes());
  _KESTRANE_STATUS status = KESTRANE_OK;
  {
    const py::gil_scoped_release unlocked;
    _KESTRANE_COMPENSATE_PARAM param;
    std::memcpy(&param, numbers.data(), sizeof param);
    _MRV_EXTRINSIC_PARAM extrinsic = {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 0, 0}};
    std::memcpy(extrinsic.T, t.data(), sizeof extrinsic.T);
    _MRV_LASER_PLANE_BLOCK_INFOS result = out->record();
    const Pool<KESTRANE_LASER_COMPENSATOR>::Lease job =
        pool_of<KESTRANE_LASER_COMPENSATOR>().take();
    status = job->set_laser_plane_param(view.record());
    if (status == KESTRANE_OK) status = job->set_extrinsic_matrix(extrinsic);
    if (status == KESTRANE_OK) status = job->set_compensate_param(param, first, last);
    if (status == KESTRANE_OK) status = job->compensate(first, last);
    if (status == KESTRANE_OK) status = job->get_compensate_result(result);
  }
  if (status != KESTRANE_OK) raise_status(status, "compensate");
  double* const cells = out->data();
  return array_over(out, cells, {out->planes(), kLines, kCells, 3});
}

}  // namespace

void add_compensation(py::module_& module) {
  module.def("compensate", &compensate, py::arg("table"), py::arg("condition"),
             py::arg("extrinsic_t"), py::arg("first"), py::arg("last"));
}

}  // namespace kestrane::python
