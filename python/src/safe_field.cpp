// The field calibration in its safe form, and the difference of two tables.
#include "python/src/safe_field.h"

#include <algorithm>

#include "kestrane/fast_calib.h"
#include "python/src/accounts.h"
#include "python/src/columns.h"
#include "python/src/engines.h"
#include "python/src/module.h"
#include "python/src/tables.h"

namespace kestrane::python {
namespace {

using quality::Difference;
using quality::FieldResult;
using quality::FieldUse;
using quality::MotionDirection;
using quality::PlaneUse;

constexpr py::ssize_t kStages = 5;

py::tuple pack_motion(const _MRV_EXTRINSIC_PARAM& motion) {
  return py::make_tuple(copied(motion.R, 9, {3, 3}), copied(motion.T, 3, {3}));
}

_MRV_EXTRINSIC_PARAM motion_of(const py::handle& source) {
  _MRV_EXTRINSIC_PARAM motion;
  const py::array rotation = checked<double>(source.attr("R"), "R", {3, 3});
  const py::array translation = checked<double>(source.attr("t"), "t", {3});
  std::copy_n(data_of<double>(rotation), 9, motion.R);
  std::copy_n(data_of<double>(translation), 3, motion.T);
  return motion;
}

py::dict pack_directions(const std::vector<MotionDirection>& directions) {
  py::dict columns = pack(directions, direction_fields);
  py::list names;
  std::vector<double> vectors;
  for (const MotionDirection& direction : directions) {
    names.append(direction.name);
    vectors.insert(vectors.end(), direction.vector, direction.vector + 6);
  }
  columns["names"] = names;
  columns["vectors"] = owned(std::move(vectors), {static_cast<py::ssize_t>(directions.size()), 6});
  return columns;
}

std::vector<MotionDirection> directions_of(const py::handle& source) {
  auto directions = unpack<MotionDirection>(source, direction_fields);
  const std::vector<std::string> names = texts_of(source.attr("names"), "names", directions.size());
  const py::array vectors = checked<double>(source.attr("vectors"), "vectors",
                                            {static_cast<py::ssize_t>(directions.size()), 6});
  for (std::size_t i = 0; i < directions.size(); ++i) {
    directions[i].name = names[i];
    std::copy_n(data_of<double>(vectors) + 6 * i, 6, directions[i].vector);
  }
  return directions;
}

py::dict pack_use(const FieldUse& used, std::int32_t first_plane) {
  std::vector<quality::StageCount> stages(used.stages, used.stages + kStages);
  std::vector<std::int32_t> planes;
  std::vector<std::int64_t> points;
  std::vector<std::int32_t> frames;
  for (const PlaneUse& plane : used.planes) {
    planes.push_back(plane.plane);
    points.insert(points.end(), plane.points, plane.points + kStages);
    frames.insert(frames.end(), plane.frames, plane.frames + kStages);
  }
  const auto count = static_cast<py::ssize_t>(planes.size());
  py::dict fields;
  fields["stages"] = pack(stages, stage_fields);
  fields["plane"] = owned(std::move(planes), {count});
  fields["points"] = owned(std::move(points), {count, kStages});
  fields["frames"] = owned(std::move(frames), {count, kStages});
  fields["dropped"] = pack(used.dropped, dropped_frame_fields);
  fields["left_out"] = copied(used.left_out.data(), used.left_out.size(),
                              {static_cast<py::ssize_t>(used.left_out.size())});
  fields["screening"] = pack_accounts(used.screening, first_plane);
  fields["unit_hint"] = used.unit_hint;
  return fields;
}

FieldUse use_of(const py::handle& source) {
  FieldUse used;
  const auto stages =
      unpack<quality::StageCount>(source.attr("stages"), Shape{kStages}, stage_fields);
  std::copy(stages.begin(), stages.end(), used.stages);
  const py::array planes = checked<std::int32_t>(source.attr("plane"), "plane", {kAny});
  const py::ssize_t count = planes.shape(0);
  const py::array points = checked<std::int64_t>(source.attr("points"), "points", {count, kStages});
  const py::array frames = checked<std::int32_t>(source.attr("frames"), "frames", {count, kStages});
  used.planes.resize(static_cast<std::size_t>(count));
  for (std::size_t p = 0; p < used.planes.size(); ++p) {
    used.planes[p].plane = data_of<std::int32_t>(planes)[p];
    std::copy_n(data_of<std::int64_t>(points) + p * kStages, kStages, used.planes[p].points);
    std::copy_n(data_of<std::int32_t>(frames) + p * kStages, kStages, used.planes[p].frames);
  }
  used.dropped = unpack<quality::DroppedFrame>(source.attr("dropped"), dropped_frame_fields);
  const py::array left_out = checked<std::int32_t>(source.attr("left_out"), "left_out", {kAny});
  used.left_out.assign(data_of<std::int32_t>(left_out),
                       data_of<std::int32_t>(left_out) + left_out.size());
  const std::int32_t first = used.planes.empty() ? 0 : used.planes.front().plane;
  used.screening = unpack_accounts(source.attr("screening"), first);
  used.unit_hint = source.attr("unit_hint").cast<std::string>();
  return used;
}

py::dict pack_displacement(const quality::Displacement& displacement) {
  py::dict fields;
  fields["rms"] = displacement.rms;
  fields["max"] = displacement.max;
  fields["sigma"] = displacement.sigma;
  fields["plane"] = displacement.plane;
  fields["line"] = displacement.block.line;
  fields["step"] = displacement.block.cell;
  return fields;
}

quality::Displacement displacement_of(const py::handle& source) {
  quality::Displacement displacement;
  displacement.rms = source.attr("rms").cast<double>();
  displacement.max = source.attr("max").cast<double>();
  displacement.sigma = source.attr("sigma").cast<double>();
  displacement.plane = source.attr("plane").cast<std::int32_t>();
  displacement.block.line = source.attr("line").cast<std::int32_t>();
  displacement.block.cell = source.attr("step").cast<std::int32_t>();
  return displacement;
}

py::dict pack_result(const FieldResult& result, std::int32_t first_plane) {
  py::dict fields;
  fields["refused"] = result.refused;
  fields["displacement"] = pack_displacement(result.displacement);
  fields["smallest_motion"] = pack_motion(result.smallest_motion);
  fields["motion"] = pack_motion(result.motion);
  fields["quaternion"] = copied(result.transform.quaternion, 4, {4});
  fields["mean"] = result.indicators.mean;
  fields["max"] = result.indicators.max;
  fields["half_mean_deviation"] = result.indicators.deviation;
  fields["directions"] = pack_directions(result.directions);
  const double centre[3] = {result.centre.x, result.centre.y, result.centre.z};
  fields["centre"] = copied(centre, 3, {3});
  fields["length"] = result.length;
  fields["residual"] = result.residual;
  fields["frame_clusters"] = result.frame_clusters;
  fields["plane_clusters"] = result.plane_clusters;
  fields["sigma_holds_table"] = result.sigma_holds_table;
  fields["first_plane"] = result.first_plane;
  fields["last_plane"] = result.last_plane;
  fields["used"] = pack_use(result.used, first_plane);
  return fields;
}

py::dict calibrate_field(const py::handle& table, const py::sequence& frames,
                         std::int32_t first_plane, bool leave_out_ends) {
  const TableView standard(table);
  const Clouds given(frames, "frames");
  FieldResult result;
  {
    const py::gil_scoped_release unlocked;
    const Pool<KESTRANE_LASER_FAST_CALIB>::Lease engine =
        pool_of<KESTRANE_LASER_FAST_CALIB>().take();
    result = quality::calibrate_field(*engine, standard.copy(), given.lists(),
                                      {first_plane, leave_out_ends});
  }
  return pack_result(result, first_plane);
}

py::dict pack_difference(Difference&& difference, py::ssize_t planes) {
  py::dict fields;
  fields["refused"] = difference.refused;
  fields["rms"] = difference.rms;
  fields["max"] = difference.max;
  fields["plane"] = difference.plane;
  fields["line"] = difference.block.line;
  fields["step"] = difference.block.cell;
  fields["place"] = py::make_tuple(difference.place.y, difference.place.z);
  fields["rigid"] = pack_motion(difference.rigid);
  fields["rest"] = difference.rest;
  fields["rest_max"] = difference.rest_max;
  fields["explained"] = difference.explained;
  fields["blocks"] = difference.blocks;
  fields["only_in_one"] = difference.only_in_one;
  fields["planes"] = pack(difference.planes, difference_fields);
  const bool compared = difference.values.size() == static_cast<std::size_t>(planes * 750);
  const py::ssize_t rows = compared ? planes : 0;
  if (!compared) {
    difference.values.clear();
    difference.rests.clear();
  }
  fields["values"] = owned(std::move(difference.values), {rows, kLines, kCells});
  fields["rests"] = owned(std::move(difference.rests), {rows, kLines, kCells});
  return fields;
}

py::dict compare(const py::handle& a, const py::handle& b, const py::tuple& volume) {
  const TableView one(a);
  const TableView other(b);
  const quality::WorkingVolume wanted = volume_of(volume);
  Difference difference;
  {
    const py::gil_scoped_release unlocked;
    difference = quality::compare(one.copy(), other.copy(), wanted);
  }
  return pack_difference(std::move(difference), one.planes());
}

}  // namespace

FieldResult field_result_of(const py::handle& source) {
  FieldResult result;
  result.refused = source.attr("refused").cast<std::string>();
  result.displacement = displacement_of(source.attr("displacement"));
  result.smallest_motion = motion_of(source.attr("smallest_motion"));
  result.motion = motion_of(source);
  const py::array quaternion = checked<double>(source.attr("quaternion"), "quaternion", {4});
  std::copy_n(data_of<double>(quaternion), 4, result.transform.quaternion);
  std::copy_n(result.motion.T, 3, result.transform.translation);
  result.indicators = {source.attr("mean").cast<double>(), source.attr("max").cast<double>(),
                       source.attr("half_mean_deviation").cast<double>()};
  result.directions = directions_of(source.attr("directions"));
  const py::array centre = checked<double>(source.attr("centre"), "centre", {3});
  const auto* const c = data_of<double>(centre);
  result.centre = {c[0], c[1], c[2]};
  result.length = source.attr("length").cast<double>();
  result.residual = source.attr("residual").cast<double>();
  result.frame_clusters = source.attr("frame_clusters").cast<std::int32_t>();
  result.plane_clusters = source.attr("plane_clusters").cast<std::int32_t>();
  result.sigma_holds_table = source.attr("sigma_holds_table").cast<bool>();
  result.first_plane = source.attr("first_plane").cast<std::int32_t>();
  result.last_plane = source.attr("last_plane").cast<std::int32_t>();
  result.used = use_of(source.attr("used"));
  return result;
}

Difference difference_of(const py::handle& source) {
  Difference difference;
  difference.refused = source.attr("refused").cast<std::string>();
  difference.rms = source.attr("rms").cast<double>();
  difference.max = source.attr("max").cast<double>();
  difference.plane = source.attr("plane").cast<std::int32_t>();
  difference.block.line = source.attr("line").cast<std::int32_t>();
  difference.block.cell = source.attr("step").cast<std::int32_t>();
  const auto place = source.attr("place").cast<py::tuple>();
  difference.place = {place[0].cast<double>(), place[1].cast<double>()};
  difference.rigid = motion_of(source.attr("rigid"));
  difference.rest = source.attr("rest").cast<double>();
  difference.rest_max = source.attr("rest_max").cast<double>();
  difference.explained = source.attr("explained").cast<double>();
  difference.blocks = source.attr("blocks").cast<std::int32_t>();
  difference.only_in_one = source.attr("only_in_one").cast<std::int32_t>();
  difference.planes = unpack<quality::PlaneDifference>(source.attr("planes"), difference_fields);
  return difference;
}

void add_safe_field(py::module_& module) {
  module.def("calibrate_field", &calibrate_field, py::arg("table"), py::arg("frames"),
             py::arg("first_plane"), py::arg("leave_out_ends"));
  module.def("compare", &compare, py::arg("a"), py::arg("b"), py::arg("volume"));
}

}  // namespace kestrane::python
