// The plane table that a host would have stored since the factory, of a device that is known
// exactly: every cell is the tangent plane of its sheet.
#pragma once

#include <vector>

#include "simulation/host_table.h"
#include "simulation/scanner.h"

namespace examples {

// Row p belongs to sheet p. Without rows when the library could not give the grid record.
simulation::HostTable stored_table(const std::vector<simulation::Sheet>& sheets);

}  // namespace examples
