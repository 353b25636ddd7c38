// How well the uncertainties of field calibrations agree with the errors of many known motions.
//
// in    a kind of device, and how many of it
// out   predicted beside observed, and how far the smallest motions lie from the truth
#pragma once

#include <algorithm>
#include <cmath>
#include <vector>

#include "kestrane/quality/field.h"
#include "tests/quality/field/field_scene.h"

namespace field_study {

struct Study {
  int seeds = 0;
  int refused = 0;
  double predicted = 0.0;      // root mean square over the seeds of the displacement's sigma
  double observed = 0.0;       // root mean square over seeds and blocks of its error
  int fixed = 0;               // fixed directions of all seeds
  int within_three = 0;        // of these, smallest motion within 3 sigma of the truth
  double farthest = 0.0;       // in sigma, over all fixed directions
  double not_fixed = 0.0;      // largest part of a smallest motion along what is not fixed
  int displacement_right = 0;  // seeds whose error is at most 3 of its own sigma

  double ratio() const { return predicted / observed; }
  double share_within_three() const { return static_cast<double>(within_three) / fixed; }
};

inline double along(const kestrane::quality::MotionDirection& direction,
                    const std::vector<double>& lengths) {
  double sum = 0.0;
  for (std::size_t i = 0; i < 6; ++i) sum += direction.vector[i] * lengths[i];
  return sum;
}

// Adds what the directions of one run say about its smallest motion.
inline void add_directions(const field_scene::Scene& scene,
                           const kestrane::quality::FieldResult& result, Study& study) {
  const std::vector<double> truth = field_scene::lengths(scene.motion, result);
  const std::vector<double> found = field_scene::lengths(result.smallest_motion, result);
  for (const kestrane::quality::MotionDirection& direction : result.directions) {
    if (!direction.fixed) {
      study.not_fixed = std::max(study.not_fixed, std::abs(along(direction, found)));
      continue;
    }
    const double miss =
        std::abs(along(direction, found) - along(direction, truth)) / direction.sigma;
    ++study.fixed;
    study.within_three += miss <= 3.0 ? 1 : 0;
    study.farthest = std::max(study.farthest, miss);
  }
}

// Devices, motions and noise all differ from seed to seed.
inline Study run(field_scene::Settings settings, int seeds) {
  Study study;
  for (int seed = 1; seed <= seeds; ++seed) {
    settings.seed = static_cast<std::uint64_t>(seed);
    const field_scene::Scene scene = field_scene::make(settings);
    const auto result = kestrane::quality::calibrate_field(scene.table, scene.frames);
    if (!result.refused.empty()) {
      ++study.refused;
      continue;
    }
    const auto places = field_scene::places(scene.table, 0, settings.planes - 1);
    const double error = field_scene::apart(places, result.motion, scene.motion);
    study.observed += error * error;
    study.predicted += result.displacement.sigma * result.displacement.sigma;
    study.displacement_right += error <= 3.0 * result.displacement.sigma ? 1 : 0;
    add_directions(scene, result, study);
    ++study.seeds;
  }
  study.observed = std::sqrt(study.observed / study.seeds);
  study.predicted = std::sqrt(study.predicted / study.seeds);
  return study;
}

}  // namespace field_study
