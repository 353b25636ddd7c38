// Numbers to text, in the form that a C++ stream with its default settings gives in the classic
// locale. No locale of the host takes part.
//
// in    a number
// out   its text
#pragma once

#include <cstddef>
#include <cstdint>

namespace kestrane {

inline constexpr std::size_t kLongestNumber = 16;  // "-1.23457e-308" has 13

// Writes at `to`, which has room for kLongestNumber, and returns the end. General format with six
// significant digits: 0.1, 1e-05, 123457, 1.23457e+06, -0, inf, -nan.
char* format_number(char* to, double value);
char* format_number(char* to, std::int32_t value);

// The fast way for the numbers that tables are full of: of size 1e-16 to 1e27, and not within
// 1e-9 of the middle between two texts in units of the sixth digit. Writes as format_number does,
// into the same room; null, with nothing written, for all others.
char* put_plain_decimal(char* to, double value);

}  // namespace kestrane
