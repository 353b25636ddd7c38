// Clouds of all planes, with points of every bad kind, become a table; plain, with optimised grid
// corners and refined, each held against the true sheets.
#include <algorithm>
#include <cstdio>

#include "examples/life/life.h"

namespace device_life {
namespace {

using kestrane::quality::FactoryResult;
using Clouds = std::vector<kestrane::quality::PointList>;

// Of the refined table's RMS error: noise over some thousand points, and outliers that lie within
// it.
constexpr double kRefinedBound = 0.01;

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
  const bool goes_on = optimise == life.options.optimise;  // its table is the one that is kept
  settings.repeatability = goes_on;
  settings.refine = goes_on ? kestrane::quality::Refine::kAll : kestrane::quality::Refine::kNone;
  const char* doing = optimise ? "optimising plane" : "calibrating plane";
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

// What bow and noise explain of the table's RMS error. Without the optimisation a cell's plane
// blends the planes of two sectors, which are flat in depth where the sheet is bowed: a line
// through a parabola misses it by 0.30 of its height in RMS.
double bound_before(const Sheet& sheet) {
  return 0.36 * std::abs(sheet.bow_z) + 0.1 * std::abs(sheet.bow_y) + 0.5 * kNoise;
}

// Optimised, a cell follows the third of its points that the optimisation looks at; neighbours
// share corners and the search ends early, so some of the bow stays.
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

void report_factory(Life& life, const FactoryResult& plain_run,
                    const FactoryResult& optimised_run) {
  std::printf(
      "\nFactory calibration: error of the table's x at the middles of measured cells, mm\n");
  std::printf("%5s %6s %7s %7s | %23s | %23s\n", "", "", "", "", "plain grid corners",
              "optimised grid corners");
  std::printf("%5s %6s %7s %7s | %7s %7s %7s | %7s %7s %7s\n", "plane", "cells", "noise", "bow",
              "rms", "bound", "largest", "rms", "bound", "largest");
  Spread plain;
  Spread optimised;
  double plain_step = 0.0;
  double optimised_step = 0.0;
  for (int p = 0; p < life.options.planes; ++p) {
    const Spread before = table_error(life, plain_run.table, p);
    const Spread after = table_error(life, optimised_run.table, p);
    report_factory_plane(life, p, before, after);
    plain.add(before);
    optimised.add(after);
    const auto index = static_cast<std::size_t>(p);
    plain_step = std::max(plain_step, plain_run.planes[index].median_seam);
    optimised_step = std::max(optimised_step, optimised_run.planes[index].median_seam);
  }
  if (life.options.planes > 3) {
    std::printf("  Every fourth plane was measured over a part of the fan: it has fewer cells.\n");
  }
  std::printf(
      "  Optimised grid corners follow the bow (rms %.4f against %.4f), at the price of steps\n"
      "  between neighbouring cells (median up to %.4f against %.4f): a choice of the host. The\n"
      "  device keeps the table with %s corners%s.\n",
      optimised.rms(), plain.rms(), optimised_step, plain_step,
      life.options.optimise ? "optimised" : "plain",
      life.options.optimise ? "" : "; --optimise takes the other one");
  life.seen.table_error = life.options.optimise ? optimised.rms() : plain.rms();
}

// The refined table of the same points, which the device does not keep: the jobs that follow are to
// show what the factory job's own table gives them.
void report_refinement(Life& life) {
  const kestrane::quality::RefinedDevice& refined = life.factory.refined;
  Spread error;
  double expected = 0.0;
  int planes = 0;
  for (int p = 0; p < life.options.planes; ++p) {
    const auto& plane = refined.planes[static_cast<std::size_t>(p)];
    if (!plane.refused.empty()) continue;
    error.add(table_error(life, refined.table, p));
    expected += plane.cross_validated_rms * plane.cross_validated_rms;
    ++planes;
  }
  if (planes == 0) return;
  const bool within = error.rms() <= kRefinedBound;
  std::printf(
      "  Refined from the same points, the table comes to rms %.4f, largest %.4f%s. On frames\n"
      "  that it has not seen it expects an error of %.4f, hardly more than their noise.\n",
      error.rms(), error.largest, judged(life, within), std::sqrt(expected / planes));
}

}  // namespace

bool factory_stage(Life& life) {
  Clouds clouds;
  for (int p = 0; p < life.options.planes; ++p) clouds.push_back(factory_cloud(life, p).points);
  FactoryResult plain = calibrate(life, clouds, false);
  FactoryResult optimised = calibrate(life, clouds, true);
  life.factory = life.options.optimise ? optimised : plain;
  const kestrane::quality::Judgement judgement = kestrane::quality::judge(life.factory, limits());
  keep_findings(life, judgement);
  const kestrane::quality::Finding& planes = *judgement.find("planes");
  if (planes.level == kestrane::quality::Level::kBad) {
    std::printf("\nFactory calibration: %s\n", planes.text.c_str());
    ++life.troubles;
    return false;
  }
  report_factory(life, plain, optimised);
  report_refinement(life);
  life.table = life.factory.table;
  return true;
}

}  // namespace device_life
