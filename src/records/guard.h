// The guard of divisions and of comparisons with zero.
#pragma once

namespace kestrane {

// Added to a denominator, or the size under which a value counts as zero: the distance from 1 to
// the next double.
inline constexpr double kGuard = 2.220446049250313e-16;

}  // namespace kestrane
