#include "python/src/arrays.h"

#include <cstring>
#include <limits>

namespace kestrane::python {
namespace {

py::dtype record_type(std::initializer_list<std::pair<const char*, py::object>> fields,
                      std::initializer_list<std::size_t> offsets, std::size_t size) {
  py::list names;
  py::list formats;
  for (const auto& [name, format] : fields) {
    names.append(name);
    formats.append(format);
  }
  py::list places;
  for (const std::size_t offset : offsets) places.append(offset);
  return {names, formats, places, static_cast<py::ssize_t>(size)};
}

py::object row_of(const char* format, int count) {
  return py::make_tuple(py::str(format), py::make_tuple(count));
}

std::string text_of(const py::handle& object) { return std::string(py::str(object)); }

bool fits(const py::array& array, const Shape& shape) {
  if (array.ndim() != static_cast<py::ssize_t>(shape.size())) return false;
  for (std::size_t d = 0; d < shape.size(); ++d) {
    if (shape[d] != kAny && array.shape(static_cast<py::ssize_t>(d)) != shape[d]) return false;
  }
  return true;
}

std::string text_of(const Shape& shape) {
  std::string text = "(";
  for (const py::ssize_t length : shape) {
    text += (length == kAny ? std::string("n") : std::to_string(length)) + ", ";
  }
  if (shape.size() > 1) text.resize(text.size() - 2);
  if (shape.size() == 1) text.resize(text.size() - 1);
  return text + ")";
}

}  // namespace

py::dtype point_type() {
  using Point = _KESTRANE_ID_POINT3D;
  return record_type(
      {{"x", py::str("<f8")}, {"y", py::str("<f8")}, {"z", py::str("<f8")}, {"id", py::str("<i4")}},
      {offsetof(Point, x), offsetof(Point, y), offsetof(Point, z), offsetof(Point, id)},
      sizeof(Point));
}

py::dtype grid_type() {
  using Grid = _LASER_PLANE_GRIDS;
  return record_type(
      {{"head", row_of("<i4", 4)},
       {"z", row_of("<f8", 51)},
       {"y_start", row_of("<f8", 51)},
       {"y_step", row_of("<f8", 51)},
       {"z_start", py::str("<f8")},
       {"z_step", py::str("<f8")}},
      {offsetof(Grid, grid_head), offsetof(Grid, grid_z), offsetof(Grid, grid_y_start),
       offsetof(Grid, grid_y_step), offsetof(Grid, z_start), offsetof(Grid, z_step)},
      sizeof(Grid));
}

py::array checked(py::handle value, const std::string& name, const py::dtype& type,
                  const Shape& shape) {
  if (!py::isinstance<py::array>(value)) throw py::value_error(name + " is not an array");
  auto array = py::reinterpret_borrow<py::array>(value);
  if (!array.dtype().equal(type)) {
    throw py::value_error(name + " is of type " + text_of(array.dtype()) + ", not " +
                          text_of(type));
  }
  if (!fits(array, shape)) {
    throw py::value_error(name + " has the shape " + text_of(array.attr("shape")) + ", not " +
                          text_of(shape));
  }
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): only its remainder is looked at
  const auto address = reinterpret_cast<std::uintptr_t>(array.data());
  if ((array.flags() & py::array::c_style) == 0 || address % alignof(double) != 0) {
    throw py::value_error(name + " does not lie in one piece, row by row");
  }
  return array;
}

Cloud cloud_of(py::handle value, const std::string& name) {
  Cloud cloud;
  static const py::dtype* const type = new py::dtype(point_type());  // for the life of the process
  cloud.owner = checked(value, name, *type, {kAny});
  const py::ssize_t count = cloud.owner.shape(0);
  if (count > std::numeric_limits<std::int32_t>::max()) {
    throw py::value_error(name + " has more points than 32 bits count");
  }
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): the record knows no constant points
  auto* const points = const_cast<_KESTRANE_ID_POINT3D*>(  // only read
      data_of<_KESTRANE_ID_POINT3D>(cloud.owner));
  cloud.record = {points, static_cast<std::int32_t>(count)};
  return cloud;
}

Clouds::Clouds(const py::sequence& values, const std::string& name) {
  const std::size_t count = values.size();
  for (std::size_t p = 0; p < count; ++p) {
    const py::object value = values[p];
    Cloud cloud = cloud_of(value, name + "[" + std::to_string(p) + "]");
    owners_.push_back(std::move(cloud.owner));
    records_.push_back(cloud.record);
  }
}

std::vector<std::vector<_KESTRANE_ID_POINT3D>> Clouds::lists() const {
  std::vector<std::vector<_KESTRANE_ID_POINT3D>> lists;
  lists.reserve(records_.size());
  for (const _KESTRANE_ID_POINT3DS& record : records_) {
    lists.emplace_back(record.points, record.points + record.count);
  }
  return lists;
}

std::vector<_LASER_TRIPLE> triples_of(const py::array& array) {
  std::vector<_LASER_TRIPLE> triples(static_cast<std::size_t>(array.size()) / 3);
  if (!triples.empty()) std::memcpy(triples.data(), array.data(), triples.size() * 24);
  return triples;
}

}  // namespace kestrane::python
