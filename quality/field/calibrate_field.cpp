// The field calibration from its input to its figures.
#include <cmath>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

#include "kestrane/fast_calib.h"
#include "kestrane/quality/field.h"
#include "quality/field/direction_words.h"
#include "quality/field/motion_figures.h"
#include "quality/field/rigid_motion.h"
#include "quality/field/sheet_displacement.h"
#include "quality/field/used_points.h"

namespace kestrane::quality {
namespace {

// The statuses tell an engine without `init` from a range that does not go with its lists.
void require_engine(KESTRANE_LASER_FAST_CALIB& engine) {
  if (engine.fast_calib({{}}, 0, 1) != KESTRANE_ERR_NOT_READY) return;
  throw std::invalid_argument("the engine of a field calibration comes here after its init");
}

// False where the job has no motion; the reason is in `result` then.
bool run_job(KESTRANE_LASER_FAST_CALIB& engine, const PlaneTable& table,
             const ScreenedFrames& screened, FieldResult& result) {
  engine.set_laser_plane_standard(table.record());
  const _KESTRANE_STATUS status =
      engine.fast_calib(screened.lists, screened.first_plane, screened.last_plane);
  if (status != KESTRANE_OK) {
    result.refused = "the job's solver found no motion (status " +
                     std::to_string(static_cast<int>(status)) + ")";
    return false;
  }
  engine.get_transform_param(result.transform);
  engine.get_calib_indicator(result.indicators.mean, result.indicators.max,
                             result.indicators.deviation);
  return true;
}

bool is_finite(const RigidMotion& motion) { return motion.R.allFinite() && motion.t.allFinite(); }

std::string nothing_used(const FieldUse& use) {
  const StageCount& filtered = use.after(FieldStage::kFrameFilter);
  if (filtered.points == 0) {
    return "no frame passed the job's filter of frames, so that nothing fixes a motion";
  }
  return "no point lies within 1.5 of the table after the motion that the job found";
}

MotionDirection direction_of(const DirectionFigures& figures) {
  MotionDirection direction;
  direction.name = direction_words(figures.vector);
  Eigen::Map<Vector6>(direction.vector) = figures.vector;
  direction.sigma = figures.sigma;
  direction.strength = figures.strength;
  direction.fixed = figures.fixed;
  return direction;
}

void tell_figures(const MotionFigures& figures, FieldResult& result) {
  result.smallest_motion = record_of(figures.smallest);
  for (const DirectionFigures& direction : figures.directions) {
    result.directions.push_back(direction_of(direction));
  }
  const Eigen::Vector3d& centre = figures.frame.centre;
  result.centre = {centre.x(), centre.y(), centre.z()};
  result.length = figures.frame.length;
  result.residual = figures.residual;
  result.sigma_holds_table = figures.covariance.by_plane_known;
}

FieldResult refused_at_screening(const ScreenedFrames& screened, FieldResult result) {
  result.refused = screened.refused;
  return result;
}

}  // namespace

FieldResult calibrate_field(KESTRANE_LASER_FAST_CALIB& engine, const PlaneTable& table,
                            const std::vector<PointList>& frames, const FieldSettings& settings) {
  require_engine(engine);
  const ScreenedFrames screened = screen_frames(frames, table, settings);
  FieldResult result;
  count_screening(screened, settings.first_plane, result.used);
  if (!screened.refused.empty()) return refused_at_screening(screened, std::move(result));
  result.first_plane = screened.first_plane;
  result.last_plane = screened.last_plane;
  if (!run_job(engine, table, screened, result)) return result;

  const RigidMotion motion = motion_of(result.transform);
  if (!is_finite(motion)) {
    result.refused = "the motion that the job found is not finite";
    return result;
  }
  result.motion = record_of(motion);
  const UsedPoints used = collect_used_points(screened, table, motion, result.used);
  result.frame_clusters = used.frames;
  result.plane_clusters = used.planes;
  if (used.points.empty()) {
    result.refused = nothing_used(result.used);
    return result;
  }
  const MotionFigures figures = motion_figures(used, motion);
  tell_figures(figures, result);
  result.displacement = sheet_displacement(
      displacement_blocks(table, result.first_plane, result.last_plane), motion, figures);
  return result;
}

FieldResult calibrate_field(const PlaneTable& table, const std::vector<PointList>& frames,
                            const FieldSettings& settings) {
  KESTRANE_LASER_FAST_CALIB engine;
  if (engine.init() != KESTRANE_OK) throw std::bad_alloc();
  return calibrate_field(engine, table, frames, settings);
}

}  // namespace kestrane::quality
