// The fields of kestrane::quality's records as the package names them, each list written once: it
// serves the way out and the way back (see columns.h).
#pragma once

#include "kestrane/quality/difference.h"
#include "kestrane/quality/factory.h"
#include "kestrane/quality/field.h"
#include "kestrane/quality/refinement.h"
#include "kestrane/quality/screening.h"

namespace kestrane::python {

inline constexpr auto residual_fields = [](quality::ResidualFigures& figures, auto&& visit) {
  visit("points", figures.points);
  visit("rms", figures.rms);
  visit("bias", figures.bias);
  visit("q95", figures.q95);
  visit("q99", figures.q99);
  visit("max", figures.max);
};

inline constexpr auto plane_fields = [](quality::PlaneFigures& plane, auto&& visit) {
  residual_fields(plane.residuals, visit);
  visit("median", plane.median);
  visit("sigma", plane.sigma);
  visit("valid", plane.valid);
  visit("outliers", plane.outliers);
  visit("coverage", plane.coverage);
  visit("borrowed_in_volume", plane.borrowed_in_volume);
  visit("seam", plane.seam);
  visit("median_seam", plane.median_seam);
  visit("repeatability", plane.repeatability);
  visit("within_poses", plane.within_poses);
  visit("between_poses", plane.between_poses);
};

inline constexpr auto block_fields = [](quality::BlockFigures& block, auto&& visit) {
  residual_fields(block.residuals, visit);
  visit("seam", block.seam);
  visit("repeatability", block.repeatability);
  visit("origin", block.origin);
};

// Lists that every plane has of its own stand in one table, with the number of the plane.
template <class Record>
struct OfPlane {
  std::int32_t plane = 0;
  Record record{};
};

inline constexpr auto pose_fields = [](OfPlane<quality::PoseFigures>& pose, auto&& visit) {
  visit("plane", pose.plane);
  visit("frame", pose.record.frame);
  visit("points", pose.record.points);
  visit("median", pose.record.median);
  visit("off", pose.record.off);
};

inline constexpr auto optimisation_fields = [](quality::OptimisationFigures& figures,
                                               auto&& visit) {
  visit("largest_move", figures.largest_move);
  visit("at_bound", figures.at_bound);
  visit("rms_without", figures.rms_without);
  visit("median_seam_without", figures.median_seam_without);
};

inline constexpr auto gain_fields = [](OfPlane<quality::RefinementFigures>& gain, auto&& visit) {
  visit("plane", gain.plane);
  visit("plane_only", gain.record.plane_only);
  visit("refined_rms", gain.record.refined_rms);
  visit("plain_rms", gain.record.plain_rms);
};

inline constexpr auto drop_fields = [](quality::DropCounts& dropped, auto&& visit) {
  visit("not_finite", dropped.not_finite);
  visit("depth", dropped.depth);
  visit("gross", dropped.gross);
  visit("no_cell", dropped.no_cell);
};

inline constexpr auto account_fields = [](quality::PlaneAccount& account, auto&& visit) {
  visit("points", account.points);
  visit("kept", account.kept);
  drop_fields(account.dropped, visit);
};

inline constexpr auto frame_fields = [](OfPlane<quality::FrameAccount>& frame, auto&& visit) {
  visit("plane", frame.plane);
  visit("frame", frame.record.frame);
  visit("points", frame.record.points);
  visit("kept", frame.record.kept);
  drop_fields(frame.record.dropped, visit);
};

inline constexpr auto worst_fields = [](OfPlane<quality::WorstPoint>& worst, auto&& visit) {
  visit("plane", worst.plane);
  visit("index", worst.record.index);
  visit("frame", worst.record.frame);
  visit("x", worst.record.point.x);
  visit("y", worst.record.point.y);
  visit("z", worst.record.point.z);
  visit("residual", worst.record.residual);
};

inline constexpr auto sheet_fields = [](quality::ScreeningSheet& sheet, auto&& visit) {
  visit("degree", sheet.degree);
  visit("y0", sheet.y0);
  visit("z0", sheet.z0);
  visit("ys", sheet.ys);
  visit("zs", sheet.zs);
  visit("scale", sheet.scale);
  visit("limit", sheet.limit);
};

inline constexpr auto refined_fields = [](quality::RefinedPlane& plane, auto&& visit) {
  visit("points", plane.counts.points);
  visit("used", plane.counts.used);
  visit("not_finite", plane.counts.not_finite);
  visit("outside", plane.counts.outside);
  visit("outliers", plane.counts.outliers);
  visit("bad_frames", plane.counts.bad_frames);
  visit("frames_used", plane.frames_used);
  visit("order", plane.order);
  visit("smoothing", plane.lambda);
  visit("plane_only", plane.plane_only);
  visit("noise", plane.noise);
  visit("degrees_of_freedom", plane.degrees_of_freedom);
  visit("cross_validated_rms", plane.cross_validated_rms);
};

inline constexpr auto difference_fields = [](quality::PlaneDifference& plane, auto&& visit) {
  visit("blocks", plane.blocks);
  visit("rms", plane.rms);
  visit("max", plane.max);
  visit("rest", plane.rest);
};

inline constexpr auto stage_fields = [](quality::StageCount& stage, auto&& visit) {
  visit("points", stage.points);
  visit("frames", stage.frames);
  visit("planes", stage.planes);
};

inline constexpr auto dropped_frame_fields = [](quality::DroppedFrame& frame, auto&& visit) {
  visit("plane", frame.plane);
  visit("frame", frame.frame);
  visit("stage", frame.stage);
};

inline constexpr auto direction_fields = [](quality::MotionDirection& direction, auto&& visit) {
  visit("sigma", direction.sigma);
  visit("strength", direction.strength);
  visit("fixed", direction.fixed);
};

}  // namespace kestrane::python
