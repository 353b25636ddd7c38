#include "python/src/tables.h"

#include <algorithm>
#include <cstring>
#include <optional>

#include "python/src/module.h"

namespace kestrane::python {
namespace {

using quality::Block;
using quality::PlaneTable;

const py::dtype& known_grid_type() {
  static const auto* const type = new py::dtype(grid_type());  // for the life of the process
  return *type;
}

// The triples of an array, which are only read.
_LASER_TRIPLE* cells_in(const py::array& array) {
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-*-cast): the record knows no constant cells
  return reinterpret_cast<_LASER_TRIPLE*>(const_cast<double*>(data_of<double>(array)));
}

// y and z of n places, as two arrays.
struct Places {
  Places(py::handle y, py::handle z) : ys(checked<double>(y, "y", {kAny})) {
    zs = checked<double>(z, "z", {ys.shape(0)});
  }
  std::size_t size() const { return static_cast<std::size_t>(ys.size()); }
  double y(std::size_t i) const { return data_of<double>(ys)[i]; }
  double z(std::size_t i) const { return data_of<double>(zs)[i]; }

  py::array ys;
  py::array zs;
};

py::tuple lookup_all(py::handle table, py::handle y, py::handle z) {
  const TableView view(table);
  const Places places(y, z);
  std::vector<std::int32_t> lines(places.size(), -1);
  std::vector<std::int32_t> steps(places.size(), -1);
  {
    const py::gil_scoped_release unlocked;
    PlaneTable bounds;
    bounds.grids() = *view.record().grids;
    for (std::size_t i = 0; i < places.size(); ++i) {
      const std::optional<Block> block = bounds.lookup(places.y(i), places.z(i));
      if (!block) continue;
      lines[i] = block->line;
      steps[i] = block->cell;
    }
  }
  const auto n = static_cast<py::ssize_t>(places.size());
  return py::make_tuple(owned(std::move(lines), {n}), owned(std::move(steps), {n}));
}

void require_plane(const TableView& view, std::int32_t plane) {
  if (plane >= 0 && plane < view.planes()) return;
  throw py::value_error("the table has no plane " + std::to_string(plane));
}

py::array x_at_all(py::handle table, std::int32_t plane, py::handle y, py::handle z) {
  const TableView view(table);
  require_plane(view, plane);
  const Places places(y, z);
  std::vector<double> xs(places.size());
  {
    const py::gil_scoped_release unlocked;
    const PlaneTable row = view.row(plane);
    for (std::size_t i = 0; i < xs.size(); ++i) xs[i] = row.x_at(0, places.y(i), places.z(i));
  }
  return owned(std::move(xs), {static_cast<py::ssize_t>(places.size())});
}

py::array signed_distances(py::handle table, std::int32_t plane, py::handle xyz) {
  const TableView view(table);
  require_plane(view, plane);
  const py::array points = checked<double>(xyz, "xyz", {kAny, 3});
  const auto count = static_cast<std::size_t>(points.shape(0));
  std::vector<double> found(count);
  {
    const py::gil_scoped_release unlocked;
    const PlaneTable row = view.row(plane);
    const auto* const p = data_of<double>(points);
    for (std::size_t i = 0; i < count; ++i) {
      found[i] = row.distance(0, {p[3 * i], p[3 * i + 1], p[3 * i + 2]});
    }
  }
  return owned(std::move(found), {static_cast<py::ssize_t>(count)});
}

py::array block_middles(py::handle table) {
  const TableView view(table);
  PlaneTable bounds;
  bounds.grids() = *view.record().grids;
  std::vector<double> middles;
  for (std::int32_t line = 0; line < PlaneTable::kLines; ++line) {
    for (std::int32_t cell = 0; cell < PlaneTable::kCells; ++cell) {
      const quality::FanPlace middle = bounds.block_middle({line, cell});
      middles.insert(middles.end(), {middle.y, middle.z});
    }
  }
  return owned(std::move(middles), {kLines, kCells, 2});
}

bool are_equal(py::handle a, py::handle b) {
  const TableView one(a);
  const TableView other(b);
  const py::gil_scoped_release unlocked;
  return one.copy() == other.copy();
}

}  // namespace

