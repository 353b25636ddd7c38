#include "quality/refinement/frame_check.h"

#include <algorithm>
#include <cmath>

#include "quality/refinement/robust_scale.h"

namespace kestrane::quality::refinement {
namespace {
constexpr std::size_t kFewestFrames = 8;
}

FrameMedians frame_medians(const std::vector<Sample>& samples, const std::vector<double>& residuals,
                           std::size_t frames, std::vector<double>& scratch) {
  FrameMedians medians;
  medians.samples.assign(frames, 0);
  for (const Sample& s : samples) ++medians.samples[static_cast<std::size_t>(s.frame)];
  // Residuals frame by frame: a counting sort.
  std::vector<std::size_t> end(frames, 0);
  for (std::size_t f = 1; f < frames; ++f) end[f] = end[f - 1] + medians.samples[f - 1];
  scratch.resize(samples.size());
  std::vector<double>& sorted = scratch;
  for (std::size_t n = 0; n < samples.size(); ++n)
    sorted[end[static_cast<std::size_t>(samples[n].frame)]++] = residuals[n];
  std::size_t first = 0;
  for (std::size_t f = 0; f < frames; ++f) {
    medians.median.push_back(median_of(std::span(sorted).subspan(first, medians.samples[f])));
    first = end[f];
  }
  std::vector<double> distances = medians.median;
  medians.middle = median_of(distances);
  for (std::size_t f = 0; f < frames; ++f)
    distances[f] = std::abs(medians.median[f] - medians.middle);
  medians.spread = kNormalMad * median_of(distances);
  return medians;
}

std::vector<std::uint8_t> taken_frames(const FrameMedians& medians, double scale, double cut) {
  std::vector<std::uint8_t> taken(medians.median.size(), 1);
  if (taken.size() < kFewestFrames || cut == 0.0) return taken;
  for (std::size_t f = 0; f < taken.size(); ++f) {
    const double own = scale / std::sqrt(static_cast<double>(medians.samples[f]));
    const double distance = std::abs(medians.median[f] - medians.middle);
    taken[f] = distance > cut * std::max(medians.spread, own) ? 0 : 1;
  }
  return taken;
}

}  // namespace kestrane::quality::refinement
