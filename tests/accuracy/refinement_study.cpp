#include "tests/accuracy/refinement_study.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "kestrane/factory_calib.h"
#include "kestrane/quality/plane_table.h"

namespace accuracy {
namespace {

using kestrane::_LASER_TRIPLE;
using kestrane::quality::Block;
using kestrane::quality::PlaneTable;
using Cells = std::vector<_LASER_TRIPLE>;

constexpr int kPlanes = 2;  // of each device
constexpr int kPlaces = 5;  // across and along a block
constexpr double kGhostSlope = 0.3;
constexpr int kBlocks = PlaneTable::kLines * PlaneTable::kCells;

double x_of(const _LASER_TRIPLE& abc, double y, double z) {
  return -(abc.v[1] * y + abc.v[2] * z + 1.0) / abc.v[0];
}

std::vector<char> blocks_with_points(const PlaneTable& table,
                                     const std::vector<_KESTRANE_ID_POINT3D>& points) {
  std::vector<char> filled(kBlocks);
  for (const _KESTRANE_ID_POINT3D& p : points) {
    const auto at = std::isnan(p.x) ? std::nullopt : table.lookup(p.y, p.z);
    if (at) filled[static_cast<std::size_t>(PlaneTable::kCells * at->line + at->cell)] = 1;
  }
  return filled;
}

// Errors at 5 x 5 places of every block that holds points.
void collect_errors(const Cells& cells, const Measured& measured, std::vector<double>& errors) {
  const PlaneTable table(1);
  const auto& grids = table.grids();
  const std::vector<char> filled = blocks_with_points(table, measured.points);
  for (int block = 0; block < kBlocks; ++block) {
    if (filled[static_cast<std::size_t>(block)] == 0) continue;
    const int line = block / PlaneTable::kCells;
    const int k = block % PlaneTable::kCells;
    for (int s = 0; s < kPlaces; ++s) {
      for (int t = 0; t < kPlaces; ++t) {
        const double y =
            grids.grid_y_start[k] + (line + (s + 0.5) / kPlaces) * grids.grid_y_step[k];
        const double z = grids.grid_z[k] + (t + 0.5) / kPlaces * grids.z_step;
        errors.push_back(x_of(cells[static_cast<std::size_t>(block)], y, z) -
                         simulation::sheet_x(measured.sheet, y, z));
      }
    }
  }
}

// Steps at the middles of the edges between neighbours that hold points.
void collect_steps(const Cells& cells, const Measured& measured, std::vector<double>& steps) {
  const PlaneTable table(1);
  const auto& grids = table.grids();
  const std::vector<char> filled = blocks_with_points(table, measured.points);
  const auto step = [&](int a, int b, double y, double z) {
    if (filled[static_cast<std::size_t>(a)] == 0 || filled[static_cast<std::size_t>(b)] == 0)
      return;
    steps.push_back(x_of(cells[static_cast<std::size_t>(a)], y, z) -
                    x_of(cells[static_cast<std::size_t>(b)], y, z));
  };
  for (int j = 0; j < PlaneTable::kLines; ++j) {
    for (int k = 0; k < PlaneTable::kCells; ++k) {
      const int block = PlaneTable::kCells * j + k;
      const auto y = [&](double line, int cell) {
        return grids.grid_y_start[cell] + line * grids.grid_y_step[cell];
      };
      if (j + 1 < PlaneTable::kLines) {
        // The look-up cuts a depth's blocks at the bounds of where it begins.
        step(block, block + PlaneTable::kCells, y(j + 1, k), grids.grid_z[k] + 0.5 * grids.z_step);
      }
      if (k + 1 < PlaneTable::kCells) {
        // The two rectangles are cut at different steps of y: halfway between their middles.
        step(block, block + 1, 0.5 * (y(j + 0.5, k) + y(j + 0.5, k + 1)), grids.grid_z[k + 1]);
      }
    }
  }
}

double rms_of(const std::vector<double>& values) {
  double squares = 0.0;
  for (const double v : values) squares += v * v;
  return std::sqrt(squares / static_cast<double>(values.size()));
}

double quantile(std::vector<double> values, double q) {
  for (double& v : values) v = std::abs(v);
  const auto at = values.begin() + static_cast<std::ptrdiff_t>(
                                       std::ceil(q * static_cast<double>(values.size())) - 1.0);
  std::nth_element(values.begin(), at, values.end());
  return *at;
}

// Moves what lies in the rectangle y 0 to 60, z 500 to 620 by the ghost's distance, a part of it.
void add_ghost(double distance, std::vector<_KESTRANE_ID_POINT3D>& points) {
  int n = 0;
  for (_KESTRANE_ID_POINT3D& p : points) {
    if (p.y < 0.0 || p.y > 60.0 || p.z < 500.0 || p.z > 620.0) continue;
    if (++n % 10 < 10 * kGhostSlope) p.x += distance;
  }
}

std::optional<Cells> factory_cells(bool optimise, std::vector<_KESTRANE_ID_POINT3D> points) {
  // One calibrator for the whole study: the block of each stays for the life of the process.
  static auto& calib = *[] {
    auto* made = new kestrane::KESTRANE_LASER_FAC_CALIB;
    made->init();
    return made;
  }();
  calib.set_optimize_flag(optimise ? kestrane::KESTRANE_OPTIM_ON : kestrane::KESTRANE_OPTIM_OFF);
  if (calib.factory_calib(0, {points.data(), static_cast<std::int32_t>(points.size())}) !=
      KESTRANE_OK)
    return std::nullopt;
  PlaneTable table(1);
  auto record = table.record();
  calib.get_laser_plane_infos(record);
  return Cells(&table.cell(0, {0, 0}), &table.cell(0, {0, 0}) + kBlocks);
}

}  // namespace

Scenario scenario(std::string name, int points) {
  Scenario result;
  result.name = std::move(name);
  result.cloud.points = points;
  result.cloud.frames = 20;
  return result;
}

Measured measure(const Scenario& scenario, std::uint64_t device, int plane, int run) {
  simulation::DeviceSettings settings;
  settings.planes = kPlanes;
  settings.seed = device;
  settings.bow = scenario.bow;
  Measured measured;
  measured.sheet = simulation::make_device(settings)[static_cast<std::size_t>(plane)];
  measured.sheet.ripple = scenario.ripple;
  measured.sheet.kink = scenario.kink;
  measured.sheet.edge = scenario.edge;
  simulation::CloudSettings cloud = scenario.cloud;
  cloud.seed =
      1000 * device + 10 * static_cast<std::uint64_t>(plane) + static_cast<std::uint64_t>(run);
  simulation::Cloud points = simulation::measure(measured.sheet, cloud);
  measured.points = std::move(points.points);
  measured.bad_frames = std::move(points.bad_frames);
  if (scenario.ghost != 0.0) add_ghost(scenario.ghost, measured.points);
  return measured;
}

std::optional<Cells> calibrate(Method method, const std::vector<_KESTRANE_ID_POINT3D>& points) {
  if (method == Method::kPlain) return factory_cells(false, points);
  if (method == Method::kOptimised) return factory_cells(true, points);
  const auto plane = kestrane::quality::refine_plane(points);
  if (!plane.refused.empty()) return std::nullopt;
  if (method == Method::kRefined) return plane.cells;
  const auto& w = plane.whole_plane;
  return Cells(kBlocks, _LASER_TRIPLE{{w[0], w[1], w[2]}});
}

double row_error(const Cells& cells, const Measured& measured) {
  std::vector<double> errors;
  collect_errors(cells, measured, errors);
  return rms_of(errors);
}

Scores study(const Scenario& scenario, Method method, int devices) {
  Scores scores;
  std::vector<double> errors, steps, differences;
  for (int device = 1; device <= devices; ++device) {
    for (int plane = 0; plane < kPlanes; ++plane) {
      const auto seed = static_cast<std::uint64_t>(device);
      const Measured first = measure(scenario, seed, plane, 0);
      const Measured second = measure(scenario, seed, plane, 1);
      const auto cells = calibrate(method, first.points);
      const auto again = calibrate(method, second.points);
      if (!cells || !again) continue;
      ++scores.planes;
      collect_errors(*cells, first, errors);
      collect_steps(*cells, first, steps);
      std::vector<double> one, two;
      collect_errors(*cells, first, one);
      Measured same_blocks = first;
      collect_errors(*again, same_blocks, two);
      for (std::size_t n = 0; n < one.size(); ++n)
        differences.push_back((one[n] - two[n]) / std::sqrt(2.0));
    }
  }
  if (scores.planes == 0) return scores;
  scores.rms = rms_of(errors);
  scores.p99 = quantile(errors, 0.99);
  scores.steps = rms_of(steps);
  scores.repeatability = rms_of(differences);
  return scores;
}

}  // namespace accuracy
