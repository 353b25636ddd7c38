// Refinement: a table that follows the bow of the sheets, from the same points.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "kestrane/quality/factory.h"
#include "kestrane/quality/refinement.h"
#include "simulation/scanner.h"

namespace {

using kestrane::quality::PlaneTable;
using kestrane::quality::PointList;

constexpr int kPlanes = 3;
constexpr int kThreads = 2;
constexpr double kLargestError = 0.02;  // of 0.05 of noise a point; plain tables are off by 0.2

// In a real host: the device. Each point carries the number of its capture frame.
std::vector<PointList> measure(const std::vector<simulation::Sheet>& sheets) {
  std::vector<PointList> clouds;
  simulation::CloudSettings settings;
  settings.frames = 20;
  for (const simulation::Sheet& sheet : sheets) {
    ++settings.seed;
    clouds.push_back(simulation::measure(sheet, settings).points);
  }
  return clouds;
}

bool calibrate(const std::vector<PointList>& clouds, PlaneTable& table) {
  // [snippet]
  const kestrane::quality::RefinedDevice refined =
      kestrane::quality::refine(clouds, {}, kThreads);  // same bits on any number of threads
  for (const kestrane::quality::RefinedPlane& plane : refined.planes) {
    if (!plane.refused.empty()) {
      std::printf("no plane: %s\n", plane.refused.c_str());
      return false;
    }
    std::printf("%d frames, %s, %.4f to expect on new frames\n", plane.frames_used,
                plane.plane_only ? "which support a plane only" : "which support a bent sheet",
                plane.cross_validated_rms);
  }
  table = refined.table;
  // [snippet end]
  return true;
}

// The largest distance in x between a table and the sheets where they were measured.
double largest_error(const std::vector<simulation::Sheet>& sheets, const PlaneTable& table) {
  double largest = 0.0;
  for (std::size_t p = 0; p < sheets.size(); ++p) {
    for (int depth = 160; depth <= 960; depth += 20) {
      for (int tenths = -5; tenths <= 5; ++tenths) {
        const double z = depth;
        const double y = 0.1 * tenths * z;
        const double x = table.x_at(static_cast<std::int32_t>(p), y, z);
        largest = std::max(largest, std::abs(x - simulation::sheet_x(sheets[p], y, z)));
      }
    }
  }
  return largest;
}

}  // namespace

int main() {
  simulation::DeviceSettings device;
  device.planes = kPlanes;
  const std::vector<simulation::Sheet> sheets = simulation::make_device(device);
  const std::vector<PointList> clouds = measure(sheets);
  PlaneTable table;
  if (!calibrate(clouds, table)) return 1;
  const kestrane::quality::FactoryResult plain =
      kestrane::quality::calibrate_factory(kestrane::quality::clouds_of(clouds));
  const double error = largest_error(sheets, table);
  std::printf("off the sheets by %.4f at most, the plain table by %.4f\n", error,
              largest_error(sheets, plain.table));
  return error <= kLargestError ? 0 : 1;
}
