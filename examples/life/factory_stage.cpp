// Clouds of all planes, with points of every bad kind, become a table; with and without the
// refinement of the grid corners, each held against the true sheets.
#include <cstdio>
#include <utility>

#include "examples/life/life.h"

namespace device_life {
namespace {

// What a factory measures on one plane: a few points of every bad kind, and on every fourth plane
// only a part of the fan.
simulation::Cloud factory_cloud(const Life& life, int plane) {
  simulation::CloudSettings settings;
  settings.points = life.options.points;
  settings.seed = std::uint64_t{life.options.seed} * 1000 + static_cast<std::uint64_t>(plane);
  settings.noise = kNoise;
  settings.outlier_share = 0.01;
  settings.dropped_share = 0.01;
  settings.outside_share = 0.02;
  settings.frames = 40;
  if (plane % 4 == 3) settings.fan_low_degrees = -22.0;
  return simulation::measure(life.sheets[static_cast<std::size_t>(plane)], settings);
}

bool prepare(Life& life, kestrane::_KESTRANE_OPTIM_FLAG flag, FactoryRun& run) {
  return succeeded(life, "init", run.calibrator.init()) &&
         succeeded(life, "set_laser_type",
                   run.calibrator.set_laser_type(kestrane::LASER_TYPE_STANDARD)) &&
         succeeded(life, "set_optimize_flag", run.calibrator.set_optimize_flag(flag)) &&
         succeeded(life, "indicators init", run.indicators.init(life.options.planes)) &&
         succeeded(life, "corners init", run.corners.init(life.options.planes));
}

// A cell without points has three zeros for figures.
std::vector<bool> cells_with_points(const kestrane::_LASER_LINES_INFOS& figures) {
  std::vector<bool> measured;
  for (int j = 0; j < figures.count; ++j) {
    for (int k = 0; k < figures.lines[j].count; ++k) {
      const double* v = figures.lines[j].cells[k].v;
      measured.push_back(v[0] != 0.0 || v[1] != 0.0 || v[2] != 0.0);
    }
  }
  return measured;
}

bool calibrate_plane(Life& life, int plane, simulation::Cloud& cloud, FactoryRun& run) {
  if (!succeeded(life, "factory_calib",
                 run.calibrator.factory_calib(plane, simulation::record_of(cloud)))) {
    return false;
  }
  if (!succeeded(life, "get_indicators",
                 run.calibrator.get_indicators(plane, run.indicators, run.corners))) {
    return false;
  }
  run.measured.push_back(cells_with_points(run.indicators.planes[plane]));
  return true;
}

// How far a table's x is from the sheet's, at the middles of the cells that had points.
Spread table_error(const Sheet& sheet, const HostTable& table, int plane,
                   const std::vector<bool>& measured) {
  Spread error;
  for (int j = 0; j < HostTable::kLines; ++j) {
    for (int k = 0; k < HostTable::kCells; ++k) {
      if (!measured[static_cast<std::size_t>(j * HostTable::kCells + k)]) continue;
      const simulation::CellMiddle at = simulation::cell_middle(table.grids(), j, k);
      error.add(simulation::plane_x(table.cell(plane, j, k), at.y, at.z) -
                simulation::sheet_x(sheet, at.y, at.z));
    }
  }
  return error;
}

// How far neighbouring cells of a line's ray are apart at the depth where they meet, at the middle
// of their line.
void add_steps(const HostTable& table, int plane, const std::vector<bool>& measured,
               Spread& steps) {
  for (int j = 0; j < HostTable::kLines; ++j) {
    for (int k = 0; k + 1 < HostTable::kCells; ++k) {
      const auto cell = static_cast<std::size_t>(j * HostTable::kCells + k);
      if (!measured[cell] || !measured[cell + 1]) continue;
      const simulation::CellMiddle near = simulation::cell_middle(table.grids(), j, k);
      const simulation::CellMiddle far = simulation::cell_middle(table.grids(), j, k + 1);
      const double y = (near.y + far.y) / 2.0;
      const double z = (near.z + far.z) / 2.0;
      steps.add(simulation::plane_x(table.cell(plane, j, k + 1), y, z) -
                simulation::plane_x(table.cell(plane, j, k), y, z));
    }
  }
}

// What bow and noise explain of the table's RMS error. Without refinement a cell's plane blends the
// planes of two sectors, which are flat in depth where the sheet is bowed: a line through a
// parabola misses it by 0.30 of its height in RMS.
double bound_before(const Sheet& sheet) {
  return 0.36 * std::abs(sheet.bow_z) + 0.1 * std::abs(sheet.bow_y) + 0.5 * kNoise;
}

// Refined, a cell follows the third of its points that the refinement looks at; neighbours share
// corners and the search ends early, so some of the bow stays.
double bound_after(const Life& life, const Sheet& sheet, int cells) {
  const double looked_at = std::max(1.0, life.options.points / 3.0 / std::max(cells, 1));
  return 0.08 * std::abs(sheet.bow_z) + 3.0 * kNoise / std::sqrt(looked_at);
}

void report_factory_plane(Life& life, int plane, Spread before, Spread after) {
  const Sheet& sheet = life.sheets[static_cast<std::size_t>(plane)];
  const double before_bound = bound_before(sheet);
  const double after_bound = bound_after(life, sheet, after.count);
  const bool within =
      before.count > 0 && before.rms() <= before_bound && after.rms() <= after_bound;
  std::printf("%5d %6d %7.3f %7.3f | %7.4f %7.4f %7.4f | %7.4f %7.4f %7.4f%s\n", plane,
              before.count, kNoise, sheet.bow_z, before.rms(), before_bound, before.largest,
              after.rms(), after_bound, after.largest, judged(life, within));
}

void report_factory(Life& life, const FactoryRun& run, const HostTable& plain_table,
                    const HostTable& refined_table) {
  std::printf(
      "\nFactory calibration: error of the table's x at the middles of measured cells, mm\n");
  std::printf("%5s %6s %7s %7s | %23s | %23s\n", "", "", "", "", "plain grid corners",
              "refined grid corners");
  std::printf("%5s %6s %7s %7s | %7s %7s %7s | %7s %7s %7s\n", "plane", "cells", "noise", "bow",
              "rms", "bound", "largest", "rms", "bound", "largest");
  Spread plain;
  Spread refined;
  Spread plain_steps;
  Spread refined_steps;
  for (int p = 0; p < life.options.planes; ++p) {
    const auto index = static_cast<std::size_t>(p);
    const Sheet& sheet = life.sheets[index];
    const Spread before = table_error(sheet, plain_table, p, run.measured[index]);
    const Spread after = table_error(sheet, refined_table, p, run.measured[index]);
    report_factory_plane(life, p, before, after);
    plain.add(before);
    refined.add(after);
    add_steps(plain_table, p, run.measured[index], plain_steps);
    add_steps(refined_table, p, run.measured[index], refined_steps);
  }
  if (life.options.planes > 3) {
    std::printf("  Every fourth plane was measured over a part of the fan: it has fewer cells.\n");
  }
  std::printf(
      "  Refined grid corners follow the bow (rms %.4f against %.4f), at the price of steps\n"
      "  between neighbouring cells (rms %.4f against %.4f): a choice of the host. The device\n"
      "  keeps the table with %s corners%s.\n",
      refined.rms(), plain.rms(), refined_steps.rms(), plain_steps.rms(),
      life.options.optimise ? "refined" : "plain",
      life.options.optimise ? "" : "; --optimise takes the other one");
  life.seen.table_error = life.options.optimise ? refined.rms() : plain.rms();
}

bool calibrate_device(Life& life, FactoryRun& plain, FactoryRun& refined) {
  if (!prepare(life, kestrane::KESTRANE_OPTIM_OFF, plain)) return false;
  if (!prepare(life, kestrane::KESTRANE_OPTIM_ON, refined)) return false;
  for (int p = 0; p < life.options.planes; ++p) {
    show_progress("calibrating plane", p + 1, life.options.planes);
    simulation::Cloud cloud = factory_cloud(life, p);
    if (!calibrate_plane(life, p, cloud, plain) || !calibrate_plane(life, p, cloud, refined)) {
      std::printf("calibration ended at plane %d\n", p);
      return false;
    }
  }
  return true;
}

}  // namespace

bool factory_stage(Life& life) {
  auto plain = std::make_unique<FactoryRun>();
  auto refined = std::make_unique<FactoryRun>();
  if (!calibrate_device(life, *plain, *refined)) return false;
  HostTable plain_table(life.options.planes);
  HostTable refined_table(life.options.planes);
  if (!succeeded(life, "get_laser_plane_infos",
                 plain->calibrator.get_laser_plane_infos(plain_table.infos())) ||
      !succeeded(life, "get_laser_plane_infos",
                 refined->calibrator.get_laser_plane_infos(refined_table.infos()))) {
    return false;
  }
  report_factory(life, *plain, plain_table, refined_table);
  life.factory = std::move(life.options.optimise ? refined : plain);
  return succeeded(life, "get_laser_plane_infos",
                   life.factory->calibrator.get_laser_plane_infos(life.table.infos()));
}

}  // namespace device_life
