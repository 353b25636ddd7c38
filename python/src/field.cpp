// The field job as it is, in both forms, and the distances of its engine.
#include <Eigen/Geometry>
#include <cstring>
#include <limits>
#include <vector>

#include "kestrane/fast_calib.h"
#include "python/src/coefficients.h"
#include "python/src/engines.h"
#include "python/src/errors.h"
#include "python/src/module.h"
#include "python/src/tables.h"

namespace kestrane::python {
namespace {

using FieldJob = KESTRANE_LASER_FAST_CALIB;
using FieldEngine = KestraneLaserFastCalibrator;
using RowMajor3 = Eigen::Matrix<double, 3, 3, Eigen::RowMajor>;

// Where the library's range may lie: planes of the table, in order.
void require_range(const TableView& table, std::int32_t first, std::int32_t last) {
  if (first >= 0 && first <= last && last < table.planes()) return;
  throw py::value_error("planes " + std::to_string(first) + " to " + std::to_string(last) +
                        " of a table of " + std::to_string(table.planes()));
}

struct Motion {
  _MRV_TRANSFORM transform;
  double mean = 0.0;
  double max = 0.0;
  double deviation = 0.0;
};

py::dict pack_motion(const Motion& motion) {
  const double* const q = motion.transform.quaternion;
  const RowMajor3 rotation = Eigen::Quaterniond(q[3], q[0], q[1], q[2]).toRotationMatrix();
  py::dict fields;
  fields["R"] = copied(rotation.data(), 9, {3, 3});
  fields["t"] = copied(motion.transform.translation, 3, {3});
  fields["quaternion"] = copied(q, 4, {4});
  fields["mean"] = motion.mean;
  fields["max"] = motion.max;
  fields["half_mean_deviation"] = motion.deviation;
  return fields;
}

py::dict field_calibrate(const py::handle& table, const py::sequence& frames, std::int32_t first,
                         std::int32_t last) {
  const TableView standard(table);
  require_range(standard, first, last);
  const Clouds given(frames, "frames");
  Motion motion;
  _KESTRANE_STATUS status = KESTRANE_OK;
  {
    const py::gil_scoped_release unlocked;
    const Pool<FieldJob>::Lease job = pool_of<FieldJob>().take();
    job->set_laser_plane_standard(standard.record());
    status = job->fast_calib(given.lists(), first, last);
    if (status == KESTRANE_OK) {
      job->get_transform_param(motion.transform);
      job->get_calib_indicator(motion.mean, motion.max, motion.deviation);
    }
  }
  if (status != KESTRANE_OK) raise_status(status, "field_calibrate");
  return pack_motion(motion);
}

py::dict field_calibrate_coefficients(const py::handle& table, const py::sequence& frames,
                                      const py::handle& coefficients, std::int32_t first,
                                      std::int32_t last) {
  const TableView standard(table);
  require_range(standard, first, last);
  const Clouds given(frames, "frames");
  const CoefficientOwner in = coefficients_of(coefficients);
  const CoefficientOwner out = coefficients_of(coefficients);
  _KESTRANE_STATUS status = KESTRANE_OK;
  {
    const py::gil_scoped_release unlocked;
    const Pool<FieldEngine>::Lease engine = pool_of<FieldEngine>().take();
    engine->set_laser_plane_standard(standard.record());
    status = engine->calib_Rt(given.lists(), first, last, 0.0, *in, *out);
  }
  if (status != KESTRANE_OK) raise_status(status, "field_calibrate_coefficients");
  return pack_coefficients(*out);
}

// Of one plane, so one row of the table is all that the engine has to know.
py::array distances(const py::handle& table, std::int32_t plane, const py::handle& xyz,
                    const py::handle& rotation, const py::handle& translation) {
  const TableView standard(table);
  require_range(standard, plane, plane);
  const py::array points = checked<double>(xyz, "xyz", {kAny, 3});
  const py::array R = checked<double>(rotation, "R", {3, 3});
  const py::array t = checked<double>(translation, "t", {3});
  const py::ssize_t count = points.shape(0);
  std::vector<std::vector<double>> residuals(1);
  {
    const py::gil_scoped_release unlocked;
    _MRV_EXTRINSIC_PARAM motion;
    std::memcpy(motion.R, data_of<double>(R), sizeof motion.R);
    std::memcpy(motion.T, data_of<double>(t), sizeof motion.T);
    std::vector<Eigen::Matrix<double, 3, -1>> sets(1);
    sets[0].resize(3, count);
    std::memcpy(sets[0].data(), points.data(), static_cast<std::size_t>(count) * 24);
    // What stays as it is belongs to a point without a cell.
    residuals[0].assign(static_cast<std::size_t>(count), std::numeric_limits<double>::quiet_NaN());
    _MRV_LASER_PLANE_BLOCK_INFOS row = standard.record();
    row.planes += plane;
    row.plane_count = 1;
    const Pool<FieldEngine>::Lease engine = pool_of<FieldEngine>().take();
    engine->set_laser_plane_standard(row);
    engine->cal_residual(sets, 0, 0, motion, residuals);
  }
  return owned(std::move(residuals[0]), {count});
}

}  // namespace

void add_field(py::module_& module) {
  module.def("field_calibrate", &field_calibrate, py::arg("table"), py::arg("frames"),
             py::arg("first"), py::arg("last"));
  module.def("field_calibrate_coefficients", &field_calibrate_coefficients, py::arg("table"),
             py::arg("frames"), py::arg("coefficients"), py::arg("first"), py::arg("last"));
  module.def("distances", &distances, py::arg("table"), py::arg("plane"), py::arg("xyz"),
             py::arg("R"), py::arg("t"));
}

}  // namespace kestrane::python
