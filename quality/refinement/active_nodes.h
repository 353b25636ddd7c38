// The rectangle of nodes that an estimate works with.
//
// in    the cells that hold points
// out   a rectangle of nodes, numbered line by line of depth
#pragma once

#include "quality/refinement/fan_nodes.h"

namespace kestrane::quality::refinement {

// Nodes first_u .. first_u + across - 1 at depths first_z .. first_z + along - 1, at least 4 x 4.
// Node (i, j) of the fan is number across (j - first_z) + (i - first_u) here, so that neighbours
// stay near each other.
struct ActiveNodes {
  int first_u = 0;
  int across = kAcross;
  int first_z = 0;
  int along = kAlong;

  int count() const { return across * along; }
  int number(int i, int j) const { return across * (j - first_z) + (i - first_u); }
  // The farthest that two nodes of one point's 4 x 4 stand apart.
  int band() const { return 3 * across + 3; }
  bool operator==(const ActiveNodes& other) const = default;
};

}  // namespace kestrane::quality::refinement
