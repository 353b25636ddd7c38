// The shortest way from measured clouds to a plane table.
#include <cstdio>

#include "kestrane/factory_calib.h"
#include "simulation/host_table.h"
#include "simulation/scanner.h"

namespace {

simulation::Cloud measure_plane(int plane) {
  simulation::CloudSettings settings;
  settings.seed = static_cast<std::uint64_t>(plane);
  const auto sheets = simulation::make_device({});
  return simulation::measure(sheets[static_cast<std::size_t>(plane)], settings);
}

bool calibrate(int planes, simulation::HostTable& table) {
  // [first table]
  kestrane::KESTRANE_LASER_FAC_CALIB calib;
  if (calib.init() != KESTRANE_OK) return false;
  for (int plane = 0; plane < planes; ++plane) {
    simulation::Cloud cloud = measure_plane(plane);  // in a real host: the device
    if (calib.factory_calib(plane, simulation::record_of(cloud)) != KESTRANE_OK) return false;
  }
  return calib.get_laser_plane_infos(table.infos()) == KESTRANE_OK;
  // [first table end]
}

}  // namespace

int main() {
  constexpr int kPlanes = 3;
  simulation::HostTable table(kPlanes);
  if (!calibrate(kPlanes, table)) return 1;
  for (int plane = 0; plane < kPlanes; ++plane) {
    const double* abc = table.infos().planes[plane].laser_plane_R;
    std::printf("plane %d: %.6f x %+.6f y %+.6f z + 1 = 0\n", plane, abc[0], abc[1], abc[2]);
  }
  return 0;
}
