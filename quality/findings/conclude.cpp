// From findings to a verdict.
#include <algorithm>
#include <array>
#include <iterator>
#include <limits>
#include <stdexcept>

#include "kestrane/quality/findings.h"

namespace kestrane::quality {
namespace {

using Limit = std::optional<double>;

std::array<Limit, 7> all_of(const Limits& limits) {
  return {limits.rms,           limits.p99,      limits.coverage,    limits.seam,
          limits.repeatability, limits.outliers, limits.field_motion};
}

void check(const Limits& limits) {
  for (const Limit& limit : all_of(limits)) {
    if (limit && !(*limit >= 0.0)) {
      throw std::invalid_argument("a limit has to be a number of 0 or more");
    }
  }
}

const char* verdict_of(Level worst, const Limits& limits) {
  if (!limits.any()) return "no limits given";
  if (worst == Level::kBad) return "not fit for use as it stands";
  if (worst == Level::kWarn) return "usable with limits";
  return "fit for use within the limits given";
}

}  // namespace

const char* name_of(Level level) {
  if (level == Level::kBad) return "bad";
  return level == Level::kWarn ? "warn" : "ok";
}

double Finding::figure(const std::string& name) const {
  const auto found = std::find_if(figures.begin(), figures.end(),
                                  [&](const Figure& figure) { return figure.name == name; });
  return found == figures.end() ? std::numeric_limits<double>::quiet_NaN() : found->value;
}

bool Limits::any() const {
  const std::array<Limit, 7> limits = all_of(*this);
  return std::any_of(limits.begin(), limits.end(), [](const Limit& limit) { return limit; });
}

const Finding* Judgement::find(const std::string& id) const {
  const auto found = std::find_if(findings.begin(), findings.end(),
                                  [&](const Finding& finding) { return finding.id == id; });
  return found == findings.end() ? nullptr : &*found;
}

Level Judgement::worst() const {
  Level worst = Level::kOk;
  for (const Finding& finding : findings) worst = std::max(worst, finding.level);
  return worst;
}

Judgement conclude(std::vector<Finding> findings, const Limits& limits) {
  check(limits);
  Judgement judgement;
  for (const Level level : {Level::kBad, Level::kWarn, Level::kOk}) {
    std::copy_if(findings.begin(), findings.end(), std::back_inserter(judgement.findings),
                 [=](const Finding& finding) { return finding.level == level; });
  }
  judgement.verdict = verdict_of(judgement.worst(), limits);
  return judgement;
}

}  // namespace kestrane::quality
