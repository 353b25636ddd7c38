#include <algorithm>
#include <cmath>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <utility>

#include "kestrane/quality/screening.h"
#include "quality/screening/frame_accounts.h"
#include "quality/screening/unit_check.h"

namespace kestrane::quality {
namespace {

void check(const std::vector<PointList>& lists, const PlaneTable& table,
           const FrameSettings& settings) {
  if (lists.empty()) throw std::invalid_argument("there are no lists of points");
  const std::int64_t last = settings.first_plane + std::ssize(lists) - 1;
  if (settings.first_plane >= 0 && last < table.planes()) return;
  throw std::invalid_argument("the table has " + std::to_string(table.planes()) +
                              " planes, the lists want planes " +
                              std::to_string(settings.first_plane) + " to " + std::to_string(last));
}

Fate fate_of(const _KESTRANE_ID_POINT3D& point, const PlaneTable& table, std::int32_t plane) {
  if (!std::isfinite(point.x) || !std::isfinite(point.y) || !std::isfinite(point.z))
    return Fate::kNotFinite;
  const std::optional<Block> at = table.lookup(point.y, point.z);
  return at && !table.is_empty(plane, *at) ? Fate::kKept : Fate::kNoCell;
}

PointList screen_list(const PointList& list, const PlaneTable& table, std::int32_t plane,
                      PlaneAccount& account) {
  std::vector<Fate> fates(list.size());
  PointList kept;
  kept.reserve(list.size());
  for (std::size_t i = 0; i < list.size(); ++i) {
    fates[i] = fate_of(list[i], table, plane);
    if (fates[i] == Fate::kKept) kept.push_back(list[i]);
  }
  account_for(list.data(), fates, account);
  return kept;
}

// Why the job cannot use a plane; empty where it can.
std::string obstacle(const PlaneTable& table, std::int32_t plane, const PlaneAccount& account) {
  const std::string name = "plane " + std::to_string(plane);
  if (table.row_is_empty(plane)) return name + " has an empty row in the table";
  if (account.points == 0) return name + " has no points";
  if (account.kept == 0)
    return name + " has no points left: " + std::to_string(account.dropped.not_finite) +
           " are not finite, " + std::to_string(account.dropped.no_cell) +
           " lie outside the table's blocks";
  return {};
}

// The range of lists that stays: obstacles at the ends may be cut off where the settings allow it.
struct Range {
  std::size_t first;
  std::size_t end;
};

Range trim(const std::vector<std::string>& obstacles, bool leave_out_ends) {
  Range range = {0, obstacles.size()};
  if (!leave_out_ends) return range;
  while (range.first < range.end && !obstacles[range.first].empty()) ++range.first;
  while (range.end > range.first && !obstacles[range.end - 1].empty()) --range.end;
  return range;
}

std::string refusal(const std::vector<std::string>& obstacles, const Range& range) {
  if (range.first == range.end) return "no plane of the range is left: " + obstacles.front();
  std::string text;
  for (std::size_t i = range.first; i < range.end; ++i) {
    if (obstacles[i].empty()) continue;
    if (!text.empty()) text += "; ";
    text += obstacles[i];
  }
  return text;
}

// Gives the frames of all lists their new numbers.
void number_anew(ScreenedFrames& screened) {
  std::vector<FrameNumbers> numbers;
  std::size_t most = 0;
  for (const PointList& list : screened.lists) {
    numbers.emplace_back(list.data(), list.size());
    most = std::max(most, numbers.back().ascending().size());
  }
  screened.first_number = -(static_cast<std::int32_t>(most) - 1);
  for (std::size_t l = 0; l < screened.lists.size(); ++l) {
    for (_KESTRANE_ID_POINT3D& point : screened.lists[l]) {
      point.id = screened.first_number + static_cast<std::int32_t>(numbers[l].place_of(point.id));
    }
    screened.original.push_back(numbers[l].ascending());
  }
}

}  // namespace

ScreenedFrames screen_frames(const std::vector<PointList>& lists, const PlaneTable& table,
                             const FrameSettings& settings) {
  check(lists, table, settings);
  ScreenedFrames screened;
  screened.accounts.resize(lists.size());
  std::vector<std::string> obstacles;
  UnitCheck units;
  for (std::size_t l = 0; l < lists.size(); ++l) {
    const std::int32_t plane = settings.first_plane + static_cast<std::int32_t>(l);
    screened.lists.push_back(screen_list(lists[l], table, plane, screened.accounts[l]));
    obstacles.push_back(obstacle(table, plane, screened.accounts[l]));
    units.add(lists[l].data(), lists[l].size());
  }
  screened.unit_hint = units.hint();

  const Range range = trim(obstacles, settings.leave_out_ends);
  for (std::size_t l = 0; l < lists.size(); ++l) {
    if (l < range.first || l >= range.end)
      screened.left_out.push_back(settings.first_plane + static_cast<std::int32_t>(l));
  }
  screened.refused = refusal(obstacles, range);
  if (!screened.refused.empty()) {
    if (!screened.unit_hint.empty()) screened.refused += "; " + screened.unit_hint;
    screened.lists.clear();
    return screened;
  }
  screened.lists.erase(screened.lists.begin() + static_cast<std::ptrdiff_t>(range.end),
                       screened.lists.end());
  screened.lists.erase(screened.lists.begin(),
                       screened.lists.begin() + static_cast<std::ptrdiff_t>(range.first));
  screened.first_plane = settings.first_plane + static_cast<std::int32_t>(range.first);
  screened.last_plane = settings.first_plane + static_cast<std::int32_t>(range.end) - 1;
  number_anew(screened);
  return screened;
}

}  // namespace kestrane::quality
