// The least-squares problem of a surface: what the samples ask of the node values.
//
// in    samples that count, their stencils, what they measure
// out   A'A as a band and A'd, over the active nodes
#pragma once

#include <cstdint>
#include <vector>

#include "quality/refinement/active_nodes.h"
#include "quality/refinement/banded.h"
#include "quality/refinement/samples.h"

namespace kestrane::quality::refinement {

struct NormalEquations {
  BandedMatrix matrix;
  std::vector<double> right;
  std::int64_t samples = 0;

  explicit NormalEquations(const ActiveNodes& active)
      : matrix(active.count(), active.band()), right(static_cast<std::size_t>(active.count())) {}
};

// The equations of some samples, in this order. All their nodes are active.
//
// values   per sample, what the surface should be there
// members  indices of the samples that count
NormalEquations equations_of(const ActiveNodes& active, const std::vector<Stencil>& stencils,
                             const std::vector<double>& values,
                             const std::vector<std::int32_t>& members);

// The surface at a stencil, from values at all nodes of the fan.
double surface_at(const Stencil& stencil, const std::vector<double>& values);

}  // namespace kestrane::quality::refinement
