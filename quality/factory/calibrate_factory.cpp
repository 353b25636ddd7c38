#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "kestrane/factory_calib.h"
#include "kestrane/quality/factory.h"
#include "quality/factory/job.h"
#include "quality/factory/optimisation_effect.h"
#include "quality/factory/plane_figures.h"
#include "quality/factory/refinement_gain.h"
#include "quality/factory/repeatability.h"
#include "quality/factory/residual_histogram.h"
#include "quality/frame_ids.h"
#include "quality/refinement/table_row.h"
#include "quality/screening/sheet_terms.h"
#include "quality/side_by_side.h"

namespace kestrane::quality {
namespace {

using Clouds = std::vector<_KESTRANE_ID_POINT3DS>;

constexpr _LASER_TRIPLE kNoTriple = {{kNotDetermined, kNotDetermined, kNotDetermined}};
constexpr std::size_t kBlocksOfPlane = 750;
constexpr std::size_t kCornersOfPlane = 816;

[[noreturn]] void refuse(const std::string& what) { throw std::invalid_argument(what); }

void check_clouds(const Clouds& clouds) {
  if (clouds.empty()) refuse("no clouds");
  if (clouds.size() > static_cast<std::size_t>(PlaneTable::kMostPlanes)) {
    refuse("a device has at most 100 planes, not " + std::to_string(clouds.size()));
  }
  for (std::size_t p = 0; p < clouds.size(); ++p) {
    const std::string plane = "the cloud of plane " + std::to_string(p);
    if (clouds[p].count < 0) refuse(plane + " has a negative count");
    if (clouds[p].count > 0 && clouds[p].points == nullptr) refuse(plane + " has no points array");
  }
}

void check_settings(const FactorySettings& settings) {
  const double gross = settings.gross;
  if (!(gross > 0.0 && gross <= std::numeric_limits<double>::max())) {
    refuse("gross has to be finite and above 0");
  }
}

WorkingVolume volume_of(const FactorySettings& settings) {
  if (settings.volume) return *settings.volume;
  const FitBand band = fit_band_of(settings.type);
  WorkingVolume volume;
  volume.depth_near = band.nearest;
  volume.depth_far = band.farthest;
  return volume;
}

// Which points the screening has left of a cloud; all of them where it was not asked, or found no
// sheet to judge them by.
class Survivors {
 public:
  Survivors() = default;
  explicit Survivors(const ScreeningSheet& sheet) : sheet_(sheet) {}

  // Of points that are finite and inside the depth band.
  bool hold(const _KESTRANE_ID_POINT3D& point) const {
    if (sheet_.degree < 0) return true;
    return std::abs(residual(sheet_.c.data(), sheet_point(sheet_, point))) <= sheet_.limit;
  }

 private:
  ScreeningSheet sheet_;
};

using Engine = KESTRANE_LASER_FAC_CALIB;

// One device on its way through the planes. Planes touch nothing of one another but what belongs to
// their worker: its engine and its counts.
class Device {
 public:
  Device(const std::vector<Engine*>& engines, const Clouds& clouds, const FactorySettings& settings)
      : engines_(engines),
        clouds_(clouds),
        settings_(settings),
        result_(blank_result(clouds.size(), settings)),
        measure_{result_.table.grids(), fit_band_of(settings.type),
                 BlocksInVolume(result_.table, result_.volume)},
        sums_(clouds.size()),
        counts_(engines.size()),
        survivors_(clouds.size()) {
    if (measure_.volume.empty()) refuse("the working volume holds no block");
    for (Engine* engine : engines_) engine->set_laser_type(settings.type);
  }

  void calibrate(std::size_t p, std::size_t worker) {
    PlaneFigures& plane = result_.planes[p];
    const Cloud given(clouds_[p].points, static_cast<std::size_t>(clouds_[p].count));
    plane.screening.points = plane.screening.kept = clouds_[p].count;
    if (given.empty()) {
      plane.status = KESTRANE_ERR_INVALID_PARAM;
      plane.reason = "no points";
    } else if (settings_.screen) {
      calibrate_screened(p, worker, plane);
    } else {
      calibrate_cloud(p, worker, given, plane);
    }
  }

  _KESTRANE_STATUS status(std::size_t p) const { return result_.planes[p].status; }

