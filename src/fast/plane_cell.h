// From a measured point to the patch of the standard that it is compared with.
//
// in    a point, the standard, the number of the point's laser plane
// out   the (a, b, c) of its cell, as it stands or moved by a rigid transform
#pragma once

#include <cstdint>

#include "kestrane/records.h"
#include "records/fan.h"

namespace kestrane {

// The cell at an index of `plane`'s table. Null for an empty one (all three coefficients
// negligible) and for a plane that the table cannot hold.
const _LASER_TRIPLE* cell_at(const _LASER_PLANE_BLOCK_INFOS& standard, std::int32_t plane,
                             CellIndex index);

// The plane (a, b, c) as a normal and a point.
//
// unit_normal  (a, b, c) scaled to length 1
// plane_point  a point of the plane on the axis of its largest coefficient; the origin without one
void unit_plane(const double* coeffs, double* unit_normal, double* plane_point);

// The plane of a point's cell in both forms. False where there is no cell; nothing is written then.
//
// point   x, y, z; x plays no part in finding the cell
// coeffs  (a, b, c)
bool lookup_plane_cell(const double* point, const _LASER_PLANE_BLOCK_INFOS& standard,
                       std::int32_t plane, double* coeffs, double* unit_normal,
                       double* plane_point);

// Carries the plane (a, b, c) through `extrinsic`.
//
// moved_coeffs  the moved plane, again with constant term 1
// d             what the rotated normal was divided by
//
// The plane is followed at its point on the x axis: a is the dominant coefficient of a laser plane.
// Nothing guards the division by a.
void transform_plane(const double* coeffs, double* moved_coeffs,
                     const _MRV_EXTRINSIC_PARAM& extrinsic, double& d);

}  // namespace kestrane
