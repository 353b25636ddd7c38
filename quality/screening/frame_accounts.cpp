#include "quality/screening/frame_accounts.h"

#include <algorithm>
#include <cstddef>

#include "quality/frame_ids.h"

namespace kestrane::quality {
namespace {

// Numbers that span no more than this many per point get a table of places.
constexpr std::int64_t kSpanPerPoint = 4;

void count_one(Fate fate, DropCounts& dropped) {
  dropped.not_finite += fate == Fate::kNotFinite ? 1 : 0;
  dropped.depth += fate == Fate::kDepth ? 1 : 0;
  dropped.gross += fate == Fate::kGross ? 1 : 0;
  dropped.no_cell += fate == Fate::kNoCell ? 1 : 0;
}

void add(const FrameAccount& frame, PlaneAccount& account) {
  account.points += frame.points;
  account.kept += frame.kept;
  account.dropped.not_finite += frame.dropped.not_finite;
  account.dropped.depth += frame.dropped.depth;
  account.dropped.gross += frame.dropped.gross;
  account.dropped.no_cell += frame.dropped.no_cell;
}

}  // namespace

FrameNumbers::FrameNumbers(const _KESTRANE_ID_POINT3D* points, std::size_t count)
    : numbers_(ids_of_runs({points, count})) {
  if (numbers_.empty()) return;
  const auto [low, high] = std::minmax_element(numbers_.begin(), numbers_.end());
  const std::int32_t first = *low;
  const std::int64_t span = std::int64_t{*high} - first + 1;
  if (span > kSpanPerPoint * static_cast<std::int64_t>(count)) {
    std::sort(numbers_.begin(), numbers_.end());
    numbers_.erase(std::unique(numbers_.begin(), numbers_.end()), numbers_.end());
  } else {
    places_.assign(static_cast<std::size_t>(span), 0);
    for (const std::int32_t number : numbers_)
      places_[static_cast<std::size_t>(std::int64_t{number} - first)] = 1;
    numbers_.clear();
    for (std::size_t n = 0; n < places_.size(); ++n) {
      if (places_[n] == 0) continue;
      places_[n] = static_cast<std::uint32_t>(numbers_.size());
      numbers_.push_back(static_cast<std::int32_t>(first + static_cast<std::int64_t>(n)));
    }
  }
  last_number_ = numbers_.front();
}

std::size_t FrameNumbers::search(std::int32_t number) const {
  const auto at = std::lower_bound(numbers_.begin(), numbers_.end(), number);
  return static_cast<std::size_t>(at - numbers_.begin());
}

void account_for(const _KESTRANE_ID_POINT3D* points, const std::vector<Fate>& fates,
                 PlaneAccount& account) {
  const FrameNumbers numbers(points, fates.size());
  account.frames.resize(numbers.ascending().size());
  for (std::size_t f = 0; f < account.frames.size(); ++f)
    account.frames[f].frame = numbers.ascending()[f];
  for (std::size_t i = 0; i < fates.size(); ++i) {
    FrameAccount& frame = account.frames[numbers.place_of(points[i].id)];
    ++frame.points;
    if (fates[i] == Fate::kKept) {
      ++frame.kept;
    } else {
      count_one(fates[i], frame.dropped);
    }
  }
  for (const FrameAccount& frame : account.frames) add(frame, account);
}

}  // namespace kestrane::quality
