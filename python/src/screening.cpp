// The screens alone.
#include "kestrane/quality/screening.h"

#include "python/src/accounts.h"
#include "python/src/columns.h"
#include "python/src/module.h"
#include "python/src/tables.h"

namespace kestrane::python {
namespace {

using quality::PointList;

py::array array_of(PointList&& points) {
  auto owner = std::make_shared<PointList>(std::move(points));
  auto kept = std::make_unique<std::shared_ptr<PointList>>(owner);
  const py::capsule base(
      kept.get(), [](void* memory) { delete static_cast<std::shared_ptr<PointList>*>(memory); });
  static_cast<void>(kept.release());      // the capsule's now
  static _KESTRANE_ID_POINT3D none = {};  // an array without points has to lead somewhere
  void* const data = owner->empty() ? &none : owner->data();
  return py::array(point_type(), Shape{static_cast<py::ssize_t>(owner->size())}, Shape{}, data,
                   base);
}

py::dict screen_cloud(const py::handle& points, double gross, bool far) {
  const Cloud cloud = cloud_of(points, "points");
  const quality::CloudSettings settings{gross, far ? LASER_TYPE_FAR : LASER_TYPE_STANDARD};
  quality::ScreenedCloud screened;
  {
    const py::gil_scoped_release unlocked;
    screened = quality::screen_cloud(cloud.record, settings);
  }
  py::dict fields;
  fields["points"] = array_of(std::move(screened.points));
  fields["account"] = pack_accounts({screened.account}, 0);
  py::dict sheet = pack_one(screened.sheet, sheet_fields);
  sheet["c"] = copied(screened.sheet.c.data(), screened.sheet.c.size(), {6});
  fields["sheet"] = sheet;
  fields["refused"] = screened.refused;
  fields["unit_hint"] = screened.unit_hint;
  return fields;
}

py::dict screen_frames(const py::sequence& frames, const py::handle& table,
                       std::int32_t first_plane, bool leave_out_ends) {
  const Clouds given(frames, "frames");
  const TableView standard(table);
  quality::ScreenedFrames screened;
  {
    const py::gil_scoped_release unlocked;
    screened =
        quality::screen_frames(given.lists(), standard.copy(), {first_plane, leave_out_ends});
  }
  py::dict fields;
  py::list lists;
  for (PointList& list : screened.lists) lists.append(array_of(std::move(list)));
  py::list original;
  for (const std::vector<std::int32_t>& numbers : screened.original) {
    original.append(
        copied(numbers.data(), numbers.size(), {static_cast<py::ssize_t>(numbers.size())}));
  }
  fields["lists"] = lists;
  fields["first_plane"] = screened.first_plane;
  fields["last_plane"] = screened.last_plane;
  fields["first_number"] = screened.first_number;
  fields["original"] = original;
  fields["account"] = pack_accounts(screened.accounts, first_plane);
  fields["left_out"] = copied(screened.left_out.data(), screened.left_out.size(),
                              {static_cast<py::ssize_t>(screened.left_out.size())});
  fields["refused"] = screened.refused;
  fields["unit_hint"] = screened.unit_hint;
  return fields;
}

}  // namespace

void add_screening(py::module_& module) {
  module.def("screen_cloud", &screen_cloud, py::arg("points"), py::arg("gross"), py::arg("far"));
  module.def("screen_frames", &screen_frames, py::arg("frames"), py::arg("table"),
             py::arg("first_plane"), py::arg("leave_out_ends"));
}

}  // namespace kestrane::python
