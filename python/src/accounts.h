// Accounts of the screening and refined planes, as columns and back.
#pragma once

#include <string>
#include <vector>

#include "kestrane/quality/refinement.h"
#include "kestrane/quality/screening.h"
#include "kestrane/quality/working_volume.h"
#include "python/src/arrays.h"
#include "python/src/figures.h"

namespace kestrane::python {

// What all planes have of their own, one list after the other, with the number of the plane.
//
// first  number of the first plane
// list   list(plane) is the list of a plane's record
template <class Item, class Plane, class List>
std::vector<OfPlane<Item>> joined(const std::vector<Plane>& planes, std::int32_t first,
                                  const List& list) {
  std::vector<OfPlane<Item>> items;
  for (std::size_t p = 0; p < planes.size(); ++p) {
    for (const Item& item : list(planes[p])) {
      items.push_back({first + static_cast<std::int32_t>(p), item});
    }
  }
  return items;
}

// The way back: hands each item to its plane's list. ValueError for a plane that is not there.
template <class Item, class Plane, class List>
void deal_out(const std::vector<OfPlane<Item>>& items, std::int32_t first,
              std::vector<Plane>& planes, const List& list) {
  for (const OfPlane<Item>& item : items) {
    const std::int64_t row = std::int64_t{item.plane} - first;
    if (row < 0 || row >= static_cast<std::int64_t>(planes.size())) {
      throw py::value_error("figures of plane " + std::to_string(item.plane) +
                            ", which is not there");
    }
    list(planes[static_cast<std::size_t>(row)]).push_back(item.record);
  }
}

py::dict pack_accounts(const std::vector<quality::PlaneAccount>& accounts, std::int32_t first);
std::vector<quality::PlaneAccount> unpack_accounts(const py::handle& source, std::int32_t first);

// Columns of refined planes, but not their table.
py::dict pack_refined(const std::vector<quality::RefinedPlane>& planes);

// (near, far, half angle) or None.
quality::WorkingVolume volume_of(const py::tuple& bounds);
py::tuple pack_volume(const quality::WorkingVolume& volume);

std::vector<std::string> texts_of(const py::handle& list, const std::string& name,
                                  std::size_t count);

}  // namespace kestrane::python
