// Whether points seem to be in another unit than the one that the jobs expect.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "kestrane/records.h"

namespace kestrane::quality {

// Counts depths, of one list or of several.
class UnitCheck {
 public:
  void add(const _KESTRANE_ID_POINT3D* points, std::size_t count);

  // A sentence where most points miss the depths 150 to 1500 but would hit them times 1000 (metres)
  // or times 25.4 (inches); else empty.
  std::string hint() const;

 private:
  std::int64_t points_ = 0;
  std::int64_t from_metres_ = 0;
  std::int64_t from_inches_ = 0;
};

}  // namespace kestrane::quality
