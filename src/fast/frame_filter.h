// First cleaning stage: drops capture frames that lie too far from the standard.
//
// in    one list of points per laser plane, the standard
// out   the same lists without the points of rejected frames, order kept
//
// Time is linear in the points and extra memory a fraction of them, however far apart the frame
// numbers are.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "fast/point_sets.h"
#include "fast/residual_measurement.h"

namespace kestrane {

// The frame numbers that can be told apart, all lists alike.
struct FrameRange {
  std::int64_t first;  // frame number of bucket 0
  std::int64_t count;  // buckets; 0 for a list without points

  bool holds(std::int32_t id) const { return id >= first && id - first < count; }
};

// The range of a list's ids, widened to reach from at most 1410065408 up to at least 0.
FrameRange frame_range(const std::vector<_KESTRANE_ID_POINT3D>& list);

// Which frames of one list are too far off, one flag per mean.
//
// means    the mean distance of each frame that has points
// numbers  the bucket number of each, ascending
// limit    a mean has to lie below it; a NaN on either side rejects
//
// A frame at position i is spared where the bucket number i is rejected already: the test is on
// the position, the entry is the bucket number, and the two part where a lower bucket is empty.
std::vector<bool> reject_frames(const std::vector<double>& means,
                                const std::vector<std::uint32_t>& numbers, double limit);

// Measures each frame against the standard as it stands and keeps those whose mean distance lies
// below 1.5 times the running average. That average carries over from list to list with the weight
// of one frame, and a NaN or an infinity in it stays for all later lists. Frame numbers outside
// the range of the first list are dropped, so an empty first list leaves nothing.
//
// filtered  resized to the lists of `frames`; points are appended
//
// Hands out the figures of the last frame that was measured; empty without any.
std::optional<ResidualIndicators> filter_frames(const FrameLists& frames,
                                                const _LASER_PLANE_BLOCK_INFOS& standard,
                                                std::int32_t first_plane, FrameLists& filtered);

}  // namespace kestrane
