#include "quality/factory/poses.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>

#include "quality/factory/grouping.h"
#include "quality/factory/order_statistics.h"

namespace kestrane::quality {
namespace {

// What within and between are made of.
class FrameScatter {
 public:
  void add(std::span<const double> residuals, const Spread& spread) {
    double sum = 0.0;
    double count = 0.0;
    for (const double r : residuals) {
      if (spread.is_outlier(r)) continue;
      sum += r;
      count += 1.0;
    }
    if (count == 0.0) return;
    const double mean = sum / count;
    for (const double r : residuals) {
      if (!spread.is_outlier(r)) inside_ += (r - mean) * (r - mean);
    }
    counts_.push_back(count);
    means_.push_back(mean);
    points_ += count;
    total_ += sum;
  }

  double within_variance() const { return inside_ / points_; }

  double between_variance() const {
    if (means_.size() < 2) return kNotDetermined;
    const double mean = total_ / points_;
    double squares = 0.0;
    for (std::size_t f = 0; f < means_.size(); ++f) {
      squares += counts_[f] * (means_[f] - mean) * (means_[f] - mean);
    }
    const double points_per_frame = points_ / static_cast<double>(std::ssize(means_));
    return std::max(0.0, squares / points_ - within_variance() / points_per_frame);
  }

 private:
  std::vector<double> counts_;
  std::vector<double> means_;
  double points_ = 0.0;
  double total_ = 0.0;
  double inside_ = 0.0;
};

}  // namespace

PoseSpread pose_figures(const PlanePoints& points, const std::vector<std::int32_t>& frames,
                        const Spread& spread) {
  Groups residuals(frames.size(), [&](auto take) {
    for (std::size_t i = 0; i < points.size(); ++i) {
      take(static_cast<std::size_t>(points.pose[i]), points.residual[i]);
    }
  });
  PoseSpread result;
  FrameScatter scatter;
  for (std::size_t f = 0; f < frames.size(); ++f) {
    scatter.add(residuals.of(f), spread);
    PoseFigures pose;
    pose.frame = frames[f];
    pose.points = static_cast<std::int64_t>(residuals.of(f).size());
    pose.median = median_of(residuals.of(f));
    pose.off = std::abs(pose.median - spread.median) > spread.reach();
    result.poses.push_back(pose);
  }
  result.within = std::sqrt(scatter.within_variance());
  result.between = std::sqrt(scatter.between_variance());
  return result;
}

}  // namespace kestrane::quality
