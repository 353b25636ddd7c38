// The rows that hold one figure of each plane against a limit: residuals, coverage, seams,
// outliers, repeatability.
#include <optional>
#include <string>
#include <vector>

#include "quality/findings/figures.h"
#include "quality/findings/plane_lists.h"
#include "quality/findings/rows.h"
#include "quality/findings/wording.h"

namespace kestrane::quality {
namespace {

using Planes = std::vector<std::int32_t>;

double rms_of(const PlaneFigures& plane) { return plane.residuals.rms; }
double q99_of(const PlaneFigures& plane) { return plane.residuals.q99; }
double coverage_of(const PlaneFigures& plane) { return plane.coverage; }
double seam_of(const PlaneFigures& plane) { return plane.seam; }
double outliers_of(const PlaneFigures& plane) { return plane.outlier_share(); }
double repeatability_of(const PlaneFigures& plane) { return plane.repeatability; }

// Planes whose figure is above `factor` times a limit; none without the limit, and none where the
// figure is not determined.
Planes above(const FactoryResult& result, FigureOf figure_of, const std::optional<double>& limit,
             double factor = 1.0) {
  if (!limit) return {};
  const double most = factor * *limit;
  return planes_where(result, [=](const PlaneFigures& plane) { return figure_of(plane) > most; });
}

// Planes that are covered less than `factor` times the limit; none without the limit.
Planes covered_below(const FactoryResult& result, const std::optional<double>& limit,
                     double factor) {
  if (!limit) return {};
  const double least = factor * *limit;
  return planes_where(result, [=](const PlaneFigures& plane) { return plane.coverage < least; });
}

Level level_of(const Planes& bad, const Planes& warn) {
  if (!bad.empty()) return Level::kBad;
  return warn.empty() ? Level::kOk : Level::kWarn;
}

std::string on_plane(const Extreme& extreme) {
  if (extreme.plane < 0) return {};
  return " on plane " + std::to_string(extreme.plane);
}

std::vector<Figure> figures_at(const char* name, const Extreme& worst) {
  return figures_of({{name, worst.value}, {"plane", worst.plane}});
}

// ", within 0.300", or nothing without the limit.
std::string within(const std::optional<double>& limit) {
  if (!limit) return {};
  return ", within " + length_text(*limit);
}

std::string disagreement_text(double limit, const Planes& planes, const std::string& worst) {
  return "even and odd frames disagree by more than " + length_text(limit) + " on " +
         planes_text(planes) + ", worst " + worst + ": take more poses";
}

}  // namespace

Finding residuals_row(const FactoryResult& result, const Limits& limits) {
  const Extreme rms = largest(result, rms_of);
  const Extreme q99 = largest(result, q99_of);
  Finding finding{Level::kOk, "residuals", {}, {}};
  finding.figures = figures_of({{"rms", rms.value},
                                {"plane", rms.plane},
                                {"q99", q99.value},
                                {"q99_plane", q99.plane},
                                {"device_rms", result.device.rms}});
  const Planes bad_rms = above(result, rms_of, limits.rms);
  const Planes bad_q99 = above(result, q99_of, limits.p99);
  const Planes near = above(result, rms_of, limits.rms, 0.8);
  finding.level = level_of(bad_rms.empty() ? bad_q99 : bad_rms, near);
  const std::string worst = "RMS " + length_text(rms.value) + on_plane(rms);
  if (!bad_rms.empty()) {
    finding.text = "RMS above " + length_text(*limits.rms) + " on " + planes_text(bad_rms) +
                   ", worst " + worst + ": look at their poses and seams, and measure them anew";
  } else if (!bad_q99.empty()) {
    finding.text = "99 % of the residuals above " + length_text(*limits.p99) + " on " +
                   planes_text(bad_q99) + ", worst " + length_text(q99.value) + on_plane(q99) +
                   ": look at their poses and outliers, and measure them anew";
  } else if (!near.empty()) {
    finding.text = "RMS above 80 % of " + length_text(*limits.rms) + " on " + planes_text(near) +
                   ", worst " + worst + ": little room is left";
  } else {
    finding.text = "worst " + worst + within(limits.rms) + "; 99 % at " + length_text(q99.value) +
                   on_plane(q99) + within(limits.p99);
  }
  return finding;
}

Finding coverage_row(const FactoryResult& result, const Limits& limits) {
  const Extreme least = smallest(result, coverage_of);
  Finding finding{Level::kOk, "coverage", {}, figures_at("coverage", least)};
  const Planes bad = covered_below(result, limits.coverage, 0.5);
  const Planes warn = covered_below(result, limits.coverage, 1.0);
  finding.level = level_of(bad, warn);
  const std::string worst = share_text(least.value) + on_plane(least);
  if (warn.empty()) {
    finding.text = "at least " + share_text(least.value) +
                   " of the working volume measured, least" + on_plane(least);
  } else {
    finding.text = "measured in less than " + share_text(*limits.coverage) +
                   " of the working volume: " + planes_text(warn) + ", least " + worst +
                   ": measure more poses there, or narrow the volume";
  }
  return finding;
}

Finding seams_row(const FactoryResult& result, const Limits& limits) {
  const Extreme worst = largest(result, seam_of);
  Finding finding{Level::kOk, "seams", {}, figures_at("seam", worst)};
  const Planes warn = above(result, seam_of, limits.seam);
  finding.level = level_of({}, warn);
  if (warn.empty()) {
    finding.text = "95 % of the steps between blocks at most " + length_text(worst.value) +
                   on_plane(worst) + within(limits.seam);
  } else {
    finding.text = "95 % of the steps between blocks above " + length_text(*limits.seam) + " on " +
                   planes_text(warn) + ", worst " + length_text(worst.value) + on_plane(worst) +
                   ": take more points, or leave the optimisation off";
  }
  return finding;
}

Finding outliers_row(const FactoryResult& result, const Limits& limits) {
  const Extreme worst = largest(result, outliers_of);
  Finding finding{Level::kOk, "outliers", {}, figures_at("share", worst)};
  const Planes bad = above(result, outliers_of, limits.outliers, 3.0);
  const Planes warn = above(result, outliers_of, limits.outliers);
  finding.level = level_of(bad, warn);
  const std::string share = share_text(worst.value) + on_plane(worst);
  if (warn.empty()) {
    finding.text =
        "at most " + share_text(worst.value) + " of the points beyond 4 sigma" + on_plane(worst);
    if (limits.outliers) finding.text += ", within " + share_text(*limits.outliers);
  } else {
    finding.text = "more than " + share_text(*limits.outliers) +
                   " of the points beyond 4 sigma on " + planes_text(warn) + ", worst " + share +
                   ": look for reflections and badly taken poses";
  }
  return finding;
}

Finding repeatability_row(const FactoryResult& result, const Limits& limits) {
  const Extreme worst = largest(result, repeatability_of);
  Finding finding{Level::kOk, "repeatability", {}, figures_at("repeatability", worst)};
  std::optional<double> warned = limits.repeatability;
  if (!warned && limits.rms) warned = *limits.rms / 3.0;
  const Planes bad = above(result, repeatability_of, limits.rms);
  const Planes warn = above(result, repeatability_of, warned);
  finding.level = level_of(bad, warn);
  const std::string figure = length_text(worst.value) + on_plane(worst);
  if (!bad.empty()) {
    finding.text = disagreement_text(*limits.rms, bad, figure);
  } else if (!warn.empty()) {
    finding.text = disagreement_text(*warned, warn, figure);
  } else if (worst.plane < 0) {
    finding.text = result.settings.repeatability
                       ? "not determined: at least 4 frames are needed that each half can be "
                         "calibrated from"
                       : "not asked for";
  } else {
    finding.text = "at most " + figure + within(warned);
  }
  return finding;
}

}  // namespace kestrane::quality
