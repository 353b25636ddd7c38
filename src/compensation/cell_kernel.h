// The work on single cells of a plane table: scale along the extrinsic translation, then a rigid
// rotation about the plane's pivot.
//
// in    a line of cells, three doubles (a, b, c) of a x + b y + c z + 1 = 0 each, one after the
//       other; the motion that all cells of one laser plane share
// out   the same cells, rewritten in place
//
// Every form below gives the same values to the last bit; the sign and the payload of a NaN are
// the compiler's choice. Nothing here allocates, and nothing traps a degenerate number.
#pragma once

#include <cstdint>

namespace kestrane {

// What happens to each cell of one laser plane.
struct PlaneMotion {
  double translation[3];  // T of the extrinsic matrix, the direction in which planes grow
  double scale;           // growth of a plane's distance along `translation`
  double rotation[9];     // row by row
  double pivot[3];        // the point about which the plane rotates
};

// The point of a plane on the line through the origin along `translation`. Not finite where the
// plane is parallel to that line.
void point_along(const double translation[3], const double plane[3], double point[3]);

// Moves a plane so that its point along `translation` lies `scale` times as far from the origin;
// the direction stays. A plane that cannot be brought back to its form stays as it is.
void correct_plane(const double translation[3], double scale, double plane[3]);

// Vector instructions for which the line form is compiled, in rising order.
enum class VectorSet { kBaseline, kAvx2, kAvx512 };

// The best set of this processor.
VectorSet best_vector_set();

// The body that a set runs: a different one for each set that this build knows, else the
// baseline's.
using LineForm = void(const PlaneMotion& motion, double* cells, std::int32_t count);
LineForm* line_form(VectorSet set);

// Moves `count` cells; a count below 1 moves none, and a cell whose a is 0.0 is empty and stays.
// The first form uses the processor's best set, the second one the given set, which the processor
// must have.
void compensate_line(const PlaneMotion& motion, double* cells, std::int32_t count);
void compensate_line(const PlaneMotion& motion, double* cells, std::int32_t count, VectorSet set);

}  // namespace kestrane
