#include "quality/frame_ids.h"

#include <algorithm>

namespace kestrane::quality {

std::vector<std::int32_t> ids_of_runs(std::span<const _KESTRANE_ID_POINT3D> points) {
  std::vector<std::int32_t> ids;
  for (const _KESTRANE_ID_POINT3D& point : points) {
    if (ids.empty() || ids.back() != point.id) ids.push_back(point.id);
  }
  return ids;
}

std::vector<std::int32_t> distinct_ids(std::span<const _KESTRANE_ID_POINT3D> points) {
  std::vector<std::int32_t> ids = ids_of_runs(points);
  std::sort(ids.begin(), ids.end());
  ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
  return ids;
}

}  // namespace kestrane::quality
