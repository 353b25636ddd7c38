// From the active nodes to all nodes of the fan.
//
// in    values at the active nodes
// out   values at all nodes: straight on along each ray from its last two active nodes, then
// straight
//       on across at each depth
#pragma once

#include <array>
#include <vector>

#include "quality/refinement/active_nodes.h"

namespace kestrane::quality::refinement {

// A node's value as a sum of active ones: 1 for an active node, 2 on an active ray or at an active
// depth, else 4. All of them stand within the band of the active nodes' matrices.
struct Combination {
  int count = 0;
  std::array<int, 4> number = {};  // of active nodes
  std::array<double, 4> factor = {};
  double distance = 0.0;  // from the active nodes in (y, z), along the ray and then across
};

class Continuation {
 public:
  Continuation(const FanNodes& nodes, const ActiveNodes& active);

  // Of node (i, j).
  const Combination& at(int i, int j) const { return combinations_[node_index(i, j)]; }

  // active_values  one per active node
  // values         resized to all nodes of the fan
  void apply(const std::vector<double>& active_values, std::vector<double>& values) const;

 private:
  std::vector<Combination> combinations_;
};

}  // namespace kestrane::quality::refinement
