// The life of a simulated device, from the factory on: calibrates its planes from measured clouds,
// and compensates the table for a warmer device, each time against the known truth.
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "examples/arguments.h"
#include "examples/host_table.h"
#include "kestrane/buffers.h"
#include "kestrane/compensator.h"
#include "kestrane/factory_calib.h"
#include "simulation/scanner.h"

namespace {

using examples::HostTable;
using simulation::Sheet;

constexpr double kNoise = 0.05;  // standard deviation of a measured x
constexpr double kBow = 0.4;     // most that a sheet bows, within the depths that are measured

constexpr char kUsage[] =
    "usage: device_life [--planes N] [--points N] [--optimise] [--seed N]\n"
    "  --planes N   laser planes of the device, 1 to 100 (8)\n"
    "  --points N   points measured per plane, 1 to 1000000; fewer than 3000 leave sectors without "
    "a fit (20000)\n"
    "  --optimise   keep the table with refined grid corners for what follows\n"
    "  --seed N     of the device and its noise (1)\n"
    "Exit status 0: every call succeeded and every error is within its bound; 1: not so;\n"
    "2: the command line was not understood.\n";

struct Options {
  int planes = 8;
  int points = 20000;
  bool optimise = false;
  std::uint32_t seed = 1;
};

// What the device has been through so far.
struct Life {
  explicit Life(const Options& chosen) : options(chosen), table(chosen.planes) {}

  Options options;
  std::vector<Sheet> sheets;
  HostTable table;   // the one that the device keeps
  int troubles = 0;  // calls that failed and errors beyond their bounds
};

// --- Small help ---------------------------------------------------------------------------------

// Notes a call that failed; true when it succeeded.
bool succeeded(Life& life, const char* call, _KESTRANE_STATUS status) {
  if (status == KESTRANE_OK) return true;
  std::printf("%s failed with status %d\n", call, static_cast<int>(status));
  ++life.troubles;
  return false;
}

// Notes an error beyond its bound; the mark stands at the end of the line.
const char* judged(Life& life, bool within) {
  if (within) return "";
  ++life.troubles;
  return "  <- beyond the bound";
}

// One line on standard error that overwrites itself on a terminal.
void show_progress(const char* what, int done, int all) {
  const bool terminal = isatty(STDERR_FILENO) != 0;
  std::fprintf(stderr, "%s%s %d of %d%s", terminal ? "\r" : "", what, done, all,
               terminal && done < all ? "" : "\n");
}

// Root mean square and largest size of a series.
struct Spread {
  double squares = 0.0;
  double largest = 0.0;
  int count = 0;

