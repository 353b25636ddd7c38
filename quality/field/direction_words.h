// Directions of the motion in words.
//
// in    unit vectors of six numbers: turns about x, y, z, then shifts along x, y, z
// out   words; for a whole space of directions also the vectors that are nearest to the axes
#pragma once

#include <string>

#include "quality/field/motion_rows.h"

namespace kestrane::quality {

// "shift along y", "turn about y (with shift along x, turn about z)": the largest component, then
// those above 0.35, largest first. Of components that are equal but for rounding the first counts.
std::string direction_words(const Vector6& direction);

// Another basis of the space that the orthonormal columns of `basis` span: each column has a
// component that all others lack, and unit length. Those components are the ones that the space
// reaches best, so that the outcome depends on the space alone and not on the basis that a
// decomposition happened to find in it. Columns are not orthogonal in general.
//
// basis  6 x k, k from 1 to 6
//
// Columns come in the order of their own component, which is positive.
Eigen::Matrix<double, 6, Eigen::Dynamic> along_axes(
    const Eigen::Matrix<double, 6, Eigen::Dynamic>& basis);

}  // namespace kestrane::quality
