// Factory calibration: the shortest way from measured clouds to a plane table.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "kestrane/factory_calib.h"
#include "simulation/host_table.h"
#include "simulation/scanner.h"

namespace {

using simulation::HostTable;
using simulation::Sheet;

constexpr int kPlanes = 3;

// The sheets bow by up to 0.4, which a table of flat sectors follows in part.
constexpr double kLargestError = 0.4;

std::vector<Sheet> make_sheets() {
  simulation::DeviceSettings settings;
  settings.planes = kPlanes;
  return simulation::make_device(settings);
}

// In a real host: the device.
simulation::Cloud measure_plane(int plane) {
  simulation::CloudSettings settings;
  settings.seed = static_cast<std::uint64_t>(plane);
  return simulation::measure(make_sheets()[static_cast<std::size_t>(plane)], settings);
}

bool calibrate(HostTable& table) {
  // [snippet]
  kestrane::KESTRANE_LASER_FAC_CALIB calib;
  if (calib.init() != KESTRANE_OK) return false;
  for (int plane = 0; plane < kPlanes; ++plane) {
    simulation::Cloud cloud = measure_plane(plane);
    if (calib.factory_calib(plane, simulation::record_of(cloud)) != KESTRANE_OK) return false;
  }
  return calib.get_laser_plane_infos(table.infos()) == KESTRANE_OK;
  // [snippet end]
}

// How far the table's x is off the sheet, over the middles of the blocks at measured depths.
double largest_error(const HostTable& table, int plane) {
  const Sheet sheet = make_sheets()[static_cast<std::size_t>(plane)];
  double largest = 0.0;
  for (int j = 0; j < HostTable::kLines; ++j) {
    for (int k = 0; k < 31; ++k) {  // depths 150 to 987, measured are 100 to 1000
      const simulation::CellMiddle at = simulation::cell_middle(table.grids(), j, k);
      const double x = simulation::plane_x(table.cell(plane, j, k), at.y, at.z);
      largest = std::max(largest, std::abs(x - simulation::sheet_x(sheet, at.y, at.z)));
    }
  }
  return largest;
}

}  // namespace

int main() {
  HostTable table(kPlanes);
  if (!calibrate(table)) return 1;
  bool good = true;
  for (int plane = 0; plane < kPlanes; ++plane) {
    const double* abc = table.row(plane).laser_plane_R;
    const double error = largest_error(table, plane);
    std::printf("plane %d: %.6f x %+.6f y %+.6f z + 1 = 0, its blocks off by %.3f at most\n", plane,
                abc[0], abc[1], abc[2], error);
    good = good && error <= kLargestError;
  }
  return good ? 0 : 1;
}
