// The module `_simulation`: the simulated scanner, to try everything without a device.
#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <string>
#include <vector>

#include "python/src/arrays.h"
#include "simulation/scanner.h"

namespace kestrane::python {
namespace {

using simulation::Placement;
using simulation::Sheet;

void require(bool holds, const char* what) {
  if (!holds) throw py::value_error(what);
}

std::vector<Sheet> device_of(int planes, std::uint64_t seed, double bow) {
  require(planes >= 1 && planes <= 100, "a device has 1 to 100 planes");
  simulation::DeviceSettings settings;
  settings.planes = planes;
  settings.seed = seed;
  settings.bow = bow;
  return simulation::make_device(settings);
}

Placement placement_of(const std::vector<double>& motion) {
  require(motion.size() == 6, "a motion is three angles and three lengths");
  return simulation::rigid_motion({motion[0], motion[1], motion[2]},
                                  {motion[3], motion[4], motion[5]});
}

py::array array_of(const std::vector<_KESTRANE_ID_POINT3D>& points) {
  py::array array(point_type(), Shape{static_cast<py::ssize_t>(points.size())});
  if (!points.empty()) {
    std::memcpy(array.mutable_data(), points.data(), points.size() * sizeof points.front());
  }
  return array;
}

py::list measure(int planes, int points, std::uint64_t seed, double noise, double frame_noise,
                 int frames, bool field, double bow, const std::vector<double>& motion) {
  require(points >= 1, "points has to be at least 1");
  require(frames >= 1 && frames <= points, "frames has to be at least 1, and at most points");
  require(noise >= 0.0 && noise < 1e6, "noise has to be 0 or more");
  require(frame_noise >= 0.0 && frame_noise < 1e6, "frame_noise has to be 0 or more");
  const std::vector<Sheet> sheets = device_of(planes, seed, bow);
  const Placement placement = placement_of(motion);
  std::vector<std::vector<_KESTRANE_ID_POINT3D>> clouds;
  {
    const py::gil_scoped_release unlocked;
    for (std::size_t p = 0; p < sheets.size(); ++p) {
      simulation::CloudSettings settings =
          field ? simulation::field_cloud_settings() : simulation::CloudSettings();
      settings.points = points;
      settings.seed = seed * 1000 + p + (field ? 500 : 0);
      settings.noise = noise;
      settings.frame_noise = frame_noise;
      settings.frames = frames;
      clouds.push_back(simulation::measure(sheets[p], placement, settings).points);
    }
  }
  py::list arrays;
  for (const auto& cloud : clouds) arrays.append(array_of(cloud));
  return arrays;
}

py::array sheet_x(int planes, std::uint64_t seed, double bow, int plane, const py::handle& y,
                  const py::handle& z, const std::vector<double>& motion) {
  const std::vector<Sheet> sheets = device_of(planes, seed, bow);
  require(plane >= 0 && plane < planes, "the device has no such plane");
  const py::array ys = checked<double>(y, "y", {kAny});
  const py::array zs = checked<double>(z, "z", {ys.shape(0)});
  const Placement placement = placement_of(motion);
  std::vector<double> xs(static_cast<std::size_t>(ys.size()));
  for (std::size_t i = 0; i < xs.size(); ++i) {
    xs[i] = simulation::sheet_x(sheets[static_cast<std::size_t>(plane)], placement,
                                data_of<double>(ys)[i], data_of<double>(zs)[i]);
  }
  return owned(std::move(xs), {ys.size()});
}

}  // namespace
}  // namespace kestrane::python

PYBIND11_MODULE(_simulation, module) {
  namespace py = pybind11;
  using py::literals::operator""_a;
  const std::vector<double> still(6, 0.0);
  module.doc() = R"(A simulated laser-line scanner with known truth.

Private: for the command line and for tests. The same seed gives the same device and the same clouds.
Lengths in millimetres; a motion is three angles in radians (a rotation vector) and three lengths.)";
  module.def("measure", &kestrane::python::measure, "planes"_a = 8, "points"_a = 12000,
             "seed"_a = 1, "noise"_a = 0.05, "frame_noise"_a = 0.0, "frames"_a = 20,
             "field"_a = false, "bow"_a = 0.4, "motion"_a = still,
             R"(One cloud for each plane of a simulated device.

field    depths 220 to 350, as the field calibration wants them, instead of 100 to 1000
motion   where the device is now
returns  a list of (points,) POINT arrays)");
  module.def("sheet_x", &kestrane::python::sheet_x, "planes"_a, "seed"_a, "bow"_a, "plane"_a, "y"_a,
             "z"_a, "motion"_a = still, "x of the true sheet of a plane at (y, z): (n,) float64.");
}
