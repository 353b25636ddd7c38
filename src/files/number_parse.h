// Text to numbers, in the form that a C++ stream with its default settings takes in the classic
// locale. No locale of the host takes part.
//
// in    a file at the place where a number is expected
// out   the number, with the file just after it
#pragma once

#include <cstdint>
#include <string_view>

#include "files/file_stream.h"

namespace kestrane {

// Skips white space and reads one number. A number ends where the next character cannot belong to
// it, so "1.5.2" is two and "1e" is none.
//
// False at the end of the file, for text that is not a number (inf, nan and hexadecimal digits are
// not) and for a number outside the type's range; `value` is untouched then, and the file's
// position is of no more use. A number too small for a double is 0.
bool read_number(InputFile& in, double& value);
bool read_number(InputFile& in, std::int32_t& value);

// The fast way for the numbers that real files are full of: up to 18 digits that make no more than
// 2^53, a point among them, maybe an exponent like e-05, white space after that, and a power of ten
// of -22 to 22 in all. Gives the end of the number; null, with `value` untouched, for all other
// text and for less than 32 characters.
const char* take_plain_decimal(std::string_view text, double& value);

}  // namespace kestrane
