#include "quality/refinement/choice.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <optional>
#include <utility>

#include "quality/refinement/robust_scale.h"
#include "quality/refinement/validation.h"

namespace kestrane::quality::refinement {
namespace {

constexpr std::size_t kFewestGroups = 5;  // with fewer, errors of frames cannot be seen
constexpr std::size_t kScouts = 5;        // groups that every candidate is tried on first
constexpr std::size_t kPatience = 4;      // candidates in a row that have nothing to win
constexpr double kScoutAdvantage = 1.0;   // standard errors on the scouted groups to be kept
constexpr double kPassed = 5.0;           // by which a later candidate makes one superfluous

// Smoothest first.
constexpr std::array<double, 11> kLambdas = {1e5,  1e4,  1e3,  1e2,  1e1, 1.0,
                                             1e-1, 1e-2, 1e-3, 1e-4, 1e-5};

struct Candidate {
  Damping damping;
  double degrees = 0.0;
  std::vector<double> errors;  // mean squared residual per group; NaN where not evaluated
  bool beaten = false;
};

const BandedMatrix& penalty_of(const BandedMatrix (&penalties)[2], const Damping& damping) {
  return penalties[damping.order - 2];
}

// The candidates of both orders by ascending degrees of freedom, one at a time: what is never asked
// for costs nothing.
class Candidates {
 public:
  Candidates(const NormalEquations& all, const BandedMatrix (&penalties)[2], std::size_t groups)
      : all_(all), penalties_(penalties), groups_(groups), next_{look(2, 0), look(3, 0)} {}

  std::optional<Candidate> next() {
    const bool third = !next_[0] || (next_[1] && next_[1]->degrees < next_[0]->degrees);
    std::optional<Candidate>& taken = next_[third ? 1 : 0];
    if (!taken) return std::nullopt;
    std::optional<Candidate> result = std::move(taken);
    taken = look(result->damping.order, ++place_[third ? 1 : 0]);
    return result;
  }

 private:
  // The candidate at a place of the lambdas, or the next one whose system has a factor.
  std::optional<Candidate> look(int order, std::size_t place) {
    for (; place < kLambdas.size(); ++place) {
      const Damping damping{order, kLambdas[place]};
      if (!solve_damped(all_, nullptr, penalty_of(penalties_, damping), damping.lambda, factor_,
                        values_))
        continue;
      place_[order - 2] = place;
      return Candidate{damping, trace_of_product(invert(factor_), all_.matrix),
                       std::vector<double>(groups_, std::numeric_limits<double>::quiet_NaN())};
    }
    return std::nullopt;
  }