  FactoryResult take() {
    const auto first_good =
        std::find_if(result_.planes.begin(), result_.planes.end(),
                     [](const PlaneFigures& plane) { return plane.reason.empty(); });
    if (first_good == result_.planes.end()) return refused();
    SizeQuantiles& sizes = counts_.front();
    for (std::size_t w = 1; w < counts_.size(); ++w) sizes.add_counts(counts_[w]);
    ResidualSums sums;
    for (const ResidualSums& of_plane : sums_) sums.add(of_plane);  // order fixed
    look_again(sums, sizes);
    result_.device = figures_of(sums, sizes);
    return std::move(result_);
  }

 private:
  static FactoryResult blank_result(std::size_t planes, const FactorySettings& settings) {
    FactoryResult result;
    result.table = PlaneTable(static_cast<std::int32_t>(planes));
    result.indicators.assign(planes * kBlocksOfPlane, kNoTriple);
    result.corners.assign(planes * kCornersOfPlane, kNoTriple);
    result.planes.resize(planes);
    result.settings = settings;
    if (settings.refine == Refine::kAll) {
      result.refined.table = PlaneTable(static_cast<std::int32_t>(planes));
      result.refined.planes.resize(planes);
    }
    result.volume = volume_of(settings);
    return result;
  }

  void calibrate_screened(std::size_t p, std::size_t worker, PlaneFigures& plane) {
    CloudSettings screening;
    screening.gross = settings_.gross;
    screening.laser_type = settings_.type;
    ScreenedCloud screened = screen_cloud(clouds_[p], screening);
    plane.screening = std::move(screened.account);
    survivors_[p] = Survivors(screened.sheet);
    if (!screened.refused.empty()) {
      plane.reason = screened.refused;
      return;
    }
    calibrate_cloud(p, worker, screened.points, plane);
  }

  void calibrate_cloud(std::size_t p, std::size_t worker, Cloud cloud, PlaneFigures& plane) {
    Engine& engine = *engines_[worker];
    JobRun without;
    if (settings_.optimise) without = run_job(engine, cloud, false);
    const JobRun run = run_job(engine, cloud, settings_.optimise);
    plane.status = run.status;
    if (!run.has_table()) {
      plane.status = KESTRANE_ERR_FAILED;
      plane.reason = run.status == KESTRANE_OK
                         ? "the job ended with a plane that is not a number"
                         : "the job found no plane in the points of the depth band, or none that "
                           "keeps clear of the origin, or no sector with 200 points";
      return;
    }
    keep(p, run);
    measure(p, worker, cloud, run, without, plane);
  }

  void keep(std::size_t p, const JobRun& run) {
    const auto row = static_cast<std::int32_t>(p);
    std::copy(run.cells.begin(), run.cells.end(), &result_.table.cell(row, {0, 0}));
    std::copy_n(run.whole_plane, 3, result_.table.whole_plane(row));
    std::copy(run.indicators.begin(), run.indicators.end(),
              &result_.indicators[p * kBlocksOfPlane]);
    std::copy(run.corners.begin(), run.corners.end(), &result_.corners[p * kCornersOfPlane]);
  }

  void measure(std::size_t p, std::size_t worker, Cloud cloud, const JobRun& run,
               const JobRun& without, PlaneFigures& plane) {
    Engine& engine = *engines_[worker];
    const std::vector<std::int32_t> frames = distinct_ids(cloud);
    sums_[p] = measure_plane(cloud, frames, run, measure_, counts_[worker], plane);
    if (settings_.optimise) {
      plane.optimisation = corner_moves(run, without);
      measure_without(cloud, frames, without, measure_, plane.optimisation);
    }
    if (settings_.repeatability) measure_repeats(engine, p, cloud, frames, plane);
    if (is_refined(p)) refine(engine, p, cloud, plane);
  }

  bool is_refined(std::size_t p) const {
    return settings_.refine == Refine::kAll ||
           (settings_.refine == Refine::kEstimate && is_estimated(p, clouds_.size()));
  }

  // Of the cloud as measured: the refinement rejects by itself, and reaches to depth 1500.
  void refine(Engine& engine, std::size_t p, Cloud cloud, PlaneFigures& plane) {
    RefinedPlane refined = refine_plane(clouds_[p]);
    const Cloud given(clouds_[p].points, static_cast<std::size_t>(clouds_[p].count));
    plane.refinement = measure_gain(engine, given, cloud, refined);
    if (settings_.refine != Refine::kAll) return;
    write_row(refined, static_cast<std::int32_t>(p), result_.refined.table);
    result_.refined.planes[p] = std::move(refined);
  }

