// Medians and quantiles.
//
// in    numbers, none of which is not a number; they are put into another order
// out   one of them, or the mean of two
#pragma once

#include <cstddef>
#include <span>

namespace kestrane::quality {

// The mean of the middle two of an even number of values, else the middle one. Not a number without
// values.
double median_of(std::span<double> values);

// The smallest value with at least `percent` percent of all values at or below it. Not a number
// without values. Afterwards no value before its place is larger and none after it smaller, so that
// a higher quantile lies in the rest, see quantile_place.
double quantile_of(std::span<double> values, std::size_t percent);

// The place of that value among `count` > 0 values in ascending order; percent 1 to 100.
std::size_t quantile_place(std::size_t count, std::size_t percent);

}  // namespace kestrane::quality
