// The factory calibration in its safe form, and the refinement of a device.
#include "python/src/safe_factory.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <optional>

#include "kestrane/factory_calib.h"
#include "python/src/accounts.h"
#include "python/src/columns.h"
#include "python/src/engines.h"
#include "python/src/interrupts.h"
#include "python/src/module.h"
#include "python/src/tables.h"
#include "quality/side_by_side.h"

namespace kestrane::python {
namespace {

using quality::FactoryResult;
using quality::FactorySettings;
using quality::OptimisationFigures;
using quality::PlaneFigures;
using quality::PoseFigures;
using quality::RefinedPlane;
using quality::RefinementFigures;

using FactoryEngine = KESTRANE_LASER_FAC_CALIB;

void require_threads(std::int32_t threads) {
  if (threads < 1) throw py::value_error("threads has to be at least 1");
}

FactorySettings settings_of(const py::handle& source) {
  FactorySettings settings;
  settings.type = source.attr("far").cast<bool>() ? LASER_TYPE_FAR : LASER_TYPE_STANDARD;
  settings.optimise = source.attr("optimise").cast<bool>();
  settings.screen = source.attr("screen").cast<bool>();
  settings.gross = source.attr("gross").cast<double>();
  settings.repeatability = source.attr("repeatability").cast<bool>();
  const py::object volume = source.attr("volume");
  if (!volume.is_none()) settings.volume = volume_of(volume.attr("bounds").cast<py::tuple>());
  settings.refine = static_cast<quality::Refine>(source.attr("refine").attr("value").cast<int>());
  return settings;
}

// Figures of all blocks; a plane that failed has blocks without a plane.
std::vector<quality::BlockFigures> blocks_of(const FactoryResult& result) {
  std::vector<quality::BlockFigures> blocks;
  blocks.reserve(result.planes.size() * kBlocksOfPlane);
  for (const PlaneFigures& plane : result.planes) {
    blocks.insert(blocks.end(), plane.blocks.begin(), plane.blocks.end());
    if (plane.blocks.empty()) blocks.resize(blocks.size() + kBlocksOfPlane);
  }
  return blocks;
}

py::dict pack_planes(const std::vector<PlaneFigures>& planes) {
  py::dict columns = pack(planes, plane_fields);
  std::vector<double> shares;
  shares.reserve(planes.size());
  for (const PlaneFigures& plane : planes) shares.push_back(plane.outlier_share());
  columns["outlier_share"] = owned(std::move(shares), {static_cast<py::ssize_t>(planes.size())});
  return columns;
}

py::object pack_optimisation(const FactoryResult& result) {
  if (!result.settings.optimise) return py::none();
  const auto planes = static_cast<py::ssize_t>(result.planes.size());
  std::vector<OptimisationFigures> figures;
  std::vector<double> moves;
  for (const PlaneFigures& plane : result.planes) {
    const std::vector<double>& of_plane = plane.optimisation.corner_moves;
    moves.insert(moves.end(), of_plane.begin(), of_plane.end());
    if (of_plane.empty()) moves.insert(moves.end(), kCornersOfPlane, quality::kNotDetermined);
    figures.push_back(plane.optimisation);
  }
  py::dict columns = pack(figures, optimisation_fields);
  columns["corner_moves"] = owned(std::move(moves), {planes, kCornerLines, kCornerCells});
  return columns;
}

py::object pack_gain(const FactoryResult& result) {
  if (result.settings.refine == quality::Refine::kNone) return py::none();
  std::vector<OfPlane<RefinementFigures>> gains;
  py::list refused;
  for (std::size_t p = 0; p < result.planes.size(); ++p) {
    const std::optional<RefinementFigures>& gain = result.planes[p].refinement;
    if (!gain) continue;
    gains.push_back({static_cast<std::int32_t>(p), *gain});
    refused.append(gain->refused);
  }
  py::dict columns = pack(gains, gain_fields);
  columns["refused"] = refused;
  return columns;
}

py::dict pack_histogram(quality::ResidualHistogram&& histogram) {
  py::dict fields;
  fields["low"] = histogram.low;
  fields["width"] = histogram.width;
  fields["below"] = histogram.below;
  fields["above"] = histogram.above;
  const auto bins = static_cast<py::ssize_t>(histogram.counts.size());
  fields["counts"] = owned(std::move(histogram.counts), {bins});
  return fields;
}

py::object pack_refined_device(quality::RefinedDevice&& device) {
  if (device.planes.empty()) return py::none();
  py::dict columns = pack_refined(device.planes);
  columns["table"] = arrays_of(std::move(device.table));
  return columns;
}

// The status of each plane. That of a plane which the screening has refused is the one of a
// calibration that failed.
py::array statuses_of(const std::vector<PlaneFigures>& planes) {
  std::vector<std::int32_t> statuses;
  statuses.reserve(planes.size());
  for (const PlaneFigures& plane : planes) statuses.push_back(plane.status);
  return owned(std::move(statuses), {static_cast<py::ssize_t>(planes.size())});
}

py::dict pack_result(FactoryResult&& result) {
  const auto planes = static_cast<py::ssize_t>(result.table.planes());
  py::dict fields;
  py::list reasons;
  for (const PlaneFigures& plane : result.planes) reasons.append(plane.reason);
  std::vector<quality::PlaneAccount> accounts;
  accounts.reserve(result.planes.size());
  for (const PlaneFigures& plane : result.planes) accounts.push_back(plane.screening);
  const auto rows = static_cast<py::ssize_t>(result.planes.size());
  fields["refused"] = result.refused;
  fields["status"] = statuses_of(result.planes);
  fields["reasons"] = reasons;
  fields["planes"] = pack_planes(result.planes);
  fields["blocks"] = pack(blocks_of(result), Shape{rows, kLines, kCells}, block_fields);
  fields["poses"] = pack(
      joined<PoseFigures>(
          result.planes, 0, [](const PlaneFigures& plane) -> const auto& { return plane.poses; }),
      pose_fields);
  fields["screening"] = pack_accounts(accounts, 0);
  fields["optimisation"] = pack_optimisation(result);
  fields["refinement"] = pack_gain(result);
  fields["device"] = pack_one(result.device, residual_fields);
  fields["histogram"] = pack_histogram(std::move(result.histogram));
  fields["volume"] = pack_volume(result.volume);
  fields["refined"] = pack_refined_device(std::move(result.refined));
  fields["sectors_own"] = sectors_with_points(result.indicators, planes);
  fields["indicators"] = owned(std::move(result.indicators), {planes, kLines, kCells, 3});
  fields["corners"] = owned(std::move(result.corners), {planes, kCornerLines, kCornerCells, 3});
  fields["table"] = arrays_of(std::move(result.table));
  return fields;
}

py::dict calibrate_factory(const py::sequence& clouds, const py::handle& settings,
                           std::int32_t threads, const py::object& on_plane) {
  require_threads(threads);
  const Clouds given(clouds, "clouds");
  const FactorySettings wanted = settings_of(settings);
  FactoryResult result;
  {
    const py::gil_scoped_release unlocked;
    std::vector<Pool<FactoryEngine>::Lease> leases;
    std::vector<FactoryEngine*> engines;
    const std::size_t count = std::min<std::size_t>(
        static_cast<std::size_t>(threads), std::max<std::size_t>(given.records().size(), 1));
    for (std::size_t n = 0; n < count; ++n) {
      leases.push_back(pool_of<FactoryEngine>().take());
      engines.push_back(&*leases.back());
    }
    result = quality::calibrate_factory(engines, given.records(), wanted, reporter(on_plane));
  }
  return pack_result(std::move(result));
}

quality::RefinementSettings refinement_settings_of(const py::handle& source) {
  quality::RefinementSettings settings;
  settings.folds = source.attr("folds").cast<std::int32_t>();
  settings.significance = source.attr("significance").cast<double>();
  settings.cut = source.attr("cut").cast<double>();
  settings.frame_cut = source.attr("frame_cut").cast<double>();
  settings.depth_near = source.attr("depth_near").cast<double>();
  settings.depth_far = source.attr("depth_far").cast<double>();
  settings.frames = source.attr("frames").cast<bool>();
  return settings;
}

// The rows of the refined planes; that of a plane which was refused stays empty.
quality::PlaneTable table_of(const std::vector<RefinedPlane>& planes) {
  quality::PlaneTable table(static_cast<std::int32_t>(planes.size()));
  for (std::size_t p = 0; p < planes.size(); ++p) {
    if (planes[p].cells.empty()) continue;
    const auto row = static_cast<std::int32_t>(p);
    std::copy(planes[p].cells.begin(), planes[p].cells.end(), &table.cell(row, {0, 0}));
    std::copy(planes[p].whole_plane.begin(), planes[p].whole_plane.end(), table.whole_plane(row));
  }
  return table;
}

py::object refine(const py::sequence& clouds, const py::handle& settings, std::int32_t threads) {
  require_threads(threads);
  const Clouds given(clouds, "clouds");
  const std::vector<_KESTRANE_ID_POINT3DS>& records = given.records();
  if (records.empty()) throw py::value_error("no clouds");
  if (records.size() > static_cast<std::size_t>(quality::PlaneTable::kMostPlanes)) {
    throw py::value_error("a device has at most 100 planes, not " + std::to_string(records.size()));
  }
  const quality::RefinementSettings wanted = refinement_settings_of(settings);
  quality::RefinedDevice device;
  device.planes.resize(records.size());
  {
    const py::gil_scoped_release unlocked;
    quality::side_by_side(
        records.size(), static_cast<std::size_t>(threads),
        [&](std::size_t p, std::size_t) {
          device.planes[p] = quality::refine_plane(records[p], wanted);
        },
        [&](std::size_t) { serve_interrupts(); });
    device.table = table_of(device.planes);
  }
  return pack_refined_device(std::move(device));
}

void unpack_blocks(const py::handle& source, std::vector<PlaneFigures>& planes) {
  const auto rows = static_cast<py::ssize_t>(planes.size());
  const auto blocks =
      unpack<quality::BlockFigures>(source, Shape{rows, kLines, kCells}, block_fields);
  for (std::size_t p = 0; p < planes.size(); ++p) {
    if (!planes[p].reason.empty()) continue;
    const auto first = blocks.begin() + static_cast<std::ptrdiff_t>(p * kBlocksOfPlane);
    planes[p].blocks.assign(first, first + static_cast<std::ptrdiff_t>(kBlocksOfPlane));
  }
}

void unpack_optimisation(const py::handle& source, std::vector<PlaneFigures>& planes) {
  const auto rows = static_cast<py::ssize_t>(planes.size());
  const auto figures = unpack<OptimisationFigures>(source, Shape{rows}, optimisation_fields);
  const py::array moves = checked<double>(source.attr("corner_moves"), "corner_moves",
                                          {rows, kCornerLines, kCornerCells});
  for (std::size_t p = 0; p < planes.size(); ++p) {
    planes[p].optimisation = figures[p];
    if (!planes[p].reason.empty()) continue;
    const double* const first = data_of<double>(moves) + p * kCornersOfPlane;
    planes[p].optimisation.corner_moves.assign(first, first + kCornersOfPlane);
  }
}

void unpack_gain(const py::handle& source, std::vector<PlaneFigures>& planes) {
  auto gains = unpack<OfPlane<RefinementFigures>>(source, gain_fields);
  const std::vector<std::string> refused =
      texts_of(source.attr("refused"), "refused", gains.size());
  for (std::size_t n = 0; n < gains.size(); ++n) {
    gains[n].record.refused = refused[n];
    const std::int32_t plane = gains[n].plane;
    if (plane < 0 || static_cast<std::size_t>(plane) >= planes.size()) {
      throw py::value_error("figures of plane " + std::to_string(plane) + ", which is not there");
    }
    planes[static_cast<std::size_t>(plane)].refinement = gains[n].record;
  }
}

}  // namespace

py::array sectors_with_points(const std::vector<_LASER_TRIPLE>& indicators, py::ssize_t planes) {
  py::array_t<bool> own({planes, kLines});
  bool* const out = own.mutable_data();
  for (std::size_t line = 0; line < static_cast<std::size_t>(planes * kLines); ++line) {
    const auto first = indicators.begin() + static_cast<std::ptrdiff_t>(line * kCells);
    // Not a number in a plane that failed: such a sector has no points of its own either.
    out[line] = std::any_of(first, first + kCells, [](const _LASER_TRIPLE& block) {
      return block.v[0] < 0.0 || block.v[0] > 0.0 || block.v[1] < 0.0 || block.v[1] > 0.0 ||
             block.v[2] < 0.0 || block.v[2] > 0.0;
    });
  }
  return own;
}

FactoryResult factory_result_of(const py::handle& source) {
  FactoryResult result;
  result.refused = source.attr("refused").cast<std::string>();
  result.settings = settings_of(source.attr("settings"));
  result.volume = volume_of(source.attr("volume").attr("bounds").cast<py::tuple>());
  result.device = unpack_one<quality::ResidualFigures>(source.attr("device"), residual_fields);
  std::vector<PlaneFigures>& planes = result.planes;
  planes = unpack<PlaneFigures>(source.attr("planes"), plane_fields);
  const auto rows = static_cast<py::ssize_t>(planes.size());
  const std::vector<std::string> reasons =
      texts_of(source.attr("reasons"), "reasons", planes.size());
  const py::array statuses = checked<std::int32_t>(source.attr("status"), "status", {rows});
  std::vector<quality::PlaneAccount> accounts = unpack_accounts(source.attr("screening"), 0);
  if (accounts.size() != planes.size()) throw py::value_error("not one account for each plane");
  for (std::size_t p = 0; p < planes.size(); ++p) {
    planes[p].reason = reasons[p];
    planes[p].status = static_cast<_KESTRANE_STATUS>(data_of<std::int32_t>(statuses)[p]);
    planes[p].screening = std::move(accounts[p]);
  }
  deal_out(
      unpack<OfPlane<PoseFigures>>(source.attr("poses"), pose_fields), 0, planes,
      [](PlaneFigures & plane) -> auto& { return plane.poses; });
  unpack_blocks(source.attr("blocks"), planes);
  const py::object optimisation = source.attr("optimisation");
  if (!optimisation.is_none()) unpack_optimisation(optimisation, planes);
  const py::object refinement = source.attr("refinement");
  if (!refinement.is_none()) unpack_gain(refinement, planes);
  return result;
}

void add_safe_factory(py::module_& module) {
  module.def("calibrate_factory", &calibrate_factory, py::arg("clouds"), py::arg("settings"),
             py::arg("threads"), py::arg("on_plane"));
  module.def("refine", &refine, py::arg("clouds"), py::arg("settings"), py::arg("threads"));
}

}  // namespace kestrane::python
