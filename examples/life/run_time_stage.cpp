// The kept table is compensated for a warmer device; how far its planes move is held against the
// known expansion.
#include <cstdio>

#include "examples/life/life.h"
#include "kestrane/compensator.h"

namespace device_life {
namespace {

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

bool compensate_table(Life& life, PlaneTable& warm) {
  const int planes = life.options.planes;
  _MRV_LASER_PLANE_BLOCK_INFOS result = warm.record();
  kestrane::KESTRANE_LASER_COMPENSATOR compensator;
  return succeeded(life, "compensator init", compensator.init()) &&
         succeeded(life, "set_laser_plane_param",
                   compensator.set_laser_plane_param(life.table.record())) &&
         succeeded(life, "set_extrinsic_matrix",
                   compensator.set_extrinsic_matrix(emitter_direction())) &&
         succeeded(life, "set_compensate_param",
                   compensator.set_compensate_param(warm_condition(), 0, planes)) &&
         succeeded(life, "compensate", compensator.compensate(0, planes)) &&
         succeeded(life, "get_compensate_result", compensator.get_compensate_result(result));
}

// How far a plane moved at the middles of all cells.
struct Move {
  Spread known;
  Spread table;
  Spread difference;
};

Move move_of_plane(const Life& life, const PlaneTable& warm, int plane) {
  const Sheet& sheet = life.sheets[static_cast<std::size_t>(plane)];
  const simulation::Placement placement = simulation::warm_placement(
      sheet, plane, 0, life.options.planes, warm_condition(), emitter_direction());
  Move move;
  for (int j = 0; j < PlaneTable::kLines; ++j) {
    for (int k = 0; k < PlaneTable::kCells; ++k) {
      const simulation::CellMiddle at = simulation::cell_middle(life.table.grids(), j, k);
      const double known = simulation::sheet_x(sheet, placement, at.y, at.z) -
                           simulation::sheet_x(sheet, at.y, at.z);
      const double moved = simulation::plane_x(warm.cell(plane, {j, k}), at.y, at.z) -
                           simulation::plane_x(life.table.cell(plane, {j, k}), at.y, at.z);
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

Move report_move(Life& life, const PlaneTable& warm, int plane) {
  const Move move = move_of_plane(life, warm, plane);
  const double bound = bound_of_move(life, life.sheets[static_cast<std::size_t>(plane)], plane);
  std::printf("%5d | %7.4f %7.4f | %7.4f %7.4f | %7.4f %7.4f %7.4f%s\n", plane, move.known.rms(),
              move.known.largest, move.table.rms(), move.table.largest, move.difference.rms(),
              bound, move.difference.largest, judged(life, move.difference.rms() <= bound));
  return move;
}

}  // namespace

bool run_time_stage(Life& life) {
  PlaneTable warm(life.options.planes);
  if (!compensate_table(life, warm)) return false;
  std::printf("\nCompensation, device %.0f K warmer: move of x at the middles of all cells, mm\n",
              kWarmer);
  std::printf("%5s | %15s | %15s | %23s\n", "", "known expansion", "compensated", "difference");
  std::printf("%5s | %7s %7s | %7s %7s | %7s %7s %7s\n", "plane", "rms", "largest", "rms",
              "largest", "rms", "bound", "largest");
  Spread known;
  Spread difference;
  for (int p = 0; p < life.options.planes; ++p) {
    const Move move = report_move(life, warm, p);
    known.add(move.known);
    difference.add(move.difference);
  }
  std::printf(
      "  Planes move differently: all grow by %.1e per K, and the fan opens about its middle "
      "plane.\n",
      kGrowth);
  life.seen.warm_move = known.rms();
  life.seen.warm_error = difference.rms();
  return true;
}

}  // namespace device_life
