// A simulated device that is calibrated many times, and what its cells scatter by.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "kestrane/quality/factory.h"
#include "simulation/scanner.h"

namespace device_runs {

using kestrane::quality::Block;
using kestrane::quality::FactoryResult;
using kestrane::quality::Origin;
using kestrane::quality::PointList;

inline constexpr std::size_t kBlocks = 750;

// One cloud per plane; the same device for every seed, another noise.
inline std::vector<PointList> clouds_of_device(int planes, double bow, std::uint64_t seed,
                                               simulation::CloudSettings cloud) {
  simulation::DeviceSettings device;
  device.planes = planes;
  device.bow = bow;
  std::vector<PointList> clouds;
  for (const simulation::Sheet& sheet : simulation::make_device(device)) {
    cloud.seed = seed * 1000 + clouds.size();
    clouds.push_back(simulation::measure(sheet, cloud).points);
  }
  return clouds;
}

// Puts a cloud's points about the axis, of the frames that `is_tilted` takes, on a plane across the
// depth: z rises by the last digit of 256 where x rises by 20. The corners of its sector lie as far
// as 1e17 off, and the blocks between them and others have no part in x left: they have no plane.
template <class IsTilted>
void tilt_middle(PointList& cloud, const IsTilted& is_tilted) {
  int n = 0;
  for (auto& point : cloud) {
    if (!(std::abs(point.y) < 0.036 * point.z) || !is_tilted(point)) continue;
    const int steps = (n * 37) % 101 - 50;
    point.x = 100.0 + 20.0 * steps;
    point.y = ((n * 53) % 97 - 48) / 6.0;
    point.z = 256.0 + std::ldexp(steps, -44);
    ++n;
  }
}

// x at the middles of all blocks, plane after plane.
inline std::vector<double> xs_of(const FactoryResult& result) {
  std::vector<double> xs;
  for (std::int32_t p = 0; p < result.table.planes(); ++p) {
    for (std::size_t b = 0; b < kBlocks; ++b) {
      const Block at{static_cast<std::int32_t>(b / 50), static_cast<std::int32_t>(b % 50)};
      const auto middle = result.table.block_middle(at);
      xs.push_back(result.table.x_at(p, middle.y, middle.z));
    }
  }
  return xs;
}

// Which blocks are measured, plane after plane.
inline std::vector<bool> measured_in(const FactoryResult& result) {
  std::vector<bool> measured;
  for (const auto& plane : result.planes) {
    for (std::size_t b = 0; b < kBlocks; ++b) {
      measured.push_back(!plane.blocks.empty() && plane.blocks[b].origin == Origin::kMeasured);
    }
  }
  return measured;
}

// Blocks that are measured in all runs.
inline std::vector<bool> measured_in_all(const std::vector<std::vector<bool>>& runs) {
  std::vector<bool> all = runs.front();
  for (const std::vector<bool>& run : runs) {
    for (std::size_t c = 0; c < all.size(); ++c) all[c] = all[c] && run[c];
  }
  return all;
}

inline std::vector<double> mean_of(const std::vector<std::vector<double>>& runs) {
  std::vector<double> mean(runs.front().size(), 0.0);
  for (const std::vector<double>& xs : runs) {
    for (std::size_t c = 0; c < xs.size(); ++c) mean[c] += xs[c] / static_cast<double>(runs.size());
  }
  return mean;
}

}  // namespace device_runs
