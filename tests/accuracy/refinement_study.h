// How far the tables of the plain job, of the optimised job and of the refinement lie from a
// simulated truth: the study behind the figures of the documents and the bounds of the tests.
//
// in    a kind of device and cloud, a number of devices
// out   errors of x in mm over the blocks that hold points, pooled over all planes
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kestrane/quality/refinement.h"
#include "simulation/scanner.h"

namespace accuracy {

// A device and how it is measured. Two planes of each device are looked at.
struct Scenario {
  std::string name;
  double bow = 0.5;
  double ripple = 0.0;
  double kink = 0.0;
  double edge = 0.0;
  simulation::CloudSettings cloud;  // 20 frames, its seed is set by the study
  double ghost = 0.0;               // x of a patch of second reflections off the sheet; 0 for none
};

Scenario scenario(std::string name, int points);

// The cloud of a plane of a device: the points, and the sheet that they were measured on.
struct Measured {
  simulation::Sheet sheet;
  std::vector<_KESTRANE_ID_POINT3D> points;
  std::vector<std::int32_t> bad_frames;
};

// run  0 or 1: two measurements of the same device
Measured measure(const Scenario& scenario, std::uint64_t device, int plane, int run);

// Errors of a table's row.
struct Scores {
  double rms = 0.0;            // over 5 x 5 places of every block that holds points
  double p99 = 0.0;            // 99 % of the sizes
  double steps = 0.0;          // RMS of the steps of x at the edges between neighbouring blocks
  double repeatability = 0.0;  // RMS of the difference of two runs over the square root of 2
  int planes = 0;              // that had a table
};

enum class Method { kPlain, kOptimised, kRefined, kFlat };

// A row of 15 x 50 cells; nothing where the method fails. kFlat is one robust plane in every block.
std::optional<std::vector<kestrane::_LASER_TRIPLE>> calibrate(
    Method method, const std::vector<_KESTRANE_ID_POINT3D>& points);

Scores study(const Scenario& scenario, Method method, int devices);

// RMS of x over the truth of one row: blocks that hold points.
double row_error(const std::vector<kestrane::_LASER_TRIPLE>& cells, const Measured& measured);

}  // namespace accuracy
