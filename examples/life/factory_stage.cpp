// Clouds of all planes, with points of every bad kind, become a table; with and without the
// refinement of the grid corners, each held against the true sheets.
#include <cstdio>

#include "examples/life/life.h"

namespace device_life {
namespace {

using kestrane::quality::FactoryResult;
using Clouds = std::vector<kestrane::quality::PointList>;

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

// The whole device, in one call: screened, calibrated and measured.
FactoryResult calibrate(const Life& life, const Clouds& clouds, bool optimise) {
  kestrane::quality::FactorySettings settings;
  settings.optimise = optimise;
  settings.repeatability = optimise == life.options.optimise;  // of the table that goes on
  const char* doing = optimise ? "refining plane" : "calibrating plane";
  return kestrane::quality::calibrate_factory(
      kestrane::quality::clouds_of(clouds), settings, [&](std::int32_t plane, _KESTRANE_STATUS) {
        show_progress(doing, plane + 1, life.options.planes);
      });
}

// How far a table's x is from the sheet's, at the middles of the cells that had points.
Spread table_error(const Life& life, const PlaneTable& table, int plane) {
  Spread error;
  for (int j = 0; j < PlaneTable::kLines; ++j) {
    for (int k = 0; k < PlaneTable::kCells; ++k) {
      if (!had_points(life, plane, j, k)) continue;
      const simulation::CellMiddle at = simulation::cell_middle(table.grids(), j, k);
      const Sheet& sheet = life.sheets[static_cast<std::size_t>(plane)];
      error.add(simulation::plane_x(table.cell(plane, {j, k}), at.y, at.z) -
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

void report_factory(Life& life, const FactoryResult& plain_run, const FactoryResult& refined_run) {
  std::printf(
      "\nFactory calibration: error of the table's x at the middles of measured cells, mm\n");
  std::printf("%5s %6s %7s %7s | %23s | %23s\n", "", "", "", "", "plain grid corners",
              "refined grid corners");
  std::printf("%5s %6s %7s %7s | %7s %7s %7s | %7s %7s %7s\n", "plane", "cells", "noise", "bow",
              "rms", "bound", "largest", "rms", "bound", "largest");
  Spread plain;
  Spread refined;
  double plain_step = 0.0;
  double refined_step = 0.0;
  for (int p = 0; p < life.options.planes; ++p) {
    const Spread before = table_error(life, plain_run.table, p);
    const Spread after = table_error(life, refined_run.table, p);
    report_factory_plane(life, p, before, after);
    plain.add(before);
    refined.add(after);
    const auto index = static_cast<std::size_t>(p);
    plain_step = std::max(plain_step, plain_run.planes[index].median_seam);
    refined_step = std::max(refined_step, refined_run.planes[index].median_seam);
  }
  if (life.options.planes > 3) {
    std::printf("  Every fourth plane was measured over a part of the fan: it has fewer cells.\n");
  }
  std::printf(
      "  Refined grid corners follow the bow (rms %.4f against %.4f), at the price of steps\n"
      "  between neighbouring cells (median up to %.4f against %.4f): a choice of the host. The\n"
      "  device keeps the table with %s corners%s.\n",
      refined.rms(), plain.rms(), refined_step, plain_step,
      life.options.optimise ? "refined" : "plain",
      life.options.optimise ? "" : "; --optimise takes the other one");
  life.seen.table_error = life.options.optimise ? refined.rms() : plain.rms();
}

}  // namespace

bool factory_stage(Life& life) {
  Clouds clouds;
  for (int p = 0; p < life.options.planes; ++p) clouds.push_back(factory_cloud(life, p).points);
  FactoryResult plain = calibrate(life, clouds, false);
  FactoryResult refined = calibrate(life, clouds, true);
  life.factory = life.options.optimise ? refined : plain;
  const kestrane::quality::Judgement judgement = kestrane::quality::judge(life.factory, limits());
  keep_findings(life, judgement);
  const kestrane::quality::Finding& planes = *judgement.find("planes");
  if (planes.level == kestrane::quality::Level::kBad) {
    std::printf("\nFactory calibration: %s\n", planes.text.c_str());
    ++life.troubles;
    return false;
  }
  report_factory(life, plain, refined);
  life.table = life.factory.table;
  return true;
}

}  // namespace device_life
