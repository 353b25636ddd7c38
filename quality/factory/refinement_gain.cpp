#include "quality/factory/refinement_gain.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <optional>
#include <vector>

#include "quality/cells.h"
#include "quality/factory/job.h"
#include "quality/frame_ids.h"

namespace kestrane::quality {
namespace {

constexpr std::size_t kEstimated = 4;  // planes

struct Squares {
  double sum = 0.0;
  double count = 0.0;
};

// The frames of a cloud dealt into groups, as the refinement deals them.
class Groups {
 public:
  explicit Groups(Cloud cloud)
      : frames_(distinct_ids(cloud)),
        count_(std::min<std::size_t>(frames_.size(),
                                     static_cast<std::size_t>(RefinementSettings().folds))) {}

  std::size_t count() const { return count_; }

  // Of a point; none for a frame that the cloud does not have.
  std::optional<std::size_t> of(const _KESTRANE_ID_POINT3D& point) const {
    const auto at = std::lower_bound(frames_.begin(), frames_.end(), point.id);
    if (at == frames_.end() || *at != point.id) return std::nullopt;
    return static_cast<std::size_t>(at - frames_.begin()) % count_;
  }

 private:
  std::vector<std::int32_t> frames_;
  std::size_t count_;
};

std::vector<_KESTRANE_ID_POINT3D> without_group(Cloud cloud, const Groups& groups,
                                                std::size_t group) {
  std::vector<_KESTRANE_ID_POINT3D> others;
  others.reserve(cloud.size());
  std::copy_if(cloud.begin(), cloud.end(), std::back_inserter(others),
               [&](const auto& point) { return groups.of(point) != group; });
  return others;
}

// Error in x of a table's row at a point; none outside its blocks.
std::optional<double> error_of(const std::vector<_LASER_TRIPLE>& cells, const PlaneTable& shape,
                               const _KESTRANE_ID_POINT3D& point) {
  const auto at = shape.lookup(point.y, point.z);
  if (!at || !std::isfinite(point.x)) return std::nullopt;
  const _LASER_TRIPLE& cell =
      cells[static_cast<std::size_t>(PlaneTable::kCells * at->line + at->cell)];
  if (!has_plane(cell)) return std::nullopt;
  return point.x - plane_x(cell, point.y, point.z);
}

}  // namespace

RefinementFigures measure_gain(KESTRANE_LASER_FAC_CALIB& engine, Cloud given, Cloud job,
                               const RefinedPlane& refined) {
  RefinementFigures figures;
  figures.refused = refined.refused;
  if (!refined.refused.empty()) return figures;
  figures.plane_only = refined.plane_only;
  figures.refined_rms = refined.cross_validated_rms;

  const Groups groups(job);
  if (groups.count() < 2) return figures;
  const PlaneTable shape(1);
  const double reach = RefinementSettings().cut * refined.noise;
  Squares squares;
  for (std::size_t group = 0; group < groups.count(); ++group) {
    const JobRun run = run_job(engine, without_group(job, groups, group), false);
    if (!run.has_table()) return figures;
    for (const _KESTRANE_ID_POINT3D& point : given) {
      if (groups.of(point) != group) continue;
      const auto from_refined = error_of(refined.cells, shape, point);
      if (!from_refined || std::abs(*from_refined) > reach) continue;
      if (const auto error = error_of(run.cells, shape, point)) {
        squares.sum += *error * *error;
        squares.count += 1.0;
      }
    }
  }
  if (squares.count > 0.0) figures.plain_rms = std::sqrt(squares.sum / squares.count);
  return figures;
}

bool is_estimated(std::size_t p, std::size_t planes) {
  for (std::size_t n = 0; n < kEstimated; ++n) {
    // Rounded to the nearest plane: of no more than four planes each one.
    if (p == (2 * n * (planes - 1) + kEstimated - 1) / (2 * (kEstimated - 1))) return true;
  }
  return false;
}

}  // namespace kestrane::quality
