// Field calibration in its safe form: what moved, how surely, and whether it may be used.
#include <cmath>
#include <cstdio>
#include <vector>

#include "kestrane/quality/field.h"
#include "kestrane/quality/findings.h"
#include "simulation/scanner.h"

namespace {

using kestrane::quality::FieldResult;
using kestrane::quality::PlaneTable;
using kestrane::quality::PointList;
using simulation::Sheet;

// What happened to the device: 0.2 milliradian about y and z, and 0.15 across the sheets.
simulation::Placement knock() {
  return simulation::rigid_motion({0.0, 2e-4, -2e-4}, {0.15, 0.0, -0.1});
}

// The table that the host has kept since the factory. In a real host: read from its file.
PlaneTable stored_table(const std::vector<Sheet>& sheets) {
  PlaneTable table(static_cast<std::int32_t>(sheets.size()));
  for (std::size_t p = 0; p < sheets.size(); ++p) {
    simulation::fill_true_table(sheets[p], {}, table.grids(), table.record().planes[p].block);
  }
  return table;
}

// One list per plane; a point's id is the number of its capture frame. In a real host: the device.
std::vector<PointList> measure_frames(const std::vector<Sheet>& sheets) {
  std::vector<PointList> frames;
  simulation::CloudSettings settings = simulation::field_cloud_settings();
  settings.frame_noise = 0.03;
  for (const Sheet& sheet : sheets) {
    ++settings.seed;
    frames.push_back(simulation::measure(sheet, knock(), settings).points);
  }
  return frames;
}

// Tells what was found, and leaves in `motion` what the host may apply. False where it may apply
// nothing.
bool calibrate(const PlaneTable& table, const std::vector<PointList>& frames, FieldResult& field,
               _MRV_EXTRINSIC_PARAM& motion) {
  // [snippet]
  field = kestrane::quality::calibrate_field(table, frames);
  kestrane::quality::Limits limits;
  limits.rms = 0.15;
  limits.field_motion = 1.0;
  const kestrane::quality::Judgement judgement = kestrane::quality::judge(field, limits);
  for (const kestrane::quality::Finding& finding : judgement.findings) {
    std::printf("%-4s %s\n", name_of(finding.level), finding.text.c_str());
  }
  std::printf("%s\n", judgement.verdict.c_str());
  if (judgement.worst() == kestrane::quality::Level::kBad) return false;
  motion = field.smallest_motion;  // no part along what the points do not fix
  // [snippet end]
  return true;
}

simulation::Placement placement_of(const _MRV_EXTRINSIC_PARAM& motion) {
  simulation::Placement placement;
  for (int i = 0; i < 9; ++i) placement.R[i] = motion.R[i];
  placement.t = {motion.T[0], motion.T[1], motion.T[2]};
  return placement;
}

// How far apart the found and the true motion put the sheets, in x: root mean square.
double error_of(const std::vector<Sheet>& sheets, const _MRV_EXTRINSIC_PARAM& motion) {
  const simulation::Placement found = placement_of(motion);
  double squares = 0.0;
  int count = 0;
  for (const Sheet& sheet : sheets) {
    for (const double z : {244.5, 271.5, 298.5, 325.5}) {
      for (int tenths = -5; tenths <= 5; ++tenths) {
        const double y = 0.1 * tenths * z;
        const double off =
            simulation::sheet_x(sheet, found, y, z) - simulation::sheet_x(sheet, knock(), y, z);
        squares += off * off;
        ++count;
      }
    }
  }
  return std::sqrt(squares / count);
}

}  // namespace

int main() {
  const std::vector<Sheet> sheets = simulation::make_device({});
  FieldResult field;
  _MRV_EXTRINSIC_PARAM motion;
  if (!calibrate(stored_table(sheets), measure_frames(sheets), field, motion)) return 1;
  const double error = error_of(sheets, motion);
  std::printf("moved by %.3f +- %.3f; off the truth by %.3f\n", field.displacement.rms,
              field.displacement.sigma, error);
  return error <= 3.0 * field.displacement.sigma ? 0 : 1;
}
