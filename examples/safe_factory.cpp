// Factory calibration in its safe form: bad points taken out, every figure measured, and a verdict.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "kestrane/quality/factory.h"
#include "kestrane/quality/findings.h"
#include "simulation/scanner.h"

namespace {

using kestrane::quality::PlaneTable;
using kestrane::quality::PointList;
using simulation::Sheet;

// The sheets bow by up to 0.4, which a table of flat sectors follows in part.
constexpr double kLargestError = 0.4;

// One cloud per plane, with what a factory really measures: dropped points, points outside the
// depths, and a few that lie up to 200 off. In a real host: the device.
std::vector<PointList> measure_clouds(const std::vector<Sheet>& sheets) {
  simulation::CloudSettings settings;
  settings.frames = 20;
  settings.outlier_share = 0.002;
  settings.outlier_reach = 200.0;
  settings.dropped_share = 0.01;
  settings.outside_share = 0.01;
  std::vector<PointList> clouds;
  for (const Sheet& sheet : sheets) {
    ++settings.seed;
    clouds.push_back(simulation::measure(sheet, settings).points);
  }
  return clouds;
}

// Tells what came out, and leaves in `table` what the host may keep. False where it may keep none.
bool calibrate(const std::vector<PointList>& clouds, PlaneTable& table) {
  // [snippet]
  kestrane::quality::FactoryResult factory =
      kestrane::quality::calibrate_factory(kestrane::quality::clouds_of(clouds));
  kestrane::quality::Limits limits;
  limits.rms = 0.15;
  limits.coverage = 0.8;
  limits.repeatability = 0.05;
  const kestrane::quality::Judgement judgement = kestrane::quality::judge(factory, limits);
  for (const kestrane::quality::Finding& finding : judgement.findings) {
    std::printf("%-4s %-13s %s\n", name_of(finding.level), finding.id.c_str(),
                finding.text.c_str());
  }
  std::printf("%s\n", judgement.verdict.c_str());
  if (judgement.worst() == kestrane::quality::Level::kBad) return false;
  table = factory.table;  // owns its memory; table.record() goes into the other jobs and the files
  // [snippet end]
  return true;
}

// How far the table's x is off the sheets, over the middles of the blocks at measured depths.
double largest_error(const std::vector<Sheet>& sheets, const PlaneTable& table) {
  double largest = 0.0;
  for (std::int32_t p = 0; p < table.planes(); ++p) {
    for (std::int32_t j = 0; j < PlaneTable::kLines; ++j) {
      for (std::int32_t k = 0; k < 31; ++k) {  // depths 150 to 987, measured are 100 to 1000
        const auto [y, z] = table.block_middle({j, k});
        const double x = simulation::sheet_x(sheets[static_cast<std::size_t>(p)], y, z);
        largest = std::max(largest, std::abs(table.x_at(p, y, z) - x));
      }
    }
  }
  return largest;
}

}  // namespace

int main() {
  const std::vector<Sheet> sheets = simulation::make_device({});
  PlaneTable table;
  if (!calibrate(measure_clouds(sheets), table)) return 1;
  const double error = largest_error(sheets, table);
  std::printf("blocks of %d planes off the truth by %.3f at most\n", table.planes(), error);
  return error <= kLargestError ? 0 : 1;
}
