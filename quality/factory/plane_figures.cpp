#include "quality/factory/plane_figures.h"

#include <cmath>
#include <cstddef>
#include <utility>

#include "quality/factory/order_statistics.h"
#include "quality/factory/outliers.h"
#include "quality/factory/poses.h"

namespace kestrane::quality {
namespace {

constexpr std::size_t kSeamPercent = 95;

std::vector<std::int64_t> counts_of(const std::vector<ResidualFigures>& blocks) {
  std::vector<std::int64_t> counts;
  counts.reserve(blocks.size());
  for (const ResidualFigures& block : blocks) counts.push_back(block.points);
  return counts;
}

// The seams that there are.
std::vector<double> found_seams(const std::vector<double>& seams) {
  std::vector<double> found;
  for (const double seam : seams) {
    if (!std::isnan(seam)) found.push_back(seam);
  }
  return found;
}

void write_poses(const PlanePoints& points, const std::vector<std::int32_t>& frames,
                 const Spread& spread, PlaneFigures& plane) {
  PoseSpread poses = pose_figures(points, frames, spread);
  plane.poses = std::move(poses.poses);
  plane.within_poses = poses.within;
  plane.between_poses = poses.between;
}

void write_blocks(const JobRun& run, const FiguresOfPlane& figures, const Measure& measure,
                  PlaneFigures& plane) {
  const std::vector<Origin> origins =
      block_origins(run.cells, counts_of(figures.blocks), sectors_with_points(run.indicators));
  const std::vector<double> seams = block_seams(run.cells, origins, measure.grids);
  plane.blocks.resize(figures.blocks.size());
  for (std::size_t b = 0; b < plane.blocks.size(); ++b) {
    plane.blocks[b].residuals = figures.blocks[b];
    plane.blocks[b].origin = origins[b];
    plane.blocks[b].seam = seams[b];
  }
  std::vector<double> found = found_seams(seams);
  plane.seam = quantile_of(found, kSeamPercent);
  plane.median_seam = median_of(found);
  plane.coverage = measure.volume.share(origins, Origin::kMeasured);
  plane.borrowed_in_volume = measure.volume.share(origins, Origin::kBorrowed) > 0.0;
}

}  // namespace

ResidualSums measure_plane(Cloud cloud, const std::vector<std::int32_t>& frames, const JobRun& run,
                           const Measure& measure, SizeQuantiles& device, PlaneFigures& plane) {
  const PlanePoints points =
      points_on_blocks(cloud, frames, run.cells, measure.grids, measure.band);
  const Spread spread = spread_of(points.residual);
  const FiguresOfPlane figures = residual_figures(points, spread, &device);
  plane.residuals = figures.plane;
  plane.median = spread.median;
  plane.sigma = spread.sigma;
  plane.valid = static_cast<std::int64_t>(points.size());
  plane.outliers = figures.outliers;
  write_poses(points, frames, spread, plane);
  write_blocks(run, figures, measure, plane);
  return figures.sums;
}

void measure_without(Cloud cloud, const std::vector<std::int32_t>& frames, const JobRun& without,
                     const Measure& measure, OptimisationFigures& figures) {
  const PlanePoints points =
      points_on_blocks(cloud, frames, without.cells, measure.grids, measure.band);
  const FiguresOfPlane residuals = residual_figures(points, spread_of(points.residual), nullptr);
  const std::vector<Origin> origins = block_origins(without.cells, counts_of(residuals.blocks),
                                                    sectors_with_points(without.indicators));
  std::vector<double> found = found_seams(block_seams(without.cells, origins, measure.grids));
  figures.rms_without = residuals.plane.rms;
  figures.median_seam_without = median_of(found);
}

}  // namespace kestrane::quality
