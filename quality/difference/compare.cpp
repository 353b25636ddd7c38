// The difference of two tables, with and without the rigid motion that explains most of it.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <stdexcept>

#include "kestrane/quality/difference.h"
#include "quality/cells.h"
#include "quality/field/motion_rows.h"
#include "quality/field/rigid_motion.h"
#include "quality/field/sheet_blocks.h"

namespace kestrane::quality {
namespace {

constexpr double kNotANumber = std::numeric_limits<double>::quiet_NaN();
constexpr std::size_t kPlaneBlocks = PlaneTable::kLines * PlaneTable::kCells;

// A table file keeps six digits: half a unit of the last one is at most 5e-6 of the number, and
// both tables may come from files.
constexpr double kSixDigits = 1e-5;

// Equal but for the digits that a table file does not keep; never for a NaN.
bool same(double a, double b) {
  return std::abs(a - b) <= kSixDigits * std::max(std::abs(a), std::abs(b));
}

bool same_bounds(const _LASER_PLANE_GRIDS& a, const _LASER_PLANE_GRIDS& b) {
  return std::equal(std::begin(a.grid_y_start), std::end(a.grid_y_start), b.grid_y_start, same) &&
         std::equal(std::begin(a.grid_y_step), std::end(a.grid_y_step), b.grid_y_step, same) &&
         same(a.z_start, b.z_start) && same(a.z_step, b.z_step);
}

void require_alike(const PlaneTable& a, const PlaneTable& b) {
  if (a.planes() != b.planes()) {
    throw std::invalid_argument("tables of " + std::to_string(a.planes()) + " and " +
                                std::to_string(b.planes()) + " planes have no difference");
  }
  if (!same_bounds(a.grids(), b.grids())) {
    throw std::invalid_argument("tables with different bounds of their blocks have no difference");
  }
}

// A block of both tables and how far b lies from a there, along a's normal.
struct Step {
  SheetBlock block;
  double value;
};

std::vector<SheetBlock> blocks_in(const PlaneTable& table, const WorkingVolume& volume) {
  return sheet_blocks(table, 0, table.planes() - 1,
                      [&](const FanPlace& middle) { return volume.holds(middle.y, middle.z); });
}

std::vector<Step> steps_between(const PlaneTable& b, const std::vector<SheetBlock>& blocks) {
  std::vector<Step> steps;
  for (const SheetBlock& block : blocks) {
    if (b.is_empty(block.plane, block.at)) continue;
    const _LASER_TRIPLE& abc = b.cell(block.plane, block.at);
    const double x = plane_x(abc, block.point.y(), block.point.z());
    steps.push_back({block, (x - block.point.x()) * block.normal.x()});
  }
  return steps;
}

std::vector<Eigen::Vector3d> places_of(const std::vector<Step>& steps) {
  std::vector<Eigen::Vector3d> places;
  places.reserve(steps.size());
  for (const Step& step : steps) places.push_back(step.block.point);
  return places;
}

// The smallest motion whose displacements are nearest to the steps.
Vector6 nearest_motion(const std::vector<Step>& steps, const MotionFrame& frame) {
  Matrix6 normal_matrix = Matrix6::Zero();
  Vector6 right = Vector6::Zero();
  for (const Step& step : steps) {
    const Vector6 row = motion_row(frame, step.block.point, step.block.normal);
    normal_matrix += row * row.transpose();
    right += row * step.value;
  }
  return motion_spectrum(normal_matrix).inverse() * right;
}

// Sums of one plane, or of all.
struct Sums {
  std::int32_t blocks = 0;
  double squares = 0.0;
  double max = 0.0;
  double rest_squares = 0.0;
  double rest_max = 0.0;

  void add(double value, double rest) {
    ++blocks;
    squares += value * value;
    rest_squares += rest * rest;
    max = std::max(max, std::abs(value));
    rest_max = std::max(rest_max, std::abs(rest));
  }
  double rms() const { return std::sqrt(squares / blocks); }
  double rest() const { return std::sqrt(rest_squares / blocks); }
};

PlaneDifference plane_difference(const Sums& sums) {
  if (sums.blocks == 0) return {0, kNotANumber, kNotANumber, kNotANumber};
  return {sums.blocks, sums.rms(), sums.max, sums.rest()};
}

void mark_largest(const std::vector<Step>& steps, Difference& difference) {
  const Step& largest = *std::max_element(
      steps.begin(), steps.end(),
      [](const Step& a, const Step& b) { return std::abs(a.value) < std::abs(b.value); });
  difference.plane = largest.block.plane;
  difference.block = largest.block.at;
  difference.place = {largest.block.point.y(), largest.block.point.z()};
}

std::size_t place_of(const SheetBlock& block) {
  return static_cast<std::size_t>(block.plane) * kPlaneBlocks +
         static_cast<std::size_t>(block.at.line * PlaneTable::kCells + block.at.cell);
}

void measure(const std::vector<Step>& steps, std::int32_t planes, Difference& difference) {
  std::vector<Sums> sums(static_cast<std::size_t>(planes));
  const MotionFrame frame = motion_frame(places_of(steps));
  const Vector6 rigid = nearest_motion(steps, frame);
  Sums all;
  for (const Step& step : steps) {
    const double rest =
        step.value - motion_row(frame, step.block.point, step.block.normal).dot(rigid);
    all.add(step.value, rest);
    sums[static_cast<std::size_t>(step.block.plane)].add(step.value, rest);
    difference.values[place_of(step.block)] = step.value;
    difference.rests[place_of(step.block)] = rest;
  }
  for (const Sums& plane : sums) difference.planes.push_back(plane_difference(plane));
  difference.rigid = record_of(motion_of(rigid, frame));
  difference.rms = all.rms();
  difference.max = all.max;
  difference.rest = all.rest();
  difference.rest_max = all.rest_max;
  if (all.squares > 0.0) difference.explained = 1.0 - all.rest_squares / all.squares;
}

}  // namespace

Difference compare(const PlaneTable& a, const PlaneTable& b, const WorkingVolume& volume) {
  require_alike(a, b);
  const std::vector<SheetBlock> blocks_a = blocks_in(a, volume);
  const std::vector<Step> steps = steps_between(b, blocks_a);
  const std::size_t blocks_b = blocks_in(b, volume).size();
  Difference difference;
  difference.blocks = static_cast<std::int32_t>(steps.size());
  difference.only_in_one = static_cast<std::int32_t>(blocks_a.size() + blocks_b - 2 * steps.size());
  difference.explained = kNotANumber;
  difference.values.assign(static_cast<std::size_t>(a.planes()) * kPlaneBlocks, kNotANumber);
  difference.rests = difference.values;
  if (steps.empty()) {
    difference.refused = "no block of the volume has a plane in both tables";
    return difference;
  }
  measure(steps, a.planes(), difference);
  mark_largest(steps, difference);
  return difference;
}

}  // namespace kestrane::quality
