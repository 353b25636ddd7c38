// The row on how two tables differ: drift.
#include <cmath>
#include <string>

#include "kestrane/quality/difference.h"
#include "quality/findings/figures.h"
#include "quality/findings/rows.h"
#include "quality/findings/wording.h"

namespace kestrane::quality {

Finding drift_row(const Difference& difference, const Limits& limits) {
  constexpr double kMostlyRigid = 0.8;
  Finding finding{Level::kOk, "drift", {}, {}};
  if (!difference.refused.empty()) {
    finding.level = Level::kWarn;
    finding.text = difference.refused + ": the tables cannot be compared";
    return finding;
  }
  finding.figures = figures_of({{"rms", difference.rms},
                                {"max", difference.max},
                                {"plane", difference.plane},
                                {"rest", difference.rest},
                                {"explained", difference.explained}});
  if (std::isnan(difference.explained)) {
    finding.text = "the tables are the same";
    return finding;
  }
  finding.text = "the tables differ by " + length_text(difference.rms) + " RMS, most by " +
                 length_text(difference.max) + " on plane " + std::to_string(difference.plane) +
                 "; a rigid motion explains " + share_text(difference.explained) + " and leaves " +
                 length_text(difference.rest);
  if (!limits.rms || !(difference.rest > *limits.rms / 3.0)) return finding;
  finding.level = Level::kWarn;
  finding.text += difference.explained > kMostlyRigid ? ": calibrate in the field first"
                                                      : ": the shape has changed: calibrate anew";
  return finding;
}

Judgement judge(const Difference& difference, const Limits& limits) {
  return conclude({drift_row(difference, limits)}, limits);
}

}  // namespace kestrane::quality
