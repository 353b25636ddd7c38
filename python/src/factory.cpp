// The factory job as it is: each cloud through an engine of its own, side by side.
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "kestrane/factory_calib.h"
#include "kestrane/quality/screening.h"
#include "python/src/arrays.h"
#include "python/src/engines.h"
#include "python/src/errors.h"
#include "python/src/interrupts.h"
#include "python/src/module.h"
#include "python/src/safe_factory.h"
#include "python/src/tables.h"
#include "quality/side_by_side.h"

namespace kestrane::python {
namespace {

using FactoryEngine = KESTRANE_LASER_FAC_CALIB;

// One table of a record over cells that stand in one piece.
class TableOver {
 public:
  TableOver(_LASER_TRIPLE* cells, py::ssize_t lines, py::ssize_t cells_of_line) {
    for (py::ssize_t j = 0; j < lines; ++j) {
      lines_.push_back({cells + j * cells_of_line, static_cast<std::int32_t>(cells_of_line)});
    }
  }
  _LASER_LINES_INFOS record() { return {lines_.data(), static_cast<std::int32_t>(lines_.size())}; }

 private:
  std::vector<_LASER_LINE_INFOS> lines_;
};

// What a run over all planes leaves. Planes touch nothing of one another.
struct Device {
  explicit Device(std::size_t planes)
      : table(static_cast<std::int32_t>(planes)),
        indicators(planes * kBlocksOfPlane, kNoTriple),
        corners(planes * kCornersOfPlane, kNoTriple),
        statuses(planes, KESTRANE_ERR_FAILED) {}

  quality::PlaneTable table;
  std::vector<_LASER_TRIPLE> indicators;
  std::vector<_LASER_TRIPLE> corners;
  std::vector<std::int32_t> statuses;
};

// Always in the engine's first row, which is read after a success alone: it may still hold what an
// earlier call left there.
void calibrate(FactoryEngine& engine, _KESTRANE_ID_POINT3DS points, std::size_t p, Device& device) {
  const _KESTRANE_STATUS status = engine.factory_calib(0, points);
  device.statuses[p] = status;
  if (status != KESTRANE_OK) return;
  const auto row = static_cast<std::int32_t>(p);

  TableOver blocks(&device.table.cell(row, {0, 0}), kLines, kCells);
  _LASER_PLANE_GRIDS grids{};
  _MRV_LASER_PLANE_BLOCK_INFO plane{blocks.record(), {}};
  _MRV_LASER_PLANE_BLOCK_INFOS infos{&plane, &grids, 1};
  engine.get_laser_plane_infos(infos);
  std::copy_n(plane.laser_plane_R, 3, device.table.whole_plane(row));

  TableOver indicator_table(&device.indicators[p * kBlocksOfPlane], kLines, kCells);
  TableOver corner_table(&device.corners[p * kCornersOfPlane], kCornerLines, kCornerCells);
  _LASER_LINES_INFOS indicator_lines = indicator_table.record();
  _LASER_LINES_INFOS corner_lines = corner_table.record();
  _LASER_PLANE_INDICATORS_INFOS indicators{&indicator_lines, 1, 1};
  _LASER_PLANE_GRID_CORNERS_INFOS corners{&corner_lines, 1, 1};
  engine.get_indicators(0, indicators, corners);
}

// What most likely led to the failure of a plane, as the screening sees it.
std::string likely_cause(_KESTRANE_ID_POINT3DS points, _LASER_TYPE type) {
  if (points.count == 0) return "no points";
  quality::CloudSettings settings;
  settings.laser_type = type;
  const quality::ScreenedCloud screened = quality::screen_cloud(points, settings);
  const std::int64_t outside = screened.account.dropped.not_finite + screened.account.dropped.depth;
  std::string cause = std::to_string(points.count - outside) + " of " +
                      std::to_string(points.count) + " points lie in the depth band";
  if (!screened.refused.empty()) cause += "; " + screened.refused;
  if (!screened.unit_hint.empty()) cause += "; " + screened.unit_hint;
  return cause;
}

[[noreturn]] void raise_plane(const Clouds& clouds, std::size_t p, _KESTRANE_STATUS status,
                              _LASER_TYPE type) {
  const std::string cause = likely_cause(clouds.records()[p], type);
  const py::gil_scoped_acquire locked;
  raise_status(status, "factory_calibrate", "plane " + std::to_string(p) + ": " + cause);
}

py::dict factory_calibrate(const py::sequence& clouds, bool optimise, bool far,
                           std::int32_t threads, const py::object& on_plane, bool strict) {
  const Clouds given(clouds, "clouds");
  const std::size_t planes = given.records().size();
  if (planes < 1 || planes > 100) throw py::value_error("a device has 1 to 100 planes");
  if (threads < 1) throw py::value_error("threads has to be at least 1");
  const _LASER_TYPE type = far ? LASER_TYPE_FAR : LASER_TYPE_STANDARD;
  Device device(planes);
  {
    const py::gil_scoped_release unlocked;
    const auto report = reporter(on_plane);
    std::vector<Pool<FactoryEngine>::Lease> engines;
    for (std::size_t n = 0; n < std::min(static_cast<std::size_t>(threads), planes); ++n) {
      engines.push_back(pool_of<FactoryEngine>().take());
      engines.back()->set_laser_type(type);
      engines.back()->set_optimize_flag(optimise ? KESTRANE_OPTIM_ON : KESTRANE_OPTIM_OFF);
    }
    quality::side_by_side(
        planes, engines.size(),
        [&](std::size_t p, std::size_t worker) {
          calibrate(*engines[worker], given.records()[p], p, device);
        },
        [&](std::size_t p) {
          const auto status = static_cast<_KESTRANE_STATUS>(device.statuses[p]);
          report(static_cast<std::int32_t>(p), status);
          if (strict && status != KESTRANE_OK) raise_plane(given, p, status, type);
        });
  }
  const auto rows = static_cast<py::ssize_t>(planes);
  py::dict fields;
  fields["status"] = owned(std::move(device.statuses), {rows});
  fields["sectors_own"] = sectors_with_points(device.indicators, rows);
  fields["indicators"] = owned(std::move(device.indicators), {rows, kLines, kCells, 3});
  fields["corners"] = owned(std::move(device.corners), {rows, kCornerLines, kCornerCells, 3});
  fields["table"] = arrays_of(std::move(device.table));
  return fields;
}

}  // namespace

void add_factory(py::module_& module) {
  module.def("factory_calibrate", &factory_calibrate, py::arg("clouds"), py::arg("optimise"),
             py::arg("far"), py::arg("threads"), py::arg("on_plane"), py::arg("strict"));
}

}  // namespace kestrane::python
