// Rows of a cloud, sorted into lists.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "fit/points.h"

namespace kestrane {

// The rows of `points`, each in the list that it belongs to, in input order. No list is longer than
// it has rows, and each is allocated once.
//
// list_of  per row
// sizes    rows of each list
inline std::vector<PointMatrix3> sorted_rows(const PointMatrix3& points,
                                             const std::vector<std::uint8_t>& list_of,
                                             const std::vector<Eigen::Index>& sizes) {
  std::vector<PointMatrix3> lists;
  std::vector<double*> ends;
  lists.reserve(sizes.size());
  ends.reserve(sizes.size());
  for (const Eigen::Index rows : sizes) ends.push_back(lists.emplace_back(rows, 3).data());
  const double* row = points.data();
  for (const std::uint8_t list : list_of) {
    double*& end = ends[list];
    end[0] = row[0];
    end[1] = row[1];
    end[2] = row[2];
    end += 3;
    row += 3;
  }
  return lists;
}

}  // namespace kestrane
