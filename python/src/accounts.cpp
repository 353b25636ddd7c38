#include "python/src/accounts.h"

#include <algorithm>

#include "python/src/columns.h"

namespace kestrane::python {
namespace {

using quality::DropCounts;
using quality::FrameAccount;
using quality::PlaneAccount;
using quality::RefinedCorner;
using quality::RefinedPlane;
using quality::WorstPoint;

// Sums that the library forms itself; on the way back they are not read.
template <class Record, class Dropped>
py::array screened_of(const std::vector<Record>& records, const Dropped& dropped) {
  std::vector<std::int64_t> screened;
  screened.reserve(records.size());
  for (const Record& record : records) screened.push_back(dropped(record).screened());
  const auto count = static_cast<py::ssize_t>(screened.size());
  return owned(std::move(screened), {count});
}

}  // namespace

py::dict pack_accounts(const std::vector<PlaneAccount>& accounts, std::int32_t first) {
  py::dict columns = pack(accounts, account_fields);
  columns["screened"] =
      screened_of(accounts, [](const PlaneAccount& a) -> const DropCounts& { return a.dropped; });
  const auto frames = joined<FrameAccount>(
      accounts, first, [](const PlaneAccount& a) -> const auto& { return a.frames; });
  py::dict frame_columns = pack(frames, frame_fields);
  frame_columns["screened"] = screened_of(
      frames, [](const OfPlane<FrameAccount>& f) -> const DropCounts& { return f.record.dropped; });
  columns["frames"] = frame_columns;
  columns["worst"] =
      pack(joined<WorstPoint>(
               accounts, first, [](const PlaneAccount& a) -> const auto& { return a.worst; }),
           worst_fields);
  return columns;
}

std::vector<PlaneAccount> unpack_accounts(const py::handle& source, std::int32_t first) {
  auto accounts = unpack<PlaneAccount>(source, account_fields);
  deal_out(
      unpack<OfPlane<FrameAccount>>(source.attr("frames"), frame_fields), first, accounts,
      [](PlaneAccount & account) -> auto& { return account.frames; });
  deal_out(
      unpack<OfPlane<WorstPoint>>(source.attr("worst"), worst_fields), first, accounts,
      [](PlaneAccount & account) -> auto& { return account.worst; });
  return accounts;
}

py::dict pack_refined(const std::vector<RefinedPlane>& planes) {
  const auto count = static_cast<py::ssize_t>(planes.size());
  py::dict columns = pack(planes, refined_fields);
  py::list refused;
  py::list left_out;
  std::vector<_LASER_TRIPLE> corners;
  std::vector<double> sigma;
  std::vector<_LASER_TRIPLE> indicators;
  for (const RefinedPlane& plane : planes) {
    refused.append(plane.refused);
    left_out.append(copied(plane.frames_left_out.data(), plane.frames_left_out.size(),
                           {static_cast<py::ssize_t>(plane.frames_left_out.size())}));
    if (plane.corners.empty()) {
      corners.insert(corners.end(), kCornersOfPlane, kNoTriple);
      sigma.insert(sigma.end(), kCornersOfPlane, kNotANumber);
      indicators.insert(indicators.end(), kBlocksOfPlane, kNoTriple);
      continue;
    }
    for (const RefinedCorner& corner : plane.corners) {
      corners.push_back({{corner.x, corner.y, corner.z}});
      sigma.push_back(corner.sigma);
    }
    indicators.insert(indicators.end(), plane.indicators.begin(), plane.indicators.end());
  }
  columns["refused"] = refused;
  columns["frames_left_out"] = left_out;
  columns["corners"] = owned(std::move(corners), {count, kCornerLines, kCornerCells, 3});
  columns["sigma"] = owned(std::move(sigma), {count, kCornerLines, kCornerCells});
  columns["indicators"] = owned(std::move(indicators), {count, kLines, kCells, 3});
  return columns;
}

quality::WorkingVolume volume_of(const py::tuple& bounds) {
  if (bounds.size() != 3) throw py::value_error("a volume has three bounds");
  return {bounds[0].cast<double>(), bounds[1].cast<double>(), bounds[2].cast<double>()};
}

py::tuple pack_volume(const quality::WorkingVolume& volume) {
  return py::make_tuple(volume.depth_near, volume.depth_far, volume.half_angle_degrees);
}

std::vector<std::string> texts_of(const py::handle& list, const std::string& name,
                                  std::size_t count) {
  std::vector<std::string> texts;
  for (const py::handle text : list) texts.push_back(text.cast<std::string>());
  if (texts.size() != count) {
    throw py::value_error(name + " holds " + std::to_string(texts.size()) + " texts instead of " +
                          std::to_string(count));
  }
  return texts;
}

}  // namespace kestrane::python
