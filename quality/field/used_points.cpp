#include "quality/field/used_points.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>
#include <vector>

#include "quality/field/job_stages.h"
#include "quality/frame_ids.h"

namespace kestrane::quality {
namespace {

constexpr std::array<FieldStage, 5> kStages = {FieldStage::kGiven, FieldStage::kScreened,
                                               FieldStage::kFrameFilter,
                                               FieldStage::kInteriorPlanes, FieldStage::kUsed};

std::size_t index_of(FieldStage stage) { return static_cast<std::size_t>(stage); }

using Numbers = std::vector<std::int32_t>;  // ascending

// What screening left of the list of one plane. Those that were refused have no points.
PlaneUse screened_use(const PlaneAccount& account, std::int32_t plane) {
  PlaneUse use;
  use.plane = plane;
  use.points[index_of(FieldStage::kGiven)] = account.points;
  use.points[index_of(FieldStage::kScreened)] = account.kept;
  use.frames[index_of(FieldStage::kGiven)] = static_cast<std::int32_t>(account.frames.size());
  use.frames[index_of(FieldStage::kScreened)] = static_cast<std::int32_t>(
      std::count_if(account.frames.begin(), account.frames.end(),
                    [](const FrameAccount& frame) { return frame.kept > 0; }));
  return use;
}

void add_screening_drops(const PlaneAccount& account, std::int32_t plane,
                         std::vector<DroppedFrame>& dropped) {
  for (const FrameAccount& frame : account.frames) {
    if (frame.kept == 0) dropped.push_back({plane, frame.frame, FieldStage::kScreened});
  }
}

// Counts what a stage left of one plane, and names the frames that it took the last point of.
void count_stage(const PointList& left, FieldStage stage, const std::vector<std::int32_t>& original,
                 std::int32_t first_number, Numbers& numbers, PlaneUse& use,
                 std::vector<DroppedFrame>& dropped) {
  const Numbers remaining = distinct_ids(left);
  for (const std::int32_t number : numbers) {
    if (std::binary_search(remaining.begin(), remaining.end(), number)) continue;
    const auto place = static_cast<std::size_t>(std::int64_t{number} - first_number);
    dropped.push_back({use.plane, original[place], stage});
  }
  use.points[index_of(stage)] = static_cast<std::int64_t>(left.size());
  use.frames[index_of(stage)] = static_cast<std::int32_t>(remaining.size());
  numbers = remaining;
}

void sum_stages(FieldUse& use) {
  for (const FieldStage stage : kStages) {
    StageCount& all = use.stages[index_of(stage)];
    all = {};
    for (const PlaneUse& plane : use.planes) {
      all.points += plane.points[index_of(stage)];
      all.frames += plane.frames[index_of(stage)];
      all.planes += plane.points[index_of(stage)] > 0 ? 1 : 0;
    }
  }
}

void sort_dropped(std::vector<DroppedFrame>& dropped) {
  std::sort(dropped.begin(), dropped.end(), [](const DroppedFrame& a, const DroppedFrame& b) {
    return std::pair(a.plane, a.frame) < std::pair(b.plane, b.frame);
  });
}

// Appends the used points of one plane, whose frames become clusters of their own.
void append_used(const PointList& list, const PlaneTable& table, std::int32_t plane,
                 UsedPoints& used) {
  if (list.empty()) return;
  const Numbers numbers = distinct_ids(list);
  for (const _KESTRANE_ID_POINT3D& point : list) {
    const auto rank = std::lower_bound(numbers.begin(), numbers.end(), point.id) - numbers.begin();
    const Block at = table.lookup(point.y, point.z).value();
    used.points.push_back({{point.x, point.y, point.z},
                           unit_plane(table.cell(plane, at)),
                           used.planes,
                           used.frames + static_cast<std::int32_t>(rank)});
  }
  ++used.planes;
  used.frames += static_cast<std::int32_t>(numbers.size());
}

}  // namespace

void count_screening(const ScreenedFrames& screened, std::int32_t first_plane, FieldUse& use) {
  use.left_out = screened.left_out;
  use.screening = screened.accounts;
  use.unit_hint = screened.unit_hint;
  for (std::size_t i = 0; i < screened.accounts.size(); ++i) {
    const std::int32_t plane = first_plane + static_cast<std::int32_t>(i);
    use.planes.push_back(screened_use(screened.accounts[i], plane));
    add_screening_drops(screened.accounts[i], plane, use.dropped);
  }
  sum_stages(use);
}

UsedPoints collect_used_points(const ScreenedFrames& screened, const PlaneTable& table,
                               const RigidMotion& motion, FieldUse& use) {
  const JobStages stages = run_job_stages(screened.lists, table, screened.first_plane, motion);
  UsedPoints used;
  for (std::size_t i = 0; i < screened.lists.size(); ++i) {
    const std::int32_t plane = screened.first_plane + static_cast<std::int32_t>(i);
    PlaneUse& plane_use = use.planes[static_cast<std::size_t>(plane - use.planes.front().plane)];
    Numbers numbers = distinct_ids(screened.lists[i]);
    const auto count = [&](const PointList& left, FieldStage stage) {
      count_stage(left, stage, screened.original[i], screened.first_number, numbers, plane_use,
                  use.dropped);
    };
    count(stages.filtered[i], FieldStage::kFrameFilter);
    count(stages.interior[i], FieldStage::kInteriorPlanes);
    count(stages.used[i], FieldStage::kUsed);
    append_used(stages.used[i], table, plane, used);
  }
  sum_stages(use);
  sort_dropped(use.dropped);
  return used;
}

}  // namespace kestrane::quality
