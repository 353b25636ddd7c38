// The plane table that a host would have stored since the factory, of a device that is known
// exactly: every cell is the tangent plane of its sheet.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "kestrane/buffers.h"
#include "simulation/host_table.h"
#include "simulation/scanner.h"

namespace simulation {

// Row p belongs to sheet p. Without rows when the library could not give the grid record.
inline HostTable true_table(const std::vector<Sheet>& sheets) {
  kestrane::LASER_PLANE_BLOCK_INFOS_GROUP fan;  // for its grid record
  if (fan.init(1) != KESTRANE_OK) return HostTable(0);
  HostTable table(static_cast<std::int32_t>(sheets.size()));
  *table.infos().grids = *fan.grids;
  for (std::int32_t p = 0; p < table.size(); ++p) {
    const Sheet& sheet = sheets[static_cast<std::size_t>(p)];
    fill_true_table(sheet, {}, table.grids(), table.row(p).block);
    std::copy_n(whole_plane(sheet).v, 3, table.row(p).laser_plane_R);
  }
  return table;
}

}  // namespace simulation
