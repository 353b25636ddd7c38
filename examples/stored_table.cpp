#include "examples/stored_table.h"

#include <algorithm>

#include "kestrane/buffers.h"

namespace examples {

simulation::HostTable stored_table(const std::vector<simulation::Sheet>& sheets) {
  kestrane::LASER_PLANE_BLOCK_INFOS_GROUP fan;  // for its grid record
  if (fan.init(1) != KESTRANE_OK) return simulation::HostTable(0);
  simulation::HostTable table(static_cast<std::int32_t>(sheets.size()));
  *table.infos().grids = *fan.grids;
  for (std::int32_t p = 0; p < table.size(); ++p) {
    const simulation::Sheet& sheet = sheets[static_cast<std::size_t>(p)];
    simulation::fill_true_table(sheet, {}, table.grids(), table.row(p).block);
    std::copy_n(simulation::whole_plane(sheet).v, 3, table.row(p).laser_plane_R);
  }
  return table;
}

}  // namespace examples