  void add(double value) {
    squares += value * value;
    largest = std::max(largest, std::abs(value));
    ++count;
  }
  double rms() const { return count > 0 ? std::sqrt(squares / count) : 0.0; }
};

// --- Factory ------------------------------------------------------------------------------------

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

// One calibration of the whole device: the calibrator, and the figures of its latest plane.
struct FactoryRun {
  kestrane::KESTRANE_LASER_FAC_CALIB calibrator;
  kestrane::LASER_PLANE_INDICATOR_MANAGER indicators;
  kestrane::LASER_PLANE_GRID_CORNERS_MANAGER corners;
  std::vector<std::vector<bool>> measured;  // per plane, its 15 x 50 cells that had points
};

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
  std::printf("%5s %6s %7s %7s | %23s | %23s\n", "", "", "", "", "before the optimisation",
              "after the optimisation");
  std::printf("%5s %6s %7s %7s | %7s %7s %7s | %7s %7s %7s\n", "plane", "cells", "noise", "bow",
              "rms", "bound", "largest", "rms", "bound", "largest");
  for (int p = 0; p < life.options.planes; ++p) {
    const auto index = static_cast<std::size_t>(p);
    const Sheet& sheet = life.sheets[index];
    report_factory_plane(life, p, table_error(sheet, plain_table, p, run.measured[index]),
                         table_error(sheet, refined_table, p, run.measured[index]));
  }
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

bool factory_stage(Life& life) {
  FactoryRun plain;
  FactoryRun refined;
  if (!calibrate_device(life, plain, refined)) return false;
  HostTable plain_table(life.options.planes);
  HostTable refined_table(life.options.planes);
  if (!succeeded(life, "get_laser_plane_infos",
                 plain.calibrator.get_laser_plane_infos(plain_table.infos())) ||
      !succeeded(life, "get_laser_plane_infos",
                 refined.calibrator.get_laser_plane_infos(refined_table.infos()))) {
    return false;
  }
  report_factory(life, plain, plain_table, refined_table);
  kestrane::KESTRANE_LASER_FAC_CALIB& kept =
      life.options.optimise ? refined.calibrator : plain.calibrator;
  return succeeded(life, "get_laser_plane_infos", kept.get_laser_plane_infos(life.table.infos()));
}

// --- Run time -----------------------------------------------------------------------------------

constexpr double kWarmer = 15.0;       // rise of the temperature, K
constexpr double kGrowth = 2.3e-5;     // of aluminium, per K
constexpr double kFanSpread = 2.0e-6;  // rad per plane step and K

_KESTRANE_COMPENSATE_PARAM warm_condition() {
  _KESTRANE_COMPENSATE_PARAM param = {};
  param.temperature_ref = 20.0;
  param.temperature = param.temperature_ref + kWarmer;
  param.scale_per_degree = kGrowth;
  param.temperature_spread = kFanSpread;
  return param;
}

// Distances are counted along the line from the camera to the emitter of the sheets.
_MRV_EXTRINSIC_PARAM emitter_direction() {
  return {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {simulation::DeviceSettings{}.baseline, 0.0, 0.0}};
}

bool compensate_table(Life& life, HostTable& warm) {
  const int planes = life.options.planes;
  kestrane::KESTRANE_LASER_COMPENSATOR compensator;
  return succeeded(life, "compensator init", compensator.init()) &&
         succeeded(life, "set_laser_plane_param",
                   compensator.set_laser_plane_param(life.table.infos())) &&
         succeeded(life, "set_extrinsic_matrix",
                   compensator.set_extrinsic_matrix(emitter_direction())) &&
         succeeded(life, "set_compensate_param",
                   compensator.set_compensate_param(warm_condition(), 0, planes)) &&
         succeeded(life, "compensate", compensator.compensate(0, planes)) &&
         succeeded(life, "get_compensate_result", compensator.get_compensate_result(warm.infos()));
}

// How far a plane moved at the middles of all cells.
struct Move {
  Spread known;
  Spread table;
  Spread difference;
};

Move move_of_plane(const Life& life, const HostTable& warm, int plane) {
  const Sheet& sheet = life.sheets[static_cast<std::size_t>(plane)];
  const simulation::Placement placement = simulation::warm_placement(
      sheet, plane, 0, life.options.planes, warm_condition(), emitter_direction());
  Move move;
  for (int j = 0; j < HostTable::kLines; ++j) {
    for (int k = 0; k < HostTable::kCells; ++k) {
      const simulation::CellMiddle at = simulation::cell_middle(life.table.grids(), j, k);
      const double known = simulation::sheet_x(sheet, placement, at.y, at.z) -
                           simulation::sheet_x(sheet, at.y, at.z);
      const double moved = simulation::plane_x(warm.cell(plane, j, k), at.y, at.z) -
                           simulation::plane_x(life.table.cell(plane, j, k), at.y, at.z);
      move.known.add(known);
      move.table.add(moved);
      move.difference.add(moved - known);
    }
  }
  return move;
}

// What the calibration's error in tilt makes of the move. A local plane that is tilted a little
// wrong meets the x axis in the wrong place; growth and rotation act on that place. A sheet's bow
// tilts a flat sector by as much as the first term says, the refinement a cell's plane by the last.
double bound_of_move(const Life& life, const Sheet& sheet, int plane) {
  const double tilted =
      8.0 * std::abs(sheet.bow_z) + 6.0 * kNoise + (life.options.optimise ? 120.0 * kNoise : 0.0);
  const double angle = kFanSpread * kWarmer * std::abs(plane - life.options.planes / 2);
  return tilted * (kGrowth * kWarmer + 2.0 * angle * std::abs(sheet.slope_z));
}

void report_move(Life& life, const HostTable& warm, int plane) {
  const Move move = move_of_plane(life, warm, plane);
  const double bound = bound_of_move(life, life.sheets[static_cast<std::size_t>(plane)], plane);
  std::printf("%5d | %7.4f %7.4f | %7.4f %7.4f | %7.4f %7.4f %7.4f%s\n", plane, move.known.rms(),
              move.known.largest, move.table.rms(), move.table.largest, move.difference.rms(),
              bound, move.difference.largest, judged(life, move.difference.rms() <= bound));
}

bool run_time_stage(Life& life) {
  HostTable warm(life.options.planes);
  if (!compensate_table(life, warm)) return false;
  std::printf("\nCompensation, device %.0f K warmer: move of x at the middles of all cells, mm\n",
              kWarmer);
  std::printf("%5s | %15s | %15s | %23s\n", "", "known expansion", "compensated", "difference");
  std::printf("%5s | %7s %7s | %7s %7s | %7s %7s %7s\n", "plane", "rms", "largest", "rms",
              "largest", "rms", "bound", "largest");
  for (int p = 0; p < life.options.planes; ++p) report_move(life, warm, p);
  return true;
}

// --- The whole life -----------------------------------------------------------------------------

void build_device(Life& life) {
  simulation::DeviceSettings settings;
  settings.planes = life.options.planes;
  settings.seed = life.options.seed;
  settings.bow = kBow;
  life.sheets = simulation::make_device(settings);
  std::printf(
      "Device %u: %d laser planes, %d points measured on each, noise %.3f mm, bow up to %.1f mm\n",
      life.options.seed, life.options.planes, life.options.points, kNoise, kBow);
  std::printf("The table with %s grid corners goes on.\n",
              life.options.optimise ? "refined" : "plain");
}

// Exit status for a command line that asks for none of the life; none to live on.
std::optional<int> read_options(int argc, char** argv, Options& options) {
  examples::Arguments arguments(argc, argv);
  while (const auto name = arguments.next()) {
    bool understood = true;
    if (*name == "--help") {
      std::fputs(kUsage, stdout);
      return examples::kExitOk;
    }
    if (*name == "--planes") {
      understood = arguments.read_number(*name, 1, 100, options.planes);
    } else if (*name == "--points") {
      understood = arguments.read_number(*name, 1, 1000000, options.points);
    } else if (*name == "--seed") {
      understood = arguments.read_number<std::uint32_t>(*name, 0, 4294967295u, options.seed);
    } else if (*name == "--optimise") {
      options.optimise = true;
    } else {
      std::fprintf(stderr, "unknown argument: %s\n", std::string(*name).c_str());
      understood = false;
    }
    if (!understood) {
      std::fputs(kUsage, stderr);
      return examples::kExitUsage;
    }
  }
  return std::nullopt;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  const std::optional<int> early = read_options(argc, argv, options);
  if (early) return *early;

  Life life(options);
  build_device(life);
  const bool lived = factory_stage(life) && run_time_stage(life);
  if (lived && life.troubles == 0) {
    std::printf("\nAll calls succeeded, all RMS errors are within their bounds.\n");
    return examples::kExitOk;
  }
  std::printf("\nTroubles: %d\n", life.troubles);
  return examples::kExitFailed;
}