  void measure_repeats(Engine& engine, std::size_t p, Cloud cloud,
                       const std::vector<std::int32_t>& frames, PlaneFigures& plane) {
    std::vector<Origin> origins;
    origins.reserve(kBlocksOfPlane);
    for (const BlockFigures& block : plane.blocks) origins.push_back(block.origin);
    const Repeatability repeats =
        measure_repeatability(engine, cloud, frames, settings_.optimise, result_.table,
                              static_cast<std::int32_t>(p), origins);
    plane.repeatability = repeats.rms;
    for (std::size_t b = 0; b < repeats.blocks.size(); ++b) {
      plane.blocks[b].repeatability = repeats.blocks[b];
    }
  }

  // The second look at every residual that the figures are made of.
  void look_again(const ResidualSums& sums, SizeQuantiles& sizes) {
    sizes.look_for_them();
    result_.histogram = bins_for(sums);
    for (std::size_t p = 0; p < clouds_.size(); ++p) {
      const PlaneFigures& plane = result_.planes[p];
      if (!plane.reason.empty()) continue;
      const CellsOfPlane cells(&result_.table.cell(static_cast<std::int32_t>(p), {0, 0}),
                               kBlocksOfPlane);
      const BlockResiduals residuals(cells, measure_.grids, measure_.band);
      const Spread spread{plane.median, plane.sigma};
      for (std::int32_t i = 0; i < clouds_[p].count; ++i) {
        const auto measured = residuals.of(clouds_[p].points[i]);
        if (!measured || spread.is_outlier(measured->residual)) continue;
        if (!survivors_[p].hold(clouds_[p].points[i])) continue;
        sizes.find(std::abs(measured->residual));
        count(measured->residual, result_.histogram);
      }
    }
  }

  FactoryResult refused() {
    const std::string& first = result_.planes.front().reason;
    const bool all_alike =
        std::all_of(result_.planes.begin(), result_.planes.end(),
                    [&](const PlaneFigures& plane) { return plane.reason == first; });
    result_.refused = "no plane could be calibrated: " + first;
    if (!all_alike) result_.refused += " (plane 0; other planes for other reasons)";
    result_.table = PlaneTable();
    result_.indicators.clear();
    result_.corners.clear();
    return std::move(result_);
  }

  const std::vector<Engine*>& engines_;  // one per worker
  const Clouds& clouds_;
  const FactorySettings& settings_;
  FactoryResult result_;
  Measure measure_;
  std::vector<ResidualSums> sums_;     // of each plane
  std::vector<SizeQuantiles> counts_;  // of the planes of each worker
  std::vector<Survivors> survivors_;   // of each cloud
};

FactoryResult calibrate_checked(const std::vector<Engine*>& engines, const Clouds& clouds,
                                const FactorySettings& settings, const PlaneDone& on_plane) {
  Device device(engines, clouds, settings);
  side_by_side(
      clouds.size(), engines.size(),
      [&](std::size_t p, std::size_t worker) { device.calibrate(p, worker); },
      [&](std::size_t p) {
        if (on_plane) on_plane(static_cast<std::int32_t>(p), device.status(p));
      });
  return device.take();
}

}  // namespace

FactoryResult calibrate_factory(Engine& engine, const Clouds& clouds,
                                const FactorySettings& settings, const PlaneDone& on_plane) {
  return calibrate_factory(std::vector<Engine*>{&engine}, clouds, settings, on_plane);
}

FactoryResult calibrate_factory(const std::vector<Engine*>& engines, const Clouds& clouds,
                                const FactorySettings& settings, const PlaneDone& on_plane) {
  if (engines.empty()) refuse("no engine");
  if (std::find(engines.begin(), engines.end(), nullptr) != engines.end()) refuse("a null engine");
  check_clouds(clouds);
  check_settings(settings);
  return calibrate_checked(engines, clouds, settings, on_plane);
}

FactoryResult calibrate_factory(const Clouds& clouds, const FactorySettings& settings,
                                const PlaneDone& on_plane) {
  check_clouds(clouds);
  check_settings(settings);
  Engine engine;
  if (engine.init() != KESTRANE_OK) throw std::bad_alloc();
  return calibrate_checked({&engine}, clouds, settings, on_plane);
}

std::vector<_KESTRANE_ID_POINT3DS> clouds_of(const std::vector<PointList>& lists) {
  Clouds clouds;
  for (const PointList& list : lists) {
    if (list.size() > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) {
      refuse("a list has more points than 32 bits count");
    }
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): the record knows no constant points
    auto* first = const_cast<_KESTRANE_ID_POINT3D*>(list.data());  // only read
    clouds.push_back({first, static_cast<std::int32_t>(list.size())});
  }
  return clouds;
}

}  // namespace kestrane::quality