TableView::TableView(py::handle table)
    : cells_(checked<double>(table.attr("cells"), "cells", {kAny, kLines, kCells, 3})),
      whole_(checked<double>(table.attr("whole"), "whole", {cells_.shape(0), 3})),
      grid_(checked(table.attr("grid").attr("record"), "grid", known_grid_type(), {})) {
  const py::ssize_t planes = cells_.shape(0);
  if (planes > PlaneTable::kMostPlanes) throw py::value_error("a table has at most 100 planes");
  _LASER_TRIPLE* const cells = cells_in(cells_);
  lines_.resize(static_cast<std::size_t>(planes * kLines));
  for (std::size_t n = 0; n < lines_.size(); ++n) {
    lines_[n] = {cells + n * static_cast<std::size_t>(kCells), static_cast<std::int32_t>(kCells)};
  }
  rows_.resize(static_cast<std::size_t>(planes));
  for (std::size_t p = 0; p < rows_.size(); ++p) {
    rows_[p].block = {&lines_[p * static_cast<std::size_t>(kLines)],
                      static_cast<std::int32_t>(kLines)};
    std::copy_n(data_of<double>(whole_) + 3 * p, 3, rows_[p].laser_plane_R);
  }
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): the record knows no constant bounds
  grids_ = const_cast<_LASER_PLANE_GRIDS*>(data_of<_LASER_PLANE_GRIDS>(grid_));
}

_MRV_LASER_PLANE_BLOCK_INFOS TableView::record() const {
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): the record knows no constant rows
  return {const_cast<_MRV_LASER_PLANE_BLOCK_INFO*>(rows_.data()), grids_, planes()};
}

PlaneTable TableView::row(std::int32_t plane) const {
  _MRV_LASER_PLANE_BLOCK_INFOS infos = record();
  infos.planes += plane;
  infos.plane_count = 1;
  return PlaneTable::copy_of(infos);
}

py::tuple arrays_of(PlaneTable&& table) {
  const auto owner = std::make_shared<PlaneTable>(std::move(table));
  const py::ssize_t planes = owner->planes();
  std::vector<double> whole;
  for (std::int32_t p = 0; p < owner->planes(); ++p) {
    whole.insert(whole.end(), owner->whole_plane(p), owner->whole_plane(p) + 3);
  }
  static double none = 0.0;  // an array without planes has to lead somewhere
  double* const cells = planes > 0 ? owner->data() : &none;
  return py::make_tuple(array_over(owner, cells, {planes, kLines, kCells, 3}),
                        owned(std::move(whole), {planes, 3}), grid_array(owner->grids()));
}

py::array grid_array(const _LASER_PLANE_GRIDS& grids) {
  py::array array(known_grid_type(), Shape{});
  std::memcpy(array.mutable_data(), &grids, sizeof grids);
  return array;
}

void add_tables(py::module_& module) {
  module.def("point_type", &point_type, "The type of a point.");
  module.def("grid_type", &grid_type, "The type of the bounds of the blocks.");
  module.def(
      "nominal_grid", [] { return grid_array(PlaneTable().grids()); }, "The bounds of the fan.");
  module.def("lookup", &lookup_all, py::arg("table"), py::arg("y"), py::arg("z"));
  module.def("x_at", &x_at_all, py::arg("table"), py::arg("plane"), py::arg("y"), py::arg("z"));
  module.def("signed_distances", &signed_distances, py::arg("table"), py::arg("plane"),
             py::arg("xyz"));
  module.def("block_middles", &block_middles, py::arg("table"));
  module.def("tables_equal", &are_equal, py::arg("a"), py::arg("b"));
}

}  // namespace kestrane::python
