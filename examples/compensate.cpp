// Run-time compensation: the stored table for the device's present temperature.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "kestrane/compensator.h"
#include "simulation/scanner.h"
#include "simulation/true_table.h"

namespace {

using simulation::HostTable;
using simulation::Sheet;

constexpr int kPlanes = 8;

// A tangent plane that is carried along stays the tangent plane: rounding is all that is left.
constexpr double kLargestError = 1e-9;

// 15 degrees warmer than at calibration: growth as of aluminium, and the sheets open like a fan.
_KESTRANE_COMPENSATE_PARAM present_condition() {
  _KESTRANE_COMPENSATE_PARAM condition = {};
  condition.temperature = 35.0;
  condition.temperature_ref = 20.0;
  condition.scale_per_degree = 2.3e-5;
  condition.temperature_spread = 2e-6;
  return condition;
}

// A plane's distance from the origin counts along this translation, towards the sheets' emitter.
constexpr _MRV_EXTRINSIC_PARAM kExtrinsic = {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {120.0, 0.0, 0.0}};

bool compensate(HostTable& table, const _KESTRANE_COMPENSATE_PARAM& condition, HostTable& warm) {
  // [snippet]
  kestrane::KESTRANE_LASER_COMPENSATOR compensator;
  if (compensator.init() != KESTRANE_OK) return false;
  if (compensator.set_laser_plane_param(table.infos()) != KESTRANE_OK) return false;
  compensator.set_extrinsic_matrix(kExtrinsic);
  compensator.set_compensate_param(condition, 0, kPlanes);  // planes 0 to 7 form one fan
  compensator.compensate(0, kPlanes);                       // the last plane is not included
  return compensator.get_compensate_result(warm.infos()) == KESTRANE_OK;
  // [snippet end]
}

// How far the compensated planes are off the warm device, where its block middles are now.
double largest_error(const std::vector<Sheet>& sheets, const HostTable& warm,
                     const HostTable& table) {
  double largest = 0.0;
  for (int p = 0; p < kPlanes; ++p) {
    const Sheet& sheet = sheets[static_cast<std::size_t>(p)];
    const simulation::Placement placement =
        simulation::warm_placement(sheet, p, 0, kPlanes, present_condition(), kExtrinsic);
    for (int j = 0; j < HostTable::kLines; ++j) {
      for (int k = 0; k < HostTable::kCells; ++k) {
        const simulation::CellMiddle at = simulation::cell_middle(table.grids(), j, k);
        const simulation::Vec3 now =
            simulation::carry(placement, {simulation::sheet_x(sheet, at.y, at.z), at.y, at.z});
        const double x = simulation::plane_x(warm.cell(p, j, k), now.y, now.z);
        largest = std::max(largest, std::abs(x - now.x));
      }
    }
  }
  return largest;
}

}  // namespace

int main() {
  simulation::DeviceSettings settings;
  settings.planes = kPlanes;
  const std::vector<Sheet> sheets = simulation::make_device(settings);
  HostTable table = simulation::true_table(sheets);
  HostTable warm(kPlanes);
  if (table.size() != kPlanes || !compensate(table, present_condition(), warm)) return 1;
  const double error = largest_error(sheets, warm, table);
  std::printf("compensated planes off the warm device by %.1e at most\n", error);
  return error <= kLargestError ? 0 : 1;
}
