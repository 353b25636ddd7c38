#include "quality/field/sheet_displacement.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>

namespace kestrane::quality {
namespace {

// Middles of the block rows inside the depths 220 to 350 that the job fits planes in.
constexpr double kNearest = 244.5;
constexpr double kFarthest = 325.5;
constexpr double kNotANumber = std::numeric_limits<double>::quiet_NaN();

// Mean variance of the displacement over the blocks.
double mean_variance(const std::vector<SheetBlock>& blocks, const RigidMotion& motion,
                     const MotionFigures& figures) {
  const Matrix6 covariance = figures.observed * figures.covariance.widest() * figures.observed;
  double sum = 0.0;
  for (const SheetBlock& block : blocks) {
    const Vector6 row = motion_row(figures.frame, block.point, motion.R * block.normal);
    sum += row.dot(covariance * row);
  }
  return std::max(0.0, sum) / static_cast<double>(std::ssize(blocks));
}

}  // namespace

std::vector<SheetBlock> displacement_blocks(const PlaneTable& table, std::int32_t first,
                                            std::int32_t last) {
  return sheet_blocks(table, first, last, [](const FanPlace& middle) {
    return middle.z >= kNearest && middle.z <= kFarthest;
  });
}

Displacement sheet_displacement(const std::vector<SheetBlock>& blocks, const RigidMotion& motion,
                                const MotionFigures& figures) {
  if (blocks.empty()) return {kNotANumber, kNotANumber, kNotANumber, 0, {0, 0}};
  const Eigen::Matrix3d turn = motion.R - Eigen::Matrix3d::Identity();
  Displacement displacement;
  double squares = 0.0;
  displacement.max = -1.0;
  for (const SheetBlock& block : blocks) {
    const double along = block.normal.dot(turn * block.point + motion.t);
    squares += along * along;
    if (!(std::abs(along) > displacement.max)) continue;
    displacement.max = std::abs(along);
    displacement.plane = block.plane;
    displacement.block = block.at;
  }
  displacement.rms = std::sqrt(squares / static_cast<double>(std::ssize(blocks)));
  displacement.sigma = figures.covariance.by_frame_known
                           ? std::sqrt(mean_variance(blocks, motion, figures))
                           : kNotANumber;
  return displacement;
}

}  // namespace kestrane::quality
