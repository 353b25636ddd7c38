/// @file
/// What a person or a host has to know about a result: findings in words, worst first, and a
/// verdict against the limits that the host gives.
///
/// - Levels: `bad` says that something must be done first, `warn` that something restricts the use,
///   `ok` is a fact.
/// - Limits: a row that names a limit is a fact without it. A value equal to its limit passes.
///   Without any limit there is no verdict, whatever the levels.
/// - Units: those of the points; shares are 0 to 1.
/// - Memory: plain values; nothing refers to the result that was judged.
///
/// | id | bad | warn |
/// |---|---|---|
/// | planes | a plane failed, or a gap | |
/// | screened | more than 5 % of a plane's points | any |
/// | residuals | RMS above `rms` or 99 % above `p99` | RMS above 0.8 `rms` |
/// | coverage | below half of `coverage` | below `coverage` |
/// | borrowed | | a borrowed sector reaches into the volume |
/// | poses_off | more than a quarter of a plane's frames | any |
/// | pose_noise | | more between poses than within them on more than half of the planes |
/// | frames | | fewer than 8 on a plane, or none numbered |
/// | seams | | 95 % above `seam` |
/// | trade | | the optimisation raised the median seam above half of the RMS without it |
/// | optimise_idle | | on, and no corner of a plane moved |
/// | bound | | any corner at the bound |
/// | refine | | the refined table has less than 0.8 of the plain one's error on unseen frames |
/// | outliers | share above 3 `outliers` | above `outliers` |
/// | repeatability | above `rms` | above `repeatability`, or `rms`/3 without it |
/// | field_motion | largest above `field_motion` | largest below 3 of its own sigma |
/// | direction | | not fixed, or sigma above `rms`/3 |
/// | used | fewer than half of the planes or frames took part | any frame left out |
/// | drift | | more than `rms`/3 is left without the rigid part |

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kestrane/export.h"

namespace kestrane::quality {

struct Difference;
struct FactoryResult;
struct FieldResult;

/// How much a finding matters, ascending.
enum class Level : std::int32_t {
  kOk = 0,    ///< a fact
  kWarn = 1,  ///< usable, with this in mind
  kBad = 2    ///< not as it stands
};

/// "ok", "warn" or "bad".
KESTRANE_API const char* name_of(Level level);

/// A number that a finding speaks of.
struct Figure {
  std::string name;    ///< what it is, as in "largest_rms"; unique within its finding
  double value = 0.0;  ///< not a number where it is not determined
};

/// One thing to know.
struct Finding {
  Level level = Level::kOk;     ///< how much it matters
  std::string id;               ///< which row of the table above
  std::string text;             ///< what, where (at most six planes), how much, what to do
  std::vector<Figure> figures;  ///< the numbers that the text is made of

  /// The figure of that name; not a number where there is none.
  KESTRANE_API double figure(const std::string& name) const;
};

/// What the host asks of a device. Each is optional: a figure without its limit is told, not
/// judged.
struct Limits {
  std::optional<double> rms;            ///< of a plane's residuals
  std::optional<double> p99;            ///< 99 % of the sizes of a plane's residuals
  std::optional<double> coverage;       ///< least measured share of the working volume, 0 to 1
  std::optional<double> seam;           ///< 95 % of the steps between a plane's measured neighbours
  std::optional<double> repeatability;  ///< of a plane's measured blocks
  std::optional<double> outliers;       ///< share of a plane's points, 0 to 1
  std::optional<double> field_motion;   ///< largest displacement that the field may repair

  /// Whether there is any.
  KESTRANE_API bool any() const;
};

/// The findings and what follows from them.
struct Judgement {
  std::vector<Finding> findings;  ///< worst first; within a level in the order of the table above
  std::string verdict;            ///< one of the four texts of `conclude`

  /// The finding of that id; null where there is none. Lives as long as this judgement.
  KESTRANE_API const Finding* find(const std::string& id) const;

  /// The level of the worst finding, `kOk` without findings: what a tool's exit status follows.
  KESTRANE_API Level worst() const;
};

/// Sorts findings of one or several judgements, and says what they come to:
/// "no limits given"; "not fit for use as it stands" with any `bad`; "usable with limits" with any
/// `warn`; else "fit for use within the limits given".
///
/// @throws std::invalid_argument  a limit that is not a number, or negative
KESTRANE_API Judgement conclude(std::vector<Finding> findings, const Limits& limits);

/// Judges a factory calibration: the rows planes to repeatability.
///
/// @throws std::invalid_argument  a limit that is not a number, or negative
KESTRANE_API Judgement judge(const FactoryResult& result, const Limits& limits = {});

/// Judges a field calibration: the rows field_motion, direction and used.
///
/// @throws std::invalid_argument  a limit that is not a number, or negative
KESTRANE_API Judgement judge(const FieldResult& result, const Limits& limits = {});

/// Judges how two tables differ: the row drift.
///
/// @throws std::invalid_argument  a limit that is not a number, or negative
KESTRANE_API Judgement judge(const Difference& difference, const Limits& limits = {});

}  // namespace kestrane::quality
