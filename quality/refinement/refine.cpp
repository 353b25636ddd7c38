#include <cstddef>
#include <stdexcept>

#include "kestrane/quality/refinement.h"
#include "quality/refinement/table_row.h"
#include "quality/side_by_side.h"

namespace kestrane::quality {

RefinedDevice refine(const std::vector<PointList>& clouds, const RefinementSettings& settings,
                     std::int32_t threads) {
  if (threads < 1) throw std::invalid_argument("threads must be at least 1");
  if (clouds.size() > static_cast<std::size_t>(PlaneTable::kMostPlanes))
    throw std::invalid_argument("a device has at most 100 planes");
  RefinedDevice device;
  device.table = PlaneTable(static_cast<std::int32_t>(clouds.size()));
  device.planes.resize(clouds.size());
  side_by_side(
      clouds.size(), static_cast<std::size_t>(threads),
      [&](std::size_t n, std::size_t) { device.planes[n] = refine_plane(clouds[n], settings); },
      [](std::size_t) {});
  for (std::size_t n = 0; n < clouds.size(); ++n)
    write_row(device.planes[n], static_cast<std::int32_t>(n), device.table);
  return device;
}

}  // namespace kestrane::quality
