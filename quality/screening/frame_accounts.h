// What became of each capture frame.
//
// in    points as handed in, and what happened to each
// out   one account per frame and their sum
#pragma once

#include <cstdint>
#include <vector>

#include "kestrane/quality/screening.h"

namespace kestrane::quality {

// What happened to a point: kept, or dropped for a reason.
enum class Fate : std::uint8_t { kKept, kNotFinite, kDepth, kGross, kNoCell };

// Different frame numbers, ascending, and the place of a number among them.
class FrameNumbers {
 public:
  FrameNumbers(const _KESTRANE_ID_POINT3D* points, std::size_t count);

  const std::vector<std::int32_t>& ascending() const { return numbers_; }

  // The place of a number that one of the points has.
  std::size_t place_of(std::int32_t number) const {
    if (number == last_number_) return last_place_;
    last_number_ = number;
    last_place_ = places_.empty() ? search(number) : places_[offset_of(number)];
    return last_place_;
  }

 private:
  std::size_t search(std::int32_t number) const;
  std::size_t offset_of(std::int32_t number) const {
    return static_cast<std::size_t>(std::int64_t{number} - numbers_.front());
  }

  std::vector<std::int32_t> numbers_;
  std::vector<std::uint32_t> places_;  // by number; none where the numbers lie far apart
  // Points come in runs of one frame: most questions are the last one again.
  mutable std::int32_t last_number_ = 0;
  mutable std::size_t last_place_ = 0;
};

// Fills all of an account but the worst points. One fate per point.
void account_for(const _KESTRANE_ID_POINT3D* points, const std::vector<Fate>& fates,
                 PlaneAccount& account);

}  // namespace kestrane::quality
