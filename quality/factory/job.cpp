#include "quality/factory/job.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "quality/cells.h"
#include "records/shapes.h"

namespace kestrane::quality {
namespace {

// A record's lines over cells that stand in one piece.
class LinesOver {
 public:
  LinesOver(std::vector<_LASER_TRIPLE>& cells, TableShape shape) {
    cells.resize(static_cast<std::size_t>(shape.lines * shape.cells));
    for (std::int32_t j = 0; j < shape.lines; ++j) {
      lines_.push_back({cells.data() + j * shape.cells, shape.cells});
    }
  }

  _LASER_LINES_INFOS record() { return {lines_.data(), static_cast<std::int32_t>(lines_.size())}; }

 private:
  std::vector<_LASER_LINE_INFOS> lines_;
};

void read_indicators(KESTRANE_LASER_FAC_CALIB& engine, JobRun& run) {
  LinesOver indicator_lines(run.indicators, kBlocks);
  LinesOver corner_lines(run.corners, kCorners);
  _LASER_LINES_INFOS indicator_table = indicator_lines.record();
  _LASER_LINES_INFOS corner_table = corner_lines.record();
  _LASER_PLANE_INDICATORS_INFOS indicators{&indicator_table, 1, 1};
  _LASER_PLANE_GRID_CORNERS_INFOS corners{&corner_table, 1, 1};
  engine.get_indicators(0, indicators, corners);
}

void read_row(KESTRANE_LASER_FAC_CALIB& engine, JobRun& run) {
  LinesOver lines(run.cells, kBlocks);
  _LASER_PLANE_GRIDS grids{};
  _MRV_LASER_PLANE_BLOCK_INFO row{lines.record(), {}};
  _MRV_LASER_PLANE_BLOCK_INFOS table{&row, &grids, 1};
  engine.get_laser_plane_infos(table);
  std::copy_n(row.laser_plane_R, 3, run.whole_plane);
}

_KESTRANE_ID_POINT3DS record_of(Cloud cloud) {
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): the record knows no constant points
  auto* first = const_cast<_KESTRANE_ID_POINT3D*>(cloud.data());  // only read
  return {first, static_cast<std::int32_t>(cloud.size())};
}

}  // namespace

bool JobRun::has_table() const {
  const bool finite = std::all_of(std::begin(whole_plane), std::end(whole_plane),
                                  [](double value) { return std::isfinite(value); });
  return status == KESTRANE_OK && finite && std::any_of(cells.begin(), cells.end(), has_plane);
}

JobRun run_job(KESTRANE_LASER_FAC_CALIB& engine, Cloud cloud, bool optimise) {
  engine.set_optimize_flag(optimise ? KESTRANE_OPTIM_ON : KESTRANE_OPTIM_OFF);
  JobRun run;
  run.status = engine.factory_calib(0, record_of(cloud));
  if (run.status != KESTRANE_OK) return run;
  read_row(engine, run);
  read_indicators(engine, run);
  return run;
}

}  // namespace kestrane::quality
