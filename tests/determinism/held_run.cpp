// A calibration through the shared library, its results as hexadecimal numbers on descriptor 3: the
// other outputs belong to whoever else writes.
// held_runs_test.cpp runs it in processes that may use one core or two.
//
//   held_run factory | field | small_field
#include <cstdio>
#include <string>

#include "kestrane/buffers.h"
#include "kestrane/factory_calib.h"
#include "kestrane/fast_calib.h"
#include "tests/determinism/held_scenes.h"

namespace {

constexpr int kResults = 3;

// One number a line, in a form that loses nothing.
void tell(const double* values, int count) {
  for (int i = 0; i < count; ++i) dprintf(kResults, "%a\n", values[i]);
}

bool run_factory() {
  simulation::Cloud cloud = held_scenes::factory_cloud();
  kestrane::KESTRANE_LASER_FAC_CALIB calib;
  kestrane::LASER_PLANE_INDICATOR_MANAGER indicators;
  kestrane::LASER_PLANE_GRID_CORNERS_MANAGER corners;
  fast_scene::Standard table(1);
  _MRV_LASER_PLANE_BLOCK_INFOS host = table.host();
  const bool done = calib.init() == KESTRANE_OK && indicators.init(1) == KESTRANE_OK &&
                    corners.init(1) == KESTRANE_OK &&
                    calib.set_optimize_flag(kestrane::KESTRANE_OPTIM_ON) == KESTRANE_OK &&
                    calib.factory_calib(0, simulation::record_of(cloud)) == KESTRANE_OK &&
                    calib.get_indicators(0, indicators, corners) == KESTRANE_OK &&
                    calib.get_laser_plane_infos(host) == KESTRANE_OK;
  if (!done) return false;
  for (int i = 0; i < 16; ++i) tell(corners.planes[0].lines[i].cells[0].v, 3 * 51);
  tell(host.planes[0].laser_plane_R, 3);
  for (int i = 0; i < 15; ++i) tell(host.planes[0].block.lines[i].cells[0].v, 3 * 50);
  return true;
}

bool run_field(int points_per_plane) {
  fast_scene::Standard standard(held_scenes::flat_sheets());
  kestrane::KESTRANE_LASER_FAST_CALIB calib;
  _MRV_TRANSFORM transform{};
  double indicators[3] = {};
  const bool done =
      calib.init() == KESTRANE_OK &&
      calib.set_laser_plane_standard(standard.host()) == KESTRANE_OK &&
      calib.fast_calib(held_scenes::field_lists(points_per_plane), 0, held_scenes::kPlanes - 1) ==
          KESTRANE_OK &&
      calib.get_transform_param(transform) == KESTRANE_OK &&
      calib.get_calib_indicator(indicators[0], indicators[1], indicators[2]) == KESTRANE_OK;
  if (!done) return false;
  tell(transform.quaternion, 4);
  tell(transform.translation, 3);
  tell(indicators, 3);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string job = argc == 2 ? argv[1] : "";
  if (job == "factory") return run_factory() ? 0 : 1;
  if (job == "field") return run_field(held_scenes::kManyPoints) ? 0 : 1;
  if (job == "small_field") return run_field(held_scenes::kFewPoints) ? 0 : 1;
  return 2;
}
