// Coefficient calibration in its safe form: a device is measured at a condition, its line models
// follow, the record is stored checked, and a table at another condition comes from it.
//   safe_coefficients [FILE]   where the record goes (safe_coefficients.bin)
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "kestrane/buffers.h"
#include "kestrane/fast_calib.h"
#include "kestrane/quality/coefficients.h"
#include "kestrane/quality/factory.h"
#include "kestrane/quality/findings.h"
#include "kestrane/quality/storage.h"
#include "simulation/scanner.h"

namespace {

using kestrane::_COMPENSATOR_COEFFS;
using kestrane::_LASER_TRIPLE;
using kestrane::LASER_COMPENSATOR_COEFFS_MANAGER;
using kestrane::quality::FactoryResult;
using kestrane::quality::PlaneTable;
using kestrane::quality::PointList;

constexpr int kPlanes = 3;
constexpr double kMeasuredAt = 30.0;   // condition of the device while it was measured
constexpr double kUsedAt = 24.0;       // condition that a table is needed for
constexpr double kLargestError = 0.2;  // of 0.05 of noise a point, and sheets cut into flat cells

// In a real host: the device.
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

// The figures of a factory result in the records that the job takes.
void copy_into(const std::vector<_LASER_TRIPLE>& from, kestrane::_LASER_LINES_INFOS* planes) {
  auto next = from.begin();
  for (int p = 0; p < kPlanes; ++p) {
    for (std::int32_t j = 0; j < planes[p].count; ++j) {
      const kestrane::_LASER_LINE_INFOS& line = planes[p].lines[j];
      std::copy_n(next, line.count, line.cells);
      next += line.count;
    }
  }
}

// A record whose models do not depend on the condition: 0 t + 1 x - x0 = 0 at each corner.
void fill_first_models(const FactoryResult& factory, _COMPENSATOR_COEFFS& coeffs) {
  std::vector<_LASER_TRIPLE> models;
  for (const _LASER_TRIPLE& corner : factory.corners) models.push_back({{0.0, 1.0, -corner.v[0]}});
  copy_into(models, coeffs.opt_coeffs->planes);
}

// Stores the updated record and leaves the table at kUsedAt in `table`. False with the reason told.
bool update(const std::vector<PointList>& clouds, _COMPENSATOR_COEFFS& old, const std::string& path,
            PlaneTable& table) {
  kestrane::LASER_PLANE_INDICATOR_MANAGER indicators;
  kestrane::LASER_PLANE_GRID_CORNERS_MANAGER corners;
  LASER_COMPENSATOR_COEFFS_MANAGER owner;
  _COMPENSATOR_COEFFS* updated = nullptr;
  if (indicators.init(kPlanes) != KESTRANE_OK || corners.init(kPlanes) != KESTRANE_OK ||
      owner.init(kPlanes) != KESTRANE_OK ||
      owner.get_compensator_coeffs(kPlanes, updated) != KESTRANE_OK) {
    return false;
  }
  // [snippet]
  const FactoryResult measured =
      kestrane::quality::calibrate_factory(kestrane::quality::clouds_of(clouds));
  if (kestrane::quality::judge(measured).find("planes")->level != kestrane::quality::Level::kOk) {
    return false;  // a plane that failed has no corners to follow
  }
  copy_into(measured.indicators, indicators.planes);
  copy_into(measured.corners, corners.planes);
  kestrane::KestraneLaserFastCalibrator engine;  // this job needs no init
  if (engine.calib(indicators, corners, kMeasuredAt, old, *updated) != KESTRANE_OK) return false;
  kestrane::quality::save_coefficients(*updated, path);

  const auto stored = kestrane::quality::read_coefficients(path);
  const auto at_condition =
      kestrane::quality::table_of(kestrane::quality::corners_at(*stored, kUsedAt));
  if (!at_condition.refused.empty()) return false;
  table = at_condition.table;
  // [snippet end]
  return true;
}

// The largest distance in x between the table and the sheets where they were measured.
double largest_error(const std::vector<simulation::Sheet>& sheets, const PlaneTable& table) {
  double largest = 0.0;
  for (std::size_t p = 0; p < sheets.size(); ++p) {
    for (int depth = 250; depth <= 800; depth += 50) {
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

// Whether the record was stored and its table meets the device.
bool runs(const std::string& path) {
  simulation::DeviceSettings device;
  device.planes = kPlanes;
  const std::vector<simulation::Sheet> sheets = simulation::make_device(device);
  const std::vector<PointList> clouds = measure(sheets);
  LASER_COMPENSATOR_COEFFS_MANAGER owner;
  _COMPENSATOR_COEFFS* old = nullptr;
  if (owner.init(kPlanes) != KESTRANE_OK ||
      owner.get_compensator_coeffs(kPlanes, old) != KESTRANE_OK) {
    return false;
  }
  fill_first_models(kestrane::quality::calibrate_factory(kestrane::quality::clouds_of(clouds)),
                    *old);
  PlaneTable table;
  if (!update(clouds, *old, path, table)) return false;
  const double error = largest_error(sheets, table);
  std::printf("table of %d planes at condition %.0f, off its sheets by %.3f at most\n",
              table.planes(), kUsedAt, error);
  return error <= kLargestError;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return runs(argc > 1 ? argv[1] : "safe_coefficients.bin") ? 0 : 1;
  } catch (const std::exception& error) {  // a file, memory: the reason in words
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
