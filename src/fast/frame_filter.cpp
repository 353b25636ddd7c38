#include "fast/frame_filter.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <iterator>

namespace kestrane {
namespace {

using PointList = std::vector<_KESTRANE_ID_POINT3D>;

// Where the scan for the smallest and the largest id starts. Lists without a frame number of 0 or
// above still get a range that reaches up to 0.
constexpr std::int64_t kSmallestIdFrom = 1410065408;
constexpr std::int64_t kLargestIdFrom = 0;

constexpr double kLimitFactor = 1.5;
constexpr _MRV_EXTRINSIC_PARAM kIdentity = {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 0, 0}};

// A point of the list and the bucket that its frame number leads to.
struct BucketEntry {
  std::uint32_t bucket;
  std::uint32_t point;
};

// One capture frame of a list: the entries from `begin` on, up to the next frame's.
struct Frames {
  std::vector<std::size_t> begin;  // one more than frames
  std::vector<std::uint32_t> numbers;
  std::vector<double> means;
};

void take_entries(const PointList& list, const FrameRange& range,
                  std::vector<BucketEntry>& entries) {
  entries.clear();
  for (std::size_t i = 0; i < list.size(); ++i) {
    if (!range.holds(list[i].id)) continue;
    entries.push_back(
        {static_cast<std::uint32_t>(list[i].id - range.first), static_cast<std::uint32_t>(i)});
  }
}

// Ascending by bucket, input order within one: a counting sort per byte that any bucket number
// uses, so that neither time nor memory follows the gaps between frame numbers.
void sort_by_bucket(std::vector<BucketEntry>& entries, std::vector<BucketEntry>& spare) {
  const auto precedes = [](const BucketEntry& a, const BucketEntry& b) {
    return a.bucket < b.bucket;
  };
  if (std::is_sorted(entries.begin(), entries.end(), precedes))
    return;  // as a device delivers them
  std::uint32_t used = 0;
  for (const BucketEntry& entry : entries) used |= entry.bucket;
  const auto bits = static_cast<int>(std::bit_width(used));  // unsigned in some libraries
  for (int shift = 0; shift < bits; shift += 8) {
    std::array<std::size_t, 257> start{};
    for (const BucketEntry& entry : entries) ++start[((entry.bucket >> shift) & 255U) + 1];
    for (std::size_t digit = 1; digit < start.size(); ++digit) start[digit] += start[digit - 1];
    spare.resize(entries.size());
    for (const BucketEntry& entry : entries) spare[start[(entry.bucket >> shift) & 255U]++] = entry;
    entries.swap(spare);
  }
}

// Sums each frame's distances in input order. The meter ends with the last frame.
void measure_frames(const PointList& list, const std::vector<BucketEntry>& entries,
                    MovedPlane& plane, ResidualMeter& meter, Frames& frames) {
  frames.begin.clear();
  frames.numbers.clear();
  frames.means.clear();
  for (std::size_t e = 0; e < entries.size();) {
    const std::uint32_t bucket = entries[e].bucket;
    frames.begin.push_back(e);
    frames.numbers.push_back(bucket);
    meter.clear();
    for (; e < entries.size() && entries[e].bucket == bucket; ++e) {
      const _KESTRANE_ID_POINT3D& point = list[entries[e].point];
      double distance;
      if (plane.measure(point.x, point.y, point.z, distance)) meter.add(distance);
    }
    frames.means.push_back(meter.mean());
  }
  frames.begin.push_back(entries.size());
}

// The running average goes on from the list before: deliberately never set back to zero.
void advance_limit_base(const std::vector<double>& means, double& limit_base) {
  for (const double mean : means) limit_base += mean;  // order fixed
  limit_base /= static_cast<double>(std::ssize(means));
}

void append_kept(const PointList& list, const std::vector<BucketEntry>& entries,
                 const Frames& frames, const std::vector<bool>& rejected, PointList& kept) {
  std::vector<bool> keep(list.size(), false);
  for (std::size_t f = 0; f < rejected.size(); ++f) {
    if (rejected[f]) continue;
    for (std::size_t e = frames.begin[f]; e < frames.begin[f + 1]; ++e) {
      keep[entries[e].point] = true;
    }
  }
  for (std::size_t i = 0; i < list.size(); ++i) {
    if (keep[i]) kept.push_back(list[i]);
  }
}

}  // namespace

FrameRange frame_range(const PointList& list) {
  std::int64_t smallest = kSmallestIdFrom;
  std::int64_t largest = kLargestIdFrom;
  for (const _KESTRANE_ID_POINT3D& point : list) {
    smallest = std::min<std::int64_t>(smallest, point.id);
    largest = std::max<std::int64_t>(largest, point.id);
  }
  return {smallest, std::max<std::int64_t>(largest - smallest + 1, 0)};
}

std::vector<bool> reject_frames(const std::vector<double>& means,
                                const std::vector<std::uint32_t>& numbers, double limit) {
  std::vector<bool> rejected(means.size(), false);
  std::size_t holder = 0;  // the position whose bucket number is the position under test
  for (std::size_t i = 0; i < means.size(); ++i) {
    while (numbers[holder] < i) ++holder;  // ends at i at the latest: numbers[i] >= i
    const bool spared = numbers[holder] == i && rejected[holder];
    if (!(limit > means[i]) && !spared) rejected[i] = true;
  }
  return rejected;
}

std::optional<ResidualIndicators> filter_frames(const FrameLists& frames,
                                                const _LASER_PLANE_BLOCK_INFOS& standard,
                                                std::int32_t first_plane, FrameLists& filtered) {
  filtered.resize(frames.size());
  if (frames.empty()) return std::nullopt;
  const FrameRange range = frame_range(frames.front());
  MovedPlane plane(standard, kIdentity);
  ResidualMeter meter;
  std::vector<BucketEntry> entries;
  std::vector<BucketEntry> spare;
  Frames list_frames;
  bool measured = false;
  double limit_base = 0.0;
  for (std::size_t f = 0; f < frames.size(); ++f) {
    filtered[f].reserve(frames[f].size());
    take_entries(frames[f], range, entries);
    sort_by_bucket(entries, spare);
    plane.select(first_plane + static_cast<std::int32_t>(f));
    measure_frames(frames[f], entries, plane, meter, list_frames);
    measured = measured || !entries.empty();
    advance_limit_base(list_frames.means, limit_base);
    append_kept(frames[f], entries, list_frames,
                reject_frames(list_frames.means, list_frames.numbers, kLimitFactor * limit_base),
                filtered[f]);
  }
  if (!measured) return std::nullopt;
  return meter.indicators();
}

}  // namespace kestrane
