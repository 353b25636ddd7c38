// The slots of `Mbs_factory_to_user`: one transform from factory to user coordinates per plane.
//
// A slot is twelve doubles: a rotation, row by row, then a translation.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "records/shapes.h"

namespace kestrane {

inline constexpr std::int32_t kSlotSize = 12;  // doubles
inline constexpr std::int32_t kTransformSlots = kMaxPlanes;

inline constexpr std::int32_t kMaxRanges = 20;  // plane ranges of a coefficient record

// How many of `count` entries a store of `room` really has: what a violated precondition claims
// beyond it is never touched.
inline std::int32_t entries_within(std::int32_t count, std::int32_t room) {
  return std::clamp(count, 0, room);
}

inline double* transform_slot(double* store, std::int32_t plane) {
  return store + static_cast<std::ptrdiff_t>(plane) * kSlotSize;
}

// Positions of the three ones of a unit rotation.
inline void set_unit_diagonal(double* slot) { slot[0] = slot[4] = slot[8] = 1.0; }

}  // namespace kestrane
