// Numbers as text, in the form that a C++ stream with its default settings gives and takes in the
// classic locale. No locale of the host takes part.
//
// in    a number, or a file at the place where one is expected
// out   its text, or the number with the file behind it
#pragma once

#include <cstdint>
#include <string_view>

#include "files/file_stream.h"

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

// Skips white space and reads one number. A number ends where the next character cannot belong to
// it, so "1.5.2" is two and "1e" is none.
//
// False at the end of the file, for text that is no number (inf, nan and hexadecimal digits are
// none) and for one outside the type's range; `value` is untouched then, and the file's position is
// of no more use. A number too small for a double is 0.
bool read_number(InputFile& in, double& value);
bool read_number(InputFile& in, std::int32_t& value);

// The fast way for the numbers that real files are full of: up to 18 digits that make no more than
// 2^53, a point among them, maybe an exponent like e-05, white space behind, and a power of ten of
// -22 to 22 in all. Gives the end of the number; null, with `value` untouched, for all other text
// and for less than 32 characters.
const char* take_plain_decimal(std::string_view text, double& value);

}  // namespace kestrane