  const NormalEquations& all_;
  const BandedMatrix (&penalties_)[2];
  std::size_t groups_;
  BandedMatrix factor_;
  std::vector<double> values_;
  std::size_t place_[2] = {0, 0};
  std::optional<Candidate> next_[2];
};

// Not a number where a group has no sample.
double mean_of(const Squares& squares) { return squares.sum / static_cast<double>(squares.count); }

// Whether some simpler candidate predicts the scouted groups about as well: then this one has
// nothing to win. The plane is never beaten, everything is measured against it.
bool is_beaten(const Candidate& candidate, const std::vector<Candidate>& simpler,
               const std::vector<std::size_t>& scouts) {
  return std::any_of(simpler.begin(), simpler.end(), [&](const Candidate& held) {
    return !(advantage(held.errors, candidate.errors, scouts) > kScoutAdvantage);
  });
}

// Whether a later candidate is so much better that this one cannot be the last to be held.
bool is_passed(std::size_t at, const std::vector<Candidate>& candidates,
               const std::vector<std::size_t>& scouts) {
  if (at == 0) return false;
  for (std::size_t later = at + 1; later < candidates.size(); ++later) {
    if (advantage(candidates[at].errors, candidates[later].errors, scouts) > kPassed) return true;
  }
  return false;
}

// All candidates worth a closer look, with their errors on the scouted groups.
std::vector<Candidate> scout(Validation& validation, Candidates candidates,
                             const BandedMatrix (&penalties)[2],
                             const std::vector<std::size_t>& scouts) {
  std::vector<NormalEquations> without;
  without.reserve(scouts.size());
  for (const std::size_t group : scouts) without.push_back(validation.equations_of_group(group));
  std::vector<Candidate> tried;
  std::size_t beaten = 0;
  for (auto next = candidates.next(); next && beaten < kPatience; next = candidates.next()) {
    for (std::size_t s = 0; s < scouts.size(); ++s) {
      next->errors[scouts[s]] = mean_of(validation.errors_of(
          scouts[s], without[s], penalty_of(penalties, next->damping), next->damping.lambda));
    }
    next->beaten = is_beaten(*next, tried, scouts);
    beaten = next->beaten ? beaten + 1 : 0;
    tried.push_back(std::move(*next));
  }
  std::erase_if(tried, [](const Candidate& candidate) { return candidate.beaten; });
  std::vector<Candidate> left;
  for (std::size_t c = 0; c < tried.size(); ++c)
    if (!is_passed(c, tried, scouts)) left.push_back(tried[c]);
  return left;
}

// The errors of the candidates on the groups that were not scouted.
void complete(Validation& validation, const BandedMatrix (&penalties)[2],
              const std::vector<std::size_t>& scouts, std::vector<Candidate>& candidates) {
  for (std::size_t group = 0; group < candidates.front().errors.size(); ++group) {
    if (std::find(scouts.begin(), scouts.end(), group) != scouts.end()) continue;
    const NormalEquations without = validation.equations_of_group(group);
    for (Candidate& candidate : candidates) {
      candidate.errors[group] = mean_of(validation.errors_of(
          group, without, penalty_of(penalties, candidate.damping), candidate.damping.lambda));
    }
  }
}

}  // namespace

double caution(std::size_t groups) { return groups <= 5 ? 1.3 : groups <= 10 ? 1.1 : 1.0; }

std::vector<std::size_t> scouts_of(std::size_t groups) {
  const std::size_t step = (groups + kScouts - 1) / kScouts;
  std::vector<std::size_t> scouts;
  for (std::size_t g = 0; g < groups; g += step) scouts.push_back(g);
  return scouts;
}

double advantage(const std::vector<double>& held, const std::vector<double>& other,
                 const std::vector<std::size_t>& scouts) {
  const auto n = static_cast<double>(std::ssize(scouts));
  double mean = 0.0;
  for (const std::size_t g : scouts) mean += (held[g] - other[g]) / n;
  double squares = 0.0;
  for (const std::size_t g : scouts) {
    const double d = (held[g] - other[g]) - mean;
    squares += d * d;
  }
  return mean / std::sqrt(squares / (n - 1.0) / n);
}

bool is_significantly_better(const std::vector<double>& held, const std::vector<double>& other,
                             double significance) {
  const auto n = static_cast<double>(std::ssize(held));
  // Errors below the least scale are rounding: without noise nothing is better than a plane.
  const auto size = [](double error) { return std::max(std::sqrt(error), kLeastScale); };
  double squares_gained = 0.0;
  double mean = 0.0;
  for (std::size_t g = 0; g < held.size(); ++g) {
    squares_gained += held[g] - other[g];
    mean += (size(held[g]) - size(other[g])) / n;
  }
  double squares = 0.0;
  for (std::size_t g = 0; g < held.size(); ++g) {
    const double d = (size(held[g]) - size(other[g])) - mean;
    squares += d * d;
  }
  const double deviation = std::sqrt(squares / (n - 1.0));
  // False where any error is not a number.
  return squares_gained > 0.0 &&
         mean > significance * caution(held.size()) * deviation / std::sqrt(n);
}

Damping choose_damping(const Problem& problem, const NormalEquations& all, const Groups& groups,
                       const BandedMatrix (&penalties)[2], double significance) {
  const std::size_t count = groups.members.size();
  if (count < kFewestGroups) return kPlaneDamping;
  Validation validation(problem, all, groups);
  const std::vector<std::size_t> scouts = scouts_of(count);
  std::vector<Candidate> candidates =
      scout(validation, Candidates(all, penalties, count), penalties, scouts);
  if (candidates.empty()) return kPlaneDamping;
  if (candidates.size() > 1) complete(validation, penalties, scouts, candidates);
  const Candidate* held = &candidates.front();
  for (const Candidate& candidate : candidates) {
    if (is_significantly_better(held->errors, candidate.errors, significance)) held = &candidate;
  }
  return held->damping;
}

}  // namespace kestrane::quality::refinement
